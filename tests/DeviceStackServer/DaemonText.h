// What the tests of the started daemon have in common.
#pragma once

#include "../support/Daemon.h"

#include <string>

namespace DeviceStackServer {

inline constexpr const char* kDaemonProject = R"({
  "version": 1, "device": "house",
  "dataPoints": [
    {"id": 2001, "name": "Plain", "dpt": "5.010", "persistent": true},
    {"id": 2002, "name": "Owned", "dpt": "5.010", "owner": "own::test::1"}
  ]
})";

/// The member at a JSON pointer as text; "(none)" when there is none.
inline std::string Text(const boost::json::value& value, const char* pointer) {
    boost::json::error_code error;
    const auto* found = value.find_pointer(pointer, error);
    if (!found)
        return "(none)";
    return found->is_string() ? std::string(found->get_string()) : boost::json::serialize(*found);
}

} // namespace DeviceStackServer
