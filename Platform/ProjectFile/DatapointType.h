// What the loader asks of datapoint types.
#pragma once

#include "Vesk/KNXDPT.h"

#include <optional>
#include <string>
#include <string_view>

namespace ProjectFile {

/// Every spelling: "9.001", "DPT9.001", "DPT-9.001", "DPST-9-1", "DPT-9", "9.xxx".
std::optional<KNXDPT> ParseDatapointType(std::string_view text);

/// "9.001"; "9" when only the main number is known.
std::string DatapointTypeText(const KNXDPT& dpt);

/// The type's unit for people; "" when it has none.
std::string DatapointTypeUnit(const KNXDPT& dpt);

/// True when the value text can be sent as a value of the type.
bool FitsDatapointType(const KNXDPT& dpt, const std::string& valueText);

} // namespace ProjectFile
