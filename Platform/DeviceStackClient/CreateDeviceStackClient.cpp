#include "DeviceStackClient/Client.h"
#include "DeviceStackClient/Logger.h"

#include "DeviceStackProtocol/SocketPath.h"

#include <exception>

namespace Vesk {

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    try {
        return std::make_unique<DeviceStackClient::Client>(DeviceStack::ClientSocketPath());
    } catch (const std::exception& e) {
        LOG4CPLUS_ERROR(DeviceStackClient::Logger(), "CreateDeviceStackClient(): " << e.what());
        return nullptr;
    }
}

} // namespace Vesk
