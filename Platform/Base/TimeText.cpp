#include "Base/TimeText.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace Base {
namespace {

constexpr std::size_t kDateLength = 10;   // YYYY-MM-DD
constexpr std::size_t kTimeLength = 8;    // hh:mm:ss
constexpr std::size_t kDayNameLength = 4; // "Mon "
constexpr std::array<std::string_view, 7> kDayNames = {"Mon ", "Tue ", "Wed ", "Thu ",
                                                       "Fri ", "Sat ", "Sun "};

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool IsNameCharacter(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// `count` figures at the front of `text` as a number from `low` to `high`.
template <typename T>
bool ParseField(std::string_view text, std::size_t count, unsigned low, unsigned high, T& field) {
    const auto figures = text.substr(0, count);
    unsigned value = 0;
    if (!std::ranges::all_of(figures, IsDigit)) {
        return false;
    }
    std::from_chars(figures.data(), figures.data() + figures.size(), value);
    field = static_cast<T>(value);
    return value >= low && value <= high;
}

bool ParseDate(std::string_view text, TAVTIME& time) {
    return text.size() == kDateLength && text[4] == '-' && text[7] == '-' &&
           ParseField(text, 4, 0, 9999, time.year) && ParseField(text.substr(5), 2, 1, 12, time.month) &&
           ParseField(text.substr(8), 2, 1, 31, time.day);
}

bool ParseTimeOfDay(std::string_view text, TAVTIME& time) {
    return text.size() == kTimeLength && text[2] == ':' && text[5] == ':' &&
           ParseField(text, 2, 0, 24, time.hour) && ParseField(text.substr(3), 2, 0, 59, time.minute) &&
           ParseField(text.substr(6), 2, 0, 59, time.second);
}

// Nothing, or ";name=value" any number of times.
bool AreFlags(std::string_view text) {
    while (!text.empty()) {
        if (text.front() != ';') {
            return false;
        }
        const auto flag = text.substr(1, text.find(';', 1) - 1);
        const auto equals = flag.find('=');
        if (equals == 0 || equals == std::string_view::npos || equals + 1 == flag.size() ||
            !std::ranges::all_of(flag.substr(0, equals), IsNameCharacter) ||
            !std::ranges::all_of(flag.substr(equals + 1), IsNameCharacter)) {
            return false;
        }
        text.remove_prefix(flag.size() + 1);
    }
    return true;
}

bool ParseForms(std::string_view text, TAVTIME& time) {
    if (text.size() == kTimeLength) {
        return ParseTimeOfDay(text, time);
    }
    if (text.size() == kDateLength) {
        return ParseDate(text, time);
    }
    if (text.size() == kDayNameLength + kTimeLength) {
        const auto name = std::ranges::find(kDayNames, text.substr(0, kDayNameLength));
        time.dayOfWeek = static_cast<std::uint8_t>(name - kDayNames.begin() + 1);
        return name != kDayNames.end() && ParseTimeOfDay(text.substr(kDayNameLength), time);
    }
    return text.size() > kDateLength + kTimeLength && text[kDateLength] == 'T' &&
           ParseDate(text.substr(0, kDateLength), time) &&
           ParseTimeOfDay(text.substr(kDateLength + 1, kTimeLength), time) &&
           AreFlags(text.substr(kDateLength + 1 + kTimeLength));
}

// Decimal figures with leading zeros up to `width`.
void AppendField(std::string& text, unsigned value, std::size_t width) {
    std::array<char, 10> digits{};
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    const auto length = static_cast<std::size_t>(end - digits.data());
    text.append(width > length ? width - length : 0, '0');
    text.append(digits.data(), length);
}

} // namespace

bool ParseTime(std::string_view text, TAVTIME& time) {
    TAVTIME parsed;
    if (!ParseForms(text, parsed)) {
        return false;
    }
    if (parsed.month != 0) {
        parsed.SetWeekYearDay();
    }
    time = parsed;
    return true;
}

void PrintTime(const TAVTIME& time, std::string& text) {
    text.clear();
    AppendField(text, time.year, 4);
    AppendField(text += '-', time.month, 2);
    AppendField(text += '-', time.day, 2);
    AppendField(text += 'T', time.hour, 2);
    AppendField(text += ':', time.minute, 2);
    AppendField(text += ':', time.second, 2);
}

} // namespace Base
