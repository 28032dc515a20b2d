// Conversion as a test sees it: a datapoint type, octets, a text.
#pragma once

#include "Vesk/KNXDPT.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace ConverterTest {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::string_view kRefused = "(refused)";

/// The record for "9.001"; for "8 bits" one that converts by size.
KNXDPT Dpt(std::string_view name);

/// The value's native text, or kRefused. The size of the group value is the type's, unless `bits` says
/// another. Checks that a refused value is untouched and that Datapoint::Decode comes to the same end.
std::string FromBus(const KNXDPT& dpt, const Bytes& octets, unsigned bits = 0);
std::string FromBus(std::string_view dpt, const Bytes& octets, unsigned bits = 0);

/// The octets of the value with the native text in lower-case hexadecimal, or kRefused. Checks that a refused
/// group value is untouched, that the size is the type's, and that Datapoint::Encode comes to the same end.
std::string ToBus(const KNXDPT& dpt, std::string_view text);
std::string ToBus(std::string_view dpt, std::string_view text);

/// Why the text or the octets are refused; "" when they are not.
std::string WhyNotToBus(std::string_view dpt, std::string_view text);
std::string WhyNotFromBus(std::string_view dpt, const Bytes& octets, unsigned bits);

std::string Hex(const Bytes& octets);

/// Octets of a type and their text.
struct Vector {
    const char* dpt;
    Bytes octets;
    const char* text;
};

/// Checks that the octets give the text, and the text the octets.
void ExpectBothWays(std::initializer_list<Vector> vectors);

/// The JSON object with another value for one of its members.
std::string With(std::string object, std::string_view member, std::string_view value);

/// The value, kept and given back as it was received, in lower-case hexadecimal.
std::string AsReceived(std::string_view dpt, std::string_view text);

} // namespace ConverterTest
