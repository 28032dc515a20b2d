// The device's local date and time.
#pragma once

#include "DeviceStackServer/Instant.h"

#include <functional>
#include <optional>

namespace DeviceStackServer {

/// Local time of the system plus an offset that a write made. Tells when the time has moved in a way that
/// subscribers cannot have foreseen. Reads no clock; not synchronised.
class DeviceClock {
public:
    /// Local time minus UTC at a moment of UTC.
    using ZoneOffset = std::function<Seconds(Seconds utc)>;

    /// A difference up to this is no news.
    static constexpr Milliseconds kTolerance{2000};

    explicit DeviceClock(ZoneOffset zoneOffset) : m_zoneOffset(std::move(zoneOffset)) {}

    /// What the clock shows, as civil time.
    Milliseconds Civil(Milliseconds utc) const;
    Seconds CivilSeconds(Milliseconds utc) const { return std::chrono::floor<Seconds>(Civil(utc)); }

    /// Makes the clock show `civil` at the moment `utc`, whatever the system clock says.
    void SetOffset(Seconds civil, Milliseconds utc);

    /// The system clock itself was set: it rules again.
    void ClearOffset() { m_offset = {}; }

    /// What the clock shows now was told to the subscribers.
    void MarkReported(Instant now);

    /// True when the clock is more than kTolerance off what it should show since MarkReported(): the system
    /// clock was set, or daylight saving began or ended.
    bool HasJumped(Instant now) const;

    /// The next moment of UTC at which the zone's offset changes, within about 13 months.
    std::optional<Seconds> NextZoneChange(Seconds utc) const;

private:
    const ZoneOffset m_zoneOffset;
    Milliseconds m_offset{};
    Milliseconds m_reportedCivil{};
    Milliseconds m_reportedAt{}; // monotonic
};

} // namespace DeviceStackServer
