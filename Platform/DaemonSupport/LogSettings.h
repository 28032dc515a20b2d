// The log settings that both daemons take.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace DaemonSupport {

/// The levels as messages list them.
inline constexpr std::string_view kLogLevels =
    R"("trace", "debug", "info", "warn", "error", "fatal" or "off")";

/// The level in lower case; upper case counts the same. Nothing for a text that is no level.
std::optional<std::string> LogLevelOf(std::string_view text);

/// Sets the level of all loggers; a level of LogLevelOf().
void SetLogLevel(std::string_view level);

/// Why the log file cannot be appended to, with its path; "" when it can. Creates it.
std::string LogFileFault(const std::string& path);

} // namespace DaemonSupport
