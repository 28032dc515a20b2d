#include "DeviceStackClient/Client.h"

#include "DeviceStackProtocol/SocketPath.h"

#include <exception>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace Vesk {

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    try {
        return std::make_unique<DeviceStackClient::Client>(DeviceStack::ClientSocketPath());
    } catch (const std::exception& e) {
        const auto logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("DeviceStack.Client"));
        LOG4CPLUS_ERROR(logger, "CreateDeviceStackClient(): " << e.what());
        return nullptr;
    }
}

} // namespace Vesk
