#include "Installation.h"

#include "Sockets.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
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
    kill(m_pid, SIGTERM);
    waitpid(m_pid, nullptr, 0);
}

std::string Program(const std::string& name) {
    return (fs::path(KNX_BIN_DIR) / name).string();
}

Installation::Installation() : m_port(FreeUdpPort()) {
    std::string name = (fs::temp_directory_path() / "knx-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no temporary directory");
    m_directory = name;
    fs::copy(KNX_EXAMPLE, m_directory / "house", fs::copy_options::recursive);
    m_children.push_back(std::make_unique<Child>(
        Side::Measured,
        std::vector<std::string>{Program("devicestackd"), "--config", m_directory / "house/devicestackd.json",
                                 "--socket", Socket(), "--state-dir", m_directory / "state"},
        -1));
    m_children.push_back(std::make_unique<Child>(
        Side::Measured,
        std::vector<std::string>{Program("knxstackd"), "--config", m_directory / "house/knxstackd.json",
                                 "--knx-port", std::to_string(m_port), "--device-stack-socket", Socket()},
        -1));
    WaitUntilReady();
}

Installation::~Installation() {
    while (!m_children.empty())
        m_children.pop_back();
    fs::remove_all(m_directory);
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

long Installation::HostResidentKiB() const {
    std::ifstream status("/proc/" + std::to_string(m_children.back()->Pid()) + "/status");
    for (std::string word; status >> word;) {
        long kib = 0;
        if (word == "VmRSS:" && status >> kib)
            return kib;
    }
    throw std::runtime_error("no VmRSS");
}

} // namespace Bench
