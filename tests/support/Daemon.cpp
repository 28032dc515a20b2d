#include "Daemon.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace DeviceStackServer {

namespace json = boost::json;

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    EXPECT_TRUE(file.good()) << path;
}

std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

RawClient::RawClient(const std::string& socket) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socket.copy(address.sun_path, sizeof address.sun_path - 1);
    m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

RawClient::~RawClient() {
    if (m_fd >= 0)
        ::close(m_fd);
}

void RawClient::Send(const std::string& text) {
    for (std::size_t sent = 0; sent < text.size();) {
        const auto count = ::send(m_fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return;
        sent += static_cast<std::size_t>(count);
    }
}

void RawClient::EndSending() {
    ::shutdown(m_fd, SHUT_WR);
}

std::optional<std::string> RawClient::Receive(std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (const auto feed = m_received.find('\n'); feed != std::string::npos) {
            auto line = m_received.substr(0, feed);
            m_received.erase(0, feed + 1);
            return line;
        }
        const auto rest =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd state{m_fd, POLLIN, 0};
        if (rest.count() < 0 || ::poll(&state, 1, static_cast<int>(rest.count())) <= 0)
            return std::nullopt;
        char buffer[65536];
        const auto count = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (count <= 0)
            return std::nullopt;
        m_received.append(buffer, static_cast<std::size_t>(count));
    }
}

json::value RawClient::ReceiveJson(std::chrono::milliseconds limit) {
    const auto line = Receive(limit);
    return line ? json::parse(*line) : json::value();
}

bool RawClient::IsClosed(std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
        pollfd state{m_fd, POLLIN, 0};
        if (::poll(&state, 1, 50) <= 0)
            continue;
        char buffer[65536];
        if (::recv(m_fd, buffer, sizeof buffer, 0) <= 0)
            return true;
    }
    return false;
}

json::value RawClient::Call(const std::string& method, const std::string& params) {
    const int id = ++m_lastId;
    SendLine(R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" + method + R"(","params":)" +
             params + "}");
    for (;;) {
        auto answer = ReceiveJson();
        if (answer.is_null())
            return answer;
        const auto* found = answer.as_object().if_contains("id");
        if (found && *found == json::value(id) && !answer.as_object().contains("method"))
            return answer;
    }
}

json::value RawClient::Register(const std::string& name, const std::string& more) {
    return Call("register", R"({"name":")" + name + R"(","type":"test","instance":"1",)" + more + "}");
}

Daemon::Daemon(const std::string& project, const std::string& configuration) {
    WriteText(ProjectPath(), project);
    WriteText(directory / "devicestackd.json",
              R"({"project":"project.json","socket":"run/socket","stateDirectory":"state",)" +
                  (configuration.empty() ? R"("saveDelay":0)" : configuration) + "}");
}

std::vector<std::string> Daemon::Arguments() const {
    return {DEVICESTACKD, "--config", directory / "devicestackd.json", "--log-level", "DEBUG"};
}

bool Daemon::Start(const std::vector<std::string>& environment) {
    WriteText(directory / "log", "");
    m_process.emplace(Arguments(), directory / "log", environment);
    return Eventually(
               [&] {
                   return Log().find("Ready: ") != std::string::npos ||
                          m_process->Wait(std::chrono::milliseconds(0)) >= 0;
               },
               std::chrono::seconds(60)) && // with thousands of data points, on a slow or busy machine
           m_process->Wait(std::chrono::milliseconds(0)) < 0;
}

void Daemon::Stop(int signal) {
    m_process->Signal(signal);
    m_process->Wait();
}

} // namespace DeviceStackServer
