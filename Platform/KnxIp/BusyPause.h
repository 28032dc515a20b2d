// How long a sender is silent because others are busy. Internal to this folder.
#pragma once

#include "KnxIp/RoutingLink.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

namespace KnxIp {

/// The waiting times of KNXnet/IP routing, given by ROUTING_BUSY frames.
class BusyPause {
public:
    using milliseconds = std::chrono::milliseconds;

    /// When sending may go on; long ago when nobody was busy.
    TimePoint Until() const { return m_until; }

    /// A frame asks for silence. `random` from 0 to 1.
    void OnBusy(TimePoint now, milliseconds wait, double random) {
        Forget(now);
        if (!m_counted || now - *m_counted >= RoutingLink::kBusyInterval) {
            ++m_count;
            m_counted = now;
        }
        const auto randomWait = std::chrono::duration_cast<std::chrono::microseconds>(
            RoutingLink::kRandomWait * m_count * std::clamp(random, 0.0, 1.0));
        // A frame that asks for less than an earlier one does not shorten the silence.
        m_until = std::max(m_until, TimePoint(now + wait + randomWait));
        m_countsUntil = m_until + m_count * RoutingLink::kSlowTime;
    }

private:
    /// Lets the count fall by the time that has passed.
    void Forget(TimePoint now) {
        if (now <= m_countsUntil)
            return;
        const auto steps = (now - m_countsUntil) / RoutingLink::kBusyDecrement;
        m_count -= std::min<std::int64_t>(m_count, steps);
        m_countsUntil += steps * RoutingLink::kBusyDecrement;
    }

    std::int64_t m_count = 0;
    std::optional<TimePoint> m_counted; // the last frame that was
    TimePoint m_until{};
    TimePoint m_countsUntil{}; // from when the count falls
};

} // namespace KnxIp
