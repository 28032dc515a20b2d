// Where a KNXnet/IP datagram comes from or goes to.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace KnxIp {

/// IPv4 address and UDP port, both as numbers (192.168.1.2 is C0A80102h).
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    /// False when address or port is 0: in a frame this means "answer to where this came from" (NAT).
    bool IsSpecified() const { return address != 0 && port != 0; }

    /// "192.168.1.2:3671"
    std::string ToString() const;

    auto operator<=>(const Endpoint& other) const = default;
};

/// The standard port of KNXnet/IP and its multicast group 224.0.23.12 for search requests.
inline constexpr std::uint16_t kStandardPort = 3671;
inline constexpr std::uint32_t kStandardMulticast = 0xE000170C;

} // namespace KnxIp
