// The table of datapoint types and its constant-time look-up. Internal to the converter.
#pragma once

#include "ValueConverter/DatapointTypes.h"

#include <span>

namespace Datapoint {

/// All rows: first one for each main number, then the listed types in ascending order.
std::span<const Type> TableRows();

} // namespace Datapoint
