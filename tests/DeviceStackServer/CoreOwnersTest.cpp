#include "CoreBench.h"

namespace DeviceStackServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class CoreOwners : public testing::Test, public CoreBench {
protected:
    CoreOwners() {
        Begin();
        program = StartProgram();
        writer = Register("web::page::1");
        other = Register("mqtt::bridge::1");
    }

    Connection program = 0; // owner of 2002 and 2003
    Connection writer = 0;
    Connection other = 0;
};

TEST_F(CoreOwners, AWriteIsHandedToTheOwnerAndToldOnceToEverybodyElse) {
    EXPECT_THAT(Ask(writer, "setValue", R"({"id":2002,"value":"1"})"), IsEmpty());
    EXPECT_THAT(Take(program), ElementsAre("write 2002=1"));
    EXPECT_THAT(Take(other), IsEmpty());
    Handled(program, true);
    EXPECT_THAT(Take(writer), ElementsAre(R"(ok {"change":7})"));
    EXPECT_THAT(Take(other), ElementsAre("changed 2002=1 by web::page::1"));
    EXPECT_THAT(Take(program), IsEmpty());
    EXPECT_THAT(Ask(other, "getValue", R"({"id":2002})"), ElementsAre("value 1"));
}

TEST_F(CoreOwners, AResumingOwnerIsNotToldOfAWriteThatItWasHanded) {
    Set(writer, 2002, "1");
    Handled(program, true);
    Set(writer, 2001, "2");
    core.OnDisconnected(program, now);
    const auto again = Connect();
    EXPECT_THAT(Ask(again, "register",
                    RegisterParams(
                        "DscKnxAppPrg::field::KNX",
                        R"("events":true,"field":true,"startWindow":false,"lastChange":6,"server":"run")")),
                ElementsAre(HasSubstr("ok"), "changed 2001=2 by web::page::1"));
}

TEST_F(CoreOwners, ARefusedWriteChangesNothing) {
    Set(writer, 2002, "1");
    Handled(program, false);
    EXPECT_THAT(Take(writer), ElementsAre("error 7: its owner refused the value"));
    EXPECT_THAT(Take(other), IsEmpty());
    EXPECT_THAT(Ask(other, "getValue", R"({"id":2002,"readInternal":true})"),
                ElementsAre(HasSubstr("error 3")));
}

TEST_F(CoreOwners, AnErrorAsAnswerIsARefusal) {
    Set(writer, 2002, "1");
    Take(program);
    Line(program, R"({"jsonrpc":"2.0","id":3,"error":{"code":-32000,"message":"x"}})");
    Line(program, R"({"jsonrpc":"2.0","id":"3","result":{"handled":true}})");
    EXPECT_THAT(Take(writer), IsEmpty()); // none of these answers the request
    Advance(Milliseconds(1999));
    EXPECT_THAT(Take(writer), IsEmpty());
    Advance(Milliseconds(1));
    EXPECT_THAT(Take(writer), ElementsAre("error 7: its owner gave no answer in time"));
}

TEST_F(CoreOwners, AWriteThatTheOwnerDidLateCountsAndIsToldToEverybodyElse) {
    Set(writer, 2002, "1");
    Advance(Milliseconds(2000));
    EXPECT_THAT(Take(writer), ElementsAre("error 7: its owner gave no answer in time"));
    EXPECT_TRUE(core.IsWaiting(other) && !core.IsWaiting(Connect()));
    Advance(Milliseconds(60000));
    Handled(program, true);
    EXPECT_THAT(Take(writer), IsEmpty()); // it was answered, and what it wrote itself is not told
    EXPECT_THAT(Take(other), ElementsAre("changed 2002=1 by web::page::1"));
    EXPECT_THAT(Take(program), ElementsAre("write 2002=1"));
    EXPECT_THAT(Ask(other, "getValue", R"({"id":2002})"), ElementsAre("value 1"));
    Handled(program, true); // once is enough
    EXPECT_THAT(Take(other), IsEmpty());
}

TEST_F(CoreOwners, AWriteThatTheOwnerRefusesLateChangesNothing) {
    Set(writer, 2002, "1");
    Advance(Milliseconds(2000));
    Take(writer);
    Handled(program, false);
    EXPECT_THAT(Take(writer), IsEmpty());
    EXPECT_THAT(Take(other), IsEmpty());
}

TEST_F(CoreOwners, ALateWriteDoesNotReplaceANewerOne) {
    Set(writer, 2002, "1");
    const auto older = LastAsked(program);
    Advance(Milliseconds(2000));
    Set(writer, 2002, "0");
    Handled(program, true);
    EXPECT_THAT(Take(other), ElementsAre("changed 2002=0 by web::page::1"));
    HandledId(program, older, true);
    EXPECT_THAT(Take(other), IsEmpty());
    EXPECT_THAT(Ask(other, "getValue", R"({"id":2002})"), ElementsAre("value 0"));
}

TEST_F(CoreOwners, OfSeveralLateWritesTheNewestIsKept) {
    Set(writer, 2002, "1");
    const auto older = LastAsked(program);
    Set(writer, 2002, "0");
    const auto newer = LastAsked(program);
    Set(writer, 2003, "4", R"("readInternal":false)"); // refused: may not be written
    Advance(Milliseconds(2000));
    HandledId(program, older, true);
    EXPECT_THAT(Take(other), IsEmpty());
    HandledId(program, newer, true);
    EXPECT_THAT(Take(other), ElementsAre("changed 2002=0 by web::page::1"));
}

TEST_F(CoreOwners, ALateWriteIsForgottenWhenItsOwnerLeaves) {
    Set(writer, 2002, "1");
    const auto asked = LastAsked(program);
    Advance(Milliseconds(2000));
    Take(writer);
    core.OnDisconnected(program, now);
    EXPECT_THAT(Take(writer), ElementsAre("changed 1002=0 by devicestack", "changed 1003=0 by devicestack"));
    const auto again = StartProgram();
    Take(other);
    HandledId(again, asked, true);
    EXPECT_THAT(Take(other), IsEmpty());
}

TEST_F(CoreOwners, AConnectionWithTooManyOpenQuestionsIsPausedUntilHalfAreAnswered) {
    std::vector<std::string> asked;
    for (std::size_t i = 0; i <= Core::kMaxOpenQuestions; ++i) {
        EXPECT_THAT(paused, IsEmpty());
        i % 2 == 0 ? Set(writer, 2002, "1") : void(Call(writer, "getValue", R"({"id":2003})"));
        asked.push_back(LastAsked(program));
    }
    EXPECT_THAT(paused, ElementsAre(writer));
    std::size_t i = 0;
    for (; i < Core::kMaxOpenQuestions / 2; i += 2) {
        EXPECT_THAT(paused, ElementsAre(writer));
        HandledId(program, asked[i], true);
    }
    EXPECT_THAT(paused, ElementsAre(writer)); // 64 of 257 were answered
    Set(program, 2003, "5");                  // answers the other half, all at once
    EXPECT_THAT(paused, IsEmpty());
}

TEST_F(CoreOwners, WhatIsNotAnsweredInTimePausesNobodyAnyLonger) {
    for (std::size_t i = 0; i <= Core::kMaxOpenQuestions; ++i)
        Set(writer, 2002, "1");
    for (std::size_t i = 0; i <= Core::kMaxOpenQuestions; ++i)
        Call(other, "getValue", R"({"id":2003})");
    EXPECT_THAT(paused, ElementsAre(writer, other));
    Advance(Milliseconds(1000));
    EXPECT_THAT(paused, ElementsAre(writer));
    Advance(Milliseconds(1000));
    EXPECT_THAT(paused, IsEmpty());
}

TEST_F(CoreOwners, WritesThatWaitForTheirOwnersStartPauseNobody) {
    const std::size_t count = Core::kMaxOpenQuestions + 100;
    for (std::size_t i = 0; i < count; ++i)
        Set(writer, 2006, "1");
    EXPECT_THAT(paused, IsEmpty());
    const auto heating = Connect();
    Call(heating, "register", RegisterParams("heat::ctl::1", R"("field":true,"startWindow":false)"));
    EXPECT_EQ(Take(heating).size(), 1 + count);
    // They follow from the registration, so the owner is not cut off however many they are.
    EXPECT_THAT(TakeKinds(heating), testing::Each(Kind::Answer));
    EXPECT_THAT(paused, ElementsAre(writer));
    Set(other, 2006, "2");
    EXPECT_THAT(TakeKinds(heating), ElementsAre(Kind::Event));
}

TEST_F(CoreOwners, NobodyButTheOwnerCanAnswerForIt) {
    Set(writer, 2002, "1");
    Take(program);
    for (int id = 0; id < 20; ++id)
        HandledId(other, std::to_string(id), true);
    EXPECT_THAT(Take(writer), IsEmpty());
}

TEST_F(CoreOwners, TheOwnersOwnWriteIsNeverHandedBack) {
    EXPECT_THAT(Ask(program, "setValue", R"({"id":2002,"value":"1"})"), ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(Take(writer), ElementsAre("changed 2002=1 by DscKnxAppPrg::field::KNX"));
}

TEST_F(CoreOwners, TheKnxProgramsWriteToAnothersDataPointIsHandedToThatOwner) {
    const auto heating = Register("heat::ctl::1", R"("field":true,"startWindow":false)");
    Set(program, 2006, "9");
    EXPECT_THAT(Take(heating), ElementsAre("write 2006=9"));
}

TEST_F(CoreOwners, AReadFromAnAbsentOwnerIsRefused) {
    EXPECT_THAT(Ask(writer, "getValue", R"({"id":2006})"),
                ElementsAre("error 6: its owner heat::ctl::1 is not connected"));
}

TEST_F(CoreOwners, AWriteWaitsForAnAbsentOwner) {
    Set(writer, 2006, "1");
    Advance(Milliseconds(9999));
    EXPECT_THAT(Take(writer), IsEmpty());
    const auto heating = Connect();
    const auto registration = RegisterParams("heat::ctl::1", R"("field":true,"startWindow":false)");
    EXPECT_THAT(Ask(heating, "register", registration), ElementsAre(HasSubstr("ok"), "write 2006=1"));
    EXPECT_THAT(Ask(heating, "register", registration),
                ElementsAre(HasSubstr("ok"))); // not handed over twice
    Handled(heating, true);
    EXPECT_THAT(Take(writer), ElementsAre(HasSubstr("ok")));
}

TEST_F(CoreOwners, AnOwnerThatStaysAwayIsNotReady) {
    Set(writer, 2006, "1");
    Register("heat::ctl::1", R"("events":true)"); // takes no questions
    Advance(Milliseconds(10000));
    EXPECT_THAT(Take(writer), ElementsAre("error 6: its owner heat::ctl::1 is not connected"));
}

TEST_F(CoreOwners, AnOwnerThatLeavesFailsWhatWaitsForIt) {
    Set(writer, 2002, "1");
    Call(other, "getValue", R"({"id":2003})");
    core.OnDisconnected(program, now);
    EXPECT_THAT(Take(writer), ElementsAre("error 6: its owner has left", "changed 1002=0 by devicestack",
                                          "changed 1003=0 by devicestack"));
    EXPECT_THAT(Take(other), ElementsAre("error 6: its owner has left", "changed 1002=0 by devicestack",
                                         "changed 1003=0 by devicestack"));
    EXPECT_FALSE(core.IsWaiting(99));
}

TEST_F(CoreOwners, AReadWithoutAStoredValueAsksTheOwnerOnceForEverybody) {
    EXPECT_THAT(Ask(writer, "getValue", R"({"id":2003})"), IsEmpty());
    EXPECT_THAT(Ask(other, "getValue", R"({"id":2003})"), IsEmpty());
    EXPECT_THAT(Take(program), ElementsAre("read 2003"));
    Handled(program, true);
    Advance(Milliseconds(500));
    Set(program, 2003, "42", R"("readInternal":true,"response":true)");
    EXPECT_THAT(Take(writer), ElementsAre("changed 2003=42 by DscKnxAppPrg::field::KNX", "value 42"));
    EXPECT_THAT(Take(other), ElementsAre("changed 2003=42 by DscKnxAppPrg::field::KNX", "value 42"));
    EXPECT_THAT(Ask(writer, "getValue", R"({"id":2003})"), ElementsAre("value 42"));
    EXPECT_THAT(Take(program), ElementsAre(HasSubstr("ok")));
}

TEST_F(CoreOwners, ReadInternalNeverAsks) {
    EXPECT_THAT(Ask(writer, "getValue", R"({"id":2003,"readInternal":true})"),
                ElementsAre(HasSubstr("error 3")));
    EXPECT_THAT(Take(program), IsEmpty());
}

TEST_F(CoreOwners, TheOwnerItselfIsNotAsked) {
    EXPECT_THAT(Ask(program, "getValue", R"({"id":2003})"), ElementsAre(HasSubstr("error 3")));
}

TEST_F(CoreOwners, AnOwnerThatDoesNotTakeTheQuestionFailsTheRead) {
    Call(writer, "getValue", R"({"id":2003})");
    Handled(program, false);
    EXPECT_THAT(Take(writer), ElementsAre("error 7: its owner did not take the question"));
}

TEST_F(CoreOwners, AnOwnerThatAnswersNullHasNoValue) {
    Call(writer, "getValue", R"({"id":2003})");
    Set(program, 2003, "", R"("readInternal":true,"response":true)");
    EXPECT_THAT(Take(writer),
                ElementsAre("changed 2003= by DscKnxAppPrg::field::KNX", "error 7: its owner has no value"));
}

TEST_F(CoreOwners, TheCallerOfGetValueWaitsOneSecondAndTheOwnerHasTwo) {
    Call(writer, "getValue", R"({"id":2003})");
    Handled(program, true);
    Advance(Milliseconds(999));
    EXPECT_THAT(Take(writer), IsEmpty());
    Advance(Milliseconds(1));
    EXPECT_THAT(Take(writer), ElementsAre("error 7: its owner gave no answer in time"));
    EXPECT_THAT(Take(program), ElementsAre("read 2003"));
    Advance(Milliseconds(500));
    Call(other, "getValue", R"({"id":2003})"); // joins the open question
    EXPECT_THAT(Take(program), IsEmpty());
    Advance(Milliseconds(500)); // which ends here, and is asked anew for the late one
    EXPECT_THAT(Take(program), ElementsAre("read 2003"));
    Advance(Milliseconds(499));
    EXPECT_THAT(Take(other), IsEmpty());
    Advance(Milliseconds(1));
    EXPECT_THAT(Take(other), ElementsAre("error 7: its owner gave no answer in time"));
    Advance(Milliseconds(5000));
    EXPECT_THAT(Take(program), IsEmpty());
}

TEST_F(CoreOwners, ARequestedValueIsAnsweredLater) {
    EXPECT_THAT(Ask(writer, "requestValue", R"({"id":2003})"),
                ElementsAre(HasSubstr("\"request\":\"getValue#")));
    Handled(program, true);
    Advance(Milliseconds(1900));
    Set(program, 2003, "8", R"("readInternal":true,"response":true)");
    const auto told = Take(writer);
    ASSERT_EQ(told.size(), 2u);
    EXPECT_THAT(told[1], testing::MatchesRegex("answered getValue#[0-9]+ 2003=8"));
}

TEST_F(CoreOwners, ARequestedValueThatDoesNotComeIsAnsweredWithItsError) {
    Take(writer);
    Call(writer, "requestValue", R"({"id":2003})");
    Advance(Milliseconds(1999));
    EXPECT_EQ(Take(writer).size(), 1u);
    Advance(Milliseconds(1));
    EXPECT_THAT(Take(writer), ElementsAre(testing::MatchesRegex("answered getValue#[0-9]+ 2003= error 7")));
    EXPECT_THAT(Ask(writer, "requestValue", R"({"id":2003,"readInternal":true})"),
                ElementsAre(HasSubstr("ok"), HasSubstr("error 3")));
    EXPECT_THAT(Ask(writer, "requestValue", R"({"id":99})"), ElementsAre(HasSubstr("error 1")));
}

TEST_F(CoreOwners, ARequestedValueOfTheStoreIsAnsweredAtOnce) {
    Set(program, 2003, "8");
    EXPECT_THAT(Ask(writer, "requestValue", R"({"id":2003,"readInternal":true})"),
                ElementsAre(HasSubstr("ok"), HasSubstr(" 2003=8")));
}

TEST_F(CoreOwners, WritesReachTheOwnerInTheirOrder) {
    Set(writer, 2002, "1");
    Set(other, 2002, "0");
    Set(writer, 2003, "1", R"("x":0)");
    EXPECT_THAT(Take(program), ElementsAre("write 2002=1", "write 2002=0"));
}

TEST_F(CoreOwners, AWriteToADataPointThatTheProjectLostMeanwhileFails) {
    Set(writer, 2002, "1");
    ASSERT_EQ(core.SetProject(ProjectOf(R"({"version":1,"device":"house","dataPoints":[
        {"id": 2001, "name": "Plain", "dpt": "5.010"}]})"),
                              now),
              "");
    Handled(program, true);
    EXPECT_THAT(Take(writer), ElementsAre("error 1: urn:oxn:dp:house:Light is no longer in the project"));
}

TEST_F(CoreOwners, AConnectionIsWorthKeepingWhileItWaits) {
    const auto plain = Connect();
    EXPECT_FALSE(core.IsWaiting(plain));
    Call(plain, "setValue", R"({"id":2002,"value":"1"})");
    EXPECT_TRUE(core.IsWaiting(plain));
    Handled(program, true);
    EXPECT_FALSE(core.IsWaiting(plain));
    Call(plain, "getValue", R"({"id":2003})");
    EXPECT_TRUE(core.IsWaiting(plain));
    EXPECT_TRUE(core.IsWaiting(writer));
}

} // namespace
} // namespace DeviceStackServer
