// How tools show things to people.
#pragma once

#include <string>
#include <vector>

namespace Tools {

/// A time as daemons tell it ("2024-05-01T10:00:00.123Z") as local time ("2024-05-01 12:00:00.123"); other
/// texts as they are.
std::string LocalTime(const std::string& utc);

/// One line per row, with the columns one below the other.
std::vector<std::string> AlignColumns(const std::vector<std::vector<std::string>>& rows);

} // namespace Tools
