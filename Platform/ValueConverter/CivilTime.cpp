#include "ValueConverter/CivilTime.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

namespace Datapoint {

namespace {

constexpr std::array<std::string_view, 8> s_days{"",         "monday", "tuesday",  "wednesday",
                                                 "thursday", "friday", "saturday", "sunday"};
constexpr std::array<std::string_view, 8> s_shortDays{"", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

// In telegram order.
constexpr std::array<std::pair<std::string_view, unsigned>, 10> s_flags{{{"f", kFault},
                                                                         {"wd", kWorkingDay},
                                                                         {"nwd", kNoWorkingDay},
                                                                         {"ny", kNoYear},
                                                                         {"nd", kNoDate},
                                                                         {"ndow", kNoDayOfWeek},
                                                                         {"nt", kNoTime},
                                                                         {"suti", kSummerTime},
                                                                         {"clq", kClockQuality},
                                                                         {"src", kReliableSource}}};
constexpr std::string_view kDayOfWeekName = "dow";

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool TakeDigits(std::string_view& text, std::size_t fewest, std::size_t most, unsigned& number) {
    std::size_t count = 0;
    unsigned value = 0;
    while (count < most && count < text.size() && text[count] >= '0' && text[count] <= '9') {
        value = value * 10 + static_cast<unsigned>(text[count++] - '0');
    }
    if (count < fewest) {
        return false;
    }
    text.remove_prefix(count);
    number = value;
    return true;
}

bool TakeMark(std::string_view& text, char mark) {
    if (!text.starts_with(mark)) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

// The day of the week of the date, which needs no words; none where the field is not valid.
unsigned DefaultDayOfWeek(const CivilTime& time) {
    return (time.flags & kNoDayOfWeek) != 0 ? 0 : WeekdayOf(time.year, time.month, time.day);
}

// One "clq=1" or "dow=3" of those behind the time. `seen` has a bit for each flag that came already.
bool ReadFlag(std::string_view text, CivilTime& time, unsigned& seen, bool& daySeen) {
    text = Trim(text);
    const std::size_t equals = std::min(text.find('='), text.size());
    const std::string_view name = text.substr(0, equals);
    text.remove_prefix(std::min(equals + 1, text.size()));
    unsigned number = 0;
    if (!TakeDigits(text, 1, 1, number) || !text.empty()) {
        return false;
    }
    if (name == kDayOfWeekName) {
        time.dayOfWeek = number;
        return number <= 7 && !std::exchange(daySeen, true);
    }
    const auto* flag =
        std::find_if(s_flags.begin(), s_flags.end(), [&](const auto& entry) { return entry.first == name; });
    if (flag == s_flags.end() || number > 1 || (seen & flag->second) != 0) {
        return false;
    }
    seen |= flag->second;
    time.flags |= number * flag->second;
    return true;
}

bool ReadFlags(std::string_view text, CivilTime& time) {
    unsigned seen = 0;
    bool daySeen = false;
    while (TakeMark(text, ';')) {
        const std::size_t end = std::min(text.find(';'), text.size());
        if (!ReadFlag(text.substr(0, end), time, seen, daySeen)) {
            return false;
        }
        text.remove_prefix(end);
    }
    if (!daySeen) {
        time.dayOfWeek = DefaultDayOfWeek(time);
    }
    return text.empty();
}

} // namespace

unsigned WeekdayOf(unsigned year, unsigned month, unsigned day) {
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(year)),
                                           std::chrono::month(month), std::chrono::day(day)};
    return date.ok() ? std::chrono::weekday(date).iso_encoding() : 0;
}

std::string_view DayName(unsigned dayOfWeek) {
    return s_shortDays[dayOfWeek];
}

void PrintTime(const CivilTime& time, TextBuffer& text) {
    text.AppendDigits(time.hour, 2);
    text += ':';
    text.AppendDigits(time.minute, 2);
    text += ':';
    text.AppendDigits(time.second, 2);
}

void PrintDate(const CivilTime& time, TextBuffer& text) {
    text.AppendDigits(time.year, 4);
    text += '-';
    text.AppendDigits(time.month, 2);
    text += '-';
    text.AppendDigits(time.day, 2);
}

bool TakeTime(std::string_view& text, CivilTime& time) {
    if (!TakeDigits(text, 1, 2, time.hour) || !TakeMark(text, ':') || !TakeDigits(text, 2, 2, time.minute)) {
        return false;
    }
    time.second = 0;
    return !TakeMark(text, ':') || TakeDigits(text, 2, 2, time.second);
}

bool TakeDate(std::string_view& text, CivilTime& time) {
    return TakeDigits(text, 4, 4, time.year) && TakeMark(text, '-') && TakeDigits(text, 2, 2, time.month) &&
           TakeMark(text, '-') && TakeDigits(text, 2, 2, time.day);
}

bool TakeDayName(std::string_view& text, CivilTime& time) {
    const auto length =
        static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsLetter) - text.begin());
    const std::string_view word = text.substr(0, length);
    for (unsigned day = 1; day < s_days.size(); ++day) {
        const std::string_view name = length == 3 ? s_days[day].substr(0, 3) : s_days[day];
        if (std::equal(word.begin(), word.end(), name.begin(), name.end(),
                       [](char c, char lower) { return (c | 0x20) == lower; })) {
            time.dayOfWeek = day;
            text = Trim(text.substr(length));
            return true;
        }
    }
    return false;
}

bool ReadDateTime(std::string_view text, CivilTime& time) {
    return TakeDate(text, time) && (TakeMark(text, 'T') || TakeMark(text, ' ')) && TakeTime(text, time) &&
           ReadFlags(text, time);
}

void PrintDateTime(const CivilTime& time, TextBuffer& text) {
    PrintDate(time, text);
    text += 'T';
    PrintTime(time, text);
    if (time.dayOfWeek != DefaultDayOfWeek(time)) {
        text += ';';
        text += kDayOfWeekName;
        text += '=';
        text.AppendDigits(time.dayOfWeek, 1);
    }
    for (const auto& [name, bit] : s_flags) {
        if ((time.flags & bit) != 0) {
            text += ';';
            text += name;
            text += "=1";
        }
    }
}

Status CheckTime(const CivilTime& time, bool allow24, Reason reason) {
    const bool endOfDay = allow24 && time.hour == 24 && time.minute == 0 && time.second == 0;
    if ((time.hour > 23 && !endOfDay) || time.minute > 59 || time.second > 59) {
        return Refuse(Status::OutOfRange, reason, "{:02}:{:02}:{:02} is no time of day", time.hour,
                      time.minute, time.second);
    }
    return Status::Done;
}

Status CheckDate(const CivilTime& time, Reason reason) {
    if (time.month < 1 || time.month > 12 || time.day < 1 || time.day > 31) {
        return Refuse(Status::OutOfRange, reason, "month {:02}, day {:02} is no date", time.month, time.day);
    }
    return Status::Done;
}

} // namespace Datapoint
