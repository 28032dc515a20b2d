#include "CoreBench.h"

namespace DeviceStackServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// The zone is two hours ahead of UTC; the system's local time is 2024-05-01T12:00:00.
class CoreClock : public testing::Test, public CoreBench {
protected:
    CoreClock() {
        Begin();
        setter = Register("set::app::1");
        listener = Register("listen::app::1");
    }

    std::vector<std::string> Changed(const std::string& clock, const std::string& date,
                                     const std::string& time, const std::string& by) {
        return {"changed 1005=" + clock + " by " + by, "changed 1006=" + date + " by " + by,
                "changed 1007=" + time + " by " + by};
    }

    std::string Read(std::uint32_t id) {
        return Ask(listener, "getValue", R"({"id":)" + std::to_string(id) + "}").at(0);
    }

    Connection setter = 0;
    Connection listener = 0;
};

TEST_F(CoreClock, ItShowsLocalTimeWheneverItIsAsked) {
    EXPECT_EQ(Read(1005), "value 2024-05-01T12:00:00");
    Advance(Milliseconds(61500));
    EXPECT_EQ(Read(1005), "value 2024-05-01T12:01:01");
    EXPECT_EQ(Read(1006), "value 2024-05-01");
    EXPECT_EQ(Read(1007), "value 12:01:01");
    EXPECT_THAT(Take(listener), IsEmpty()); // time that passes is no change
}

TEST_F(CoreClock, AWriteSetsItWithoutTouchingTheSystem) {
    EXPECT_THAT(Ask(setter, "setValue", R"({"id":1005,"value":"2030-12-31T23:59:58"})"),
                ElementsAre(R"(ok {"change":1})"));
    EXPECT_EQ(Take(listener), Changed("2030-12-31T23:59:58", "2030-12-31", "23:59:58", "set::app::1"));
    EXPECT_THAT(calls, IsEmpty());
    Advance(Milliseconds(3000));
    EXPECT_EQ(Read(1005), "value 2031-01-01T00:00:01");
    EXPECT_THAT(Take(setter), IsEmpty());
}

TEST_F(CoreClock, AWriteSetsTheSystemClockWhereThatIsAllowed) {
    Ask(setter, "setValue", R"({"id":1005,"value":"2030-01-01T00:00:00"})"); // leaves an offset
    Take(listener);
    systemClockAllowed = true;
    EXPECT_THAT(Ask(setter, "setValue", R"({"id":1005,"value":"2024-07-01T08:00:00"})"),
                ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(calls, ElementsAre("clock 2024-07-01T08:00:00"));
    EXPECT_EQ(Take(listener), Changed("2024-07-01T08:00:00", "2024-07-01", "08:00:00", "set::app::1"));
    core.OnTimer(now); // the jump of the system clock is this very change
    EXPECT_THAT(Take(listener), IsEmpty());
    EXPECT_EQ(Read(1005), "value 2024-07-01T08:00:00");
}

TEST_F(CoreClock, AnEqualTimeIsReportedWhenItIsSet) {
    Set(setter, 1005, "2024-05-01T12:00:00");
    EXPECT_EQ(Take(listener).size(), 3u);
}

TEST_F(CoreClock, FlagsBehindTheTimeAreUnderstood) {
    EXPECT_THAT(Ask(setter, "setValue", R"({"id":1005,"value":"2024-05-01T13:00:00;wd=1;clq=1"})"),
                ElementsAre(HasSubstr("ok")));
    EXPECT_EQ(Read(1005), "value 2024-05-01T13:00:00");
    EXPECT_THAT(Ask(setter, "setValue", R"({"id":1005,"value":"2024-05-01T14:00:00;nd=1"})"),
                ElementsAre(HasSubstr("error 4")));
    EXPECT_THAT(Ask(setter, "setValue", R"({"id":1005,"value":"2023-02-30T14:00:00"})"),
                ElementsAre("error 4: \"2023-02-30T14:00:00\" names no moment of the calendar"));
    EXPECT_EQ(Read(1005), "value 2024-05-01T13:00:00");
}

TEST_F(CoreClock, AResponseSetsNothing) {
    EXPECT_THAT(Ask(setter, "setValue",
                    R"({"id":1005,"value":"2030-01-01T00:00:00","readInternal":true,"response":true})"),
                ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(Take(listener), IsEmpty());
    EXPECT_EQ(Read(1005), "value 2024-05-01T12:00:00");
}

TEST_F(CoreClock, DateAndTimeOfDayAreReadOnly) {
    EXPECT_THAT(Ask(setter, "setValue", R"({"id":1006,"value":"2024-05-02"})"),
                ElementsAre(HasSubstr("error 5")));
    EXPECT_THAT(Ask(setter, "setValue", R"({"id":1007,"value":"12:00:00"})"),
                ElementsAre(HasSubstr("error 5")));
}

TEST_F(CoreClock, AJumpOfTheSystemClockIsReportedAboveTwoSeconds) {
    now.utc += Milliseconds(2000);
    core.OnTimer(now);
    EXPECT_THAT(Take(listener), IsEmpty());
    now.utc += Milliseconds(1);
    core.OnTimer(now);
    EXPECT_EQ(Take(listener), Changed("2024-05-01T12:00:02", "2024-05-01", "12:00:02", "devicestack"));
    now.utc -= Milliseconds(5000);
    core.OnTimer(now);
    EXPECT_EQ(Take(listener).size(), 3u);
}

TEST_F(CoreClock, ASwitchOfDaylightSavingIsReported) {
    zone = [](Seconds) { return Seconds(3600); };
    core.OnTimer(now);
    EXPECT_EQ(Take(listener), Changed("2024-05-01T11:00:00", "2024-05-01", "11:00:00", "devicestack"));
}

TEST_F(CoreClock, ItIsReportedAfterTheProgramsStart) {
    const auto program = Register("DscKnxAppPrg::field::KNX", R"("events":true,"field":true)");
    Take(listener);
    EmitEvent(program, "configurationLoaded");
    EXPECT_THAT(
        Take(listener),
        ElementsAre("event configurationLoaded of DscKnxAppPrg: ", "changed 1002=1 by devicestack",
                    "changed 1003=1 by devicestack", "changed 1005=2024-05-01T12:00:00 by devicestack",
                    "changed 1006=2024-05-01 by devicestack", "changed 1007=12:00:00 by devicestack"));
}

TEST_F(CoreClock, AResumingClientGetsTheTimeOfNow) {
    Set(setter, 1005, "2024-05-01T13:00:00");
    Advance(Milliseconds(60000));
    EXPECT_THAT(Ask(Connect(), "subscribe", R"({"lastChange":0,"server":"run"})"),
                ElementsAre(HasSubstr("ok"), "changed 1005=2024-05-01T13:01:00 by set::app::1",
                            "changed 1006=2024-05-01 by set::app::1",
                            "changed 1007=13:01:00 by set::app::1"));
}

TEST(CoreClockInterval, ItIsReportedRegularly) {
    CoreBench bench({"run", "1", "d", "/", Seconds(600), 0});
    bench.Begin();
    const auto listener = bench.Register("listen::app::1");
    bench.Advance(Milliseconds(599999));
    EXPECT_THAT(bench.Take(listener), IsEmpty());
    bench.Advance(Milliseconds(1));
    EXPECT_THAT(bench.Take(listener), ElementsAre("changed 1005=2024-05-01T12:10:00 by devicestack",
                                                  "changed 1006=2024-05-01 by devicestack",
                                                  "changed 1007=12:10:00 by devicestack"));
    bench.Advance(Milliseconds(1200000));
    EXPECT_EQ(bench.Take(listener).size(), 6u);
}

TEST(CoreClockInterval, ZeroSwitchesItOff) {
    CoreBench bench;
    bench.Begin();
    EXPECT_FALSE(bench.core.NextDeadline());
}

} // namespace
} // namespace DeviceStackServer
