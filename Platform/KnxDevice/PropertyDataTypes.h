// Sizes of the property data types.
#pragma once

#include <cstddef>
#include <cstdint>

namespace KnxDevice {

/// How many bytes an element of a property data type (PDT) has, as in the KNX Standard 3/7/3.
struct PropertyElementSize {
    std::uint8_t least = 0; ///< bytes; 0 = no property can have the data type
    std::uint8_t most = 0;  ///< bytes; more than `least` for a data type of variable length

    bool IsUsable() const { return least != 0; }
    bool IsVariable() const { return most > least; }

    /// True when a value of `bytes` can be that of all `elements` one after the other.
    bool Fits(std::size_t bytes, std::uint16_t elements) const {
        return bytes >= std::size_t{least} * elements && bytes <= std::size_t{most} * elements;
    }
};

/// The longest element of a data type of variable length, in bytes.
constexpr std::uint8_t kLongestVariableElement = 254;

/// Every number is allowed. Not usable are numbers without a meaning, and the two that stand for no value:
/// PDT_FUNCTION and PDT_ESCAPE. A PDT_CONTROL has one byte, its load state; a PDT_BINARY_INFORMATION has one
/// as well, which holds the bit. Any thread.
PropertyElementSize SizeOfPropertyElement(std::uint8_t dataType);

} // namespace KnxDevice
