// Tells the service manager how the daemon is.
#pragma once

#include <string_view>

namespace DeviceStackServer {

/// Sends `state` ("READY=1") to the socket that the environment variable NOTIFY_SOCKET names; nothing without
/// it.
void NotifyServiceManager(std::string_view state);

} // namespace DeviceStackServer
