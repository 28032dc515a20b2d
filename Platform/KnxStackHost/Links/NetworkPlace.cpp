#include "KnxStackHost/Links/NetworkPlace.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <fstream>
#include <ifaddrs.h>
#include <ios>
#include <limits>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sstream>
#include <string>

namespace KnxStackHost {

namespace {

/// 0 when it is none of IPv4.
std::uint32_t Ipv4Of(const sockaddr* address) {
    if (address == nullptr || address->sa_family != AF_INET)
        return 0;
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, address, sizeof ipv4);
    return ntohl(ipv4.sin_addr.s_addr);
}

/// All zeros unless the entry is that of a card.
std::array<std::uint8_t, 6> MacOf(const ifaddrs& entry) {
    std::array<std::uint8_t, 6> mac{};
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_PACKET)
        return mac;
    sockaddr_ll card{};
    std::memcpy(&card, entry.ifa_addr, sizeof card);
    if (card.sll_halen == mac.size())
        std::copy_n(card.sll_addr, mac.size(), mac.begin());
    return mac;
}

/// The kernel's list of interfaces, one entry for each address of each; null at the end, or when it has none.
using Interfaces = std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)>;

Interfaces ListInterfaces() {
    ifaddrs* first = nullptr;
    return {::getifaddrs(&first) == 0 ? first : nullptr, ::freeifaddrs};
}

const ifaddrs* FindAddress(const ifaddrs* entry, std::uint32_t ipv4) {
    while (entry != nullptr && Ipv4Of(entry->ifa_addr) != ipv4)
        entry = entry->ifa_next;
    return entry;
}

/// The first entry with an IPv4 address of the interface; with an empty name, of any that is up and not
/// loopback.
const ifaddrs* FindInterface(const ifaddrs* entry, const std::string& name) {
    const auto fits = [&name](const ifaddrs& each) {
        return Ipv4Of(each.ifa_addr) != 0 &&
               (name.empty() ? (each.ifa_flags & (IFF_UP | IFF_LOOPBACK)) == IFF_UP : each.ifa_name == name);
    };
    while (entry != nullptr && !fits(*entry))
        entry = entry->ifa_next;
    return entry;
}

DefaultRoute DefaultRouteOf(std::string_view interface) {
    std::ifstream table("/proc/net/route");
    return FindDefaultRoute(table, interface);
}

} // namespace

KnxDevice::IpPlace NetworkPlaceOf(std::uint32_t ipv4) {
    const auto list = ListInterfaces();
    const auto* const own =
        ipv4 != 0 ? FindAddress(list.get(), ipv4) : FindInterface(list.get(), DefaultRouteOf({}).interface);
    if (own == nullptr)
        return {};
    KnxDevice::IpPlace place;
    place.address = Ipv4Of(own->ifa_addr);
    place.subnetMask = Ipv4Of(own->ifa_netmask);
    place.gateway = DefaultRouteOf(own->ifa_name).gateway;
    for (const auto* entry = list.get(); entry != nullptr && place.mac == decltype(place.mac){};
         entry = entry->ifa_next)
        if (std::strcmp(entry->ifa_name, own->ifa_name) == 0)
            place.mac = MacOf(*entry);
    return place;
}

// A line has the interface, destination, gateway, flags, three numbers, of which the last is the metric, and
// the mask. Addresses are hexadecimal numbers as the kernel has them in memory.
DefaultRoute FindDefaultRoute(std::istream& table, std::string_view interface) {
    DefaultRoute best;
    auto leastMetric = std::numeric_limits<std::uint64_t>::max();
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string name;
        std::uint32_t destination = 0;
        std::uint32_t gateway = 0;
        std::uint32_t flags = 0;
        std::uint64_t references = 0;
        std::uint64_t uses = 0;
        std::uint64_t metric = 0;
        std::uint32_t mask = 0;
        fields >> name >> std::hex >> destination >> gateway >> flags >> std::dec >> references >> uses >>
            metric >> std::hex >> mask;
        if (fields.fail() || destination != 0 || mask != 0 || metric >= leastMetric ||
            (!interface.empty() && name != interface))
            continue;
        leastMetric = metric;
        best = {name, ntohl(gateway)};
    }
    return best;
}

} // namespace KnxStackHost
