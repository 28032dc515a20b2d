#include "Installation.h"

#include "Sockets.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace Bench {

namespace fs = std::filesystem;

Child::Child(Side side, const std::vector<std::string>& arguments, int outputFd) : m_pid(fork()) {
    if (m_pid < 0)
        throw std::runtime_error("no process for " + arguments.front());
    if (m_pid > 0)
        return;
    RunOn(side);
    const int output = outputFd >= 0 ? outputFd : open("/dev/null", O_WRONLY);
    dup2(output, STDOUT_FILENO);
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    std::vector<char*> raw;
    raw.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        raw.push_back(const_cast<char*>(argument.c_str()));
    raw.push_back(nullptr);
    execv(raw.front(), raw.data());
    _exit(127);
}

Child::~Child() {
    if (m_pid != 0)
        kill(m_pid, SIGTERM);
    Wait();
}

int Child::Wait() {
    int status = 0;
    if (m_pid != 0)
        waitpid(m_pid, &status, 0);
    m_pid = 0;
    return WEXITSTATUS(status);
}

std::string Program(const std::string& name) {
    return (fs::path(KNX_BIN_DIR) / name).string();
}

Directory::Directory() {
    std::string name = (fs::temp_directory_path() / "knx-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no temporary directory");
    m_path = name;
}

Directory::~Directory() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

long ResidentKiB(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        long kib = 0;
        if (word == "VmRSS:" && status >> kib)
            return kib;
    }
    throw std::runtime_error("no VmRSS");
}

Installation::Installation(const std::function<void(const std::string& directory)>& change)
    : m_port(FreeUdpPort()) {
    fs::copy(KNX_EXAMPLE, m_directory / "house", fs::copy_options::recursive);
    if (change)
        change(m_directory / "house");
    m_deviceStack.emplace(Side::Measured,
                          std::vector<std::string>{Program("devicestackd"), "--config",
                                                   m_directory / "house/devicestackd.json", "--socket",
                                                   Socket(), "--state-dir", m_directory / "state"},
                          -1);
    m_host.emplace(Side::Measured, HostArguments(), -1);
    WaitUntilReady();
}

std::vector<std::string> Installation::HostArguments() const {
    return {Program("knxstackd"),
            "--config",
            m_directory / "house/knxstackd.json",
            "--knx-port",
            std::to_string(m_port),
            "--device-stack-socket",
            Socket()};
}

void Installation::WaitUntilReady() const {
    for (int tries = 0; tries < 300; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (!fs::exists(Socket()))
            continue;
        LineSocket lines(Socket());
        lines.WriteLine(R"({"jsonrpc":"2.0","id":1,"method":"getValue","params":{"id":1002}})");
        if (lines.ReadLine().find(R"("value":"1")") != std::string::npos)
            return;
    }
    throw std::runtime_error("the application program is not ready after 30 s");
}

} // namespace Bench
