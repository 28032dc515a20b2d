// Date and time of the native form of a value.
#pragma once

#include "Tav/TAVTIME.h"

#include <string>
#include <string_view>

namespace Base {

/// Reads "YYYY-MM-DDThh:mm:ss" with any number of ";name=value" behind it, "YYYY-MM-DD", or "hh:mm:ss" with
/// an English day name ("Wed 12:00:00") before it or none. Month, day, minute and second must be in their
/// ranges and the hour at most 24, no more: the calendar is not asked. Week and year day of a date are
/// computed. False when the text has none of these forms; `time` is then untouched.
bool ParseTime(std::string_view text, TAVTIME& time);

/// Replaces `text` by "YYYY-MM-DDThh:mm:ss", the year with at least four digits.
void PrintTime(const TAVTIME& time, std::string& text);

} // namespace Base
