// Growing pauses between tries. Internal to this folder.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

namespace KnxIp {

/// Each pause is twice as long as the one before, up to a longest one; each grows by up to a quarter by
/// jitter.
class BackOff {
public:
    using milliseconds = std::chrono::milliseconds;

    /// `jitter` gives 0 to 1; empty counts as 0.
    BackOff(milliseconds first, milliseconds longest, std::function<double()> jitter)
        : m_first(first), m_longest(longest), m_next(first), m_jitter(std::move(jitter)) {}

    void Reset() { m_next = m_first; }

    milliseconds Next() {
        const milliseconds pause = std::exchange(m_next, std::min(2 * m_next, m_longest));
        const double jitter = m_jitter ? std::clamp(m_jitter(), 0.0, 1.0) : 0.0;
        return pause + std::chrono::duration_cast<milliseconds>(pause * (jitter / 4));
    }

private:
    const milliseconds m_first;
    const milliseconds m_longest;
    milliseconds m_next;
    const std::function<double()> m_jitter;
};

} // namespace KnxIp
