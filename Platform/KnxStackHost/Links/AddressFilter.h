// Behind which tunnel an individual address is. Internal to the host.
#pragma once

#include "KnxFrames/Addresses.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

namespace KnxStackHost {

/// Knows the addresses of the tunnels and learns those of the devices that their clients speak for. One octet
/// for each of the 65,536 addresses: whatever clients send, it neither grows nor has to forget one client's
/// addresses for another's. Not synchronised.
class AddressFilter {
public:
    /// At most 255 tunnels.
    explicit AddressFilter(std::span<const KnxFrames::IndividualAddress> tunnels)
        : m_tunnels(tunnels.begin(), tunnels.end()), m_tunnelOf(kAddresses, kNowhere) {
        for (std::size_t tunnel = 0; tunnel < m_tunnels.size(); ++tunnel)
            m_tunnelOf[m_tunnels[tunnel].raw] = static_cast<std::uint8_t>(tunnel);
    }

    /// The tunnel that leads to the address, as far as is known.
    std::optional<std::uint8_t> TunnelTo(KnxFrames::IndividualAddress address) const {
        const auto tunnel = m_tunnelOf[address.raw];
        return tunnel == kNowhere ? std::nullopt : std::optional(tunnel);
    }

    /// A telegram with this source came from the tunnel; the address of no other tunnel.
    void HeardFrom(std::uint8_t tunnel, KnxFrames::IndividualAddress source) {
        if (source.raw != kEverybodysFirst)
            m_tunnelOf[source.raw] = tunnel;
    }

    /// A telegram with this source came from elsewhere; the address of no tunnel.
    void HeardElsewhere(KnxFrames::IndividualAddress source) { m_tunnelOf[source.raw] = kNowhere; }

    /// The tunnel has lost its client: only its own address is behind it now.
    void Forget(std::uint8_t tunnel) {
        std::replace(m_tunnelOf.begin(), m_tunnelOf.end(), tunnel, kNowhere);
        m_tunnelOf[m_tunnels.at(tunnel).raw] = tunnel;
    }

private:
    static constexpr std::size_t kAddresses = 0x10000;
    static constexpr std::uint8_t kNowhere = std::numeric_limits<std::uint8_t>::max();
    /// 15.15.255, which every new device has until it is given its own: it may be in several places.
    static constexpr std::uint16_t kEverybodysFirst = 0xFFFF;

    const std::vector<KnxFrames::IndividualAddress> m_tunnels;
    std::vector<std::uint8_t> m_tunnelOf;
};

} // namespace KnxStackHost
