// Drops of a full queue, in bursts. Internal to the host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

namespace KnxStackHost {

/// Between the first drop and the moment when nothing waits any more. Not synchronised.
class DropBurst {
public:
    void Begin() { m_isOn = true; }

    /// How many were dropped in a burst that is over, once for each; `dropped` counts from the beginning.
    std::optional<std::uint64_t> TakeEnd(std::size_t waiting, std::uint64_t dropped) {
        if (!m_isOn || waiting != 0)
            return std::nullopt;
        m_isOn = false;
        return dropped - std::exchange(m_reported, dropped);
    }

private:
    bool m_isOn = false;
    std::uint64_t m_reported = 0;
};

} // namespace KnxStackHost
