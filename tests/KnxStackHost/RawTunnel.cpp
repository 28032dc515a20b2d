#include "RawTunnel.h"

#include <arpa/inet.h>
#include <cerrno>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace KnxStackHost {

using std::chrono::milliseconds;

namespace {

unsigned ServiceOf(const Bytes& datagram) {
    return datagram.size() < 6 ? 0 : static_cast<unsigned>(datagram[2]) << 8 | datagram[3];
}

/// Address and port of the client on loopback.
Bytes Hpai(std::uint16_t port) {
    return {0x08,
            0x01,
            127,
            0,
            0,
            1,
            static_cast<std::uint8_t>(port >> 8),
            static_cast<std::uint8_t>(port & 0xFF)};
}

} // namespace

RawUdp::RawUdp(std::uint16_t peerPort) {
    m_socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::system_error(errno, std::generic_category(), "no UDP port for the test");
    m_port = ntohs(address.sin_port);
    address.sin_port = htons(peerPort);
    if (::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "no UDP socket for the test");
}

RawUdp::~RawUdp() {
    ::close(m_socket);
}

void RawUdp::Send(const Bytes& datagram) const {
    ::send(m_socket, datagram.data(), datagram.size(), 0);
}

Bytes RawUdp::Receive(milliseconds patience) const {
    pollfd waiting{m_socket, POLLIN, 0};
    if (::poll(&waiting, 1, static_cast<int>(patience.count())) != 1)
        return {};
    Bytes datagram(1024);
    const auto size = ::recv(m_socket, datagram.data(), datagram.size(), 0);
    datagram.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return datagram;
}

int BindBeside(std::uint32_t address, std::uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(address);
    own.sin_port = htons(port);
    const int result = ::bind(socket, reinterpret_cast<sockaddr*>(&own), sizeof own) == 0 ? 0 : errno;
    ::close(socket);
    return result;
}

RawTunnel::RawTunnel(std::uint16_t serverPort) : m_udp(serverPort) {
    const auto own = Hpai(m_udp.Port());
    m_udp.Send(Frame(0x0205, Joined({own, own, {0x04, 0x04, 0x02, 0x00}}))); // a tunnel on the link layer
    const auto answer = m_udp.Receive();
    if (ServiceOf(answer) != 0x0206 || answer.size() != 20 || answer[7] != 0) {
        ADD_FAILURE() << "no tunnel";
        return;
    }
    m_channel = answer[6];
    m_address = static_cast<std::uint16_t>(answer[18] << 8 | answer[19]);
}

bool RawTunnel::Send(const Bytes& cemi) {
    m_acknowledged.reset();
    m_udp.Send(Frame(0x0420, Joined({{0x04, m_channel, m_sent, 0x00}, cemi})));
    while (!m_acknowledged)
        if (!Take(m_udp.Receive()))
            return false;
    if (*m_acknowledged != 0)
        return false;
    ++m_sent;
    return true;
}

Bytes RawTunnel::Receive(milliseconds patience) {
    while (m_cemi.empty())
        if (!Take(m_udp.Receive(patience)))
            return {};
    auto cemi = m_cemi.front();
    m_cemi.erase(m_cemi.begin());
    return cemi;
}

Bytes RawTunnel::ReceiveIndication(milliseconds patience) {
    for (;;) {
        auto cemi = Receive(patience);
        if (cemi.empty() || cemi[0] == 0x29)
            return cemi;
    }
}

bool RawTunnel::IsAlive() {
    m_state.reset();
    m_udp.Send(Frame(0x0207, Joined({{m_channel, 0x00}, Hpai(m_udp.Port())})));
    while (!m_state)
        if (!Take(m_udp.Receive()))
            return false;
    return *m_state == 0;
}

bool RawTunnel::Disconnect() {
    m_udp.Send(Frame(0x0209, Joined({{m_channel, 0x00}, Hpai(m_udp.Port())})));
    while (!m_over)
        if (!Take(m_udp.Receive()))
            return false;
    return true;
}

bool RawTunnel::WasDisconnected(milliseconds patience) {
    while (!m_disconnected)
        if (!Take(m_udp.Receive(patience)))
            return false;
    return true;
}

bool RawTunnel::Take(const Bytes& datagram) {
    switch (ServiceOf(datagram)) {
    case 0x0420: {
        if (datagram.size() < 11 || datagram[7] != m_channel)
            return true;
        const auto sequence = datagram[8];
        m_udp.Send(Frame(0x0421, {0x04, m_channel, sequence, 0x00}));
        if (sequence == m_received) {
            ++m_received;
            m_cemi.emplace_back(datagram.begin() + 10, datagram.end());
        }
        return true;
    }
    case 0x0421:
        if (datagram.size() == 10 && datagram[7] == m_channel && datagram[8] == m_sent)
            m_acknowledged = datagram[9];
        return true;
    case 0x0208:
        if (datagram.size() == 8 && datagram[6] == m_channel)
            m_state = datagram[7];
        return true;
    case 0x0209:
        if (datagram.size() > 6 && datagram[6] == m_channel)
            m_disconnected = true;
        return true;
    case 0x020A:
        if (datagram.size() > 6 && datagram[6] == m_channel)
            m_over = true;
        return true;
    default: return !datagram.empty();
    }
}

Bytes Joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const auto& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes Frame(std::uint16_t service, const Bytes& body) {
    const auto size = 6 + body.size();
    return Joined(
        {{0x06, 0x10, static_cast<std::uint8_t>(service >> 8), static_cast<std::uint8_t>(service & 0xFF),
          static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size & 0xFF)},
         body});
}

Bytes GroupRequest(std::uint16_t destination, std::uint16_t apci, const Bytes& value) {
    Bytes cemi = {0x11,
                  0x00,
                  0xBC,
                  0xE0,
                  0x00,
                  0x00,
                  static_cast<std::uint8_t>(destination >> 8),
                  static_cast<std::uint8_t>(destination & 0xFF),
                  static_cast<std::uint8_t>(1 + value.size()),
                  static_cast<std::uint8_t>(apci >> 8),
                  static_cast<std::uint8_t>(apci & 0xFF)};
    cemi.insert(cemi.end(), value.begin(), value.end());
    return cemi;
}

} // namespace KnxStackHost
