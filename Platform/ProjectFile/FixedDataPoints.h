// The data points that exist in every project.
#pragma once

#include "ProjectFile/Project.h"

#include <vector>

namespace ProjectFile {

/// FixedId::kFirst to kLast in order, with their URNs for the device.
std::vector<DataPoint> FixedDataPoints(std::string_view device);

} // namespace ProjectFile
