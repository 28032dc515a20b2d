// What dsctl does without a device stack: the table of datapoint types, and single conversions.
#pragma once

#include "Verbs.h"

#include <optional>
#include <string>
#include <vector>

namespace Dsctl {

// Each prints its result to standard output. Throws Refusal, and what fmt throws when standard output cannot
// be written.

/// Without a type the table of all; of a main number ("9") the table of its types; of a type ("9.001") all
/// that is known of it.
ExitCode Types(const Options& options, const std::optional<std::string>& type);

struct ConvertSettings {
    std::string type;                ///< or a size: "16 bits"
    std::vector<std::string> octets; ///< from the bus, or
    std::optional<std::string> text; ///< to the bus
    bool standardResolution = false; ///< 13.002 in m³/h
};

/// Converts one value: octets to the text that a data point would have, or such a text to octets.
ExitCode Convert(const Options& options, const ConvertSettings& settings);

} // namespace Dsctl
