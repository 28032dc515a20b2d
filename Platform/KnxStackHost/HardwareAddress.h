// Which network card this machine is known by.
#pragma once

#include <array>
#include <cstdint>

namespace KnxStackHost {

/// The MAC address of the network interface that has the IPv4 address, or with address 0 that of the first
/// interface that is up and has one. All zeros when there is none, as for loopback.
std::array<std::uint8_t, 6> HardwareAddressOf(std::uint32_t ipv4);

} // namespace KnxStackHost
