// Octet layout shared by reading and writing KNXnet/IP frames. Internal to this folder.
#pragma once

#include <cstddef>
#include <cstdint>

namespace KnxIp::Layout {

inline constexpr std::uint8_t kHeaderSize = 6;
inline constexpr std::uint8_t kVersion = 0x10;
inline constexpr std::uint8_t kHpaiSize = 8;
inline constexpr std::uint8_t kConnectionHeaderSize = 4;
inline constexpr std::uint8_t kTunnelCriSize = 4;
inline constexpr std::uint8_t kTunnelCriWithAddressSize = 6;
inline constexpr std::uint8_t kTunnelCrdSize = 4;
inline constexpr std::uint8_t kManagementCrdSize = 2;

inline constexpr std::uint8_t kDeviceInformationSize = 54;
inline constexpr std::uint8_t kExtendedDeviceInformationSize = 8;
inline constexpr std::uint8_t kTunnellingInformationSize = 4; // without slots
inline constexpr std::uint8_t kTunnellingSlotSize = 4;
inline constexpr std::uint8_t kRoutingLostMessageSize = 4;
inline constexpr std::uint8_t kRoutingBusySize = 6;
inline constexpr std::uint8_t kMandatoryParameter = 0x80;
inline constexpr std::size_t kNameSize = 30;
inline constexpr std::size_t kMostFamilies = 16;
inline constexpr std::uint8_t kProgrammingMode = 0x01;

} // namespace KnxIp::Layout
