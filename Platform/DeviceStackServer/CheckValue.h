// Whether a value text fits a datapoint type.
#pragma once

#include "DeviceStackServer/DataPointStore.h"
#include "Vesk/KNXDPT.h"

#include <string>

namespace DeviceStackServer {

/// The ValueCheck of the daemon: why the text does not fit the type, "" when it does. Words for booleans
/// become `0` and `1`, times of day, dates and date-times get their full form; every other text stays as it
/// is, because a number's bus form is coarser than the number.
std::string CheckValue(const KNXDPT& dpt, ValueSource source, std::string& text);

} // namespace DeviceStackServer
