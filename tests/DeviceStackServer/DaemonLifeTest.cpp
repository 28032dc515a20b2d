// Start, end, configuration and files of the started daemon.
#include "DaemonText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace DeviceStackServer {
namespace {

using testing::HasSubstr;
using testing::Not;

struct Ended {
    int status;
    std::string output;
};

/// Runs the program to its end.
Ended RunToEnd(std::vector<std::string> arguments) {
    TemporaryDirectory directory;
    arguments.insert(arguments.begin(), DEVICESTACKD);
    Process process(arguments, directory / "output");
    const int status = process.Wait();
    return {status, ReadText(directory / "output")};
}

TEST(DaemonLife, EndsWithinASecondWithItsStateOnTheDisk) {
    Daemon daemon(kDaemonProject, R"("saveDelay":3600)");
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    RawClient client(daemon.Socket());
    client.Call("setValue", R"({"name":"Plain","value":"77"})");
    daemon.GetProcess().Signal(SIGTERM);
    EXPECT_EQ(daemon.GetProcess().Wait(std::chrono::seconds(1)), 0) << daemon.Log();
    EXPECT_TRUE(client.IsClosed());
    EXPECT_FALSE(std::filesystem::exists(daemon.Socket()));
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    RawClient again(daemon.Socket());
    const auto value = again.Call("getValue", R"({"name":"Plain"})");
    EXPECT_EQ(Text(value, "/result/value"), "77");
    EXPECT_EQ(Text(value, "/result/change"), "0");
}

TEST(DaemonLife, AKilledDaemonLeavesNothingThatItsSuccessorCannotUse) {
    Daemon daemon(kDaemonProject);
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    {
        RawClient client(daemon.Socket());
        client.Call("setValue", R"({"name":"Plain","value":"1"})");
        ASSERT_TRUE(Eventually([&] {
            return ReadText(daemon.directory / "state/values.json").find("Plain") != std::string::npos;
        }));
        // Die while values are written one after the other.
        for (int i = 0; i < 200; ++i)
            client.SendLine(R"({"jsonrpc":"2.0","method":"setValue","params":{"id":2001,"value":")" +
                            std::to_string(i) + "\"}}");
        daemon.Stop(SIGKILL);
    }
    EXPECT_TRUE(std::filesystem::exists(daemon.Socket()));
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    EXPECT_THAT(daemon.Log(), Not(HasSubstr("cannot be read")));
    RawClient client(daemon.Socket());
    EXPECT_NE(Text(client.Call("getValue", R"({"name":"Plain"})"), "/result/value"), "(none)");
}

TEST(DaemonLife, AnUnreadableStateFileIsSetAsideWithAWord) {
    Daemon daemon(kDaemonProject);
    std::filesystem::create_directories(daemon.directory / "state");
    WriteText(daemon.directory / "state/values.json", "{\"version\":1,\"val");
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    EXPECT_THAT(daemon.Log(),
                testing::ContainsRegex("ERROR .*values.json cannot be read \\(not JSON: .*it is kept as "
                                       ".*values.json.unreadable-"));
    int kept = 0;
    for (const auto& file : std::filesystem::directory_iterator(daemon.directory / "state")) {
        if (file.path().filename().string().rfind("values.json.unreadable-", 0) == 0) {
            EXPECT_EQ(ReadText(file.path()), "{\"version\":1,\"val");
            ++kept;
        }
    }
    EXPECT_EQ(kept, 1);
}

TEST(DaemonLife, UnreadableIdsAreStatus2AndStayWhereTheyAre) {
    Daemon daemon(kDaemonProject);
    std::filesystem::create_directories(daemon.directory / "state");
    const auto path = daemon.directory / "state/ids.json";
    const std::pair<std::string, std::string> contents[] = {
        {R"({"version":1,"ids":{"urn:oxn:dp:house:Old":20)", "not JSON: incomplete JSON"},
        {R"({"version":2,"ids":{}})", "version 2 is not known here"},
    };
    for (const auto& [content, cause] : contents) {
        WriteText(path, content);
        const auto ended = RunToEnd({"--config", daemon.directory / "devicestackd.json"});
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(ended.output, "devicestackd: " + path + " cannot be read (" + cause +
                                    "); bring back a copy of it, or delete it when no id of a former project "
                                    "has to be kept from other data points\n");
        EXPECT_EQ(ReadText(path), content);
        for (const auto* check : {"check", "--check-config"}) {
            const auto checked = RunToEnd({check, "--config", daemon.directory / "devicestackd.json"});
            EXPECT_EQ(checked.status, 2) << check;
            EXPECT_THAT(checked.output, HasSubstr(path + " cannot be read (" + cause + "); ")) << check;
        }
    }
    EXPECT_FALSE(std::filesystem::exists(daemon.Socket()));
    std::filesystem::remove(path);
    EXPECT_TRUE(daemon.Start()) << daemon.Log();
}

TEST(DaemonLife, AStateThatCannotBeWrittenIsReportedAndServedAllTheSame) {
    Daemon daemon(kDaemonProject);
    std::filesystem::create_directories(daemon.directory / "state/values.json.new");
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    RawClient client(daemon.Socket());
    client.Call("setValue", R"({"name":"Plain","value":"1"})");
    EXPECT_TRUE(Eventually([&] {
        return daemon.Log().find("values.json cannot be created: Is a directory") != std::string::npos;
    }));
    EXPECT_EQ(Text(client.Call("getValue", R"({"name":"Plain"})"), "/result/value"), "1");
    // The next attempt is the last one at the latest.
    std::filesystem::remove(daemon.directory / "state/values.json.new");
    daemon.Stop(SIGTERM);
    EXPECT_THAT(ReadText(daemon.directory / "state/values.json"), HasSubstr("\"value\":\"1\""));
}

TEST(DaemonLife, ALivingServersSocketIsRefused) {
    Daemon first(kDaemonProject);
    ASSERT_TRUE(first.Start()) << first.Log();
    Daemon second(kDaemonProject);
    auto ended = RunToEnd({"--config", second.directory / "devicestackd.json", "--socket", first.Socket()});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.output, HasSubstr(first.Socket() + ": another server listens at this socket\n"));
    RawClient client(first.Socket()); // which still serves
    EXPECT_EQ(Text(client.Call("getUrn", R"({"id":1000})"), "/result/urn"), "urn:oxn:dp:house");
}

TEST(DaemonLife, AUsedStateDirectoryIsRefused) {
    Daemon first(kDaemonProject);
    ASSERT_TRUE(first.Start()) << first.Log();
    const auto ended =
        RunToEnd({"--config", first.directory / "devicestackd.json", "--socket", first.directory / "other"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.output, HasSubstr("another devicestackd uses this state directory\n"));
    EXPECT_FALSE(std::filesystem::exists(first.directory / "other"));
}

TEST(DaemonLife, AFileThatIsNoSocketIsNotTouched) {
    Daemon daemon(kDaemonProject);
    WriteText(daemon.directory / "file", "precious");
    const auto ended =
        RunToEnd({"--config", daemon.directory / "devicestackd.json", "--socket", daemon.directory / "file"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.output, HasSubstr("there is a file that is no socket"));
    EXPECT_EQ(ReadText(daemon.directory / "file"), "precious");
}

TEST(DaemonLife, ABadConfigurationIsOneSentenceAndStatus2) {
    TemporaryDirectory directory;
    WriteText(directory / "c.json", R"({"project":"p.json","socket":5})");
    auto ended = RunToEnd({"--config", directory / "c.json"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.output, "devicestackd: " + directory.Path() +
                                "/c.json: /socket: must be a text in quotation marks: \"5\"\n");
    ended = RunToEnd({"--config", directory / "none.json"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.output, "devicestackd: " + directory.Path() + "/none.json: there is no such file\n");
    WriteText(directory / "c.json", "{\n]");
    ended = RunToEnd({"--config", directory / "c.json"});
    EXPECT_THAT(ended.output, HasSubstr("/c.json: 2:1: not JSON: "));
    EXPECT_EQ(RunToEnd({"--no-such-option"}).status, 2);
    EXPECT_EQ(RunToEnd({"--project", "x", "--log-level", "LOUD"}).status, 2);
    WriteText(directory / "c.json", R"({"project":"p.json"})");
    for (const std::string option : {"--project", "--socket", "--state-dir"}) {
        ended = RunToEnd({"--config", directory / "c.json", option, ""});
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(ended.output, "devicestackd: " + option + ": must be a path, not an empty text\n");
    }
    EXPECT_FALSE(std::filesystem::exists(directory / "state"));
}

TEST(DaemonLife, ALogFileThatCannotBeWrittenIsStatus2) {
    Daemon daemon(kDaemonProject, R"("log":{"file":"no/such/place.log"})");
    const auto ended = RunToEnd({"--config", daemon.directory / "devicestackd.json"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.output, "devicestackd: " + daemon.directory.Path() +
                                "/devicestackd.json: /log/file: " + daemon.directory.Path() +
                                "/no/such/place.log cannot be written: No such file or directory\n");
    EXPECT_FALSE(std::filesystem::exists(daemon.directory / "state"));
    EXPECT_FALSE(std::filesystem::exists(daemon.directory / "run"));
}

TEST(DaemonLife, AProjectAgainstTheIdsGivenBeforeIsRefusedByTheChecksToo) {
    Daemon daemon(kDaemonProject);
    std::filesystem::create_directory(daemon.directory / "state");
    WriteText(daemon.directory / "state/ids.json", R"({"version":1,"ids":{"urn:oxn:dp:house:Plain":4711}})");
    const auto configuration = daemon.directory / "devicestackd.json";
    const auto started = RunToEnd({"--config", configuration});
    EXPECT_EQ(started.status, 2);
    EXPECT_THAT(started.output, HasSubstr("urn:oxn:dp:house:Plain"));
    const auto checkedConfiguration = RunToEnd({"--config", configuration, "--check-config"});
    EXPECT_EQ(checkedConfiguration.status, 2);
    EXPECT_EQ(checkedConfiguration.output, started.output);
    const auto checkedProject = RunToEnd({"check", "--config", configuration});
    EXPECT_EQ(checkedProject.status, 2);
    EXPECT_EQ("devicestackd: " + checkedProject.output, started.output);
}

TEST(DaemonLife, ABadProjectIsStatus2AndCheckListsEveryError) {
    Daemon daemon(R"({"version":1,"device":"house","dataPoints":[
        {"id":1,"name":"A","dpt":"nonsense"},{"id":1,"name":"B","dpt":"1.001"}]})");
    const auto configuration = daemon.directory / "devicestackd.json";
    auto ended = RunToEnd({"--config", configuration});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.output, HasSubstr("/dataPoints/0/dpt: "));
    EXPECT_THAT(ended.output, HasSubstr("(and 1 more)"));
    EXPECT_FALSE(std::filesystem::exists(daemon.directory / "state"));
    EXPECT_FALSE(std::filesystem::exists(daemon.directory / "run"));
    EXPECT_EQ(RunToEnd({"--config", configuration, "--check-config"}).status, 2);
    ended = RunToEnd({"check", "--config", configuration});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.output, HasSubstr("/dataPoints/0/dpt: "));
    EXPECT_THAT(ended.output, HasSubstr("/dataPoints/1/id: "));
}

TEST(DaemonLife, AGoodConfigurationPassesTheCheckAndStartsNothing) {
    Daemon daemon(kDaemonProject);
    const auto configuration = daemon.directory / "devicestackd.json";
    EXPECT_EQ(RunToEnd({"--config", configuration, "--check-config"}).status, 0);
    const auto ended = RunToEnd({"check", "--project", daemon.ProjectPath()});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.output, HasSubstr("10 data points of house, no errors"));
    EXPECT_FALSE(std::filesystem::exists(daemon.directory / "state"));
}

TEST(DaemonLife, TheVersionIsPrinted) {
    const auto ended = RunToEnd({"--version"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.output, testing::MatchesRegex("devicestackd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(DaemonLife, TheServiceManagerIsToldWhenClientsMayConnect) {
    Daemon daemon(kDaemonProject);
    const auto path = daemon.directory / "notify";
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const timeval limit{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ASSERT_TRUE(daemon.Start({"NOTIFY_SOCKET=" + path})) << daemon.Log();
    char text[64] = {};
    ASSERT_GT(::recv(fd, text, sizeof text - 1, 0), 0);
    EXPECT_STREQ(text, "READY=1");
    ::close(fd);
}

TEST(DaemonLife, CommandsAreRunAfterTheirRequestWasAnswered) {
    Daemon daemon(kDaemonProject);
    WriteText(daemon.directory / "devicestackd.json",
              R"({"project":"project.json","socket":"run/socket","stateDirectory":"state","commands":{)"
              R"("restart":["/bin/sh","-c","echo restart >> ')" +
                  daemon.directory.Path() + R"(/ran'"],"ntp":["/bin/sh","-c","echo ntp $1 >> ')" +
                  daemon.directory.Path() + R"(/ran'; exit 3","sh"]}})");
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    RawClient listener(daemon.Socket());
    listener.Register("listen");
    RawClient client(daemon.Socket());
    EXPECT_EQ(Text(client.Call("setValue", R"({"id":1004,"value":"1"})"), "/result/change"), "0");
    EXPECT_TRUE(Eventually([&] { return ReadText(daemon.directory / "ran") == "restart\n"; }));
    EXPECT_EQ(Text(listener.ReceiveJson(), "/params/key"), "Restart");
    client.Call("setConfiguration", R"({"settings":{"Ntp":"false"}})");
    EXPECT_TRUE(Eventually([&] { return ReadText(daemon.directory / "ran") == "restart\nntp false\n"; }));
    EXPECT_EQ(Text(listener.ReceiveJson(), "/params/value"), "false");
    EXPECT_TRUE(
        Eventually([&] { return daemon.Log().find("failed with exit status 3") != std::string::npos; }));
}

TEST(DaemonLife, WithoutCommandsARestartIsOnlyLoggedAndPublished) {
    Daemon daemon(kDaemonProject);
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    RawClient listener(daemon.Socket());
    listener.Register("listen");
    RawClient client(daemon.Socket());
    client.Call("command", R"({"command":{"command":"Restart","type":"Device"}})");
    EXPECT_EQ(Text(listener.ReceiveJson(), "/params/key"), "Restart");
    EXPECT_TRUE(
        Eventually([&] { return daemon.Log().find("no command is configured") != std::string::npos; }));
}

} // namespace
} // namespace DeviceStackServer
