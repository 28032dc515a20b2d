#include "Sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <initializer_list>
#include <stdexcept>

namespace Bench {

namespace {

// An HPAI without an address (08 01 and zeros) asks the server to answer to where the datagram came from.
constexpr std::uint16_t kConnectRequest = 0x0205;
constexpr std::uint16_t kDisconnectRequest = 0x0209;
constexpr std::uint16_t kTunnellingRequest = 0x0420;
constexpr std::uint16_t kTunnellingAck = 0x0421;
constexpr std::uint8_t kLDataCon = 0x2E;
constexpr std::uint8_t kLDataInd = 0x29;

sockaddr_in Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

std::uint8_t High(std::size_t number) {
    return static_cast<std::uint8_t>(number >> 8);
}

std::uint8_t Low(std::size_t number) {
    return static_cast<std::uint8_t>(number);
}

Octets Joined(std::initializer_list<std::uint8_t> head, const Octets& tail) {
    Octets octets;
    octets.reserve(head.size() + tail.size());
    for (const std::uint8_t octet : head)
        octets.push_back(octet);
    for (const std::uint8_t octet : tail)
        octets.push_back(octet);
    return octets;
}

Octets Frame(std::uint16_t service, const Octets& body) {
    const std::size_t size = 6 + body.size();
    return Joined({0x06, 0x10, High(service), Low(service), High(size), Low(size)}, body);
}

} // namespace

std::uint16_t FreeUdpPort() {
    return UdpSocket().Port();
}

UdpSocket::UdpSocket() : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = Loopback(0);
    const timeval timeout{5, 0};
    if (m_socket < 0 || bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0)
        throw std::runtime_error(std::string("UDP socket: ") + std::strerror(errno));
}

UdpSocket::~UdpSocket() {
    close(m_socket);
}

std::uint16_t UdpSocket::Port() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

void UdpSocket::SendTo(std::uint16_t port, std::span<const std::uint8_t> datagram) const {
    const sockaddr_in address = Loopback(port);
    if (sendto(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&address),
               sizeof address) < 0)
        throw std::runtime_error(std::string("send: ") + std::strerror(errno));
}

Octets UdpSocket::Receive(std::uint16_t& fromPort) const {
    Octets datagram(512);
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t length =
        recvfrom(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
    if (length < 0)
        throw std::runtime_error(std::string("receive: ") + std::strerror(errno));
    datagram.resize(static_cast<std::size_t>(length));
    fromPort = ntohs(from.sin_port);
    return datagram;
}

LineSocket::LineSocket(const std::string& path) : m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (m_socket < 0 || connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
}

LineSocket::~LineSocket() {
    close(m_socket);
}

void LineSocket::WriteLine(const std::string& line) const {
    const std::string text = line + "\n";
    if (write(m_socket, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("the line was not written");
}

std::string LineSocket::ReadLine() {
    for (;;) {
        if (const auto end = m_buffer.find('\n'); end != std::string::npos) {
            std::string line = m_buffer.substr(0, end);
            m_buffer.erase(0, end + 1);
            return line;
        }
        char part[4096];
        const ssize_t length = read(m_socket, part, sizeof part);
        if (length <= 0)
            return {};
        m_buffer.append(part, static_cast<std::size_t>(length));
    }
}

RawTunnel::RawTunnel(std::uint16_t serverPort) : m_serverPort(serverPort) {
    // Control and data endpoint, then a tunnel on the link layer.
    m_socket.SendTo(m_serverPort, Frame(kConnectRequest, Joined({0x08, 0x01, 0, 0, 0, 0, 0, 0},
                                                                {0x08, 0x01, 0, 0, 0, 0, 0, 0, 4, 4, 2, 0})));
    std::uint16_t from = 0;
    const Octets answer = m_socket.Receive(from);
    if (answer.size() < 8 || answer[7] != 0)
        throw std::runtime_error("the server refused a tunnel");
    m_channel = answer[6];
}

RawTunnel::~RawTunnel() {
    m_socket.SendTo(m_serverPort, Frame(kDisconnectRequest, {m_channel, 0, 0x08, 0x01, 0, 0, 0, 0, 0, 0}));
}

void RawTunnel::Send(const Octets& cemi) {
    m_socket.SendTo(m_serverPort,
                    Frame(kTunnellingRequest, Joined({0x04, m_channel, m_sequence++, 0}, cemi)));
}

Octets RawTunnel::Next(std::uint16_t& service) {
    std::uint16_t from = 0;
    Octets datagram = m_socket.Receive(from);
    service = static_cast<std::uint16_t>(datagram.at(2) << 8 | datagram.at(3));
    if (service == kTunnellingRequest)
        m_socket.SendTo(m_serverPort, Frame(kTunnellingAck, {0x04, m_channel, datagram.at(8), 0}));
    return datagram;
}

void RawTunnel::AwaitConfirmation() {
    bool acknowledged = false;
    bool confirmed = false;
    while (!acknowledged || !confirmed) {
        std::uint16_t service = 0;
        const Octets datagram = Next(service);
        acknowledged = acknowledged || service == kTunnellingAck;
        confirmed = confirmed || (service == kTunnellingRequest && datagram.at(10) == kLDataCon);
    }
}

Octets RawTunnel::AwaitIndication() {
    for (;;) {
        std::uint16_t service = 0;
        Octets datagram = Next(service);
        if (service == kTunnellingRequest && datagram.at(10) == kLDataInd)
            return datagram;
    }
}

Octets GroupWrite(std::uint16_t group, const Octets& value) {
    return Joined({0x11, 0, 0xBC, 0xE0, 0, 0, High(group), Low(group), Low(1 + value.size()), 0, 0x80},
                  value);
}

Octets GroupRead(std::uint16_t group) {
    return Joined({0x11, 0, 0xBC, 0xE0, 0, 0, High(group), Low(group), 1, 0, 0}, {});
}

} // namespace Bench
