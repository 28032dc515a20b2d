// Start, failure, reload and end of the application program in the running daemon.
#include "../DaemonProcess.h"
#include "../RawTunnel.h"

#include <gmock/gmock.h>

#include <csignal>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ProgramInDaemon : public testing::Test {
protected:
    void Start(const std::string& settings = "", const std::vector<std::string>& arguments = {},
               const std::vector<std::string>& environment = {}) {
        m_daemon.emplace(m_directory, TestConfiguration(settings), arguments, environment);
        m_port = m_daemon->Port();
    }

    bool Recorded(const std::string& line, std::size_t count = 1, milliseconds patience = seconds(10)) const {
        return Eventually(
            [&] { return CountOf("\n" + m_directory.Read("record"), "\n" + line + "\n") >= count; },
            patience);
    }

    TemporaryDirectory m_directory;
    std::optional<DaemonProcess> m_daemon;
    std::uint16_t m_port = 0;
};

TEST_F(ProgramInDaemon, AFailedStartIsRetriedWhileTunnelsLive) {
    Start(R"(, "init": "fail-once")");
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    EXPECT_TRUE(Recorded("write 4 42")) << "held over the retry";
    EXPECT_THAT(m_directory.Read("record"), StartsWith("init\nexit\ndelete\ninit\nwrite 4 42\n"));
    EXPECT_THAT(m_daemon->Log(), HasSubstr("started again in 1 s"));
    EXPECT_TRUE(tunnel.IsAlive());
}

TEST_F(ProgramInDaemon, AnInitThatThrowsIsOneErrorAndRetriedWithAGrowingPause) {
    Start(R"(, "init": "throw")");
    EXPECT_TRUE(m_daemon->WaitForLog("started again in 2 s"));
    EXPECT_TRUE(Recorded("init", 2));
    const auto log = m_daemon->Log();
    EXPECT_THAT(log, HasSubstr("threw from Init: Init does not want to"));
    EXPECT_EQ(2u, CountOf(log, "ERROR")) << log;
    EXPECT_LT(log.find("started again in 1 s"), log.find("started again in 2 s"));
}

TEST_F(ProgramInDaemon, AProgramThatRunsAndFailsAtOnceIsRetriedWithAGrowingPause) {
    Start(R"(, "init": "flap")");
    EXPECT_TRUE(m_daemon->WaitForLog("started again in 4 s", seconds(30)));
    const auto log = m_daemon->Log();
    EXPECT_EQ(1u, CountOf(log, "started again in 1 s")) << log;
    EXPECT_EQ(1u, CountOf(log, "started again in 2 s")) << log;
    EXPECT_EQ(3u, CountOf(log, "configured and running")) << log;
}

TEST_F(ProgramInDaemon, AReportedFailureIsRetriedWhileTunnelsLive) {
    Start();
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(0, 0, 250), kWrite, {3})));
    ASSERT_TRUE(Recorded("init", 2));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    EXPECT_TRUE(Recorded("write 4 42"));
}

TEST_F(ProgramInDaemon, ASilentProgramGetsItsTelegramsAfterThirtySecondsWithOneWarning) {
    Start(R"(, "init": "silent")");
    RawTunnel tunnel(m_port);
    for (std::uint8_t value = 1; value <= 3; ++value)
        ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {value})));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(0x2E, tunnel.Receive().at(0)) << "confirmed all the same";
    EXPECT_THAT(m_directory.Read("record"), Not(HasSubstr("write")))
        << "delivered before the program reported";
    ASSERT_TRUE(Recorded("write 4 03", 1, seconds(40)));
    EXPECT_EQ("init\nwrite 4 01\nwrite 4 02\nwrite 4 03\n", m_directory.Read("record"));
    EXPECT_EQ(1u, CountOf(m_daemon->Log(), "WARN ")) << m_daemon->Log();
}

TEST_F(ProgramInDaemon, SighupStartsTheProgramAnewWithTheNewConfiguration) {
    Start();
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running"));
    auto changed = TestConfiguration(R"(, "more": "settings")");
    const std::string old = "\"31/7/255\"";
    changed.replace(changed.find(old), old.size(), "\"30/0/1\"");
    m_directory.Write("knxstackd.json", changed);
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running", seconds(10), 2));
    EXPECT_EQ("init\nexit\ndelete\ninit\n", m_directory.Read("record"));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {1})));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(30, 0, 1), kWrite, {2})));
    EXPECT_TRUE(Recorded("write 4 02"));
    EXPECT_THAT(m_directory.Read("record"), Not(HasSubstr("write 4 01")));
}

TEST_F(ProgramInDaemon, SighupWithTheSameObjectsKeepsTelegramsThatWait) {
    Start(R"(, "init": "silent")");
    ASSERT_TRUE(Recorded("init")) << "there is a program to stop";
    RawTunnel tunnel(m_port);
    for (std::uint8_t value = 1; value <= 3; ++value)
        ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {value})));
    m_directory.Write("knxstackd.json", TestConfiguration());
    m_daemon->Signal(SIGHUP);
    EXPECT_TRUE(Recorded("write 4 03"));
    EXPECT_EQ("init\nexit\ndelete\ninit\nwrite 4 01\nwrite 4 02\nwrite 4 03\n", m_directory.Read("record"));
}

TEST_F(ProgramInDaemon, SighupWithOtherObjectsSaysHowManyTelegramsItDrops) {
    Start(R"(, "init": "silent")");
    ASSERT_TRUE(Recorded("init")) << "there is a program to stop";
    RawTunnel tunnel(m_port);
    for (std::uint8_t value = 1; value <= 3; ++value)
        ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {value})));
    auto changed = TestConfiguration();
    const std::string old = "\"31/7/255\"";
    m_directory.Write("knxstackd.json", changed.replace(changed.find(old), old.size(), "\"30/0/1\""));
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running"));
    EXPECT_THAT(m_daemon->Log(),
                HasSubstr("3 waiting telegrams were dropped: the group objects have changed"));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(30, 0, 1), kWrite, {4})));
    EXPECT_TRUE(Recorded("write 4 04"));
    EXPECT_EQ("init\nexit\ndelete\ninit\nwrite 4 04\n", m_directory.Read("record"));
}

TEST_F(ProgramInDaemon, SighupWithAnUnusableConfigurationChangesNothing) {
    Start();
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running"));
    m_directory.Write("knxstackd.json", "{ \"device\": }");
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(m_daemon->WaitForLog("the former configuration stays in force"));
    EXPECT_THAT(m_daemon->Log(), HasSubstr("knxstackd.json: 1:13: "));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    EXPECT_TRUE(Recorded("write 4 42"));
    EXPECT_EQ(0u, CountOf(m_directory.Read("record"), "exit"));
}

TEST_F(ProgramInDaemon, SighupWithAProjectThatIsRefusedChangesNothing) {
    Start();
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running"));
    m_directory.Write("project.json", R"({"version": 2, "device": "house", "dataPoints": []})");
    m_directory.Write("knxstackd.json", TestConfiguration("", R"(, "project": "project.json")"));
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(m_daemon->WaitForLog("the former configuration stays in force"));
    EXPECT_THAT(m_daemon->Log(), HasSubstr("project.json: /version: 2 is a version"));
    EXPECT_EQ(0u, CountOf(m_directory.Read("record"), "exit"));
}

TEST_F(ProgramInDaemon, SighupSaysWhatNeedsARestart) {
    Start();
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running"));
    auto changed = TestConfiguration();
    const std::string old = "\"1.1.252\"";
    m_directory.Write("knxstackd.json", changed.replace(changed.find(old), old.size(), "\"1.1.253\""));
    m_daemon->Signal(SIGHUP);
    EXPECT_TRUE(m_daemon->WaitForLog("/server has changed; that takes effect at the next start"));
}

TEST_F(ProgramInDaemon, AProgramThatDoesNotEndIsLeftBehindWithinTwelveSeconds) {
    Start(R"(, "exit": "hang")");
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running"));
    m_daemon->Signal(SIGTERM);
    ASSERT_TRUE(Recorded("exit"));
    EXPECT_TRUE(tunnel.IsAlive()) << "a hanging program does not stop the bus";
    const auto status = m_daemon->WaitForEnd(seconds(12));
    EXPECT_EQ(1, status);
    EXPECT_TRUE(tunnel.WasDisconnected(seconds(1)));
    EXPECT_THAT(m_daemon->Log(), HasSubstr("has not ended within 10 s"));
}

TEST_F(ProgramInDaemon, AProgramThatHangsInACallbackIsLeftBehindToo) {
    Start();
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(0, 0, 250), kWrite, {2})));
    EXPECT_EQ(0x2E, tunnel.Receive().at(0));
    ASSERT_TRUE(Recorded("write 250 02"));
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(1, m_daemon->WaitForEnd(seconds(12)));
    EXPECT_TRUE(tunnel.WasDisconnected(seconds(1)));
}

TEST_F(ProgramInDaemon, AProgramThatThrowsFromExitEndsLikeAnyOther) {
    Start(R"(, "exit": "throw")");
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running"));
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(0, m_daemon->WaitForEnd(seconds(6)));
    EXPECT_THAT(m_daemon->Log(), HasSubstr("threw from Exit: Exit does not want to"));
    EXPECT_EQ("init\nexit\ndelete\n", m_directory.Read("record"));
}

TEST_F(ProgramInDaemon, ItCanBeTerminatedInThePauseBeforeARetry) {
    Start(R"(, "init": "fail")");
    ASSERT_TRUE(m_daemon->WaitForLog("started again in 2 s"));
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(0, m_daemon->WaitForEnd(seconds(6)));
}

TEST_F(ProgramInDaemon, ItFindsTheDeviceStackInItsEnvironmentAndWorksInTheDirectoryOfTheFile) {
    Start("", {"--device-stack-socket", "/run/elsewhere.sock"});
    ASSERT_TRUE(Recorded("init"));
    const auto process = std::filesystem::path("/proc") / std::to_string(m_daemon->Pid());
    EXPECT_EQ(std::filesystem::canonical(m_directory.Path()), std::filesystem::read_symlink(process / "cwd"));
    EXPECT_TRUE(Recorded("DEVICESTACK_SOCKET=/run/elsewhere.sock"));
}

TEST_F(ProgramInDaemon, TheServiceManagerIsToldWhenItIsReady) {
    const auto path = m_directory / "notify";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.copy(address.sun_path, sizeof address.sun_path - 1), sizeof address.sun_path);
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_EQ(0, ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address));
    const timeval patience{10, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    Start("", {}, {"NOTIFY_SOCKET=" + path});
    char message[64] = {};
    ASSERT_LT(0, ::recv(socket, message, sizeof message - 1, 0));
    EXPECT_STREQ("READY=1", message);
    m_daemon->Signal(SIGTERM);
    char end[64] = {};
    ASSERT_LT(0, ::recv(socket, end, sizeof end - 1, 0));
    EXPECT_STREQ("STOPPING=1", end);
    ::close(socket);
}

TEST_F(ProgramInDaemon, TheLogGoesToAFileTooAndHasALevel) {
    m_daemon.emplace(m_directory, TestConfiguration("", R"(, "log": {"file": "host.log"})"),
                     std::vector<std::string>{"--log-level", "warn"});
    ASSERT_TRUE(Recorded("init"));
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(0, m_daemon->WaitForEnd(seconds(6)));
    EXPECT_EQ("", m_daemon->Log()) << "nothing to warn of";
    m_daemon.emplace(m_directory, TestConfiguration("", R"(, "log": {"file": "host.log"})"));
    m_daemon->Port();
    EXPECT_THAT(m_directory.Read("host.log"), HasSubstr("INFO  KnxStack.Host - ready"));
}

} // namespace
} // namespace KnxStackHost
