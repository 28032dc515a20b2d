// Characters in UTF-8 and in one octet each. Internal to the converter.
#pragma once

#include "ValueConverter/Layout.h"
#include "ValueConverter/TextBuffer.h"

#include <optional>
#include <string_view>

namespace Datapoint {

inline constexpr char32_t kHighestAscii = 0x7F;
inline constexpr char32_t kHighestLatin1 = 0xFF;

/// The first character of a UTF-8 text, which is taken off it; nothing when its octets are not one.
std::optional<char32_t> TakeCharacter(std::string_view& text);

bool IsUtf8(std::string_view text);
Status RefuseNotUtf8(Reason reason);

/// Refuses what is not UTF-8, and the NUL, which ends a text on the bus.
Status CheckUtf8(std::string_view text, Reason reason);

/// Appends the UTF-8 of characters of one octet each.
void AppendLatin1(std::string_view octets, TextBuffer& text);

/// Appends one octet for each character of a UTF-8 text. Refuses NUL and those above `highest`.
Status ToLatin1(std::string_view text, char32_t highest, TextBuffer& octets, Reason reason);

} // namespace Datapoint
