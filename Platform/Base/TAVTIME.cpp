#include "Tav/TAVTIME.h"

#include <array>
#include <ctime>

namespace {

constexpr std::int64_t kSecondsPerHour = 3600;
constexpr std::int64_t kSecondsPerDay = 24 * kSecondsPerHour;
constexpr std::int64_t kDaysPer400Years = 146097;
constexpr std::int64_t kDaysPer100Years = 36524; // of the first three centuries of four
constexpr std::int64_t kDaysPer4Years = 1461;
constexpr std::int64_t kEpoch = 719162; // days from 0001-01-01 to 1970-01-01

// Days of a common year before the month; the last entry ends December.
constexpr std::array<int, 13> kDaysBefore = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

constexpr bool IsLeap(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

constexpr int DaysBeforeMonth(std::int64_t year, int month) {
    return kDaysBefore[static_cast<std::size_t>(month - 1)] + (month > 2 && IsLeap(year) ? 1 : 0);
}

constexpr int DaysOfMonth(std::int64_t year, int month) {
    return month == 12 ? 31 : DaysBeforeMonth(year, month + 1) - DaysBeforeMonth(year, month);
}

// Days from 0001-01-01 to 1 January; year at least 1.
constexpr std::int64_t DaysBeforeYear(std::int64_t year) {
    const auto past = year - 1;
    return past * 365 + past / 4 - past / 100 + past / 400;
}

// Days from 1970-01-01, month and day counted on beyond their ranges.
constexpr std::int64_t DaysFromEpoch(const TAVTIME& time) {
    const auto months = time.year * 12 + time.month - 1 + 12 * 400; // 400 years ahead, so nothing is negative
    const auto year = months / 12;
    return DaysBeforeYear(year) - kDaysPer400Years + DaysBeforeMonth(year, months % 12 + 1) + time.day - 1 -
           kEpoch;
}

// Fills the date from days since 0001-01-01; `days` at least 0. False when the year does not fit.
bool SetDate(TAVTIME& time, std::int64_t days) {
    const auto cycles = days / kDaysPer400Years;
    auto rest = days % kDaysPer400Years;
    const auto centuries =
        rest == kDaysPer400Years - 1 ? 3 : rest / kDaysPer100Years; // its last day is 31 December
    rest -= centuries * kDaysPer100Years;
    const auto leaps = rest / kDaysPer4Years;
    rest %= kDaysPer4Years;
    const auto years = rest == kDaysPer4Years - 1 ? 3 : rest / 365;
    rest -= years * 365;

    const auto year = cycles * 400 + centuries * 100 + leaps * 4 + years + 1;
    if (year > UINT16_MAX) {
        return false;
    }
    int month = 12;
    while (DaysBeforeMonth(year, month) > rest) {
        --month;
    }
    time.year = static_cast<std::uint16_t>(year);
    time.month = static_cast<std::uint8_t>(month);
    time.day = static_cast<std::uint8_t>(rest - DaysBeforeMonth(year, month) + 1);
    time.dayOfWeek = static_cast<std::uint8_t>(days % 7 + 1); // 0001-01-01 is a Monday
    time.dayOfYear = static_cast<std::uint16_t>(rest + 1);
    return true;
}

TAVTIME FromSeconds(std::int64_t seconds) {
    auto days = seconds / kSecondsPerDay;
    auto rest = seconds % kSecondsPerDay;
    if (rest < 0) {
        rest += kSecondsPerDay;
        --days;
    }
    TAVTIME time;
    if (days + kEpoch < 0 || !SetDate(time, days + kEpoch)) {
        return {};
    }
    time.hour = static_cast<std::uint8_t>(rest / 3600);
    time.minute = static_cast<std::uint8_t>(rest / 60 % 60);
    time.second = static_cast<std::uint8_t>(rest % 60);
    return time;
}

TAVTIME LocalFromUtc(long seconds) {
    tzset(); // a change of the system's time zone counts from now on; localtime_r alone would never look
             // again
    const std::time_t utc = seconds;
    std::tm local{};
    if (localtime_r(&utc, &local) == nullptr || local.tm_year < 1 - 1900 ||
        local.tm_year > UINT16_MAX - 1900) {
        return {};
    }
    return {.year = static_cast<std::uint16_t>(local.tm_year + 1900),
            .month = static_cast<std::uint8_t>(local.tm_mon + 1),
            .day = static_cast<std::uint8_t>(local.tm_mday),
            .hour = static_cast<std::uint8_t>(local.tm_hour),
            .minute = static_cast<std::uint8_t>(local.tm_min),
            .second = static_cast<std::uint8_t>(local.tm_sec),
            .dayOfWeek = static_cast<std::uint8_t>(local.tm_wday == 0 ? 7 : local.tm_wday),
            .dayOfYear = static_cast<std::uint16_t>(local.tm_yday + 1)};
}

} // namespace

bool TAVTIME::IsValidDate(std::uint16_t year, std::uint8_t month, std::uint8_t day) {
    return year >= 1 && month >= 1 && month <= 12 && day >= 1 && day <= DaysOfMonth(year, month);
}

bool TAVTIME::IsValidTime(std::uint8_t hour, std::uint8_t minute, std::uint8_t second) {
    return hour <= 23 && minute <= 59 && second <= 59;
}

std::string TAVTIME::Format(const char* format) const {
    auto complete = *this;
    if (dayOfWeek == 0 || dayOfYear == 0) {
        complete.SetWeekYearDay();
    }
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    const auto weekDay = dayOfWeek != 0 ? dayOfWeek : complete.dayOfWeek;
    fields.tm_wday = weekDay == 7 ? 0 : weekDay == 0 ? -1 : weekDay;
    fields.tm_yday = (dayOfYear != 0 ? dayOfYear : complete.dayOfYear) - 1;

    // strftime returns 0 both for a buffer that is too small and for an empty text; one character more than
    // asked for tells them apart.
    const auto extended = std::string(format) + '.';
    std::string text(64 + extended.size(), '\0');
    std::size_t length = 0;
    while ((length = std::strftime(text.data(), text.size(), extended.c_str(), &fields)) == 0) {
        text.resize(text.size() * 2);
    }
    text.resize(length - 1);
    return text;
}

void TAVTIME::Set(long seconds, bool utc) {
    *this = utc ? LocalFromUtc(seconds) : FromSeconds(seconds);
}

void TAVTIME::SetWeekYearDay() {
    dayOfWeek = 0;
    dayOfYear = 0;
    if (IsValidDate(year, month, day)) {
        const auto dayInYear = DaysBeforeMonth(year, month) + day;
        dayOfWeek = static_cast<std::uint8_t>((DaysBeforeYear(year) + dayInYear - 1) % 7 + 1);
        dayOfYear = static_cast<std::uint16_t>(dayInYear);
    }
}

TAVTIME::operator long() const {
    return static_cast<long>(DaysFromEpoch(*this) * kSecondsPerDay + hour * kSecondsPerHour +
                             minute * std::int64_t{60} + second);
}
