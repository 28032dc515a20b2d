// How dsctl shows things to people.
#pragma once

#include "DataPoints.h"

#include <string>
#include <string_view>
#include <vector>

namespace Dsctl {

/// A value with its unit, if it has one; "-" for no value.
std::string WithUnit(std::string_view value, std::string_view unit);

/// A time of the protocol ("2024-05-01T10:00:00.123Z") as local time ("2024-05-01 12:00:00.123"); other texts
/// as they are.
std::string LocalTime(const std::string& utc);

/// Now, as the protocol writes a time.
std::string UtcNow();

/// One line per row, with the columns one below the other.
std::vector<std::string> AlignColumns(const std::vector<std::vector<std::string>>& rows);

/// Prints a table with a header line.
void PrintTable(const std::vector<DataPoint>& points);

} // namespace Dsctl
