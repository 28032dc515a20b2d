// Properties of the device for clients of management connections. Internal to this folder.
#pragma once

#include "KnxDevice/PropertyAccess.h"
#include "KnxFrames/CemiManagement.h"

namespace KnxStackHost {

/// The confirmation of an M_PropRead.req or M_PropWrite.req, done with the rights of `level`.
KnxFrames::ManagementMessage AnswerManagement(KnxDevice::PropertyAccess& properties,
                                              KnxDevice::AccessLevel level,
                                              const KnxFrames::ManagementMessage& request);

} // namespace KnxStackHost
