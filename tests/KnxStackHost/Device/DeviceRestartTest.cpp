// A download has ended: the running daemon loads the device anew and tells its program.
#include "../DaemonProcess.h"
#include "../RawTunnel.h"

#include <gmock/gmock.h>

#include <csignal>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;
using testing::HasSubstr;
using testing::Not;

class DeviceRestart : public testing::Test {
protected:
    /// The test configuration with property 201, memory and data, and with a program that writes them down.
    static std::string Device(const std::string& property, const std::string& more = "") {
        auto text = TestConfiguration(R"(, "device": "record")" + more,
                                      R"(, "interfaceObjects": [{"type": 50001, "properties": [
                                          {"id": 201, "dataType": 17, "value": ")" +
                                          property + R"("}]}])");
        return Replaced(text, "\"settings\":", R"("memory": "memory", "data": "data", "settings":)");
    }

    static std::string Replaced(std::string text, const std::string& part, const std::string& by) {
        const auto found = text.find(part);
        EXPECT_NE(std::string::npos, found) << part;
        return text.replace(found, part.size(), by);
    }

    /// Object 4 at 30/0/1 instead of 31/7/255.
    static std::string Moved(const std::string& text) { return Replaced(text, "\"31/7/255\"", "\"30/0/1\""); }

    void Start(const std::string& more = "") {
        m_directory.Write("memory", "\x01");
        m_directory.Write("data", "\x02");
        m_daemon.emplace(m_directory, Device("40", more));
        m_tunnel.emplace(m_daemon->Port());
        ASSERT_TRUE(m_daemon->WaitForLog("configured and running"));
    }

    void Download(const std::string& configuration) {
        m_directory.Write("knxstackd.json", configuration);
        m_daemon->Signal(SIGUSR1);
    }

    bool Recorded(const std::string& line, std::size_t count = 1) const {
        return Eventually(
            [&] { return CountOf("\n" + m_directory.Read("record"), "\n" + line + "\n") >= count; },
            seconds(30));
    }

    TemporaryDirectory m_directory;
    std::optional<DaemonProcess> m_daemon;
    std::optional<RawTunnel> m_tunnel;
};

TEST_F(DeviceRestart, LoadsTheDeviceTellsTheProgramAndHoldsItsTelegramsUntilItRuns) {
    Start(R"(, "restart": "wait")");
    m_directory.Write("memory", "\x11\x12");
    m_directory.Write("data", "\x13");
    Download(Moved(Device("80", R"(, "restart": "wait")")));
    const std::string loaded = "device: pending yes, property 80, memory 1112, data 13";
    ASSERT_TRUE(Recorded(loaded));
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(31, 7, 255), kWrite, {1}))) << "nobody's now";
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(30, 0, 1), kWrite, {2})));
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(0, 0, 250), kWrite, {9})));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(0x2E, m_tunnel->Receive().at(0)) << "confirmed all the same";
    const std::string held =
        "init\ndevice: pending no, property 40, memory 01, data 02\nrestart\n" + loaded + "\n";
    EXPECT_EQ(held, m_directory.Read("record"));
    m_directory.Write("record.go", "");
    EXPECT_TRUE(Recorded("device: pending no, property 80, memory 1112, data 13"));
    EXPECT_EQ(held + "write 4 02\nwrite 250 09\ndevice: pending no, property 80, memory 1112, data 13\n",
              m_directory.Read("record"));
    EXPECT_TRUE(m_tunnel->IsAlive());
    EXPECT_THAT(m_daemon->Log(), HasSubstr("the new device is in force, with 5 group objects"));
    EXPECT_EQ(0u, CountOf(m_daemon->Log(), "ERROR") + CountOf(m_daemon->Log(), "WARN ")) << m_daemon->Log();
}

TEST_F(DeviceRestart, AProgramThatTakesLongGetsItsTelegramsAfterThirtySecondsWithOneWarning) {
    Start(R"(, "restart": "wait")");
    Download(Device("80", R"(, "restart": "wait")"));
    const std::string pending = "device: pending yes, property 80, memory 01, data 02";
    ASSERT_TRUE(Recorded(pending));
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(0, 0, 250), kWrite, {9})));
    EXPECT_EQ(0x2E, m_tunnel->Receive().at(0)) << "confirmed all the same";
    EXPECT_THAT(m_directory.Read("record"), Not(HasSubstr("write")))
        << "delivered before the program reported";
    ASSERT_TRUE(m_daemon->WaitForLog("has been starting for 30 s", seconds(60)));
    EXPECT_TRUE(Recorded(pending, 2)) << "still pending";
    EXPECT_EQ(1u, CountOf(m_daemon->Log(), "WARN ")) << m_daemon->Log();
    m_directory.Write("record.go", "");
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running", seconds(30), 2));
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(0, 0, 250), kWrite, {9})));
    EXPECT_TRUE(Recorded("device: pending no, property 80, memory 01, data 02"));
}

TEST_F(DeviceRestart, ARefusedConfigurationLeavesEverythingAsItIsWithOneError) {
    Start();
    std::size_t refusals = 0;
    for (const auto& refused :
         {std::string("{ \"device\": }"), Moved(Device("8000")),
          Replaced(Moved(Device("80")), "\"memory\": \"memory\"", "\"memory\": \"none\"")}) {
        Download(refused);
        ASSERT_TRUE(m_daemon->WaitForLog("the former configuration stays in force", seconds(30), ++refusals));
        EXPECT_EQ(refusals, CountOf(m_daemon->Log(), "ERROR")) << m_daemon->Log();
    }
    EXPECT_THAT(m_daemon->Log(), HasSubstr("knxstackd.json: 1:13: "));
    EXPECT_THAT(m_daemon->Log(), HasSubstr("/interfaceObjects/0/properties/0/value: has 2 bytes"));
    EXPECT_THAT(m_daemon->Log(), HasSubstr("/applicationProgram/memory: "));
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(0, 0, 250), kWrite, {9})));
    const std::string device = "device: pending no, property 40, memory 01, data 02";
    ASSERT_TRUE(Recorded(device, 2));
    EXPECT_EQ("init\n" + device + "\nwrite 4 42\nwrite 250 09\n" + device + "\n", m_directory.Read("record"));
    EXPECT_TRUE(m_tunnel->IsAlive());
}

TEST_F(DeviceRestart, DoesNotDependOnTheProjectThatTheDownloadIsToReplace) {
    Start();
    m_directory.Write("project.json", "{}");
    Download(Replaced(Device("80"), "{", R"({"project": "project.json",)"));
    EXPECT_TRUE(Recorded("device: pending yes, property 80, memory 01, data 02"));
}

TEST_F(DeviceRestart, KeepsOwnTelegramsFromTheTranslationRangeThatTheProjectHasNow) {
    Start();
    const auto sendOnObject1 = [this] { // which has the address of object 2
        ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(0, 0, 250), kWrite, {4})));
        EXPECT_EQ(0x2E, m_tunnel->Receive().at(0));
        EXPECT_EQ(0x29, m_tunnel->Receive().at(0)) << "what the program sends";
    };
    sendOnObject1();
    ASSERT_TRUE(Recorded("write 2 01"));

    m_directory.Write("project.json", R"({"version": 1, "device": "house", "dataPoints": [],
                                          "knx": {"translationRange": [2, 3]}})");
    Download(Replaced(Device("80"), "{", R"({"project": "project.json",)"));
    ASSERT_TRUE(Recorded("device: pending yes, property 80, memory 01, data 02"));
    sendOnObject1();
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(1, 2, 3), kWrite | 0)));
    ASSERT_TRUE(Recorded("write 2 00")) << "what comes from outside still gets there";
    EXPECT_EQ(1u, CountOf(m_directory.Read("record"), "write 2 01")) << m_directory.Read("record");
}

TEST_F(DeviceRestart, StaysPendingOverAProgramThatFails) {
    Start(R"(, "restart": "fail-once")");
    Download(Device("80", R"(, "restart": "fail-once")"));
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running", seconds(30), 3));
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(0, 0, 250), kWrite, {9})));
    ASSERT_TRUE(Recorded("write 250 09"));
    const std::string pending = "device: pending yes, property 80, memory 01, data 02\n";
    const std::string settled = "device: pending no, property 80, memory 01, data 02";
    ASSERT_TRUE(Recorded(settled));
    EXPECT_EQ("init\ndevice: pending no, property 40, memory 01, data 02\nrestart\n" + pending +
                  "exit\ndelete\ninit\n" + pending + "restart\n" + pending + "write 250 09\n" + settled +
                  "\n",
              m_directory.Read("record"));
}

TEST_F(DeviceRestart, LeavesSettingsAndLinksToOtherSignalsAndSaysSo) {
    Start();
    Download(Replaced(Replaced(Device("80"), R"("record": "record")", R"("other": "settings")"),
                      "\"1.1.252\"", "\"1.1.253\""));
    ASSERT_TRUE(Recorded("device: pending yes, property 80, memory 01, data 02"));
    EXPECT_TRUE(
        m_daemon->WaitForLog("/server has changed; that takes effect at the next start of knxstackd"));
    EXPECT_TRUE(
        m_daemon->WaitForLog("/applicationProgram/settings has changed; that takes effect with SIGHUP"));
    EXPECT_THAT(m_directory.Read("record"), Not(HasSubstr("exit")));
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(0, 0, 250), kWrite, {3})));
    EXPECT_TRUE(Recorded("init", 2))
        << "the next program has the former settings and so writes down its calls";
}

TEST_F(DeviceRestart, SighupLoadsTheDeviceTooForAProgramThatIsMadeAnew) {
    Start();
    m_directory.Write("memory", "\x11");
    m_directory.Write("knxstackd.json", Device("80"));
    m_daemon->Signal(SIGHUP);
    EXPECT_TRUE(Recorded("device: pending no, property 80, memory 11, data 02"));
    EXPECT_THAT(m_directory.Read("record"), Not(HasSubstr("restart")));
}

} // namespace
} // namespace KnxStackHost
