#include "CoreBench.h"

namespace DeviceStackServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class CoreValues : public testing::Test, public CoreBench {
protected:
    CoreValues() { Begin(); }
};

TEST_F(CoreValues, AWriteIsStoredAnsweredAndToldToTheOthers) {
    const auto writer = Register("web::page::1");
    const auto other = Register("mqtt::bridge::1");
    EXPECT_THAT(Ask(writer, "setValue", R"({"name":"Plain","value":"5"})"),
                ElementsAre(R"(ok {"change":1})"));
    EXPECT_THAT(Take(other), ElementsAre("changed 2001=5 by web::page::1"));
    EXPECT_THAT(Ask(other, "getValue", R"({"id":2001})"), ElementsAre("value 5"));
}

TEST_F(CoreValues, AValueCarriesUrnOriginTimeAndChange) {
    const auto client = Connect();
    Set(client, 2001, "5");
    TakeRaw(client);
    Call(client, "getValue", R"({"urn":"urn:oxn:dp:house:Plain"})");
    EXPECT_THAT(
        TakeRaw(client),
        ElementsAre(HasSubstr(
            R"("result":{"id":2001,"urn":"urn:oxn:dp:house:Plain","value":"5","origin":"connection#1",)"
            R"("time":"2024-05-01T10:00:00.000Z","change":1})")));
}

TEST_F(CoreValues, AnEqualValueIsAnEventAsWell) {
    const auto writer = Register("web::page::1");
    const auto other = Register("mqtt::bridge::1");
    Set(writer, 2001, "5");
    Set(writer, 2001, "5");
    EXPECT_THAT(Take(other), ElementsAre("changed 2001=5 by web::page::1", "changed 2001=5 by web::page::1"));
}

TEST_F(CoreValues, AConnectionWithoutEventsIsToldNothing) {
    const auto silent = Register("a::b::c", "");
    const auto unregistered = Connect();
    Set(Connect(), 2001, "5");
    EXPECT_THAT(Take(silent), IsEmpty());
    EXPECT_THAT(Take(unregistered), IsEmpty());
}

TEST_F(CoreValues, ASubscriberIsToldEverythingButItsOwnWrites) {
    const auto tool = Connect();
    EXPECT_THAT(Ask(tool, "subscribe", "{}"), ElementsAre(R"(ok {"server":"run","change":0})"));
    Set(tool, 2001, "1");
    Set(Connect(), 2001, "2");
    EXPECT_THAT(Take(tool), ElementsAre(R"(ok {"change":1})", "changed 2001=2 by connection#2"));
}

TEST_F(CoreValues, ANotificationIsCarriedOutAndNotAnswered) {
    const auto client = Connect();
    Line(client, R"({"jsonrpc":"2.0","method":"setValue","params":{"id":2001,"value":"9"}})");
    Line(client, R"({"jsonrpc":"2.0","method":"setValue","params":{"id":2001,"value":"900"}})");
    Line(client, R"({"jsonrpc":"2.0","method":"getValue","params":{"id":99}})");
    EXPECT_THAT(Take(client), IsEmpty());
    EXPECT_THAT(Ask(client, "getValue", R"({"id":2001})"), ElementsAre("value 9"));
}

TEST_F(CoreValues, UnknownDataPointsAreNamed) {
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "getValue", R"({"id":99})"), ElementsAre("error 1: no data point has the id 99"));
    EXPECT_THAT(Ask(client, "setValue", R"({"name":"X","value":""})"),
                ElementsAre("error 1: no data point has the name X"));
    EXPECT_THAT(Ask(client, "getId", R"({"urn":"u"})"), ElementsAre("error 1: no data point has the URN u"));
    EXPECT_THAT(Ask(client, "getUrn", R"({"id":4294967295})"),
                ElementsAre("error 1: no data point has the id 4294967295"));
}

TEST_F(CoreValues, UrnAndIdAreResolved) {
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "getUrn", R"({"id":2001})"),
                ElementsAre(R"(ok {"urn":"urn:oxn:dp:house:Plain"})"));
    EXPECT_THAT(Ask(client, "getUrn", R"({"id":1000})"), ElementsAre(R"(ok {"urn":"urn:oxn:dp:house"})"));
    EXPECT_THAT(Ask(client, "getId", R"({"urn":"urn:oxn:dp:house:Plain"})"),
                ElementsAre(R"(ok {"id":2001})"));
}

TEST_F(CoreValues, AValueThatDoesNotFitIsRefusedWithItsReason) {
    const auto client = Connect();
    const auto other = Register("a::b::c");
    EXPECT_THAT(Ask(client, "setValue", R"({"id":2001,"value":"256"})"),
                ElementsAre("error 4: \"256\" is no number up to 255"));
    EXPECT_THAT(Take(other), IsEmpty());
    EXPECT_THAT(Ask(client, "getValue", R"({"id":2001})"),
                ElementsAre("error 3: urn:oxn:dp:house:Plain has no value"));
}

TEST_F(CoreValues, AccessHoldsForEverybodyButTheOwner) {
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "setValue", R"({"id":2003,"value":"1"})"),
                ElementsAre("error 5: urn:oxn:dp:house:Sensor may not be written"));
    EXPECT_THAT(Ask(client, "getValue", R"({"id":2005,"readInternal":true})"),
                ElementsAre("error 5: urn:oxn:dp:house:Button may not be read"));
    EXPECT_THAT(Ask(client, "setValue", R"({"id":2005,"value":"1"})"), ElementsAre(R"(ok {"change":1})"));
    const auto program = StartProgram();
    EXPECT_THAT(Ask(program, "setValue", R"({"id":2003,"value":"1"})"), ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(Ask(client, "getValue", R"({"id":2003})"), ElementsAre("value 1"));
}

TEST_F(CoreValues, TheKnxProgramMayWriteWhatTheBusIsBoundTo) {
    const auto program = StartProgram();
    EXPECT_THAT(Ask(program, "setValue", R"({"id":2004,"value":"1","readInternal":true})"),
                ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(Ask(Connect(), "setValue", R"({"id":2004,"value":"1","readInternal":true})"),
                ElementsAre("error 5: urn:oxn:dp:house:Held may not be written"));
}

TEST_F(CoreValues, ReadInternalAndResponseAreRecordedWithoutAskingTheOwner) {
    const auto program = StartProgram();
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "setValue", R"({"id":2002,"value":"1","readInternal":true})"),
                ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(Take(program), ElementsAre("changed 2002=1 by connection#2"));
    EXPECT_THAT(Ask(client, "setValue", R"({"id":2002,"value":"0","response":true})"),
                ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(Take(program), ElementsAre("changed 2002=0 by connection#2"));
}

TEST_F(CoreValues, NullWithBothFlagsMarksTheValueInvalid) {
    const auto client = Connect();
    const auto other = Register("a::b::c");
    Set(client, 2001, "5");
    EXPECT_THAT(Ask(client, "setValue", R"({"id":2001,"value":""})"),
                ElementsAre(HasSubstr("error 4: null")));
    EXPECT_THAT(Ask(client, "setValue", R"({"id":2001,"value":"","readInternal":true})"),
                ElementsAre(HasSubstr("error 4: null")));
    EXPECT_THAT(Ask(client, "setValue", R"({"id":2001,"value":"","readInternal":true,"response":true})"),
                ElementsAre(R"(ok {"change":2})"));
    EXPECT_THAT(Take(other), ElementsAre("changed 2001=5 by connection#1", "changed 2001= by connection#1"));
    EXPECT_THAT(Ask(client, "getValue", R"({"id":2001})"), ElementsAre(HasSubstr("error 3")));
    EXPECT_THAT(Command(client, R"({"command":"GetHistory","id":2001})"),
                ElementsAre(HasSubstr(R"([{"value":"5","origin":"connection#1")")));
}

TEST_F(CoreValues, TheOwnerMaySendNullWithoutFlags) {
    const auto program = StartProgram();
    Set(program, 2002, "1");
    const auto listener = Register("listen::x::1");
    EXPECT_THAT(Ask(program, "setValue", R"({"id":2002,"value":""})"), ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(Take(listener), ElementsAre("changed 2002= by DscKnxAppPrg::field::KNX"));
    EXPECT_THAT(Ask(listener, "getValue", R"({"id":2002,"readInternal":true})"),
                ElementsAre("error 3: urn:oxn:dp:house:Light has no value"));
    const auto history = Command(listener, R"({"command":"GetHistory","id":2002})");
    EXPECT_THAT(history, ElementsAre(HasSubstr(R"([{"value":"1","origin":"DscKnxAppPrg::field::KNX")")));
    EXPECT_THAT(history, ElementsAre(Not(HasSubstr(R"("value":"")"))));
}

TEST_F(CoreValues, WhoServesADataPointMayTellWhateverTheDeviceSent) {
    const auto program = StartProgram();
    const auto client = Connect();
    EXPECT_THAT(Ask(program, "setValue", R"({"id":2003,"value":"256"})"), ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(Ask(client, "getValue", R"({"id":2003})"), ElementsAre("value 256"));
    EXPECT_THAT(Ask(program, "setValue", R"({"id":2004,"value":"300","readInternal":true})"),
                ElementsAre(HasSubstr("ok"))); // not its owner, but bound to the bus
    EXPECT_THAT(Ask(client, "getValue", R"({"id":2004})"), ElementsAre("value 300"));
    EXPECT_THAT(Ask(program, "setValue", R"({"id":2003,"value":"1000"})"),
                ElementsAre(HasSubstr("error 4"))); // no device can send it
    EXPECT_THAT(Ask(program, "setValue", R"({"id":2001,"value":"256"})"),
                ElementsAre(HasSubstr("error 4"))); // not its business
    EXPECT_THAT(Ask(client, "setValue", R"({"id":2005,"value":"256"})"), ElementsAre(HasSubstr("error 4")));
}

TEST_F(CoreValues, TheHistoryIsBoundedAndOldestFirst) {
    const auto client = Connect();
    for (const auto* value : {"1", "2", "3", "4", "5"})
        Set(client, 2001, value);
    Take(client);
    Call(client, "command", R"({"command":{"command":"GetHistory","name":"Plain"}})");
    const auto all = TakeRaw(client).at(0);
    EXPECT_THAT(all, testing::ContainsRegex(R"(\[\{"value":"3".*"value":"4".*"value":"5")"));
    EXPECT_THAT(all, testing::Not(HasSubstr(R"("value":"2")")));
    Call(client, "command", R"({"command":{"command":"GetHistory","name":"Plain","maxEntries":1}})");
    EXPECT_THAT(TakeRaw(client), ElementsAre(HasSubstr(R"({"history":[{"value":"5")")));
    EXPECT_THAT(Command(client, R"({"command":"GetHistory"})"), ElementsAre(HasSubstr("error -32602")));
    EXPECT_THAT(Command(client, R"({"command":"GetHistory","id":2005})"), ElementsAre(HasSubstr("error 5")));
}

TEST_F(CoreValues, InitialValuesAreThereAndAreNoChanges) {
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "getValue", R"({"name":"Start"})"), ElementsAre("value 7"));
    EXPECT_THAT(Ask(client, "subscribe", R"({"lastChange":0,"server":"other"})"),
                ElementsAre(R"(ok {"server":"run","change":0})"));
}

TEST_F(CoreValues, ResumingTellsTheNewestValueOfWhatChangedSince) {
    const auto writer = Connect();
    Set(writer, 2001, "1");
    Set(writer, 2007, "2");
    Set(writer, 2001, "3");
    EXPECT_THAT(Ask(Connect(), "subscribe", R"({"lastChange":1,"server":"run"})"),
                ElementsAre(R"(ok {"server":"run","change":3})", "changed 2007=2 by connection#1",
                            "changed 2001=3 by connection#1"));
    EXPECT_THAT(Ask(Connect(), "subscribe", R"({"lastChange":2,"server":"run"})"),
                ElementsAre(HasSubstr("ok"), "changed 2001=3 by connection#1"));
    EXPECT_THAT(Ask(Connect(), "subscribe", R"({"lastChange":3,"server":"run"})"),
                ElementsAre(HasSubstr("ok")));
}

TEST_F(CoreValues, WhatIsResumedBelongsToTheAnswer) {
    const auto writer = Connect();
    Set(writer, 2001, "1");
    Set(writer, 2007, "2");
    const auto listener = Connect();
    Call(listener, "subscribe", R"({"lastChange":0,"server":"run"})");
    EXPECT_THAT(TakeKinds(listener), ElementsAre(Kind::Answer, Kind::Answer, Kind::Answer));
    Set(writer, 2001, "3");
    EXPECT_THAT(TakeKinds(listener), ElementsAre(Kind::Event));
}

TEST_F(CoreValues, AfterARestartOfTheDeviceStackEverythingWrittenInThisRunIsTold) {
    const auto writer = Connect();
    Set(writer, 2001, "1");
    EXPECT_THAT(Ask(Connect(), "subscribe", R"({"lastChange":900,"server":"former"})"),
                ElementsAre(HasSubstr("ok"), "changed 2001=1 by connection#1"));
    EXPECT_THAT(Ask(Connect(), "subscribe", "{}"), ElementsAre(HasSubstr("ok")));
}

TEST_F(CoreValues, ResumingDoesNotTellTheWriterItsOwnChanges) {
    const auto writer = Register("a::b::c");
    Set(writer, 2001, "1");
    core.OnDisconnected(writer, now);
    const auto again = Connect();
    EXPECT_THAT(
        Ask(again, "register", RegisterParams("a::b::c", R"("events":true,"lastChange":0,"server":"run")")),
        ElementsAre(HasSubstr("ok")));
}

TEST_F(CoreValues, APersistentValueIsToBeSavedAndOthersAreNot) {
    const auto client = Connect();
    Set(client, 2007, "1");
    EXPECT_EQ(valuesChanged, 0);
    Set(client, 2001, "1");
    EXPECT_EQ(valuesChanged, 1);
    EXPECT_EQ(core.CurrentState().values.size(), 1u);
    EXPECT_EQ(core.CurrentState().values.at("urn:oxn:dp:house:Plain"),
              (StoredValue{"1", "connection#1", kUtc}));
}

TEST_F(CoreValues, TheTextsOfTheProtocolAreAnsweredWhatTheyAre) {
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "setValueFormat", R"({"format":"Native"})"), ElementsAre("ok {}"));
    EXPECT_THAT(Ask(client, "setValueFormat", R"({"format":"Xml"})"), ElementsAre(HasSubstr("error -32602")));
    Line(client, "nonsense");
    Line(client, R"({"jsonrpc":"2.0","method":"unknown","params":{}})");
    EXPECT_THAT(TakeRaw(client), ElementsAre(HasSubstr(R"("id":null,"error":{"code":-32700)")));
}

} // namespace
} // namespace DeviceStackServer
