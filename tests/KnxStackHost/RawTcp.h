// A TCP client made of bytes.
#pragma once

#include "RawTunnel.h"

#include <chrono>
#include <cstdint>

namespace KnxStackHost {

/// TCP on loopback.
class RawTcp {
public:
    /// Connects; throws std::system_error when nobody listens. `receiveBuffer` in bytes: how much the system
    /// takes in for a test that does not read; 0 = as much as usual.
    explicit RawTcp(std::uint16_t peerPort, int receiveBuffer = 0);
    ~RawTcp();
    RawTcp(const RawTcp&) = delete;
    RawTcp& operator=(const RawTcp&) = delete;

    /// False when the other side has closed.
    bool Send(const Bytes& octets) const;
    /// Exactly so many octets, less when the stream ends or nothing comes in time.
    Bytes Receive(std::size_t size, std::chrono::milliseconds patience = std::chrono::seconds(20)) const;
    /// A whole KNXnet/IP frame; less when there is none.
    Bytes ReceiveFrame(std::chrono::milliseconds patience = std::chrono::seconds(20)) const;
    /// Reads and throws away until the stream has ended; false when it has not in time.
    bool HasEnded(std::chrono::milliseconds patience = std::chrono::seconds(20)) const;

private:
    int m_socket = -1;
};

/// CONNECT_REQUEST for a tunnel over TCP.
Bytes ConnectOverTcp();
/// TUNNELLING_REQUEST on the channel.
Bytes TunnellingRequest(std::uint8_t channel, const Bytes& cemi, std::uint8_t sequence = 0);

} // namespace KnxStackHost
