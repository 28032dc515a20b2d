// Look-up of a rule for the converter. Internal to the converter.
#pragma once

#include "ValueConverter/DatapointTypes.h"

namespace Datapoint {

/// The rule of the record, null when there is none: Find(), but also the other resolution of 13.002.
const Type* FindRule(const KNXDPT& dpt);

} // namespace Datapoint
