#include "Base/ValueText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace Base {
namespace {

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool IsControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

template <typename T>
bool ParseWhole(std::string_view text, T& value) {
    const auto* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc{} && stop == end;
}

bool IsCanonicalInteger(std::string_view text) {
    const bool negative = text.front() == '-';
    const auto digits = negative ? text.substr(1) : text;
    if (!std::ranges::all_of(digits, IsDigit)) {
        return false;
    }
    return digits.front() != '0' || (digits.size() == 1 && !negative);
}

// Four hexadecimal digits at the front of `rest`, taken off it; -1 when there are none.
int TakeHex4(std::string_view& rest) {
    unsigned value = 0;
    if (rest.size() < 4) {
        return -1;
    }
    const auto* const end = rest.data() + 4;
    const auto [stop, error] = std::from_chars(rest.data(), end, value, 16);
    if (error != std::errc{} || stop != end) {
        return -1;
    }
    rest.remove_prefix(4);
    return static_cast<int>(value);
}

void AppendUtf8(std::string& text, unsigned codePoint) {
    const auto tail = [&](unsigned shift) { text += static_cast<char>(0x80 | (codePoint >> shift & 0x3F)); };
    if (codePoint < 0x80) {
        text += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        text += static_cast<char>(0xC0 | codePoint >> 6);
        tail(0);
    } else if (codePoint < 0x10000) {
        text += static_cast<char>(0xE0 | codePoint >> 12);
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0 | codePoint >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

// The code point of an escape whose "\u" has been taken off, with its second half where it has one.
bool TakeCodePoint(std::string_view& rest, std::string& text) {
    const auto first = TakeHex4(rest);
    if (first < 0 || (first >= 0xDC00 && first <= 0xDFFF)) {
        return false;
    }
    if (first < 0xD800 || first > 0xDBFF) {
        AppendUtf8(text, static_cast<unsigned>(first));
        return true;
    }
    if (!rest.starts_with("\\u")) {
        return false;
    }
    rest.remove_prefix(2);
    const auto second = TakeHex4(rest);
    if (second < 0xDC00 || second > 0xDFFF) {
        return false;
    }
    AppendUtf8(text, 0x10000U + (static_cast<unsigned>(first - 0xD800) << 10) +
                         static_cast<unsigned>(second - 0xDC00));
    return true;
}

// One escape whose backslash has been taken off.
bool TakeEscape(std::string_view& rest, std::string& text) {
    if (rest.empty()) {
        return false;
    }
    static constexpr std::string_view kLetters = "\"\\/bfnrt";
    static constexpr std::string_view kMeaning = "\"\\/\b\f\n\r\t";
    const auto letter = rest.front();
    rest.remove_prefix(1);
    if (letter == 'u') {
        return TakeCodePoint(rest, text);
    }
    const auto index = kLetters.find(letter);
    if (index == std::string_view::npos) {
        return false;
    }
    text += kMeaning[index];
    return true;
}

} // namespace

Number ParseNumber(std::string_view text) {
    Number number;
    const auto start = text.starts_with('-') ? 1U : 0U;
    // Only figures begin a number: from_chars would also take "inf" and "nan".
    if (start >= text.size() || (!IsDigit(text[start]) && text[start] != '.')) {
        return number;
    }
    if (IsCanonicalInteger(text)) {
        if (ParseWhole(text, number.integer)) {
            number.kind = Number::Kind::Integer;
            return number;
        }
        if (start == 0 && ParseWhole(text, number.uinteger)) {
            number.kind = Number::Kind::Unsigned;
            return number;
        }
    }
    if (ParseWhole(text, number.decimal)) {
        number.kind = Number::Kind::Decimal;
    }
    return number;
}

std::int64_t CutToInteger(double value) {
    constexpr double kLimit = 9223372036854775808.0; // 2^63, the first that does not fit
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= kLimit) {
        return std::numeric_limits<std::int64_t>::max();
    }
    if (value < -kLimit) {
        return std::numeric_limits<std::int64_t>::min();
    }
    return static_cast<std::int64_t>(value);
}

bool NeedsQuotes(std::string_view text) {
    return text.empty() || text.front() == '"' || std::ranges::any_of(text, IsControl);
}

void Quote(std::string_view text, std::string& quoted) {
    static constexpr char kDigits[] = "0123456789abcdef";
    quoted.assign(1, '"');
    for (const auto c : text) {
        if (IsControl(c)) {
            quoted += "\\u00";
            quoted += kDigits[c >> 4];
            quoted += kDigits[c & 0x0F];
            continue;
        }
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    quoted += '"';
}

bool Unquote(std::string_view quoted, std::string& text) {
    text.clear();
    if (quoted.size() < 2 || !quoted.starts_with('"') || !quoted.ends_with('"')) {
        return false;
    }
    auto rest = quoted.substr(1, quoted.size() - 2);
    while (!rest.empty()) {
        const auto c = rest.front();
        rest.remove_prefix(1);
        if (c == '\\') {
            if (!TakeEscape(rest, text)) {
                return false;
            }
        } else if (c == '"' || static_cast<unsigned char>(c) < 0x20) {
            return false;
        } else {
            text += c;
        }
    }
    return true;
}

} // namespace Base
