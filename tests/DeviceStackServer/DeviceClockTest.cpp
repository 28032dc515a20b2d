#include "DeviceStackServer/DeviceClock.h"

#include <gtest/gtest.h>

namespace DeviceStackServer {
namespace {

constexpr Seconds kSpring{1711846800}; // 2024-03-31T01:00:00Z, when central Europe goes to summer time
constexpr Seconds kAutumn{1729990800}; // 2024-10-27T01:00:00Z, and back

Seconds CentralEurope(Seconds utc) {
    return utc >= kSpring && utc < kAutumn ? Seconds(7200) : Seconds(3600);
}

TEST(DeviceClock, FindsTheNextSwitchOfDaylightSavingToTheSecond) {
    const DeviceClock clock(CentralEurope);
    EXPECT_EQ(clock.NextZoneChange(kSpring - Seconds(86400 * 90)), kSpring);
    EXPECT_EQ(clock.NextZoneChange(kSpring - Seconds(1)), kSpring);
    EXPECT_EQ(clock.NextZoneChange(kSpring), kAutumn);
    EXPECT_EQ(clock.NextZoneChange(kAutumn), std::nullopt);
}

TEST(DeviceClock, TimeThatPassesIsNoJump) {
    DeviceClock clock(CentralEurope);
    const Milliseconds utc = kSpring - Seconds(10);
    clock.MarkReported({Milliseconds(500), utc});
    EXPECT_FALSE(clock.HasJumped({Milliseconds(9500), utc + Milliseconds(9000)}));
    EXPECT_TRUE(clock.HasJumped({Milliseconds(10500), utc + Milliseconds(10000)})); // the switch
}

TEST(DeviceClock, AnOffsetMovesWithTheZone) {
    DeviceClock clock(CentralEurope);
    const Milliseconds utc = kSpring - Seconds(10);
    clock.SetOffset(Seconds(86400), utc);
    EXPECT_EQ(CivilText(clock.CivilSeconds(utc)), "1970-01-02T00:00:00");
    EXPECT_EQ(CivilText(clock.CivilSeconds(kSpring)), "1970-01-02T01:00:10");
    clock.ClearOffset();
    EXPECT_EQ(CivilText(clock.CivilSeconds(kSpring)), "2024-03-31T03:00:00");
}

} // namespace
} // namespace DeviceStackServer
