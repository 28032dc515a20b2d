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
};

struct Options {
    std::string socketPath;
    bool json = false; ///< one object per line instead of text for people
};

// Each prints its result to standard output and what went wrong to standard error, and throws NotThere.

ExitCode List(const Options& options, const std::vector<std::string>& patterns);
ExitCode Get(const Options& options, const std::vector<std::string>& dataPoints);
ExitCode Set(const Options& options, const std::string& dataPoint, const std::string& value);

/// Prints changes until `count` of them were printed; 0 = for ever.
ExitCode Watch(const Options& options, const std::vector<std::string>& patterns, std::uint64_t count);

} // namespace Dsctl
