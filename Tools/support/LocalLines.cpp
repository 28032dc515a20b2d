#include "Tools/support/LocalLines.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Tools {

LocalLines::LocalLines(std::string socketPath, DaemonName daemon, std::size_t longest)
    : m_socketPath(std::move(socketPath)), m_daemon(daemon), m_lines(longest) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_socketPath.empty() || m_socketPath.size() >= sizeof address.sun_path)
        throw NotThere(fmt::format("no {} at '{}': a socket's path has 1 to {} characters", m_daemon.what,
                                   m_socketPath, sizeof address.sun_path - 1));
    std::memcpy(address.sun_path, m_socketPath.c_str(), m_socketPath.size() + 1);

    m_socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_socket >= 0 &&
        ::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return;
    const int error = errno;
    if (m_socket >= 0)
        ::close(m_socket);
    throw NotThere(fmt::format("no {} at {}: is {} running? ({}; --socket names another place)",
                               m_daemon.what, m_socketPath, m_daemon.program,
                               std::generic_category().message(error)));
}

LocalLines::~LocalLines() {
    ::close(m_socket);
}

void LocalLines::Send(std::string_view line) {
    while (!line.empty()) {
        const auto sent = ::send(m_socket, line.data(), line.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR)
            throw NotThere(fmt::format("the {} at {} closed the connection", m_daemon.what, m_socketPath));
        line.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    }
}

std::string_view LocalLines::Receive(Clock::time_point deadline) {
    if (const auto line = TryReceive(deadline))
        return *line;
    throw NotThere(fmt::format("the {} at {} does not answer", m_daemon.what, m_socketPath));
}

std::optional<std::string_view> LocalLines::TryReceive(Clock::time_point deadline) {
    while (true) {
        if (const auto line = m_lines.Next())
            return line;

        int wait = -1;
        if (deadline != Clock::time_point::max())
            wait = static_cast<int>(std::max<std::int64_t>(
                std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count(), 0));
        pollfd entry{m_socket, POLLIN, 0};
        const int ready = ::poll(&entry, 1, wait);
        if (ready == 0)
            return std::nullopt;
        if (ready < 0)
            continue; // a signal

        std::array<char, 65536> buffer;
        const auto got = ::recv(m_socket, buffer.data(), buffer.size(), 0);
        if (got > 0)
            m_lines.Append({buffer.data(), static_cast<std::size_t>(got)});
        else if (got == 0 || errno != EINTR)
            throw NotThere(fmt::format("the {} at {} closed the connection", m_daemon.what, m_socketPath));
        if (m_lines.IsTooLong())
            throw NotThere(
                fmt::format("the {} at {} sends a message that is too long", m_daemon.what, m_socketPath));
    }
}

} // namespace Tools
