#include "../support/Daemon.h"
#include "DsctlProcess.h"

#include <boost/json.hpp>
#include <gmock/gmock.h>

#include <csignal>
#include <future>
#include <memory>

using namespace std::chrono_literals;
using DeviceStackServer::Daemon;
using DeviceStackServer::Eventually;
using DeviceStackServer::Process;
using DeviceStackServer::RawClient;
using DeviceStackServer::ReadText;
using DeviceStackServer::TemporaryDirectory;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
using ToolTest::Dsctl;

namespace {

constexpr const char* kProject = R"({
  "version": 1, "device": "house",
  "dataPoints": [
    {"id": 2001, "name": "Kitchen.Light", "dpt": "1.001"},
    {"id": 2002, "name": "Kitchen.Setpoint", "dpt": "9.001", "initial": "21.5"},
    {"id": 2003, "name": "Hall.Größe", "dpt": "16.001"},
    {"id": 2004, "name": "Hall.Fixed", "dpt": "5.010", "access": "r", "initial": "7"},
    {"id": 2005, "name": "Hall.Owned", "dpt": "5.010", "owner": "own::test::1"}
  ]
})";

/// The "time" of a change in the protocol's form.
constexpr const char* kUtcTime = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z";

} // namespace

class DsctlWithDeviceStack : public testing::Test {
protected:
    struct Result {
        int code;
        std::string output;
        std::string error;
    };

    void SetUp() override { ASSERT_TRUE(m_daemon.Start()) << m_daemon.Log(); }

    std::vector<std::string> Arguments(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--socket", m_daemon.Socket()});
        return arguments;
    }

    Result Run(std::vector<std::string> arguments) const {
        Dsctl dsctl(Arguments(std::move(arguments)));
        const int code = dsctl.Wait();
        return {code, dsctl.GetOutput(), dsctl.GetError()};
    }

    void ExpectDone(std::vector<std::string> arguments, const std::string& output) const {
        const auto result = Run(std::move(arguments));
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.output, output);
        EXPECT_EQ(result.error, "");
    }

    void ExpectRefused(std::vector<std::string> arguments, const std::string& error) const {
        const auto result = Run(std::move(arguments));
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error, error);
    }

    Daemon m_daemon{kProject};
};

TEST_F(DsctlWithDeviceStack, ListPrintsATable) {
    ExpectDone({"list", "Hall.*"}, "ID    NAME        TYPE    ACCESS  VALUE\n"
                                   "2003  Hall.Größe  16.001  rw      -\n"
                                   "2004  Hall.Fixed  5.010   r       7 counter pulses\n"
                                   "2005  Hall.Owned  5.010   rw      -\n");
    EXPECT_THAT(Run({"list", "setpoint"}).output,
                EndsWith("2002  Kitchen.Setpoint  9.001  rw      21.5 °C\n"));
}

TEST_F(DsctlWithDeviceStack, ListWithoutAPatternHasTheFixedDataPointsToo) {
    const auto result = Run({"list"});
    EXPECT_THAT(result.output, AllOf(HasSubstr("\n1000 "), HasSubstr("\n1007 "), HasSubstr("\n2005 ")));
}

TEST_F(DsctlWithDeviceStack, ListAsJsonIsOneObjectPerLine) {
    const auto result = Run({"--json", "list", "Kitchen.Setpoint"});
    const auto object = boost::json::parse(result.output).as_object();
    EXPECT_EQ(object.at("id").as_int64(), 2002);
    EXPECT_EQ(object.at("urn").as_string(), "urn:oxn:dp:house:Kitchen.Setpoint");
    EXPECT_EQ(object.at("value").as_string(), "21.5");
    EXPECT_EQ(object.at("unit").as_string(), "°C");
}

TEST_F(DsctlWithDeviceStack, ListTakesIdsAndUrns) {
    const std::string table = "ID    NAME        TYPE   ACCESS  VALUE\n"
                              "2004  Hall.Fixed  5.010  r       7 counter pulses\n";
    ExpectDone({"list", "2004"}, table);
    ExpectDone({"list", "urn:oxn:dp:house:Hall.Fixed"}, table);
}

// devicestackd has read the project, and prints each type in one way.
TEST(DsctlList, HasTheTypeWhateverItsSpellingInTheProject) {
    std::string points;
    std::string expected;
    int id = 2001;
    for (const auto& [spelling, type] :
         std::vector<std::pair<std::string, std::string>>{{"9.001", "9.001"},
                                                          {"9.1", "9.001"},
                                                          {"DPT9.001", "9.001"},
                                                          {"DPT 9.001", "9.001"},
                                                          {"DPT-9.001", "9.001"},
                                                          {"DPST-9-1", "9.001"},
                                                          {"DPT-9", "9.xxx"},
                                                          {"9.xxx", "9.xxx"},
                                                          {"9.*", "9.xxx"},
                                                          {"9", "9.xxx"}}) {
        const auto number = std::to_string(id++);
        points += (points.empty() ? "" : ",") + std::string(R"({"id": )") + number + R"(, "name": "Typed.)" +
                  number + R"(", "dpt": ")" + spelling + "\"}";
        expected += number + "  Typed." + number + "  " + type + "  rw      -\n";
    }
    Daemon daemon(R"({"version": 1, "device": "house", "dataPoints": [)" + points + "]}");
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    Dsctl list({"--socket", daemon.Socket(), "list", "Typed.*"});
    EXPECT_EQ(list.Wait(), 0);
    EXPECT_EQ(list.GetOutput(), "ID    NAME        TYPE   ACCESS  VALUE\n" + expected);
}

TEST_F(DsctlWithDeviceStack, ListOfNothingSaysSo) {
    ExpectRefused({"list", "Cellar"}, "dsctl: no data point matches\n");
}

TEST_F(DsctlWithDeviceStack, GetPrintsTheValueByNameIdAndUrn) {
    ExpectDone({"get", "Kitchen.Setpoint"}, "21.5\n");
    ExpectDone({"get", "2002"}, "21.5\n");
    ExpectDone({"get", "urn:oxn:dp:house:Kitchen.Setpoint"}, "21.5\n");
}

TEST_F(DsctlWithDeviceStack, GetOfSeveralNamesThem) {
    ExpectDone({"get", "2002", "Hall.Fixed"}, "Kitchen.Setpoint\t21.5\nHall.Fixed\t7\n");
}

TEST_F(DsctlWithDeviceStack, GetAsJsonHasOriginAndTime) {
    ExpectDone({"set", "2003", "Straße"}, "");
    EXPECT_THAT(
        Run({"--json", "get", "2003"}).output,
        MatchesRegex(std::string(R"(\{"id":2003,"urn":"urn:oxn:dp:house:Hall.Größe","name":"Hall.Größe",)"
                                 R"("value":"Straße","origin":"dsctl::tool::[0-9]+","time":")") +
                     kUtcTime + R"(","change":1\})" + "\n"));
}

TEST_F(DsctlWithDeviceStack, GetTellsWhatItCannotGetAndPrintsTheRest) {
    const auto result = Run({"get", "Nowhere", "Hall.Fixed", "Kitchen.Light"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.output, "Hall.Fixed\t7\n");
    EXPECT_THAT(result.error, MatchesRegex("dsctl: [^\n]*Nowhere[^\n]*\ndsctl: [^\n]*Kitchen.Light[^\n]*\n"));
}

TEST_F(DsctlWithDeviceStack, SetStoresTheValue) {
    ExpectDone({"set", "Kitchen.Light", "1"}, "");
    ExpectDone({"get", "Kitchen.Light"}, "1\n");
    ExpectDone({"set", "Kitchen.Setpoint", "-2.5"}, "");
    ExpectDone({"get", "Kitchen.Setpoint"}, "-2.5\n");
    ExpectDone({"--json", "set", "2001", "0"}, "{\"change\":3}\n");
}

TEST_F(DsctlWithDeviceStack, SetTakesATextThatBeginsWithAMinusBehindTwo) {
    ExpectDone({"set", "Hall.Größe", "--", "-x-"}, "");
    ExpectDone({"get", "Hall.Größe"}, "-x-\n");
    ExpectDone({"set", "Hall.Größe", "--", "--json"}, "");
    ExpectDone({"get", "Hall.Größe"}, "--json\n");
}

TEST_F(DsctlWithDeviceStack, SetOfABadValueNamesDataPointAndReason) {
    const auto result = Run({"set", "clock", "yesterday"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.error, MatchesRegex("dsctl: [^\n]*clock[^\n]*yesterday[^\n]*\n"));
    const auto tooLarge = Run({"set", "Hall.Owned", "256"});
    EXPECT_EQ(tooLarge.code, 1);
    EXPECT_THAT(tooLarge.error, MatchesRegex("dsctl: Hall.Owned: [^\n]*256[^\n]*\n"));
}

TEST_F(DsctlWithDeviceStack, SetOfNothingSaysHowTheEmptyTextIsWritten) {
    ExpectRefused(
        {"set", "Hall.Größe", ""},
        "dsctl: Hall.Größe: '' is no value, and only the owner may take a value away; '\"\"' is the empty "
        "text\n");
    ExpectDone({"set", "Hall.Größe", "\"\""}, "");
    ExpectDone({"get", "Hall.Größe"}, "\"\"\n");
}

TEST_F(DsctlWithDeviceStack, SetOfAReadOnlyDataPointIsRefused) {
    const auto result = Run({"set", "Hall.Fixed", "8"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.error, AllOf(HasSubstr("Hall.Fixed"), HasSubstr("may not be written")));
    ExpectDone({"get", "Hall.Fixed"}, "7\n");
}

TEST_F(DsctlWithDeviceStack, SetWaitsForTheOwnersResult) {
    for (const bool handled : {true, false}) {
        RawClient owner(m_daemon.Socket());
        owner.Register("own", R"("field":true,"startWindow":false)");
        auto asked = std::async(std::launch::async, [&] {
            const auto request = owner.ReceiveJson(20s).as_object();
            owner.SendLine(boost::json::serialize(boost::json::object{
                {"jsonrpc", "2.0"}, {"id", request.at("id")}, {"result", {{"handled", handled}}}}));
            return boost::json::serialize(request.at("params"));
        });
        const auto result = Run({"set", "Hall.Owned", "12"});
        EXPECT_EQ(asked.get(), R"({"id":2005,"urn":"urn:oxn:dp:house:Hall.Owned","value":"12"})");
        EXPECT_EQ(result.code, handled ? 0 : 1);
        EXPECT_EQ(result.error, handled ? "" : "dsctl: Hall.Owned: its owner refused the value\n");
    }
}

TEST_F(DsctlWithDeviceStack, SetOfADataPointWhoseOwnerIsAwaySaysSo) {
    const auto result = Run({"set", "Hall.Owned", "12"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.error, AllOf(StartsWith("dsctl: Hall.Owned: its owner"), HasSubstr("own::test::1")));
}

TEST_F(DsctlWithDeviceStack, WatchPrintsEachChangeAsItHappens) {
    Dsctl watch(Arguments({"watch", "Kitchen.*", "--count", "2"}));
    // Written again until it is seen: when the program has begun to listen is its own affair.
    EXPECT_TRUE(Eventually([&] {
        Run({"set", "Hall.Größe", "not watched"});
        Run({"set", "Kitchen.Setpoint", "19"});
        return !watch.GetOutput().empty();
    }));
    EXPECT_THAT(
        watch.GetOutput(),
        ContainsRegex(
            "^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}  Kitchen\\.Setpoint  19 "
            "°C  \\(dsctl::tool::[0-9]+\\)\n"));
    Run({"set", "Kitchen.Light", "1"});
    EXPECT_EQ(watch.Wait(), 0);
    EXPECT_THAT(watch.GetOutput(), Not(HasSubstr("Hall")));
}

TEST_F(DsctlWithDeviceStack, WatchTakesIdsAndUrns) {
    Dsctl watch(Arguments({"watch", "2001", "urn:oxn:dp:house:Kitchen.Setpoint", "--count", "2"}));
    EXPECT_TRUE(Eventually([&] {
        Run({"set", "Hall.Größe", "not watched"});
        Run({"set", "Kitchen.Light", "1"});
        return !watch.GetOutput().empty();
    }));
    Run({"set", "Kitchen.Setpoint", "19"});
    EXPECT_EQ(watch.Wait(), 0);
    EXPECT_THAT(watch.GetOutput(), AllOf(HasSubstr("Kitchen.Light"), Not(HasSubstr("Hall"))));
    EXPECT_EQ(watch.GetError(), "");
}

TEST_F(DsctlWithDeviceStack, WatchOfNothingSaysSoAndWaits) {
    Dsctl watch(Arguments({"watch", "Cellar"}));
    EXPECT_TRUE(Eventually(
        [&] { return watch.GetError() == "dsctl: no data point matches; waiting for one\n"; }, 20s));
    m_daemon.Stop(SIGKILL);
    EXPECT_EQ(watch.Wait(), 3);
}

TEST_F(DsctlWithDeviceStack, WatchPrintsEventsWhenAsked) {
    RawClient application(m_daemon.Socket());
    application.Register("app");
    const auto emit = [&] {
        application.Call("command",
                         R"({"command":{"command":"EmitEvent","eventType":"lunch","message":"is ready"}})");
    };
    Dsctl deaf(Arguments({"watch"}));
    Dsctl watch(Arguments({"watch", "--events", "--count", "1"}));
    EXPECT_TRUE(Eventually([&] {
        emit();
        return !watch.GetOutput().empty();
    }));
    EXPECT_EQ(watch.Wait(), 0);
    EXPECT_THAT(watch.GetOutput(),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}  "
                             "event lunch  is ready  \\(app\\)\n"));
    EXPECT_TRUE(Eventually([&] {
        Run({"set", "Kitchen.Light", "1"});
        return !deaf.GetOutput().empty();
    }));
    EXPECT_THAT(deaf.GetOutput(), Not(HasSubstr("lunch")));

    Dsctl json(Arguments({"--json", "watch", "--events", "--count", "1"}));
    EXPECT_TRUE(Eventually([&] {
        emit();
        return !json.GetOutput().empty();
    }));
    EXPECT_EQ(json.Wait(), 0);
    EXPECT_THAT(json.GetOutput(),
                MatchesRegex(R"(\{"event":"lunch","message":"is ready","sender":"app","time":")" +
                             std::string(kUtcTime) + "\"\\}\n"));
}

TEST_F(DsctlWithDeviceStack, OutputThatCannotBeWrittenIsStatusFour) {
    for (const auto* arguments : {"list", "get 2002", "--json set 2001 1", "types", "types 9.001",
                                  "convert 9.001 0c1a", "--help", "--version"}) {
        TemporaryDirectory directory;
        const std::string command =
            std::string(DSCTL) + " --socket " + m_daemon.Socket() + ' ' + arguments + " >/dev/full";
        Process process({"/bin/sh", "-c", command}, directory / "err");
        EXPECT_EQ(process.Wait(20s), 4) << arguments;
        EXPECT_EQ(ReadText(directory / "err"),
                  "dsctl: standard output cannot be written: No space left on device\n")
            << arguments;
    }
}

TEST_F(DsctlWithDeviceStack, WatchAsJsonIsOneObjectPerLine) {
    Dsctl watch(Arguments({"--json", "watch", "--count", "1"}));
    EXPECT_TRUE(Eventually([&] {
        Run({"set", "Hall.Größe", "a\"b"});
        return !watch.GetOutput().empty();
    }));
    EXPECT_EQ(watch.Wait(), 0);
    const auto object = boost::json::parse(watch.GetOutput()).as_object();
    EXPECT_EQ(object.at("name").as_string(), "Hall.Größe");
    EXPECT_EQ(object.at("value").as_string(), "a\"b");
    EXPECT_THAT(std::string(object.at("time").as_string()), MatchesRegex(kUtcTime));
}

TEST_F(DsctlWithDeviceStack, WatchEndsWhenTheDeviceStackDoes) {
    Dsctl watch(Arguments({"watch"}));
    EXPECT_TRUE(Eventually([&] {
        Run({"set", "Kitchen.Light", "1"});
        return !watch.GetOutput().empty();
    }));
    m_daemon.Stop(SIGKILL);
    EXPECT_EQ(watch.Wait(), 3);
    EXPECT_EQ(watch.GetError(),
              "dsctl: the device stack at " + m_daemon.Socket() + " closed the connection\n");
}

TEST_F(DsctlWithDeviceStack, AFrozenDeviceStackDoesNotHoldItForEver) {
    m_daemon.GetProcess().Signal(SIGSTOP);
    Dsctl get(Arguments({"get", "2001"}));
    EXPECT_EQ(get.Wait(60s), 3);
    EXPECT_EQ(get.GetError(), "dsctl: the device stack at " + m_daemon.Socket() + " does not answer\n");
    m_daemon.GetProcess().Signal(SIGCONT);
}

TEST_F(DsctlWithDeviceStack, TheEnvironmentNamesTheSocketToo) {
    Dsctl get({"get", "Hall.Fixed"}, {"DEVICESTACK_SOCKET=" + m_daemon.Socket()});
    EXPECT_EQ(get.Wait(), 0);
    EXPECT_EQ(get.GetOutput(), "7\n");
}

TEST(DsctlAlone, WithoutADeviceStackItSaysWhatToLookFor) {
    for (const auto& verb :
         std::vector<std::vector<std::string>>{{"list"}, {"get", "a"}, {"set", "a", "1"}, {"watch"}}) {
        auto arguments = verb;
        arguments.insert(arguments.begin(), {"--socket", "/nonexistent/s"});
        Dsctl dsctl(arguments);
        EXPECT_EQ(dsctl.Wait(), 3);
        EXPECT_EQ(dsctl.GetError(),
                  "dsctl: no device stack at /nonexistent/s: is devicestackd running? (No such file "
                  "or directory; --socket names another place)\n");
    }
}

TEST(DsctlAlone, AWrongCommandLineIsStatusTwo) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{{},
                                                                       {"blink"},
                                                                       {"get"},
                                                                       {"set", "a"},
                                                                       {"set", "a", "1", "2"},
                                                                       {"watch", "--count", "0"},
                                                                       {"watch", "--count", "x"},
                                                                       {"get", "a", "--count", "1"}}) {
        Dsctl dsctl(arguments);
        EXPECT_EQ(dsctl.Wait(), 2);
        EXPECT_EQ(dsctl.GetOutput(), "");
        EXPECT_NE(dsctl.GetError(), "");
    }
}

TEST(DsctlAlone, HelpDocumentsExamplesAndExitStatus) {
    Dsctl help({"--help"});
    EXPECT_EQ(help.Wait(), 0);
    EXPECT_THAT(help.GetOutput(),
                AllOf(HasSubstr("Examples:"), HasSubstr("\n  dsctl types "), HasSubstr("\n  dsctl convert "),
                      HasSubstr("  1  refused"), HasSubstr("  2  "), HasSubstr("  3  no device stack"),
                      HasSubstr("DEVICESTACK_SOCKET")));
    Dsctl version({"--version"});
    EXPECT_EQ(version.Wait(), 0);
    EXPECT_THAT(version.GetOutput(), MatchesRegex("dsctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}
