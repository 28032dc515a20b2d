// MAC addresses, held against what the kernel says elsewhere.
#include "KnxStackHost/HardwareAddress.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

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

TEST(HardwareAddress, LoopbackAndUnknownAddressesHaveNone) {
    EXPECT_EQ(kNone, Text(HardwareAddressOf(INADDR_LOOPBACK)));
    EXPECT_EQ(kNone, Text(HardwareAddressOf(0xCB007101))) << "203.0.113.1 is nobody's";
}

TEST(HardwareAddress, EachAddressHasThatOfItsCard) {
    ifaddrs* list = nullptr;
    ASSERT_EQ(0, ::getifaddrs(&list));
    bool anyUp = false;
    for (const auto* entry = list; entry != nullptr; entry = entry->ifa_next) {
        const auto expected = OfKernel(entry->ifa_name);
        anyUp = anyUp ||
                ((entry->ifa_flags & IFF_UP) != 0 && expected.size() == kNone.size() && expected != kNone);
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        sockaddr_in own{};
        std::memcpy(&own, entry->ifa_addr, sizeof own);
        EXPECT_EQ(expected.size() == kNone.size() ? expected : kNone,
                  Text(HardwareAddressOf(ntohl(own.sin_addr.s_addr))))
            << entry->ifa_name;
    }
    ::freeifaddrs(list);
    EXPECT_EQ(anyUp, Text(HardwareAddressOf(0)) != kNone);
}

} // namespace
} // namespace KnxStackHost
