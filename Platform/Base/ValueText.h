// Numbers and quoted texts of the native form of a value.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Base {

/// What a text reads as a number.
struct Number {
    enum class Kind : std::uint8_t {
        None,     ///< not a finite decimal number, or one beyond the range of a double
        Integer,  ///< canonical decimal integer within int64
        Unsigned, ///< canonical decimal integer above int64, within uint64
        Decimal,  ///< every other decimal number
    };
    Kind kind = Kind::None;
    std::int64_t integer = 0;   ///< with Integer
    std::uint64_t uinteger = 0; ///< with Unsigned
    double decimal = 0.0;       ///< with Decimal
};

/// Reads a whole text as a number: digits with an optional minus sign, point and exponent; no plus sign, no
/// white space, no words such as "nan".
Number ParseNumber(std::string_view text);

/// Nearest towards zero, limited to the range; not a number gives 0.
std::int64_t CutToInteger(double value);

/// True for a text that the native form writes as a JSON string: it is empty, begins with a quotation mark or
/// holds control characters.
bool NeedsQuotes(std::string_view text);

/// Replaces `quoted` by `text` as a JSON string. Bytes above U+007F pass as they are.
void Quote(std::string_view text, std::string& quoted);

/// Replaces `text` by the content of a JSON string that is the whole of `quoted`. False when it is none;
/// `text` then holds nothing of use. Escapes of half a surrogate pair are refused; bytes above U+007F pass
/// unchecked.
bool Unquote(std::string_view quoted, std::string& text);

} // namespace Base
