// What every layout of values in octets offers, and the words of refusal. Internal to the converter.
#pragma once

#include "ValueConverter/DatapointTypes.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace Datapoint {

/// Octets of one value in telegram order. Fixed sizes stand in place and cost nothing to make; longer values
/// of variable length take memory.
class Octets {
public:
    Octets() {} // the octets in place get their values in Resize()
    Octets(const Octets&) = delete;
    Octets& operator=(const Octets&) = delete;

    /// Makes it `size` octets of 0. May be called again while it is empty.
    void Resize(std::size_t size) {
        m_size = size;
        if (size > m_inPlace.size()) {
            m_more = std::make_unique<std::uint8_t[]>(size);
        } else {
            m_inPlace.fill(0); // all of them: a number known here makes it a few instructions
        }
    }

    std::size_t Size() const { return m_size; }
    std::uint8_t* Data() { return m_more ? m_more.get() : m_inPlace.data(); }
    std::uint8_t& operator[](std::size_t at) { return Data()[at]; }

private:
    std::size_t m_size = 0;
    std::unique_ptr<std::uint8_t[]> m_more;
    std::array<std::uint8_t, 96> m_inPlace;
};

/// Where the words of a refusal go. Null when nobody asks: then none are composed.
using Reason = std::string*;

/// How values stand in their octets. One object per layout, shared by all types that have it.
struct Layout {
    /// Sets `value` from the octets, whose number is right. Touches it only when the result is Done.
    using DecodeFunction = Status (*)(const Type& type, std::span<const std::uint8_t> octets, TAVVALUE& value,
                                      Reason reason);

    /// Writes `octets`, which come in zeroed with the size of the layout, and empty, still to be resized, for
    /// variable length. `text` bears no blanks around it unless the layout keeps them.
    using EncodeFunction = Status (*)(const Type& type, std::string_view text, Octets& octets, Reason reason);

    unsigned sizeInBits; ///< 1 to 7 or a multiple of 8; 0 = variable
    DecodeFunction decode;
    EncodeFunction encode;
    bool keepsBlanks = false; ///< the text is the value letter for letter
    /// As `encode`, but takes every text that `decode` gives; null: `encode` does.
    EncodeFunction encodeReceived = nullptr;
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
