// What knxstackctl does.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KnxStackCtl {

enum ExitCode : int {
    kOk = 0,
    kRefused = 1, ///< refused, or no answer from the bus
    kUsage = 2,
    kNotThere = 3, ///< no knxstackd
    kNoOutput = 4, ///< standard output cannot be written
};

struct Options {
    std::string socketPath;
    bool json = false; ///< one object per line instead of text for people
};

// Each prints its result to standard output and what went wrong to standard error. Throws NotThere and
// Refusal, and what fmt throws when standard output cannot be written.

ExitCode Status(const Options& options);
ExitCode Links(const Options& options);

/// Prints telegrams as they pass. `count`: lines until the end; 0 = for ever.
ExitCode Monitor(const Options& options, std::uint64_t count);

/// Switches programming mode, or says how it is.
ExitCode ProgMode(const Options& options, std::optional<bool> on);

struct WriteSettings {
    std::string address;
    std::string dpt;
    std::string value;
};
ExitCode Write(const Options& options, const WriteSettings& settings);

struct ReadSettings {
    std::string address;
    double timeout = 2; ///< seconds until there is no answer
};

/// Asks a group for its value, and prints the first answer.
ExitCode Read(const Options& options, const ReadSettings& settings);

ExitCode Inject(const Options& options, const std::vector<std::string>& octets);

} // namespace KnxStackCtl
