#include "DeviceStackServer/Configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace DeviceStackServer {
namespace {

using testing::ElementsAre;

std::string Fault(std::string_view text) {
    Configuration configuration;
    return ReadConfiguration(text, "/etc", configuration);
}

TEST(Configuration, EverythingHasADefault) {
    Configuration configuration;
    EXPECT_EQ(ReadConfiguration("{}", "/etc", configuration), "");
    EXPECT_EQ(configuration.project, "");
    EXPECT_EQ(configuration.socket, "/run/devicestack/devicestack.sock");
    EXPECT_EQ(configuration.socketMode, 0660u);
    EXPECT_EQ(configuration.stateDirectory, "/var/lib/devicestack");
    EXPECT_EQ(configuration.clockInterval, std::chrono::seconds(600));
    EXPECT_FALSE(configuration.setSystemClock);
    EXPECT_THAT(configuration.restartCommand, ElementsAre());
    EXPECT_EQ(configuration.logLevel, "INFO");
}

TEST(Configuration, EveryMemberIsRead) {
    Configuration configuration;
    EXPECT_EQ(ReadConfiguration(R"({ // with comments
        "project": "p.json", "socket": "/tmp/s", "socketMode": "0600", "stateDirectory": "state",
        "deviceId": "X", "clockInterval": 0, "setSystemClock": true, "saveDelay": 1, "history": 2,
        "commands": {"restart": ["reboot", "-f"], "ntp": ["ntp"]},
        "log": {"level": "DEBUG", "file": "l"}, })",
                                "/etc/x", configuration),
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
    EXPECT_EQ(configuration.logLevel, "DEBUG");
    EXPECT_EQ(configuration.logFile, "/etc/x/l");
}

TEST(Configuration, AFaultHasAPlaceAndACause) {
    EXPECT_EQ(Fault("{\n  \"project\" 5}"), "2:13: not JSON: syntax error");
    EXPECT_EQ(Fault("{} x"), "1:4: not JSON: extra data");
    EXPECT_THAT(Fault("{"), testing::StartsWith("1:2: not JSON: "));
    EXPECT_EQ(Fault("[]"), "/: must be an object");
    EXPECT_THAT(Fault(R"({"projekt":"x"})"),
                testing::StartsWith("/projekt: unknown member; known are: project, "));
    EXPECT_EQ(Fault(R"({"project":5})"), "/project: must be a text");
    EXPECT_EQ(Fault(R"({"setSystemClock":"yes"})"), "/setSystemClock: must be true or false");
    EXPECT_EQ(Fault(R"({"clockInterval":-1})"), "/clockInterval: must be a whole number from 0 to 86400");
    EXPECT_EQ(Fault(R"({"commands":[]})"), "/commands: must be an object");
    EXPECT_EQ(Fault(R"({"commands":{"ntp":"x"}})"),
              "/commands/ntp: must be an array of texts: the program and its arguments");
    EXPECT_EQ(Fault(R"({"commands":{"ntp":[""]}})"),
              "/commands/ntp: must be an array of texts that are not empty");
    EXPECT_THAT(Fault(R"({"log":{"level":"LOUD"}})"),
                testing::StartsWith("/log/level: \"LOUD\" is no log level"));
    EXPECT_EQ(Fault(R"({"socketMode":"888"})"),
              "/socketMode: must be three or four octal digits, e.g. \"0660\"");
}

TEST(Configuration, AFaultLeavesTheConfigurationAlone) {
    Configuration configuration;
    ReadConfiguration(R"({"project":"p","history":-1})", "/etc", configuration);
    EXPECT_EQ(configuration.project, "");
}

} // namespace
} // namespace DeviceStackServer
