// Where a client looks for the device stack.
#pragma once

#include <cstdlib>
#include <string>

namespace DeviceStack {

/// The socket named by the environment variable DEVICESTACK_SOCKET, else the one that devicestackd has by
/// default.
inline std::string ClientSocketPath() {
    const char* path = std::getenv("DEVICESTACK_SOCKET");
    return path != nullptr && *path != '\0' ? path : "/run/devicestack/devicestack.sock";
}

} // namespace DeviceStack
