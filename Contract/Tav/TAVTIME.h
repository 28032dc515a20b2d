// Local civil date and time of the base platform.
#pragma once

#include "Tav/Export.h"

#include <cstdint>
#include <string>

/// A date and time of day without a zone, as a wall clock shows it (proleptic Gregorian calendar). Nothing is
/// normalised: 30 February stays until somebody asks IsValidDate(). All zero means "nothing". A value type.
struct TAV_EXPORT TAVTIME {
    std::uint16_t year = 0;      ///< 1 to 65535
    std::uint8_t month = 0;      ///< 1 to 12
    std::uint8_t day = 0;        ///< 1 to 31
    std::uint8_t hour = 0;       ///< 0 to 23
    std::uint8_t minute = 0;     ///< 0 to 59
    std::uint8_t second = 0;     ///< 0 to 59
    std::uint8_t dayOfWeek = 0;  ///< 1 Monday to 7 Sunday; 0 not known
    std::uint16_t dayOfYear = 0; ///< 1 to 366; 0 not known

    /// True when the calendar has the day: month 1 to 12, day 1 to the month's last, year at least 1.
    static bool IsValidDate(std::uint16_t year, std::uint8_t month, std::uint8_t day);

    /// True for 00:00:00 to 23:59:59. 24:00:00 and leap seconds are not valid.
    static bool IsValidTime(std::uint8_t hour, std::uint8_t minute, std::uint8_t second);

    /// The time in the words of strftime(3); every conversion that needs no zone is understood. Fields
    /// outside their range are printed as they are, names of such days and months as "?". A week or year day
    /// that is not known is taken from the date. Empty for an empty format.
    std::string Format(const char* format) const;

    /// Sets all fields from `seconds` since 1970-01-01 00:00:00. `utc` true: the seconds count UTC and the
    /// fields become local time of the process's time zone. `utc` false: the fields count the same seconds
    /// without a zone, the inverse of operator long. All fields become 0 when the year is not 1 to 65535.
    void Set(long seconds, bool utc);

    /// Computes dayOfWeek and dayOfYear from year, month and day; both become 0 when the date is not valid.
    void SetWeekYearDay();

    /// Seconds from 1970-01-01 00:00:00 to the fields, counted without a zone, so that a difference of two
    /// times is the difference of what two wall clocks show, whatever daylight saving does. Fields outside
    /// their range count on from it: 30 February is 1 or 2 March, month 0 the December before.
    explicit operator long() const;

    bool operator==(const TAVTIME& other) const = default;
};
