#include "DeviceStackServer/DeviceClock.h"

namespace DeviceStackServer {

Milliseconds DeviceClock::Civil(Milliseconds utc) const {
    return utc + m_zoneOffset(std::chrono::floor<Seconds>(utc)) + m_offset;
}

void DeviceClock::SetOffset(Seconds civil, Milliseconds utc) {
    m_offset = civil - (utc + m_zoneOffset(std::chrono::floor<Seconds>(utc)));
}

void DeviceClock::MarkReported(Instant now) {
    m_reportedCivil = Civil(now.utc);
    m_reportedAt = now.monotonic;
}

bool DeviceClock::HasJumped(Instant now) const {
    const auto expected = m_reportedCivil + (now.monotonic - m_reportedAt);
    return std::chrono::abs(Civil(now.utc) - expected) > kTolerance;
}

std::optional<Seconds> DeviceClock::NextZoneChange(Seconds utc) const {
    constexpr std::chrono::hours kStep{24};
    constexpr int kSteps = 400;
    const auto today = m_zoneOffset(utc);
    for (int i = 0; i < kSteps; ++i) {
        Seconds before = utc + i * kStep;
        Seconds after = before + kStep;
        if (m_zoneOffset(after) == today)
            continue;
        while (after - before > Seconds(1)) {
            const auto middle = before + (after - before) / 2;
            (m_zoneOffset(middle) == today ? before : after) = middle;
        }
        return after;
    }
    return std::nullopt;
}

} // namespace DeviceStackServer
