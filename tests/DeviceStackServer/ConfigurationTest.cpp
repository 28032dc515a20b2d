#include "DeviceStackServer/Configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace DeviceStackServer {
namespace {

using testing::ElementsAre;

/// What is said behind the file's name.
std::string Fault(std::string_view text) {
    Configuration configuration;
    const std::string file = "/etc/c.json: ";
    const auto fault = ReadConfiguration(text, "/etc/c.json", configuration);
    EXPECT_THAT(fault, testing::StartsWith(file));
    return fault.substr(std::min(fault.size(), file.size()));
}

TEST(Configuration, EverythingHasADefault) {
    Configuration configuration;
    EXPECT_EQ(ReadConfiguration("{}", "/etc/c.json", configuration), "");
    EXPECT_EQ(configuration.project, "");
    EXPECT_EQ(configuration.socket, "/run/devicestack/devicestack.sock");
    EXPECT_EQ(configuration.socketMode, 0660u);
    EXPECT_EQ(configuration.stateDirectory, "/var/lib/devicestack");
    EXPECT_EQ(configuration.clockInterval, std::chrono::seconds(600));
    EXPECT_FALSE(configuration.setSystemClock);
    EXPECT_THAT(configuration.restartCommand, ElementsAre());
    EXPECT_EQ(configuration.logLevel, "info");
}

TEST(Configuration, EveryMemberIsRead) {
    Configuration configuration;
    EXPECT_EQ(ReadConfiguration(R"({ // with comments
        "project": "p.json", "socket": "/tmp/s", "socketMode": "0600", "stateDirectory": "state",
        "deviceId": "X", "clockInterval": 0, "setSystemClock": true, "saveDelay": 1, "history": 2,
        "commands": {"restart": ["reboot", "-f"], "ntp": ["ntp"]},
        "log": {"level": "DEBUG", "file": "l"}, })",
                                "/etc/x/c.json", configuration),
              "");
    EXPECT_EQ(configuration.project, "/etc/x/p.json");
    EXPECT_EQ(configuration.socket, "/tmp/s");
    EXPECT_EQ(configuration.socketMode, 0600u);
    EXPECT_EQ(configuration.stateDirectory, "/etc/x/state");
    EXPECT_EQ(configuration.deviceId, "X");
    EXPECT_EQ(configuration.clockInterval, std::chrono::seconds(0));
    EXPECT_TRUE(configuration.setSystemClock);
    EXPECT_EQ(configuration.saveDelay, std::chrono::seconds(1));
    EXPECT_EQ(configuration.history, 2u);
    EXPECT_THAT(configuration.restartCommand, ElementsAre("reboot", "-f"));
    EXPECT_THAT(configuration.ntpCommand, ElementsAre("ntp"));
    EXPECT_EQ(configuration.logLevel, "debug");
    EXPECT_EQ(configuration.logFile, "/etc/x/l");
}

TEST(Configuration, AFaultHasFilePlaceAndCause) {
    EXPECT_THAT(Fault("{\n  \"project\" 5}"), testing::StartsWith("2:13: not JSON: "));
    EXPECT_EQ(Fault("{} x"), "1:4: more text behind the end of the JSON value");
    EXPECT_THAT(Fault("{"), testing::StartsWith("1:2: not JSON: "));
    EXPECT_EQ(Fault("[]"), "/: must be an object");
    EXPECT_EQ(Fault(R"({"projekt":"x"})"), "/projekt: unknown member \"projekt\"; did you mean \"project\"?");
    EXPECT_EQ(Fault(R"({"project":5})"), "/project: must be a text in quotation marks: \"5\"");
    EXPECT_EQ(Fault(R"({"setSystemClock":"yes"})"), "/setSystemClock: must be true or false, not a text");
    EXPECT_EQ(Fault(R"({"clockInterval":-1})"),
              "/clockInterval: must be a whole number from 0 to 86400, not -1");
    EXPECT_EQ(Fault(R"({"commands":[]})"), "/commands: must be an object, not an array");
    EXPECT_EQ(Fault(R"({"commands":{"ntp":"x"}})"), "/commands/ntp: must be an array, not a text");
    EXPECT_EQ(Fault(R"({"commands":{"ntp":["x", ""]}})"),
              "/commands/ntp/1: must be a text that is not empty: the program or one of its arguments");
    EXPECT_EQ(Fault(R"({"log":{"level":"LOUD"}})"),
              R"(/log/level: must be "trace", "debug", "info", "warn", "error", "fatal" or "off")");
    EXPECT_EQ(Fault(R"({"log":{"file":5}})"), "/log/file: must be a text in quotation marks: \"5\"");
}

TEST(Configuration, AMemberThatStandsTwiceIsRefused) {
    EXPECT_EQ(Fault(R"({"project":"a","project":"b"})"),
              "1:24: member \"project\" stands twice in one object");
}

TEST(Configuration, AnEmptyPathIsRefused) {
    for (const std::string name : {"project", "socket", "stateDirectory"})
        EXPECT_EQ(Fault("{\"" + name + "\":\"\"}"), "/" + name + ": must be a path, not an empty text");
    EXPECT_EQ(Fault(R"({"log":{"file":""}})"), "/log/file: must be a path, not an empty text");
}

TEST(Configuration, ASocketModeIsPermissionsInOctal) {
    for (const std::string mode : {"", "66", "888", "7777", "06600", "rw"})
        EXPECT_EQ(Fault("{\"socketMode\":\"" + mode + "\"}"),
                  "/socketMode: must be the octal digits of permissions, e.g. \"0660\"")
            << mode;
    Configuration configuration;
    EXPECT_EQ(ReadConfiguration(R"({"socketMode":"777"})", "/etc/c.json", configuration), "");
    EXPECT_EQ(configuration.socketMode, 0777u);
}

TEST(Configuration, FurtherFaultsAreCounted) {
    EXPECT_EQ(Fault(R"({"history":-1,"saveDelay":-1,"socket":""})"),
              "/socket: must be a path, not an empty text (and 2 more)");
}

TEST(Configuration, AFaultLeavesTheConfigurationAlone) {
    Configuration configuration;
    ReadConfiguration(R"({"project":"p","history":-1})", "/etc/c.json", configuration);
    EXPECT_EQ(configuration.project, "");
}

} // namespace
} // namespace DeviceStackServer
