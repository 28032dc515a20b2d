// What the init thread does between its start and the final state.
#include "ParameterNames.h"
#include "ProgramTest.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

class NtpPolicyTest : public ProgramTest {
protected:
    void StartWithSetting(const std::string& value) {
        hub.settings = {{"ImplicitNtpDisableOnClientMode", value}};
        Create();
        ASSERT_EQ(Init(), StartupState::InProgress);
        ASSERT_TRUE(InitThreadFinished());
    }
};

TEST_F(NtpPolicyTest, WithoutTheSetting_NtpIsLeftAlone) {
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_THAT(recorder.LinesWith("NTP"), testing::IsEmpty());
    EXPECT_THAT(recorder.LinesWith("SetConfiguration"), testing::IsEmpty());
}

TEST_F(NtpPolicyTest, True_OutsideTheClientMode_EnablesNtp) {
    StartWithSetting("true");
    const auto lines = recorder.LinesOf("worker 1");
    ASSERT_GE(lines.size(), 8u);
    ExpectTranscript({lines.begin(), lines.begin() + 8}, R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator configuration interface object
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
        hub GetApplicationProgramSettings()
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Implicit NTP disable on client mode is active.
        client SetConfiguration(Ntp=true)
        INFO KnxStack.DscKnxAppPrg | operator()(): Enable NTP.
    )");
}

class OtherNtpSetting : public NtpPolicyTest, public testing::WithParamInterface<const char*> {};

TEST_P(OtherNtpSetting, LeavesNtpAlone) {
    StartWithSetting(GetParam());
    EXPECT_THAT(recorder.LinesWith("NTP"),
                testing::ElementsAre(
                    "DEBUG KnxStack.DscKnxAppPrg | operator()(): Implicit NTP disable on client mode "
                    "is NOT active."));
    EXPECT_THAT(recorder.LinesWith("SetConfiguration"), testing::IsEmpty());
}
INSTANTIATE_TEST_SUITE_P(NtpPolicyTest, OtherNtpSetting, testing::Values("True", "false", "1", "true ", ""),
                         TestSupport::NamesInOrder({"UpperCase", "False", "One", "TrailingSpace", "Empty"}));

using InitThreadTest = ProgramTest;

TEST_F(InitThreadTest, UnansweredAnnouncement_IsLogged) {
    stack.faults.Refuse("Command");
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_EQ(recorder.Count("ERROR KnxStack.DscKnxAppPrg | Emit event failed: configurationLoaded"), 1u);
}

class StatusRequestTest : public ProgramTest {
protected:
    StatusRequestTest() {
        plugins["A"].interfaceObjectId = 50001;
        propertyService.Add(50001).Add(201);
        plugins["A"].bindings = {{.co = 12, .id = 1002, .dpt = {1, 0, 1, 1}},
                                 {.co = 13, .id = 1003, .dpt = {8, 0, 5, 10}}};
        RegisterPlugins({"A"});
    }

    std::vector<std::string> RequestsOfAStart() {
        Create();
        EXPECT_EQ(Init(), StartupState::InProgress);
        EXPECT_TRUE(InitThreadFinished());
        return recorder.LinesWith("GetValueRequest");
    }
};

TEST_F(StatusRequestTest, ObjectsWithoutCommunication_AreNotRequested) {
    service.objects[12] = TestSupport::FakeGroupObject(1, false);
    service.objects[13] = TestSupport::FakeGroupObject(8, false);
    EXPECT_THAT(RequestsOfAStart(), testing::IsEmpty());
    EXPECT_THAT(recorder.LinesWith("ERROR"), testing::IsEmpty());
}

TEST_F(StatusRequestTest, ObjectsThatDoNotExist_AreNotRequested) {
    EXPECT_THAT(RequestsOfAStart(), testing::IsEmpty());
    EXPECT_THAT(recorder.LinesWith("ERROR"), testing::IsEmpty());
}

TEST_F(StatusRequestTest, OnlyTheStateObject_IsRequestedAlone) {
    service.objects[13] = TestSupport::FakeGroupObject(8);
    EXPECT_THAT(RequestsOfAStart(), testing::ElementsAre("client GetValueRequest(1003, 1)"));
}

TEST_F(StatusRequestTest, OnlyTheReadyObject_IsRequestedAlone) {
    service.objects[12] = TestSupport::FakeGroupObject(1);
    EXPECT_THAT(RequestsOfAStart(), testing::ElementsAre("client GetValueRequest(1002, 1)"));
}

TEST_F(StatusRequestTest, RefusedRequests_AreLoggedWithTheClientsWords) {
    service.objects[12] = TestSupport::FakeGroupObject(1);
    service.objects[13] = TestSupport::FakeGroupObject(8);
    stack.faults.Refuse("GetValueRequest");
    EXPECT_THAT(RequestsOfAStart(), testing::SizeIs(2));
    EXPECT_THAT(recorder.LinesWith("ERROR"),
                testing::ElementsAre(
                    "ERROR KnxStack.DscKnxAppPrg | WriteState(): Get ready data point value failed. Error "
                    "= refused by the test",
                    "ERROR KnxStack.DscKnxAppPrg | WriteState(): Get state data point value failed. Error "
                    "= refused by the test"));
}

TEST_F(InitThreadTest, Pauses_LastOneSecondEach) {
    // Never less, and not much more, which a busy machine may need another try to show.
    RegisterPlugins({"A"});
    bool soon = false;
    for (int round = 0; round != 10 && !soon; ++round) {
        recorder.Clear();
        Create();
        ASSERT_EQ(Init(), StartupState::InProgress);
        ASSERT_TRUE(InitThreadFinished());
        const auto first =
            recorder.Between("DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.",
                             "hub GetApplicationProgramSettings()");
        const auto second =
            recorder.Between(R"(client Command({"command":"EmitEvent","eventType":"configurationLoaded"}))",
                             "plugin A GetCOFromID(1002, writing)");
        EXPECT_GE(first, std::chrono::seconds(1));
        EXPECT_GE(second, std::chrono::seconds(1));
        soon = std::max(first, second) < std::chrono::milliseconds(1500);
        EXPECT_TRUE(Exit());
        Delete();
    }
    EXPECT_TRUE(soon);
}

void IgnoreSignal(int) {}

TEST_F(InitThreadTest, Pauses_SurviveSignals) {
    struct sigaction action {};
    action.sa_handler = IgnoreSignal; // without SA_RESTART: every waiting system call is cut short
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    std::atomic<bool> done = false;
    std::thread disturber([&] {
        while (!done) {
            for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
                syscall(SYS_tgkill, getpid(), std::stoi(task.path().filename()), SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    const auto start = std::chrono::steady_clock::now();
    Create();
    EXPECT_EQ(Init(), StartupState::InProgress);
    EXPECT_TRUE(InitThreadFinished());
    const auto elapsed = std::chrono::steady_clock::now() - start;
    done = true;
    disturber.join();
    EXPECT_GE(elapsed, std::chrono::seconds(2)); // before the questions, and before the final state
}

} // namespace
