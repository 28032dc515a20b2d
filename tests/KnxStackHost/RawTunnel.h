// A KNX/IP client made of bytes.
#pragma once

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

namespace KnxStackHost {

using Bytes = std::vector<std::uint8_t>;

/// Octets one after the other.
Bytes Joined(std::initializer_list<Bytes> parts);

/// A KNXnet/IP frame: header and body.
Bytes Frame(std::uint16_t service, const Bytes& body);

/// UDP on loopback.
class RawUdp {
public:
    explicit RawUdp(std::uint16_t peerPort);
    ~RawUdp();
    RawUdp(const RawUdp&) = delete;
    RawUdp& operator=(const RawUdp&) = delete;

    void Send(const Bytes& datagram) const;
    /// The next datagram; empty when there is none in time.
    Bytes Receive(std::chrono::milliseconds patience = std::chrono::milliseconds(3000)) const;
    std::uint16_t Port() const { return m_port; }

private:
    int m_socket = -1;
    std::uint16_t m_port = 0;
};

/// Tries to take a port that may be somebody's, with SO_REUSEADDR, and lets go of it. 0, or the error number.
int BindBeside(std::uint32_t address, std::uint16_t port);

/// An open tunnel. What the server sends of its own accord is acknowledged and kept in order.
class RawTunnel {
public:
    /// Connects; fails the test when it is refused.
    explicit RawTunnel(std::uint16_t serverPort);

    /// Sends cEMI and waits for the acknowledgement. False without one, or when it carries an error.
    bool Send(const Bytes& cemi);

    /// The next cEMI message that the server sends, acknowledged; empty when there is none in time.
    Bytes Receive(std::chrono::milliseconds patience = std::chrono::milliseconds(3000));

    /// The next L_Data.ind.
    Bytes ReceiveIndication(std::chrono::milliseconds patience = std::chrono::milliseconds(3000));

    /// True when the server still knows the connection.
    bool IsAlive();

    /// Tells the server that the tunnel is over; false without its answer.
    bool Disconnect();

    /// True when the server has sent a DISCONNECT_REQUEST for this tunnel.
    bool WasDisconnected(std::chrono::milliseconds patience);

    std::uint8_t Channel() const { return m_channel; }
    /// Individual address that the server gave, raw.
    std::uint16_t Address() const { return m_address; }

private:
    bool Take(const Bytes& datagram);

    RawUdp m_udp;
    std::uint8_t m_channel = 0;
    std::uint16_t m_address = 0;
    std::uint8_t m_sent = 0;                    // sequence number of the next request
    std::uint8_t m_received = 0;                // expected sequence number
    std::optional<std::uint8_t> m_acknowledged; // status of the request under way
    std::optional<std::uint8_t> m_state;
    bool m_disconnected = false;
    bool m_over = false;
    std::vector<Bytes> m_cemi;
};

/// L_Data.req from 0.0.0 to a group with the APCI's last two bytes and further value bytes.
Bytes GroupRequest(std::uint16_t destination, std::uint16_t apci, const Bytes& value = {});

constexpr std::uint16_t kRead = 0x0000;
constexpr std::uint16_t kResponse = 0x0040;
constexpr std::uint16_t kWrite = 0x0080;

constexpr std::uint16_t Group(unsigned main, unsigned middle, unsigned sub) {
    return static_cast<std::uint16_t>(main << 11 | middle << 8 | sub);
}

} // namespace KnxStackHost
