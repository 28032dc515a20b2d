#include "RawTcp.h"

#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace KnxStackHost {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

bool IsReadable(int socket, Clock::time_point end) {
    const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now()).count();
    pollfd waiting{socket, POLLIN, 0};
    return ::poll(&waiting, 1, left < 0 ? 0 : static_cast<int>(left)) == 1;
}

} // namespace

RawTcp::RawTcp(std::uint16_t peerPort, int receiveBuffer) {
    m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer != 0)
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(peerPort);
    if (::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        ::close(m_socket);
        throw std::system_error(error, std::generic_category(), "no TCP connection for the test");
    }
}

RawTcp::~RawTcp() {
    ::close(m_socket);
}

bool RawTcp::Send(const Bytes& octets) const {
    std::size_t sent = 0;
    while (sent < octets.size()) {
        const auto size = ::send(m_socket, octets.data() + sent, octets.size() - sent, MSG_NOSIGNAL);
        if (size < 0)
            return false;
        sent += static_cast<std::size_t>(size);
    }
    return true;
}

Bytes RawTcp::Receive(std::size_t size, milliseconds patience) const {
    const auto end = Clock::now() + patience;
    Bytes octets(size);
    std::size_t received = 0;
    while (received < size && IsReadable(m_socket, end)) {
        const auto more = ::recv(m_socket, octets.data() + received, size - received, 0);
        if (more <= 0)
            break;
        received += static_cast<std::size_t>(more);
    }
    octets.resize(received);
    return octets;
}

Bytes RawTcp::ReceiveFrame(milliseconds patience) const {
    Bytes frame = Receive(6, patience);
    if (frame.size() != 6)
        return frame;
    const std::size_t total = static_cast<std::size_t>(frame[4]) << 8 | frame[5];
    const Bytes body = Receive(total < 6 ? 0 : total - 6, patience);
    frame.insert(frame.end(), body.begin(), body.end());
    return frame;
}

bool RawTcp::HasEnded(milliseconds patience) const {
    const auto end = Clock::now() + patience;
    while (IsReadable(m_socket, end)) {
        std::uint8_t buffer[4096];
        if (::recv(m_socket, buffer, sizeof buffer, 0) <= 0)
            return true;
    }
    return false;
}

Bytes ConnectOverTcp() {
    const Bytes here = {0x08, 0x02, 0, 0, 0, 0, 0, 0}; // where it comes from
    return Frame(0x0205, Joined({here, here, {0x04, 0x04, 0x02, 0x00}}));
}

Bytes TunnellingRequest(std::uint8_t channel, const Bytes& cemi, std::uint8_t sequence) {
    return Frame(0x0420, Joined({{0x04, channel, sequence, 0x00}, cemi}));
}

} // namespace KnxStackHost
