#include "DeviceStackServer/Instant.h"

#include <fmt/format.h>

#include <charconv>

namespace DeviceStackServer {
namespace {

using Days = std::chrono::days;

struct Civil {
    std::chrono::year_month_day date;
    std::chrono::hh_mm_ss<Seconds> time;
};

Civil Split(Seconds civil) {
    const auto day = std::chrono::floor<Days>(civil);
    return {std::chrono::year_month_day(std::chrono::sys_days(day)), std::chrono::hh_mm_ss(civil - day)};
}

/// The decimal number that fills text[at, at + length); nothing when something else stands there.
std::optional<unsigned> Digits(std::string_view text, std::size_t at, std::size_t length) {
    unsigned number = 0;
    const char* const begin = text.data() + at;
    const auto [end, error] = std::from_chars(begin, begin + length, number);
    if (error != std::errc() || end != begin + length)
        return std::nullopt;
    return number;
}

} // namespace

std::string UtcText(Milliseconds utc) {
    const auto seconds = std::chrono::floor<Seconds>(utc);
    return fmt::format("{}.{:03}Z", CivilText(seconds), (utc - seconds).count());
}

std::optional<Milliseconds> ParseUtc(std::string_view text) {
    if (text.size() != 24 || text[19] != '.' || text[23] != 'Z')
        return std::nullopt;
    const auto seconds = ParseCivil(text.substr(0, 19));
    const auto fraction = Digits(text, 20, 3);
    if (!seconds || !fraction)
        return std::nullopt;
    return *seconds + Milliseconds(*fraction);
}

std::string CivilDateText(Seconds civil) {
    const auto date = Split(civil).date;
    return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

std::string CivilTimeText(Seconds civil) {
    const auto time = Split(civil).time;
    return fmt::format("{:02}:{:02}:{:02}", time.hours().count(), time.minutes().count(),
                       time.seconds().count());
}

std::string CivilText(Seconds civil) {
    return CivilDateText(civil) + 'T' + CivilTimeText(civil);
}

std::optional<Seconds> ParseCivil(std::string_view text) {
    if (text.size() != 19 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':')
        return std::nullopt;
    const auto year = Digits(text, 0, 4);
    const auto month = Digits(text, 5, 2);
    const auto day = Digits(text, 8, 2);
    const auto hour = Digits(text, 11, 2);
    const auto minute = Digits(text, 14, 2);
    const auto second = Digits(text, 17, 2);
    if (!year || !month || !day || !hour || !minute || !second)
        return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(*year)),
                                           std::chrono::month(*month), std::chrono::day(*day)};
    const bool endOfDay = *hour == 24 && *minute == 0 && *second == 0;
    if (!date.ok() || (*hour > 23 && !endOfDay) || *minute > 59 || *second > 59)
        return std::nullopt;
    return std::chrono::sys_days(date).time_since_epoch() + std::chrono::hours(*hour) +
           std::chrono::minutes(*minute) + Seconds(*second);
}

} // namespace DeviceStackServer
