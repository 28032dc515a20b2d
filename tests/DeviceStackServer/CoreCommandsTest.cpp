#include "CoreBench.h"

namespace DeviceStackServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kOk = R"(ok {"response":{"result":"ok"}})";

class CoreCommands : public testing::Test, public CoreBench {
protected:
    CoreCommands() {
        Begin();
        first = Register("alpha::app::1");
        second = Register("beta::app::1");
        silent = Register("gamma::app::1", "");
    }

    Connection first = 0;
    Connection second = 0;
    Connection silent = 0;
};

TEST_F(CoreCommands, AnEventReachesEveryOtherApplicationWithTheSendersName) {
    const auto tool = Connect();
    Ask(tool, "subscribe", "{}");
    EXPECT_THAT(Command(first, R"({"command":"EmitEvent","eventType":"etsConfigChanged"})"),
                ElementsAre(kOk));
    EXPECT_THAT(Take(second), ElementsAre("event etsConfigChanged of alpha: "));
    EXPECT_THAT(Take(tool), ElementsAre("event etsConfigChanged of alpha: "));
    EXPECT_THAT(Take(first), IsEmpty());
    EXPECT_THAT(Take(silent), IsEmpty());
}

TEST_F(CoreCommands, AnEventWithAReceiverReachesOnlyThatOne) {
    EXPECT_THAT(
        Command(
            first,
            R"({"command":"EmitEvent","eventType":"application","to":"beta::app::1","message":"!00120101"})"),
        ElementsAre(kOk));
    EXPECT_THAT(Take(second), ElementsAre("event application of alpha: !00120101"));
    EXPECT_THAT(Take(first), IsEmpty());
    EXPECT_THAT(Take(silent), IsEmpty());
}

TEST_F(CoreCommands, TheReceiverMustBeRegisteredByItsWholeIdentity) {
    EXPECT_THAT(Command(first, R"({"command":"EmitEvent","eventType":"application","to":"beta"})"),
                ElementsAre("error 8: no application is registered as beta"));
    EXPECT_THAT(Take(second), IsEmpty());
    EXPECT_THAT(Command(first, R"({"command":"EmitEvent"})"),
                ElementsAre("error -32602: command: member 'eventType' is missing"));
}

TEST_F(CoreCommands, ARestartIsAnsweredPublishedAndThenRun) {
    EXPECT_THAT(Command(first, R"({"command":"Restart", "type":"Device"})"), ElementsAre(kOk));
    EXPECT_THAT(Take(second), ElementsAre("configuration Restart=Device"));
    EXPECT_THAT(calls, ElementsAre("restart"));
    EXPECT_THAT(Command(first, R"({"command":"Restart","type":"Moon"})"),
                ElementsAre(HasSubstr("error -32602")));
}

TEST_F(CoreCommands, ThereIsAtMostOneRestartInTenSeconds) {
    Command(first, R"({"command":"Restart","type":"Device"})");
    Advance(Milliseconds(9999));
    EXPECT_THAT(Command(second, R"({"command":"Restart","type":"Device"})"),
                ElementsAre("error 9: the last restart was 9 s ago; there is at most one in 10 s"));
    EXPECT_THAT(Ask(second, "setValue", R"({"id":1004,"value":"1"})"), ElementsAre(HasSubstr("error 9")));
    EXPECT_THAT(calls, ElementsAre("restart"));
    Advance(Milliseconds(1));
    EXPECT_THAT(Ask(second, "setValue", R"({"id":1004,"value":"1"})"), ElementsAre(R"(ok {"change":0})"));
    EXPECT_THAT(calls, ElementsAre("restart", "restart"));
}

TEST_F(CoreCommands, TheRestartTriggerIsNeverStoredReportedOrAsked) {
    EXPECT_THAT(Ask(first, "setValue", R"({"id":1004,"value":"1"})"), ElementsAre(R"(ok {"change":0})"));
    EXPECT_THAT(Take(second), ElementsAre("configuration Restart=Device"));
    EXPECT_THAT(Ask(second, "getValue", R"({"id":1004})"), ElementsAre(HasSubstr("error 5")));
    EXPECT_THAT(Ask(Connect(), "subscribe", R"({"lastChange":0,"server":"run"})"),
                ElementsAre(R"(ok {"server":"run","change":0})"));
}

TEST_F(CoreCommands, AZeroOrAResponseTriggersNoRestart) {
    EXPECT_THAT(Ask(first, "setValue", R"({"id":1004,"value":"0"})"), ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(Ask(first, "setValue", R"({"id":1004,"value":"1","readInternal":true,"response":true})"),
                ElementsAre(HasSubstr("ok")));
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(Take(second), IsEmpty());
}

TEST_F(CoreCommands, NtpIsAnsweredPublishedAndRun) {
    EXPECT_THAT(Ask(first, "setConfiguration", R"({"settings":{"Ntp":"false"}})"), ElementsAre("ok {}"));
    EXPECT_THAT(Take(second), ElementsAre("configuration Ntp=false"));
    Ask(first, "setConfiguration", R"({"settings":{"Ntp":"true"}})");
    EXPECT_THAT(calls, ElementsAre("ntp off", "ntp on"));
}

TEST_F(CoreCommands, UnknownSettingsAreRefusedAsAWhole) {
    EXPECT_THAT(Ask(first, "setConfiguration", R"({"settings":{"Ntp":"true","Colour":"red"}})"),
                ElementsAre("error 9: no such setting: 'Colour'"));
    EXPECT_THAT(Ask(first, "setConfiguration", R"({"settings":{"Ntp":"yes"}})"),
                ElementsAre(HasSubstr("error 9")));
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(CoreCommands, TheProcessViewListsEveryDataPointById) {
    Set(first, 2001, "5");
    TakeRaw(first);
    Call(first, "command", R"({"command":{"command":"GetProcessView","cached":true}})");
    const auto view = TakeRaw(first).at(0);
    EXPECT_THAT(
        view,
        HasSubstr(
            R"("result":{"response":{"processView":{"datapoints":[{"id":1000,"urn":"urn:oxn:dp:house",)"));
    EXPECT_THAT(view,
                HasSubstr(R"({"id":2001,"urn":"urn:oxn:dp:house:Plain","name":"Plain","dpt":"5.010",)"));
    EXPECT_THAT(
        view, HasSubstr(R"("access":"rw","owner":"","persistent":true,"value":"5","origin":"alpha::app::1",)"
                        R"("time":"2024-05-01T10:00:00.000Z","change":1})"));
    EXPECT_THAT(view, HasSubstr(R"("value":"2024-05-01T12:00:00")"));
    std::size_t at = 0;
    for (const auto* id : {"1000", "1001", "1002", "1003", "1004", "1005", "1006", "1007", "2001", "2002",
                           "2003", "2004", "2005", "2006", "2007"}) {
        const auto found = view.find(std::string(R"({"id":)") + id + ",", at);
        ASSERT_NE(found, std::string::npos) << id;
        at = found;
    }
}

TEST_F(CoreCommands, TheProcessViewHidesWhatMayNotBeRead) {
    Set(first, 2005, "77");
    TakeRaw(first);
    Call(first, "command", R"({"command":{"command":"GetProcessView"}})");
    EXPECT_THAT(TakeRaw(first).at(0), testing::Not(HasSubstr("77")));
}

TEST_F(CoreCommands, ReloadProjectIsAnsweredWithItsResult) {
    EXPECT_THAT(Command(first, R"({"command":"ReloadProject"})"),
                ElementsAre("configuration Project=ok", kOk));
    EXPECT_THAT(Take(second), ElementsAre("configuration Project=ok"));
    reloadCause = "project.json: 1:1: not JSON";
    EXPECT_THAT(Command(first, R"({"command":"ReloadProject"})"),
                ElementsAre("configuration Project=project.json: 1:1: not JSON",
                            "error 9: project.json: 1:1: not JSON"));
    EXPECT_THAT(calls, ElementsAre("reload", "reload"));
}

TEST_F(CoreCommands, AnUnknownCommandIsNamed) {
    EXPECT_THAT(Command(first, R"({"command":"Dance"})"), ElementsAre("error 9: no such command: 'Dance'"));
}

TEST_F(CoreCommands, AnswersAndEventsCountApart) {
    Command(first, R"({"command":"GetProcessView"})");
    EXPECT_EQ(lastKind, Kind::Answer);
    Command(first, R"({"command":"EmitEvent","eventType":"x"})");
    EXPECT_EQ(lastKind, Kind::Event); // to the second
}

} // namespace
} // namespace DeviceStackServer
