// Plain sockets of benchmarks: UDP on loopback, lines on a Unix domain socket, a KNXnet/IP tunnel in raw
// octets.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Bench {

using Octets = std::vector<std::uint8_t>;

/// A port on 127.0.0.1 at which nobody listened just now.
std::uint16_t FreeUdpPort();

/// A UDP socket at an own port of 127.0.0.1. Operations throw std::runtime_error on failure.
class UdpSocket {
public:
    UdpSocket();
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    std::uint16_t Port() const;
    void SendTo(std::uint16_t port, std::span<const std::uint8_t> datagram) const;
    /// Waits up to 5 s for the next datagram; `fromPort` becomes the sender's.
    Octets Receive(std::uint16_t& fromPort) const;

private:
    int m_socket;
};

/// Lines over a Unix domain stream socket, or read from any file descriptor.
class LineSocket {
public:
    explicit LineSocket(const std::string& path);
    /// Takes the descriptor over.
    explicit LineSocket(int descriptor) : m_socket(descriptor) {}
    ~LineSocket();
    LineSocket(const LineSocket&) = delete;
    LineSocket& operator=(const LineSocket&) = delete;

    void WriteLine(const std::string& line) const;
    /// The next line without its end; waits. "" when the peer has closed.
    std::string ReadLine();

private:
    int m_socket;
    std::string m_buffer;
};

/// A KNXnet/IP tunnel: acknowledges what it receives.
class RawTunnel {
public:
    explicit RawTunnel(std::uint16_t serverPort);
    ~RawTunnel();

    /// Sends a cEMI frame as the next TUNNELLING_REQUEST; does not wait.
    void Send(const Octets& cemi);
    /// Waits for the acknowledgement of the last request and for its L_Data.con.
    void AwaitConfirmation();
    /// Waits for the next L_Data.ind, which it acknowledges after the return value is known.
    Octets AwaitIndication();

private:
    Octets Next(std::uint16_t& service);

    UdpSocket m_socket;
    std::uint16_t m_serverPort;
    std::uint8_t m_channel = 0;
    std::uint8_t m_sequence = 0;
};

/// cEMI L_Data.req to a group, source left to the interface: A_GroupValue_Write of whole octets, or
/// A_GroupValue_Read without any.
Octets GroupWrite(std::uint16_t group, const Octets& value);
Octets GroupRead(std::uint16_t group);

} // namespace Bench
