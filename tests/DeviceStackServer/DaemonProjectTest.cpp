// How the started daemon takes over a project that changes.
#include "DaemonText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

namespace DeviceStackServer {
namespace {

using testing::HasSubstr;

/// Replaces a file as an editor or a download does: by a rename.
void ReplaceFile(const std::string& path, const std::string& text) {
    WriteText(path + ".new", text);
    std::filesystem::rename(path + ".new", path);
}

class DaemonProject : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(daemon.Start()) << daemon.Log();
        client.emplace(daemon.Socket());
        client->Register("listen");
    }

    void Replace(const std::string& text) { ReplaceFile(daemon.ProjectPath(), text); }

    std::string Announced() {
        const auto message = client->ReceiveJson();
        return Text(message, "/method") + " " + Text(message, "/params/key") + " " +
               Text(message, "/params/value");
    }

    Daemon daemon{kDaemonProject};
    std::optional<RawClient> client;
};

constexpr const char* kOtherProject =
    R"({"version":1,"device":"house","dataPoints":[{"id":2009,"name":"New","dpt":"5.010","initial":"3"}]})";

TEST_F(DaemonProject, AReplacedFileIsTakenOverAndAnnounced) {
    Replace(kOtherProject);
    EXPECT_EQ(Announced(), "configurationChanged Project ok");
    EXPECT_EQ(Text(client->Call("getValue", R"({"name":"New"})"), "/result/value"), "3");
    EXPECT_EQ(Text(client->Call("getValue", R"({"name":"Plain"})"), "/error/code"), "1");
}

TEST_F(DaemonProject, AFileThatIsWrittenInPlaceIsTakenOverOnceItIsQuiet) {
    WriteText(daemon.ProjectPath(), std::string(kOtherProject).substr(0, 20));
    WriteText(daemon.ProjectPath(), kOtherProject);
    EXPECT_EQ(Announced(), "configurationChanged Project ok");
    EXPECT_FALSE(client->Receive(std::chrono::milliseconds(200)));
}

TEST_F(DaemonProject, ARefusedFileIsAnnouncedWithItsCauseAndTheFormerStays) {
    Replace("{");
    EXPECT_THAT(Announced(),
                testing::MatchesRegex("configurationChanged Project .*project.json: .*not JSON.*"));
    client->Call("setValue", R"({"name":"Plain","value":"1"})");
    EXPECT_EQ(Text(client->Call("getValue", R"({"name":"Plain"})"), "/result/value"), "1");
}

TEST_F(DaemonProject, AnIdOfAnotherUrnIsRefusedAlsoAfterARestart) {
    daemon.Stop(SIGTERM);
    WriteText(daemon.ProjectPath(),
              R"({"version":1,"device":"house","dataPoints":[{"id":2001,"name":"Else","dpt":"5.010"}]})");
    EXPECT_FALSE(daemon.Start());
    EXPECT_EQ(daemon.GetProcess().Wait(), 2);
    EXPECT_THAT(daemon.Log(), HasSubstr("project.json: the id 2001 belonged to urn:oxn:dp:house:Plain"));
}

TEST_F(DaemonProject, ASignalAndACommandReadTheFileAgain) {
    daemon.GetProcess().Signal(SIGHUP);
    EXPECT_EQ(Announced(), "configurationChanged Project ok");
    RawClient other(daemon.Socket());
    EXPECT_EQ(
        Text(other.Call("command", R"({"command":{"command":"ReloadProject"}})"), "/result/response/result"),
        "ok");
    EXPECT_EQ(Announced(), "configurationChanged Project ok");
}

/// A daemon whose project stands in a directory of its own, "first", which is also called "link".
class DaemonProjectDirectory : public testing::Test {
protected:
    void StartWith(const std::string& project) {
        MakeDirectory("first", kDaemonProject);
        std::filesystem::create_directory_symlink("first", daemon.directory / "link");
        WriteText(daemon.directory / "devicestackd.json",
                  R"({"socket":"run/socket","stateDirectory":"state","project":")" + project + "\"}");
        ASSERT_TRUE(daemon.Start()) << daemon.Log();
        client.emplace(daemon.Socket());
        client->Register("listen");
    }

    void MakeDirectory(const std::string& name, const std::string& text) {
        std::filesystem::create_directory(daemon.directory / name);
        WriteText(daemon.directory / (name + "/project.json"), text);
    }

    void Rename(const std::string& from, const std::string& to) {
        std::filesystem::rename(daemon.directory / from, daemon.directory / to);
    }

    /// The value of the data point that only the other project has, once a project is announced.
    std::string NewValue() {
        EXPECT_EQ(Text(client->ReceiveJson(std::chrono::seconds(20)), "/params/key"), "Project");
        return Text(client->Call("getValue", R"({"name":"New"})"), "/result/value");
    }

    Daemon daemon{kDaemonProject};
    std::optional<RawClient> client;
};

TEST_F(DaemonProjectDirectory, IsReplacedByARename) {
    StartWith("first/project.json");
    MakeDirectory("second", kOtherProject);
    Rename("first", "old");
    Rename("second", "first");
    EXPECT_EQ(NewValue(), "3");
    // The new directory is watched in the place of the former one.
    ReplaceFile(daemon.directory / "first/project.json", kDaemonProject);
    EXPECT_EQ(NewValue(), "(none)");
}

TEST_F(DaemonProjectDirectory, IsLookedForWhileItIsMissing) {
    StartWith("first/project.json");
    Rename("first", "old");
    // Longer than the file has to be quiet; a daemon that looks later finds the directory all the same.
    EXPECT_FALSE(client->Receive(std::chrono::milliseconds(1500)));
    MakeDirectory("second", kOtherProject);
    Rename("second", "first");
    EXPECT_EQ(NewValue(), "3");
}

TEST_F(DaemonProjectDirectory, IsReachedThroughALinkThatPointsElsewhere) {
    StartWith("link/project.json");
    MakeDirectory("second", kOtherProject);
    std::filesystem::create_directory_symlink("second", daemon.directory / "link.new");
    Rename("link.new", "link");
    EXPECT_EQ(NewValue(), "3");
}

TEST_F(DaemonProjectDirectory, HoldsALinkToTheFile) {
    StartWith("link/project.json");
    WriteText(daemon.directory / "first/target.json", kDaemonProject);
    std::filesystem::create_symlink("target.json", daemon.directory / "first/project.json.new");
    Rename("first/project.json.new", "first/project.json");
    EXPECT_EQ(NewValue(), "(none)");
    ReplaceFile(daemon.directory / "first/target.json", kOtherProject);
    EXPECT_EQ(NewValue(), "3");
}

} // namespace
} // namespace DeviceStackServer
