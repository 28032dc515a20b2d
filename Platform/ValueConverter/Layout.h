// What every layout of values in octets offers, and the words of refusal. Internal to the converter.
#pragma once

#include "ValueConverter/DatapointTypes.h"

#include <boost/container/small_vector.hpp>
#include <fmt/format.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace Datapoint {

/// Octets of one value in telegram order; no allocation up to the size of the longest type in use.
using Octets = boost::container::small_vector<std::uint8_t, 96>;

/// Where the words of a refusal go. Null when nobody asks: then none are composed.
using Reason = std::string*;

/// How values stand in their octets. One object per layout, shared by all types that have it.
struct Layout {
    /// Sets `value` from the octets, whose number is right. Touches it only when the result is Done.
    using DecodeFunction = Status (*)(const Type& type, std::span<const std::uint8_t> octets, TAVVALUE& value,
                                      Reason reason);

    /// Writes `octets`, which come in zeroed with the size of the layout (none for variable length). `text`
    /// bears no blanks around it unless the layout keeps them.
    using EncodeFunction = Status (*)(const Type& type, std::string_view text, Octets& octets, Reason reason);

    unsigned sizeInBits; ///< 1 to 7 or a multiple of 8; 0 = variable
    DecodeFunction decode;
    EncodeFunction encode;
    bool keepsBlanks = false; ///< the text is the value letter for letter
};

/// At most the first 40 octets of a text, for messages; never half a character.
std::string_view Excerpt(std::string_view text);

/// Text without blanks around it.
std::string_view Trim(std::string_view text);

/// A refusal with its words, e.g. Refuse(Status::Malformed, reason, "'{}' is not a number", text).
template <typename... Args>
[[gnu::cold, gnu::noinline]] Status Refuse(Status status, Reason reason, fmt::format_string<Args...> format,
                                           Args&&... args) {
    if (reason != nullptr) {
        *reason = fmt::format(format, std::forward<Args>(args)...);
    }
    return status;
}

} // namespace Datapoint
