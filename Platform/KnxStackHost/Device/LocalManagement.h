// Properties of the device for clients of management connections. Internal to the host.
#pragma once

#include "KnxDevice/PropertyAccess.h"
#include "KnxFrames/CemiManagement.h"

#include <cstdint>
#include <map>
#include <vector>

namespace KnxStackHost {

/// The confirmation of a request of a property, done with the rights of `level`. No property of the device is
/// a function.
KnxFrames::ManagementMessage AnswerManagement(KnxDevice::PropertyAccess& properties,
                                              KnxDevice::AccessLevel level,
                                              const KnxFrames::ManagementMessage& request);

/// Finds out what has changed that clients of management connections are told of without asking: programming
/// mode, individual address, the load states, and whether the bus can be reached.
class PropertyNews {
public:
    /// An M_PropInfo.ind for each such property that has another value than at the last call, as somebody
    /// with `level` may read it. The first call gives none.
    std::vector<KnxFrames::ManagementMessage> Take(const KnxDevice::PropertyAccess& properties,
                                                   KnxDevice::AccessLevel level);

private:
    std::map<std::size_t, std::vector<std::uint8_t>> m_values; // by place in the table of properties
};

} // namespace KnxStackHost
