// What dsctl does.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Dsctl {

enum ExitCode : int {
    kOk = 0,
    kRefused = 1, ///< refused, not found or no value
    kUsage = 2,
    kNotThere = 3, ///< no device stack
    kNoOutput = 4, ///< standard output cannot be written
};

struct Options {
    std::string socketPath;
    bool json = false; ///< one object per line instead of text for people
};

// Each prints its result to standard output and what went wrong to standard error. Throws NotThere, and what
// fmt throws when standard output cannot be written.

ExitCode List(const Options& options, const std::vector<std::string>& patterns);
ExitCode Get(const Options& options, const std::vector<std::string>& dataPoints);
ExitCode Set(const Options& options, const std::string& dataPoint, const std::string& value);

struct WatchSettings {
    std::vector<std::string> patterns; ///< of data points; none = all of them
    bool events = false;               ///< also what applications announce
    std::uint64_t count = 0;           ///< lines until the end; 0 = for ever
};

/// Prints changes, and events if they are asked for, as they happen.
ExitCode Watch(const Options& options, const WatchSettings& settings);

} // namespace Dsctl
