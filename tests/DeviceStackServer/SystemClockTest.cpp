#include "DeviceStackServer/SystemClock.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace DeviceStackServer {
namespace {

constexpr Seconds kWinter{1704067200}; // 2024-01-01

TEST(SystemClock, AChangeOfTheTimeZoneCountsAtOnce) {
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    EXPECT_EQ(LocalOffset(kWinter), Seconds(3600));
    ::setenv("TZ", "EST5", 1);
    EXPECT_EQ(LocalOffset(kWinter), Seconds(-5 * 3600));
}

} // namespace
} // namespace DeviceStackServer
