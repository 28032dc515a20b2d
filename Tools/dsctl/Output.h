// How dsctl shows things to people.
#pragma once

#include "DataPoints.h"

#include "Tools/support/Text.h"

#include <string>
#include <string_view>
#include <vector>

namespace Dsctl {

using ::Tools::AlignColumns;
using ::Tools::LocalTime;

/// A value with its unit, if it has one; "-" for no value.
std::string WithUnit(std::string_view value, std::string_view unit);

/// Now, as the protocol writes a time.
std::string UtcNow();

/// Prints a table with a header line.
void PrintTable(const std::vector<DataPoint>& points);

} // namespace Dsctl
