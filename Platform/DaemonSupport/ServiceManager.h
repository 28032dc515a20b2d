// What the service manager is told.
#pragma once

#include <string_view>

namespace DaemonSupport {

/// Sends `state` ("READY=1") to the datagram socket that NOTIFY_SOCKET names, as systemd's Type=notify
/// expects. Nothing when the variable is not set; a manager that does not listen is none of our business.
void NotifyServiceManager(std::string_view state);

} // namespace DaemonSupport
