#include "CoreBench.h"

namespace DeviceStackServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// The KNX application program is registered and has not finished its start.
class CoreWindow : public testing::Test, public CoreBench {
protected:
    CoreWindow() {
        Begin();
        writer = Register("web::page::1");
        program = Register("DscKnxAppPrg::field::KNX", R"("events":true,"field":true)");
        Take(writer);
    }

    Connection writer = 0;
    Connection program = 0;
};

TEST_F(CoreWindow, ChangesAreHeldTheLastOfEachAndDeliveredAfterTheStart) {
    Set(writer, 2001, "1");
    Set(writer, 2007, "2");
    Set(writer, 2001, "3");
    EmitEvent(program, "configurationLoaded");
    EXPECT_THAT(Take(program), ElementsAre(HasSubstr("ok")));
    Advance(Milliseconds(1499));
    EXPECT_THAT(Take(program), IsEmpty());
    Advance(Milliseconds(1));
    EXPECT_THAT(Take(program), ElementsAre("changed 2007=2 by web::page::1", "changed 2001=3 by web::page::1",
                                           "changed 1005=2024-05-01T12:00:01 by devicestack",
                                           "changed 1006=2024-05-01 by devicestack",
                                           "changed 1007=12:00:01 by devicestack"));
    Set(writer, 2001, "4");
    EXPECT_THAT(Take(program), ElementsAre("changed 2001=4 by web::page::1"));
}

TEST_F(CoreWindow, AHeldChangeThatTheProgramItselfReplacesIsNotDelivered) {
    Set(writer, 2002, "1", R"("readInternal":true)");
    Set(program, 2002, "0");
    EmitEvent(program, "configurationLoaded");
    Take(program);
    Advance(Milliseconds(1500));
    for (const auto& line : Take(program))
        EXPECT_THAT(line, testing::Not(HasSubstr("2002")));
}

TEST_F(CoreWindow, NobodyIsAskedToRead) {
    EXPECT_THAT(Ask(writer, "getValue", R"({"id":2002})"),
                ElementsAre("error 6: its owner has not finished its start"));
    EXPECT_THAT(Take(program), IsEmpty());
}

TEST_F(CoreWindow, WritesWaitForTheEndOfTheStart) {
    Set(writer, 2002, "1");
    Advance(Milliseconds(5000));
    EmitEvent(program, "configurationLoaded");
    Take(program);
    Advance(Milliseconds(1499));
    EXPECT_THAT(Take(program), IsEmpty());
    Advance(Milliseconds(1));
    auto told = Take(program);
    ASSERT_FALSE(told.empty());
    EXPECT_EQ(told.back(), "write 2002=1"); // behind the held changes
    Take(writer);
    Handled(program, true);
    EXPECT_THAT(Take(writer), ElementsAre(HasSubstr("ok")));
}

TEST_F(CoreWindow, AWriteThatWaitsLongerThanTenSecondsIsNotReady) {
    Set(writer, 2002, "1");
    Advance(Milliseconds(9999));
    EXPECT_THAT(Take(writer), IsEmpty());
    Advance(Milliseconds(1));
    EXPECT_THAT(Take(writer), ElementsAre("error 6: its owner has not finished its start"));
    EmitEvent(program, "configurationLoaded");
    Advance(Milliseconds(2000));
    for (const auto& line : Take(program))
        EXPECT_THAT(line, testing::Not(HasSubstr("write")));
}

TEST_F(CoreWindow, WritesThatWaitAreBounded) {
    const auto tool = Connect();
    for (std::size_t i = 0; i < Core::kMaxWaitingWrites; ++i)
        Set(tool, 2002, "1");
    EXPECT_THAT(Take(tool), IsEmpty());
    EXPECT_THAT(Ask(tool, "setValue", R"({"id":2002,"value":"1"})"),
                ElementsAre(HasSubstr("error 6: too many")));
    Advance(Milliseconds(10000));
    EXPECT_EQ(Take(tool).size(), Core::kMaxWaitingWrites);
    Set(tool, 2002, "1"); // there is room again
    EXPECT_THAT(Take(tool), IsEmpty());
}

TEST_F(CoreWindow, WritesThatWaitForOneOwnerLeaveRoomForThoseOfAnother) {
    const auto tool = Connect();
    for (std::size_t i = 0; i < Core::kMaxWaitingWrites; ++i)
        Set(tool, 2002, "1");
    EXPECT_THAT(Ask(tool, "setValue", R"({"id":2006,"value":"9"})"), IsEmpty());
    EXPECT_THAT(Ask(tool, "setValue", R"({"id":2002,"value":"1"})"),
                ElementsAre("error 6: too many writes wait for the start of DscKnxAppPrg::field::KNX"));
    const auto heating = Connect();
    EXPECT_THAT(
        Ask(heating, "register", RegisterParams("heat::ctl::1", R"("field":true,"startWindow":false)")),
        ElementsAre(HasSubstr("ok"), "write 2006=9"));
}

TEST_F(CoreWindow, WhatTheEndOfTheStartBringsDoesNotCountAsEvents) {
    Set(writer, 2001, "1");
    Set(writer, 2002, "1");
    EmitEvent(program, "configurationLoaded");
    TakeKinds(program);
    Take(program);
    Advance(Milliseconds(1500));
    EXPECT_THAT(Take(program), testing::IsSupersetOf({"changed 2001=1 by web::page::1", "write 2002=1"}));
    EXPECT_THAT(TakeKinds(program), testing::Each(Kind::Answer));
    Set(writer, 2001, "2");
    EXPECT_THAT(TakeKinds(program), ElementsAre(Kind::Event));
}

TEST_F(CoreWindow, AnnouncingAChangeClosesTheWindowAgain) {
    EmitEvent(program, "configurationLoaded");
    Advance(Milliseconds(1500));
    EmitEvent(program, "configurationChangeBegin");
    Take(program);
    Set(writer, 2001, "1");
    Set(writer, 2002, "1");
    Advance(Milliseconds(3000));
    EXPECT_THAT(Take(program), IsEmpty());
    EmitEvent(program, "configurationLoaded");
    Take(program);
    Advance(Milliseconds(1500));
    const auto told = Take(program);
    EXPECT_THAT(told, testing::Contains("changed 2001=1 by web::page::1"));
    EXPECT_EQ(told.back(), "write 2002=1");
}

TEST_F(CoreWindow, ASecondAnnouncementBeginsTheWaitAnew) {
    EmitEvent(program, "configurationLoaded");
    Advance(Milliseconds(1000));
    EmitEvent(program, "configurationLoaded");
    Take(program);
    Set(writer, 2001, "1");
    Advance(Milliseconds(1499));
    EXPECT_THAT(Take(program), IsEmpty());
    Advance(Milliseconds(1));
    EXPECT_FALSE(Take(program).empty());
}

TEST_F(CoreWindow, AWriteWaitsOnForTheNextProgramWhenOneLeavesBeforeTheEnd) {
    Set(writer, 2002, "1");
    EmitEvent(program, "configurationLoaded");
    core.OnDisconnected(program, now);
    Advance(Milliseconds(3000));
    const auto again = Register("DscKnxAppPrg::field::KNX", R"("events":true,"field":true)");
    Set(writer, 2001, "1");
    Advance(Milliseconds(3000));
    EXPECT_THAT(Take(again), IsEmpty()); // the window of the former one does not open for this one
    EmitEvent(again, "configurationLoaded");
    Take(again);
    Advance(Milliseconds(1500));
    EXPECT_THAT(Take(again), testing::Contains("write 2002=1").Times(1));
    Handled(again, true);
    EXPECT_THAT(Take(writer), testing::Contains(HasSubstr("ok")));
}

TEST_F(CoreWindow, WhatIsResumedIsHeldAsWell) {
    Set(writer, 2001, "1");
    core.OnDisconnected(program, now);
    const auto again = Connect();
    EXPECT_THAT(Ask(again, "register",
                    RegisterParams("DscKnxAppPrg::field::KNX",
                                   R"("events":true,"field":true,"lastChange":0,"server":"former")")),
                ElementsAre(HasSubstr("ok")));
    EmitEvent(again, "configurationLoaded");
    Advance(Milliseconds(1500));
    EXPECT_THAT(Take(again), testing::Contains("changed 2001=1 by web::page::1"));
}

TEST_F(CoreWindow, AFieldApplicationMaySayThatItNeedsNoStart) {
    const auto heating = Register("heat::ctl::1", R"("events":true,"field":true,"startWindow":false)");
    Set(writer, 2001, "1");
    Set(writer, 2006, "2");
    EmitEvent(heating, "configurationLoaded"); // closes nothing
    Set(writer, 2006, "3");
    EXPECT_THAT(Take(heating), ElementsAre("changed 2001=1 by web::page::1", "write 2006=2", HasSubstr("ok"),
                                           "write 2006=3"));
}

TEST_F(CoreWindow, OtherApplicationsHearEverythingAtOnce) {
    const auto other = Register("mqtt::bridge::1");
    Set(writer, 2001, "1");
    EXPECT_THAT(Take(other), ElementsAre("changed 2001=1 by web::page::1"));
}

TEST_F(CoreWindow, ReadyAndStateFollowTheProgram) {
    const auto listener = Register("listen::x::1");
    EXPECT_THAT(Ask(listener, "getValue", R"({"id":1002})"), ElementsAre("value 0"));
    EXPECT_THAT(Ask(listener, "getValue", R"({"id":1003})"), ElementsAre("value 2"));
    EmitEvent(program, "configurationLoaded");
    EXPECT_THAT(Take(listener),
                testing::IsSupersetOf({"changed 1002=1 by devicestack", "changed 1003=1 by devicestack"}));
    EmitEvent(program, "configurationChangeBegin");
    EXPECT_THAT(Take(listener),
                testing::IsSupersetOf({"changed 1002=0 by devicestack", "changed 1003=2 by devicestack"}));
    core.OnDisconnected(program, now);
    EXPECT_THAT(Take(listener), ElementsAre("changed 1003=0 by devicestack"));
    EXPECT_THAT(Ask(listener, "setValue", R"({"id":1002,"value":"1"})"), ElementsAre(HasSubstr("error 5")));
}

TEST_F(CoreWindow, TheProgramAsksForReadyAndStateItselfAndIsNotToldOfThem) {
    EmitEvent(program, "configurationLoaded");
    Advance(Milliseconds(1500));
    for (const auto& line : Take(program))
        EXPECT_THAT(line, testing::Not(testing::ContainsRegex("changed 100[23]")));
    EXPECT_THAT(Ask(program, "requestValue", R"({"id":1002,"readInternal":true})"),
                ElementsAre(HasSubstr("ok"), HasSubstr("1002=1")));
}

TEST_F(CoreWindow, AnotherApplicationsAnnouncementsMeanNothing) {
    const auto listener = Register("listen::x::1");
    EmitEvent(writer, "configurationLoaded");
    EXPECT_THAT(Take(listener), ElementsAre("event configurationLoaded of web: "));
    EXPECT_THAT(Ask(listener, "getValue", R"({"id":1002})"), ElementsAre("value 0"));
}

} // namespace
} // namespace DeviceStackServer
