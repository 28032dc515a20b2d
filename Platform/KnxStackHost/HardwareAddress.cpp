#include "KnxStackHost/HardwareAddress.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <string>

namespace KnxStackHost {

namespace {

using MacAddress = std::array<std::uint8_t, 6>;

bool HasAddress(const ifaddrs& entry, std::uint32_t ipv4) {
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_INET)
        return false;
    sockaddr_in own{};
    std::memcpy(&own, entry.ifa_addr, sizeof own);
    return ntohl(own.sin_addr.s_addr) == ipv4;
}

/// All zeros unless the entry is that of a card.
MacAddress MacOf(const ifaddrs& entry) {
    MacAddress mac{};
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_PACKET)
        return mac;
    sockaddr_ll card{};
    std::memcpy(&card, entry.ifa_addr, sizeof card);
    if (card.sll_halen == mac.size())
        std::copy_n(card.sll_addr, mac.size(), mac.begin());
    return mac;
}

} // namespace

MacAddress HardwareAddressOf(std::uint32_t ipv4) {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0)
        return {};
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> list(first, ::freeifaddrs);
    std::string wanted;
    for (const auto* entry = first; entry != nullptr && wanted.empty(); entry = entry->ifa_next) {
        if (ipv4 != 0 && HasAddress(*entry, ipv4))
            wanted = entry->ifa_name;
    }
    if (ipv4 != 0 && wanted.empty())
        return {};
    for (const auto* entry = first; entry != nullptr; entry = entry->ifa_next) {
        const bool isUp = (entry->ifa_flags & IFF_UP) != 0;
        const auto mac = MacOf(*entry);
        if (mac != MacAddress{} && (ipv4 == 0 ? isUp : entry->ifa_name == wanted))
            return mac;
    }
    return {};
}

} // namespace KnxStackHost
