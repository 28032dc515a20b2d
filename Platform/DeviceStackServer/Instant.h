// Points in time as the state machines of the device stack are given them.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace DeviceStackServer {

using Milliseconds = std::chrono::milliseconds;
using Seconds = std::chrono::seconds;

/// One moment on two clocks.
struct Instant {
    Milliseconds monotonic{}; ///< never goes back; for waits
    Milliseconds utc{};       ///< since 1970-01-01T00:00:00Z; what the system clock says
};

/// "2024-05-01T10:00:00.123Z".
std::string UtcText(Milliseconds utc);

/// Reads what UtcText() writes.
std::optional<Milliseconds> ParseUtc(std::string_view text);

/// Civil time as seconds from 1970-01-01T00:00:00, counted without a zone.
std::string CivilText(Seconds civil);     ///< "2024-05-01T12:00:00"
std::string CivilDateText(Seconds civil); ///< "2024-05-01"
std::string CivilTimeText(Seconds civil); ///< "12:00:00"

/// Reads "2024-05-01T12:00:00"; 24:00:00 is the next day's 00:00:00. Nothing when the calendar has no such
/// day or the day no such time, or when anything follows.
std::optional<Seconds> ParseCivil(std::string_view text);

} // namespace DeviceStackServer
