#include "DeviceStackClient/Link.h"

#include "DeviceStackClient/ThreadStart.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace DeviceStackClient {

namespace {

std::string ErrorText(int error) {
    return std::generic_category().message(error);
}

int CreateWakeFd() {
    const int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    return fd;
}

/// Before attempt number `attempt` (0 = the first): none, 100 ms, 200 ms, … 5 s.
std::chrono::milliseconds PauseBefore(unsigned attempt) {
    if (attempt == 0)
        return std::chrono::milliseconds(0);
    return std::chrono::milliseconds(std::min(100u << std::min(attempt - 1, 6u), 5000u));
}

} // namespace

Link::Link(std::string socketPath, User& user)
    : m_socketPath(std::move(socketPath)), m_user(user), m_wakeFd(CreateWakeFd()) {}

Link::~Link() {
    Stop();
    ::close(m_wakeFd);
}

void Link::Start() {
    m_thread = StartThread("DscClientIo", [this] { Run(); });
}

void Link::Stop() {
    if (!m_thread.joinable())
        return;
    m_stop = true;
    Wake();
    m_thread.join();
}

void Link::Send() {
    {
        const std::unique_lock lock(m_writing, std::try_to_lock);
        if (lock.owns_lock() && m_socket >= 0) {
            WriteLocked();
            if (m_output.empty())
                return;
        }
    }
    Wake(); // also when another thread is writing: it may have taken its last output already
}

void Link::Wake() {
    if (m_wakePending.exchange(true))
        return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(m_wakeFd, &one, sizeof one); // full = already awake
}

void Link::Run() {
    while (!m_stop) {
        if (m_socket < 0 && Clock::now() >= m_nextAttempt)
            Connect();
        const bool wantsWrite = m_socket >= 0 && Write();
        std::array<pollfd, 2> fds{
            {{m_wakeFd, POLLIN, 0}, {m_socket, static_cast<short>(POLLIN | (wantsWrite ? POLLOUT : 0)), 0}}};
        ::poll(fds.data(), fds.size(), PollTimeout()); // a closed socket is -1, which poll() passes over
        if (fds[0].revents != 0) {
            std::uint64_t count = 0;
            [[maybe_unused]] const auto got = ::read(m_wakeFd, &count, sizeof count);
            m_wakePending = false; // after the read and before the output is taken: no wish is missed
        }
        if (m_socket >= 0 && (fds[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0)
            Read();
    }
    const std::lock_guard lock(m_writing);
    if (m_socket >= 0) {
        WriteLocked();
        ::close(m_socket);
        m_socket = -1;
    }
}

int Link::PollTimeout() const {
    if (m_socket >= 0)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_nextAttempt - Clock::now()).count();
    return static_cast<int>(std::max<std::int64_t>(left, 0));
}

/// A connected socket, or -1 and the reason.
int Link::Connected(std::string& reason) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_socketPath.empty() || m_socketPath.size() >= sizeof address.sun_path) {
        reason = "no device stack at \"" + m_socketPath + "\": a socket's path has 1 to " +
                 std::to_string(sizeof address.sun_path - 1) + " characters";
        return -1;
    }
    std::memcpy(address.sun_path, m_socketPath.c_str(), m_socketPath.size() + 1);

    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd >= 0 && ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return fd;
    reason = "no device stack at " + m_socketPath + ": " + ErrorText(errno);
    if (fd >= 0)
        ::close(fd);
    return -1;
}

void Link::Connect() {
    ++m_attempts;
    m_nextAttempt = Clock::now() + PauseBefore(m_attempts);
    std::string reason;
    const int connected = Connected(reason);
    if (connected < 0)
        return m_user.OnClosed(reason);
    m_user.OnConnected(); // before anybody can send on the new connection
    const std::lock_guard lock(m_writing);
    m_socket = connected;
}

void Link::Close(const std::string& reason) {
    {
        const std::lock_guard lock(m_writing);
        ::close(m_socket);
        m_socket = -1;
        m_writeBroken = false;
        m_output.clear();
    }
    m_nextAttempt = Clock::now() + PauseBefore(m_attempts);
    m_user.OnClosed(reason);
}

void Link::Read() {
    std::array<char, kChunk> buffer;
    const auto got = ::recv(m_socket, buffer.data(), buffer.size(), 0);
    if (got > 0) {
        if (!m_user.OnReceived({buffer.data(), static_cast<std::size_t>(got)}))
            Close("the device stack at " + m_socketPath + " was left");
        return;
    }
    if (got == 0)
        return Close("the device stack at " + m_socketPath + " closed the connection");
    if (errno != EAGAIN && errno != EINTR)
        Close("the connection to the device stack at " + m_socketPath + " broke: " + ErrorText(errno));
}

/// True when the rest waits for room in the socket.
bool Link::Write() {
    const std::lock_guard lock(m_writing);
    WriteLocked();
    return !m_output.empty() && !m_writeBroken;
}

void Link::WriteLocked() {
    std::size_t sent = 0;
    while (!m_writeBroken) {
        if (m_output.size() - sent < kChunk) {
            m_output.erase(0, sent); // what is sent must not take the room of what comes next
            sent = 0;
            m_user.TakeOutput(m_output);
        }
        if (m_output.empty())
            break;
        const auto count =
            ::send(m_socket, m_output.data() + sent, m_output.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            m_writeBroken = errno != EAGAIN;
            break;
        }
        sent += static_cast<std::size_t>(count);
    }
    m_output.erase(0, sent);
}

} // namespace DeviceStackClient
