// What dsctl knows of data points, and how people name them.
#pragma once

#include "DeviceStackProtocol/Messages.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Dsctl {

/// One entry of the device stack's process view. `json` is the entry as it came.
struct DataPoint {
    std::uint32_t id = 0;
    std::string urn;
    std::string name;
    std::string dpt;
    std::string unit;
    std::string access;
    std::string value;
    std::string json;
};

/// Reads the response to GetProcessView; nothing when it is none.
std::optional<std::vector<DataPoint>> ReadProcessView(std::string_view json);

/// `2001` is an ID, `urn:…` a URN, anything else a name.
DeviceStack::DataPointName ParseName(const std::string& text);

/// The part of the URN that names the data point within its device.
std::string_view NameOfUrn(std::string_view urn);

/// True when one of the patterns is the data point's: a number its ID, `urn:…` its URN, anything else its
/// name, for which upper and lower case count the same. With `*`, `?` or `[` a pattern covers the whole URN
/// or name, without it a name is found by any of its parts. No pattern matches everything.
bool Matches(const std::vector<std::string>& patterns, std::uint32_t id, std::string_view urn,
             std::string_view name);

} // namespace Dsctl
