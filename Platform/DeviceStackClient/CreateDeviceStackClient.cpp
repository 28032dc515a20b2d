#include "DeviceStackClient/Client.h"

#include <cstdlib>
#include <exception>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace Vesk {

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    const char* socketPath = std::getenv("DEVICESTACK_SOCKET");
    if (socketPath == nullptr || *socketPath == '\0')
        socketPath = "/run/devicestack/devicestack.sock";
    try {
        return std::make_unique<DeviceStackClient::Client>(socketPath);
    } catch (const std::exception& e) {
        const auto logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("DeviceStack.Client"));
        LOG4CPLUS_ERROR(logger, "CreateDeviceStackClient(): " << e.what());
        return nullptr;
    }
}

} // namespace Vesk
