// When a member of a multicast bus says that it cannot keep up. Internal to this folder.
#pragma once

#include "KnxIp/RoutingLink.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>

namespace KnxIp {

/// Keeps ROUTING_BUSY and ROUTING_LOST_MESSAGE within bounds, whatever happens behind this member.
class OverloadReports {
public:
    /// Whether a ROUTING_BUSY may be sent; takes the room for it.
    bool TakeBusy(TimePoint now) {
        if (now < m_nextBusy)
            return false;
        const auto refill = (now - m_refilled) / RoutingLink::kBusyRefill;
        m_refilled += refill * RoutingLink::kBusyRefill;
        m_left = std::min<std::int64_t>(m_left + refill, RoutingLink::kBusyAtOnce);
        if (m_left == 0)
            return false;
        --m_left;
        m_nextBusy = now + RoutingLink::kBusyWait;
        return true;
    }

    void AddLost(std::uint64_t count) { m_lost += count; }

    /// When a ROUTING_LOST_MESSAGE is due; empty when nothing was lost since the last.
    std::optional<TimePoint> NextLost() const {
        return m_lost == 0 ? std::nullopt : std::optional(m_nextLost);
    }

    /// The number for a ROUTING_LOST_MESSAGE that is due now, 0 when none is. More than has room in one waits
    /// for the next.
    std::uint16_t TakeLost(TimePoint now) {
        if (m_lost == 0 || now < m_nextLost)
            return 0;
        const auto lost = std::min<std::uint64_t>(m_lost, std::numeric_limits<std::uint16_t>::max());
        m_lost -= lost;
        m_nextLost = now + RoutingLink::kLostPause;
        return static_cast<std::uint16_t>(lost);
    }

private:
    std::int64_t m_left = RoutingLink::kBusyAtOnce;
    TimePoint m_refilled{};
    TimePoint m_nextBusy{}; // not before
    std::uint64_t m_lost = 0;
    TimePoint m_nextLost{}; // not before
};

} // namespace KnxIp
