// Where in the IP network this machine is.
#pragma once

#include "KnxDevice/Device.h"

#include <cstdint>
#include <istream>
#include <string>
#include <string_view>

namespace KnxStackHost {

/// The place of the network interface that has the IPv4 address. With address 0 that of the interface of the
/// default route, or of the first one that is up and not loopback. Asks the kernel each time; nothing when it
/// knows none.
KnxDevice::IpPlace NetworkPlaceOf(std::uint32_t ipv4);

/// A route of the table in /proc/net/route that leads everywhere.
struct DefaultRoute {
    std::string interface;
    std::uint32_t gateway = 0; ///< IPv4 address
};

/// The one with the lowest metric of the interface, or of any when the name is empty; without a name when
/// there is none.
DefaultRoute FindDefaultRoute(std::istream& table, std::string_view interface);

} // namespace KnxStackHost
