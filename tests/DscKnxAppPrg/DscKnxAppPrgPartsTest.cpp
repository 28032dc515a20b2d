// Operations of the application program that no start reaches by itself.
#include "DscKnxAppPrgThreads.h"
#include "KnxHandlerTest.h"

#include <boost/thread/exceptions.hpp>

#include <chrono>
#include <thread>

namespace {

using StartupState = KnxStack::IApplicationProgram::StartupState;

class PartsTest : public KnxHandlerTest {
protected:
    /// The final state of the current start.
    void Report(StartupState state) {
        const std::uint64_t start = (program.*Reach(PrivateMembers::CurrentStart()))();
        (program.*Reach(PrivateMembers::DoFinalStartupState()))(state, start);
    }
};

TEST_F(PartsTest, Events_AreOpenUnderTheirNameAndNoneIsSignalled) {
    TavEvents& events = program.*Reach(PrivateMembers::Events());
    EXPECT_TRUE(events.IsOpen());
    EXPECT_EQ(events.GetName(), "DscKnxAppPrgEvents");
    TavEvents::Id id = 0;
    EXPECT_FALSE(events.Wait(0, id));
}

TEST_F(PartsTest, WithoutClient_RequestsFailAndSay) {
    EXPECT_FALSE((program.*Reach(PrivateMembers::WriteState()))());
    EXPECT_FALSE((program.*Reach(PrivateMembers::IsCommunicationEnabled()))(1002, OpMode::Writing));
    (program.*Reach(PrivateMembers::ReadDeviceConfiguration()))();
    (program.*Reach(PrivateMembers::SendEmitEvent()))("configurationLoaded");
    Reach(PrivateMembers::RestartDevice())(program.*Reach(PrivateMembers::Client()));
    Reach(PrivateMembers::SetNtpState())(program.*Reach(PrivateMembers::Client()), true);
    ExpectRecord("host", R"(
        ERROR KnxStack.DscKnxAppPrg | WriteState(): client not connected.
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): client not connected.
        ERROR KnxStack.DscKnxAppPrg | No device stack client.
    )");
}

TEST_F(PartsTest, FinalState_OtherThanRunning_IsOnlyReported) {
    ASSERT_EQ(program.Init(hub), StartupState::InProgress);
    recorder.Clear();
    Report(StartupState::Failed);
    Report(StartupState::InProgress);
    ExpectRecord("host", R"(
        hub OnApplicationProgramStartupStateChanged(0)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 0
        hub OnApplicationProgramStartupStateChanged(2)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 2
    )");
    program.Exit();
}

TEST_F(PartsTest, FinalState_WithoutHub_IsReportedToNobody) {
    Report(StartupState::Running);
    ExpectRecord("host", "");
}

TEST_F(PartsTest, FinalState_OfAFormerStart_IsReportedToNobody) {
    ASSERT_EQ(program.Init(hub), StartupState::InProgress);
    const std::uint64_t former = (program.*Reach(PrivateMembers::CurrentStart()))();
    ASSERT_EQ(program.OnDeviceRestart(), StartupState::InProgress);
    recorder.Clear();
    (program.*Reach(PrivateMembers::DoFinalStartupState()))(StartupState::Running, former);
    ExpectRecord("host", "");
    program.Exit();
}

TEST_F(PartsTest, State_FollowsTheLife) {
    const auto& state = program.*Reach(PrivateMembers::CurrentState());
    EXPECT_EQ(state, StartupState::Failed);
    ASSERT_EQ(program.Init(hub), StartupState::InProgress);
    EXPECT_EQ(state, StartupState::InProgress);
    ASSERT_TRUE(program.WaitForWorkers(30000));
    EXPECT_EQ(state, StartupState::Running);
    ASSERT_EQ(program.OnDeviceRestart(), StartupState::InProgress);
    EXPECT_EQ(state, StartupState::InProgress);
    ASSERT_TRUE(program.WaitForWorkers(30000));
    EXPECT_EQ(state, StartupState::Running);
    EXPECT_TRUE(program.Exit());
    EXPECT_EQ(state, StartupState::Failed);
}

TEST_F(PartsTest, Init_AfterAStartThatHasEnded_StillFindsItsThread) {
    ASSERT_EQ(program.Init(hub), StartupState::InProgress);
    ASSERT_TRUE(program.WaitForWorkers(30000));
    recorder.Clear();
    EXPECT_EQ(program.Init(hub), StartupState::Failed);
    EXPECT_THAT(
        recorder.LinesWith("ERROR"),
        testing::ElementsAre("ERROR KnxStack.DscKnxAppPrg | Cannot create Thread. Thread already running.",
                             "ERROR KnxStack.DscKnxAppPrg | Init(): StartInitThread() failed.",
                             "ERROR KnxStack.DscKnxAppPrg | Init(): got error."));
    program.Exit();
}

TEST_F(PartsTest, FinalState_WithADeviceRestartToCome_IsInProgressInside) {
    hub.restartPending = true;
    ASSERT_EQ(program.Init(hub), StartupState::InProgress);
    ASSERT_TRUE(program.WaitForWorkers(30000));
    auto& state = program.*Reach(PrivateMembers::CurrentState());
    EXPECT_EQ(state, StartupState::InProgress);
    state = StartupState::Running;
    Report(StartupState::Running);
    EXPECT_EQ(state, StartupState::InProgress);
    program.Exit();
}

TEST_F(PartsTest, RefusedStatusRequests_DoNotFailTheWhole) {
    plugins["A"].bindings = {{.co = 12, .id = 1002, .dpt = {1, 0, 1, 1}},
                             {.co = 13, .id = 1003, .dpt = {8, 0, 5, 10}}};
    service.objects[12] = TestSupport::FakeGroupObject(1);
    service.objects[13] = TestSupport::FakeGroupObject(8);
    SetUpWith({"A"});
    stack.faults.Refuse("GetValueRequest");
    EXPECT_TRUE((program.*Reach(PrivateMembers::WriteState()))());
    EXPECT_THAT(recorder.LinesWith("GetValueRequest"), testing::SizeIs(2));
    EXPECT_THAT(recorder.LinesWith("ERROR"), testing::SizeIs(2));
    service.objects.clear();
    EXPECT_TRUE((program.*Reach(PrivateMembers::WriteState()))());
}

TEST_F(PartsTest, CallbacksBeforeConnect_SetNoNull) {
    EXPECT_FALSE((program.*Reach(PrivateMembers::OnReadValue()))(nullptr, 77, "lamp"));
    EXPECT_FALSE((program.*Reach(PrivateMembers::OnWriteValue()))(nullptr, 77, "1", "lamp"));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 77 Urn lamp for reading
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg | OnReadValue(): m_knxHandler.ReadValue failed, so set NULL value. Object ID = 77
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 77 Urn lamp for writing
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg | OnWriteValue(): m_knxHandler.WriteValue failed, so set NULL value. Object ID = 77 Urn = lamp
    )");
}

TEST_F(PartsTest, RestartDataPointBeforeConnect_IsTaken) {
    EXPECT_TRUE(handler.WriteValue(1004, "", "1", true));
    ExpectRecord("host", "");
}

TEST_F(PartsTest, Event_CarriesNoBlanks) {
    SetUpWith({});
    (program.*Reach(PrivateMembers::SendEmitEvent()))("etsConfigChanged");
    ExpectRecord("host", R"(client Command({"command":"EmitEvent","eventType":"etsConfigChanged"}))");
}

TEST_F(PartsTest, NtpState_GoesToTheClientAsText) {
    SetUpWith({});
    Reach(PrivateMembers::SetNtpState())(program.*Reach(PrivateMembers::Client()), true);
    Reach(PrivateMembers::SetNtpState())(program.*Reach(PrivateMembers::Client()), false);
    ExpectRecord("host", R"(
        client SetConfiguration(Ntp=true)
        client SetConfiguration(Ntp=false)
    )");
}

TEST_F(PartsTest, DeviceTypes_AreFoundLetterForLetter) {
    const auto find = Reach(PrivateMembers::FindDeviceType());
    EXPECT_EQ(find("QTRMNV01"), 1u);
    EXPECT_EQ(find("PLXWNV01"), 2u);
    EXPECT_EQ(find("HBRQNV02"), 3u);
    EXPECT_EQ(find("ZAXPNVIP"), 4u);
    EXPECT_EQ(find("VELDNV03"), 5u);
    EXPECT_EQ(find("MURTNV03"), 6u);
    EXPECT_EQ(find(""), 0u);
    EXPECT_EQ(find("veldnv03"), 0u);
    EXPECT_EQ(find("VELDNV030"), 0u);
    EXPECT_EQ(find("VELDNV0"), 0u);
    EXPECT_EQ(find(std::string(1000, 'x')), 0u);
}

TEST_F(PartsTest, DeviceConfiguration_SetsTheDeviceType) {
    const auto deviceType = [this] { return (program.*Reach(PrivateMembers::DeviceTypeNumber())).load(); };
    EXPECT_EQ(deviceType(), 0u);
    stack.configuration = Configuration("VELDNV03");
    SetUpWith({});
    EXPECT_EQ(deviceType(), 5u);
    stack.configuration = R"({"ipc":{}})"; // what is absent stays
    (program.*Reach(PrivateMembers::ReadDeviceConfiguration()))();
    EXPECT_EQ(deviceType(), 5u);
    stack.configuration = Configuration("unknown");
    (program.*Reach(PrivateMembers::ReadDeviceConfiguration()))();
    EXPECT_EQ(deviceType(), 0u);
}

TEST_F(PartsTest, DeviceConfiguration_KeepsWhatALaterOneDoesNotSay) {
    const auto read = [this](const char* configuration) {
        stack.configuration = configuration;
        (program.*Reach(PrivateMembers::ReadDeviceConfiguration()))();
    };
    const auto expect = [this](std::uint32_t type, const std::string& first, const std::string& second) {
        EXPECT_EQ(program.*Reach(PrivateMembers::DeviceTypeNumber()), type);
        EXPECT_EQ(program.*Reach(PrivateMembers::StackConfigPath()), first);
        EXPECT_EQ(program.*Reach(PrivateMembers::UserDataPath()), second);
    };
    const std::string first = files / "stack";
    const std::string second = files / "user";
    expect(0, "", "");
    SetUpWith({});
    expect(1, first, second);
    read(R"({"ipc":{}})");
    expect(1, first, second);
    read(R"({"ipc":{"DeviceStackConfigPath":7,"UserDataPath":null}})"); // other kinds count as absent
    expect(1, first, second);
    read(R"({"ipc":{"UserDataPath":"/other"}})");
    expect(1, first, "/other");
    read("{");
    expect(1, first, "/other");
    read(R"({"other":{"DeviceId":"VELDNV03","UserDataPath":"/nowhere"}})");
    expect(1, first, "/other");
    stack.faults.Refuse("GetConfiguration");
    read(R"({"ipc":{"DeviceId":"VELDNV03","UserDataPath":"/nowhere"}})");
    expect(1, first, "/other");
}

TEST_F(PartsTest, DeviceConfiguration_IsKeptAfterALoadingError) {
    plugins["A"].faults.Refuse("Initialize");
    stack.configuration = Configuration("VELDNV03");
    RegisterPlugins({"A"});
    (program.*Reach(PrivateMembers::Connect()))();
    (program.*Reach(PrivateMembers::ReadDeviceConfiguration()))();
    ASSERT_THAT(recorder.LinesWith("Error while loading"), testing::SizeIs(1));
    EXPECT_EQ(program.*Reach(PrivateMembers::DeviceTypeNumber()), 5u);
    EXPECT_EQ(program.*Reach(PrivateMembers::StackConfigPath()), files / "stack");
    EXPECT_EQ(program.*Reach(PrivateMembers::UserDataPath()), files / "user");
}

TEST_F(PartsTest, InitCaller_WithoutControl_EndsAtOnce) {
    DscKnxAppPrg::InitCaller(program, hub, nullptr)();
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
        ERROR KnxStack.DscKnxAppPrg | operator()(): Thread control not exists.
    )");
}

TEST_F(PartsTest, StopInitThread_WithoutThread_Succeeds) {
    EXPECT_TRUE((program.*Reach(PrivateMembers::StopInitThread()))(5000));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
    )");
}

TEST_F(PartsTest, StopInitThread_InTheFirstPauseWithoutPatience_InterruptsThePause) {
    // At once, not at the end of the pause. On a busy machine that may take a second try.
    bool atOnce = false;
    for (int round = 0; round != 10 && !atOnce; ++round) {
        ASSERT_EQ(program.Init(hub), StartupState::InProgress);
        ASSERT_TRUE(recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started."));
        recorder.Clear();
        EXPECT_FALSE((program.*Reach(PrivateMembers::StopInitThread()))(0));
        atOnce = program.WaitForWorkers(300);
        EXPECT_TRUE(program.WaitForWorkers(10000));
    }
    EXPECT_TRUE(atOnce);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        ERROR KnxStack.DscKnxAppPrg | StopInitThread(): Thread join timeout. Interrupting thread...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
    )");
    EXPECT_EQ(recorder.Count("ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted."),
              1u);
    program.Exit();
}

/// Stops the init thread from inside itself.
class SelfStoppingHub : public TestSupport::FakeHub {
public:
    SelfStoppingHub(TestSupport::Recorder& log, DscKnxAppPrg& program) : FakeHub(log), m_program(program) {}
    void OnApplicationProgramStartupStateChanged(StartupState state) override {
        if (state == StartupState::Running)
            (m_program.*Reach(PrivateMembers::StopInitThread()))(5000);
    }

private:
    DscKnxAppPrg& m_program;
};

TEST_F(PartsTest, StopInitThread_OnTheThreadItself_IsAnErrorOfTheThreadLibrary) {
    SelfStoppingHub self(recorder, program);
    self.propertyService = &propertyService;
    ASSERT_EQ(program.Init(self), StartupState::InProgress);
    ASSERT_TRUE(program.WaitForWorkers(10000));
    EXPECT_THAT(
        recorder.LinesWith("Thread ended by an exception: "),
        testing::ElementsAre(testing::StartsWith("ERROR KnxStack.DscKnxAppPrg | operator()(): Thread ended "
                                                 "by an exception: boost thread: trying joining itself")));
    program.Exit();
}

class ResponseQueueTest : public PartsTest {
protected:
    bool StartQueue() { return (program.*Reach(PrivateMembers::StartResponseQueueThread()))(); }
    bool StopQueue(unsigned timeoutMs) {
        return (program.*Reach(PrivateMembers::StopResponseQueueThread()))(timeoutMs);
    }
};

TEST_F(ResponseQueueTest, StartAndStop) {
    EXPECT_TRUE(StartQueue());
    ASSERT_TRUE(
        recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | operator()(): Response Queue thread started."));
    EXPECT_TRUE(StopQueue(5000));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | StartResponseQueueThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StartResponseQueueThread(): started a new thread for read responses.
        DEBUG KnxStack.DscKnxAppPrg | StartResponseQueueThread(): end.
        DEBUG KnxStack.DscKnxAppPrg | StopResponseQueueThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopResponseQueueThread(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | StopResponseQueueThread(): end.
    )");
    ExpectRecord("worker 1", R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Response Queue thread started.
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Response Queue thread finished.
    )");
}

TEST_F(ResponseQueueTest, Stop_WithoutThread_Succeeds) {
    EXPECT_TRUE(StopQueue(5000));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | StopResponseQueueThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopResponseQueueThread(): end.
    )");
}

TEST_F(ResponseQueueTest, Stop_IsSeenAfterTheWaitOfAQuarterOfASecond) {
    // A stop in the middle of a wait comes back when the wait is over. A thread that is not waiting yet sees
    // the stop by itself, and a busy machine may be late: each round leaves it more time to get there.
    using std::chrono::milliseconds;
    bool waited = false;
    for (int round = 0; round != 50 && !waited; ++round) {
        EXPECT_TRUE(StartQueue());
        ASSERT_TRUE(recorder.WaitFor(
            "DEBUG KnxStack.DscKnxAppPrg | operator()(): Response Queue thread started.", round + 1));
        std::this_thread::sleep_for(milliseconds(round));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(StopQueue(5000));
        const auto elapsed = std::chrono::steady_clock::now() - start;
        waited = elapsed > milliseconds(150) && elapsed < milliseconds(400);
    }
    EXPECT_TRUE(waited);
}

TEST_F(ResponseQueueTest, Event_EndsTheThread) {
    EXPECT_TRUE(StartQueue());
    (program.*Reach(PrivateMembers::Event())).Set();
    EXPECT_TRUE(program.WaitForWorkers(5000));
    EXPECT_TRUE(StopQueue(5000));
}

TEST_F(ResponseQueueTest, Event_StaysSignalledUntilItIsReset) {
    // Each thread that starts meanwhile ends by it.
    (program.*Reach(PrivateMembers::Event())).Set();
    for (int round = 0; round != 2; ++round) {
        EXPECT_TRUE(StartQueue());
        EXPECT_TRUE(program.WaitForWorkers(30000));
        EXPECT_TRUE(StopQueue(5000));
    }
    EXPECT_EQ(recorder.Count("DEBUG KnxStack.DscKnxAppPrg | operator()(): Response Queue thread finished."),
              2u);
}

TEST_F(ResponseQueueTest, StartAgain_StartsAnotherThreadWithoutAsking) {
    EXPECT_TRUE(StartQueue());
    EXPECT_TRUE(StartQueue());
    EXPECT_TRUE(
        recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | operator()(): Response Queue thread started.", 2));
    EXPECT_TRUE(StopQueue(5000));
    EXPECT_FALSE(program.WaitForWorkers(0)); // the first one has nobody left who stops it
    (program.*Reach(PrivateMembers::Event())).Set();
    EXPECT_TRUE(program.WaitForWorkers(30000));
    EXPECT_THAT(recorder.LinesWith("ERROR"), testing::IsEmpty());
}

TEST_F(ResponseQueueTest, Stop_WithoutPatience_InterruptsTheThread) {
    // A thread that is not waiting just then sees the stop by itself: each round leaves it more time to get
    // there.
    bool interrupted = false;
    for (int round = 0; round != 50 && !interrupted; ++round) {
        recorder.Clear();
        EXPECT_TRUE(StartQueue());
        ASSERT_TRUE(
            recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | operator()(): Response Queue thread started."));
        std::this_thread::sleep_for(std::chrono::milliseconds(round));
        StopQueue(0);
        EXPECT_TRUE(program.WaitForWorkers(5000));
        interrupted = !recorder.LinesWith("interrupted").empty();
    }
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | StartResponseQueueThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StartResponseQueueThread(): started a new thread for read responses.
        DEBUG KnxStack.DscKnxAppPrg | StartResponseQueueThread(): end.
        DEBUG KnxStack.DscKnxAppPrg | StopResponseQueueThread(): starting...
        ERROR KnxStack.DscKnxAppPrg | StopResponseQueueThread(): Thread join timeout. Interrupting thread...
        DEBUG KnxStack.DscKnxAppPrg | StopResponseQueueThread(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | StopResponseQueueThread(): end.
    )");
    EXPECT_EQ(recorder.Count(
                  "ERROR KnxStack.DscKnxAppPrg | operator()(): Response Queue thread has been interrupted."),
              1u);
}

TEST_F(ResponseQueueTest, NoLifecycleOperation_StartsIt) {
    ASSERT_EQ(program.Init(hub), StartupState::InProgress);
    ASSERT_EQ(program.OnDeviceRestart(), StartupState::InProgress);
    EXPECT_TRUE(program.Exit());
    EXPECT_THAT(recorder.LinesWith("Response"),
                testing::Contains(testing::HasSubstr("InstallResponseHandler")));
    EXPECT_THAT(recorder.LinesWith("Response Queue"), testing::IsEmpty());
}

} // namespace
