// Addresses of network interfaces, held against what the kernel says elsewhere.
#include "KnxStackHost/Links/NetworkPlace.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sstream>

namespace KnxStackHost {
namespace {

const std::string kNone = "00:00:00:00:00:00";

std::string Text(const std::array<std::uint8_t, 6>& mac) {
    return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", mac[0], mac[1], mac[2], mac[3], mac[4],
                       mac[5]);
}

std::string OfKernel(const std::string& interface) {
    std::ifstream file("/sys/class/net/" + interface + "/address");
    std::string text;
    file >> text;
    return text;
}

std::uint32_t Number(const sockaddr* address) {
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, address, sizeof ipv4);
    return ntohl(ipv4.sin_addr.s_addr);
}

/// As the kernel prints the address in its table of routes.
std::string InMemory(std::uint32_t address) {
    return fmt::format("{:08X}", htonl(address));
}

TEST(NetworkPlace, LoopbackHasNoCardAndAnUnknownAddressNothing) {
    const auto loopback = NetworkPlaceOf(INADDR_LOOPBACK);
    EXPECT_EQ(std::uint32_t{INADDR_LOOPBACK}, loopback.address);
    EXPECT_EQ(0xFF000000U, loopback.subnetMask);
    EXPECT_EQ(0U, loopback.gateway);
    EXPECT_EQ(kNone, Text(loopback.mac));
    const auto nobody = NetworkPlaceOf(0xCB007101); // 203.0.113.1
    EXPECT_EQ(0U, nobody.address);
    EXPECT_EQ(kNone, Text(nobody.mac));
}

TEST(NetworkPlace, EachAddressHasMaskAndCardOfItsInterface) {
    ifaddrs* list = nullptr;
    ASSERT_EQ(0, ::getifaddrs(&list));
    bool anyUp = false;
    for (const auto* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        const auto place = NetworkPlaceOf(Number(entry->ifa_addr));
        EXPECT_EQ(Number(entry->ifa_addr), place.address) << entry->ifa_name;
        EXPECT_EQ(Number(entry->ifa_netmask), place.subnetMask) << entry->ifa_name;
        const auto expected = OfKernel(entry->ifa_name);
        EXPECT_EQ(expected.size() == kNone.size() ? expected : kNone, Text(place.mac)) << entry->ifa_name;
        anyUp = anyUp || (entry->ifa_flags & (IFF_UP | IFF_LOOPBACK)) == IFF_UP;
    }
    ::freeifaddrs(list);
    EXPECT_EQ(anyUp, NetworkPlaceOf(0).address != 0) << "without an address, some interface that is up";
}

TEST(NetworkPlace, TheDefaultRouteIsTheOneWithTheLeastMetric) {
    const std::string table = "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\n"
                              "eth0\t00000000\t" +
                              InMemory(0xC0A80001) +
                              "\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
                              "wlan0\t00000000\t" +
                              InMemory(0x0A0000FE) +
                              "\t0003\t0\t0\t20\t00000000\t0\t0\t0\n"
                              "eth1\t" +
                              InMemory(0xAC100000) + "\t00000000\t0001\t0\t0\t0\t" + InMemory(0xFFFF0000) +
                              "\t0\t0\t0\n"
                              "eth2\t00000000\n";
    const auto find = [&table](std::string_view interface) {
        std::istringstream lines(table);
        return FindDefaultRoute(lines, interface);
    };
    EXPECT_EQ("wlan0", find("").interface);
    EXPECT_EQ(0x0A0000FEU, find("").gateway);
    EXPECT_EQ(0xC0A80001U, find("eth0").gateway);
    for (const auto* without : {"eth1", "eth2", "lo"})
        EXPECT_EQ("", find(without).interface) << without;
}

} // namespace
} // namespace KnxStackHost
