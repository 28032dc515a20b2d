// Dates and times as text. No zone, no clock. Internal to the converter.
#pragma once

#include "ValueConverter/Layout.h"
#include "ValueConverter/TextBuffer.h"

#include <cstdint>
#include <string_view>

namespace Datapoint {

/// The fields of a date and time as they stand in 19.001; none is checked against a calendar.
struct CivilTime {
    unsigned year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned dayOfWeek = 0; ///< 1 Monday to 7 Sunday, 0 none
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
    unsigned flags = 0; ///< CivilFlag bits
};

/// Flags of a date and time with the bits of the last two octets of 19.001 (KNX Standard 3/7/2,
/// DPT_DateTime).
enum CivilFlag : unsigned {
    kFault = 0x8000,
    kWorkingDay = 0x4000,
    kNoWorkingDay = 0x2000, ///< this and the other kNo…: the field is not valid
    kNoYear = 0x1000,
    kNoDate = 0x0800,
    kNoDayOfWeek = 0x0400,
    kNoTime = 0x0200,
    kSummerTime = 0x0100,
    kClockQuality = 0x0080,
    kReliableSource = 0x0040,
    kAllFlags = 0xFFC0,
};

/// 1 Monday to 7 Sunday; 0 when the calendar has no such day.
unsigned WeekdayOf(unsigned year, unsigned month, unsigned day);

/// "Mon" to "Sun"; empty for 0.
std::string_view DayName(unsigned dayOfWeek);

/// "12:00:00", "2024-05-01".
void PrintTime(const CivilTime& time, TextBuffer& text);
void PrintDate(const CivilTime& time, TextBuffer& text);

/// Takes "12:00:00" or "12:00" off the front of the text. False when it does not begin so.
bool TakeTime(std::string_view& text, CivilTime& time);

/// Takes "2024-05-01" off the front of the text. False when it does not begin so.
bool TakeDate(std::string_view& text, CivilTime& time);

/// Takes the name of a day, "Wed" or "Wednesday" in any case, and the blanks behind it. False when the text
/// does not begin so.
bool TakeDayName(std::string_view& text, CivilTime& time);

/// Reads "2024-05-01T12:00:00;clq=1": date, time, flags that are not 0, and "dow=3" for a day of the week
/// that is not the date's own. A blank may stand for the T.
bool ReadDateTime(std::string_view text, CivilTime& time);

/// The reverse. A day of the week is printed unless it is DefaultDayOfWeek().
void PrintDateTime(const CivilTime& time, TextBuffer& text);

/// Refuses a time of day beyond 23:59:59, with `allow24` one beyond 24:00:00.
Status CheckTime(const CivilTime& time, bool allow24, Reason reason);

/// Refuses a month or day that no calendar has. 30 February passes.
Status CheckDate(const CivilTime& time, Reason reason);

/// Refuses what 19.001 refuses in its 8 octets (DateTime.cpp), and what 10.001 refuses in its 3
/// (TimeOfDay.cpp).
Status CheckDateTime(const std::uint8_t* octets, Reason reason);
Status CheckTimeOfDay(const std::uint8_t* octets, Reason reason);

} // namespace Datapoint
