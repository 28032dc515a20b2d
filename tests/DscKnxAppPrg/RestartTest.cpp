// Device restarts after a download.
#include "ProgramTest.h"

#include <chrono>
#include <future>

namespace {

using RestartTest = ProgramTest;

constexpr const char* kConfigurationLoaded =
    R"(client Command({"command":"EmitEvent","eventType":"configurationLoaded"}))";

TEST_F(RestartTest, BeforeInit_Fails) {
    Create();
    recorder.Clear();
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::Failed);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | OnDeviceRestart(): starting...
        ERROR KnxStack.DscKnxAppPrg | OnDeviceRestart(): IApiHub is NULL!
    )");
}

TEST_F(RestartTest, AfterExit_Fails) {
    CreateAndInit();
    Exit();
    recorder.Clear();
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::Failed);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | OnDeviceRestart(): starting...
        ERROR KnxStack.DscKnxAppPrg | OnDeviceRestart(): IApiHub is NULL!
    )");
}

TEST_F(RestartTest, AfterAStart_OnTheHostsThread) {
    RegisterPlugins({"A"});
    Start();
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | OnDeviceRestart(): starting...
        hub OnApplicationProgramStartupStateChanged(2)
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): end
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): started a new thread for updating enabled objects.
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): end.
        DEBUG KnxStack.DscKnxAppPrg | OnDeviceRestart(): end.
    )");
}

TEST_F(RestartTest, AfterAStart_TellsTheHubAndAnnouncesTheConfiguration) {
    hub.restartPending = true;
    RegisterPlugins({"A"});
    Start();
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_EQ(recorder.Count("hub OnApplicationProgramRestarted(1, 0)"), 1u);
    EXPECT_TRUE(recorder.InOrder("plugin A GetUseUrns()", "hub OnApplicationProgramRestarted(1, 0)"));
    EXPECT_TRUE(recorder.InOrder("hub OnApplicationProgramRestarted(1, 0)",
                                 "hub OnApplicationProgramStartupStateChanged(1)"));
    EXPECT_TRUE(recorder.InOrder("hub OnApplicationProgramStartupStateChanged(1)", kConfigurationLoaded));
    EXPECT_EQ(recorder.Count("DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 0"), 1u);
    EXPECT_THAT(recorder.LinesWith("GetConfiguration"), testing::IsEmpty());
}

TEST_F(RestartTest, AfterAStart_OnTheInitThread) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .eventing = true},
                             {.co = 12, .id = 1002, .dpt = {1, 0, 1, 1}},
                             {.co = 13, .id = 1003, .dpt = {8, 0, 5, 10}}};
    service.objects[5] = TestSupport::FakeGroupObject(1);
    service.objects[12] = TestSupport::FakeGroupObject(1);
    service.objects[13] = TestSupport::FakeGroupObject(8);
    RegisterPlugins({"A"});
    Start();
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    ExpectRecord("worker 2", R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator configuration interface object
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
        hub GetApplicationProgramSettings()
        plugin A GetUseUrns()
        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: false
        plugin A GetGroupAddressTranslationRange()
        hub OnApplicationProgramRestarted(1, 0)
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Waiting 1 second before executing download handler to finish writing config.
        DEBUG KnxStack.DscKnxAppPrg | operator()(): execute download handler.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 0
        hub GetDownloadService()
        DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 1
        DEBUG KnxStack.DscKnxAppPrg | operator()(): DoFinalStartupState with state: 1
        hub OnApplicationProgramStartupStateChanged(1)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 1
        client Command({"command":"EmitEvent","eventType":"configurationLoaded"})
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1002 Urn  for writing
        plugin A GetCOFromID(1002, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 12 and DPT 1.1
        client GetValueRequest(1002, 1)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1003 Urn  for writing
        plugin A GetCOFromID(1003, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 13 and DPT 5.10
        client GetValueRequest(1003, 1)
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )");
    EXPECT_TRUE(stack.ValueChanged(500, "", "1").get());
    EXPECT_THAT(recorder.LinesWith("service "),
                testing::ElementsAre("service SendGroupValue(5, 01/1, 0) -> true"));
}

TEST_F(RestartTest, FollowedByExitAndInit_LeavesNothingOfItBehind) {
    RegisterPlugins({"A"});
    CreateAndInit();
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ASSERT_TRUE(Exit());
    recorder.Clear();
    hub.restartPending = true;
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    ExpectRecord("worker 3", R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator configuration interface object
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
        hub GetApplicationProgramSettings()
        plugin A GetUseUrns()
        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: false
        plugin A GetGroupAddressTranslationRange()
        DEBUG KnxStack.DscKnxAppPrg | operator()(): do not start download handler.
        DEBUG KnxStack.DscKnxAppPrg | operator()(): DoFinalStartupState with state: 1
        hub OnApplicationProgramStartupStateChanged(1)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 0
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )");
}

TEST_F(RestartTest, DuringAStart_EndsItFirst) {
    RegisterPlugins({"A"});
    CreateAndInit();
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ExpectRecord("worker 1", "DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.");
    ASSERT_TRUE(InitThreadFinished(2));
    EXPECT_EQ(recorder.Count("hub OnApplicationProgramStartupStateChanged(1)"), 1u);
}

TEST_F(RestartTest, AfterARestart_IsARestartLikeTheFirst) {
    RegisterPlugins({"A"});
    Start();
    std::vector<std::string> first;
    for (int round = 1; round != 3; ++round) {
        recorder.Clear();
        ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
        ASSERT_TRUE(InitThreadFinished());
        std::vector<std::string> lines = recorder.LinesOf("host");
        const auto worker = recorder.LinesOf("worker " + std::to_string(round + 1));
        EXPECT_THAT(worker, testing::Contains("hub OnApplicationProgramRestarted(1, 0)"));
        lines.insert(lines.end(), worker.begin(), worker.end());
        if (round == 1)
            first = lines;
        EXPECT_EQ(lines, first);
    }
}

TEST_F(RestartTest, OverAStartThatReachesItsEndMeanwhile_IsInProgressAgain) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .eventing = true}};
    service.objects[5] = TestSupport::FakeGroupObject(1);
    RegisterPlugins({"A"});
    CreateAndInit();
    ASSERT_TRUE(recorder.WaitFor(kConfigurationLoaded));
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ASSERT_EQ(recorder.Count("plugin A GetCOFromID(1003, writing)"), 1u); // the end was reached
    EXPECT_TRUE(stack.ValueChanged(500, "", "1").get());
    EXPECT_THAT(recorder.LinesWith("service Send"), testing::IsEmpty());
}

TEST_F(RestartTest, WithoutAClient_ConnectsAndReadsTheDeviceConfiguration) {
    stack.faults.Refuse("CreateDeviceStackClient");
    RegisterPlugins({"A"});
    Create();
    ASSERT_EQ(Init(), StartupState::Failed);
    stack.faults.Mend("CreateDeviceStackClient");
    recorder.Clear();
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | OnDeviceRestart(): starting...
        hub OnApplicationProgramStartupStateChanged(2)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): starting...
        DEBUG KnxStack.DscKnxAppPrg | Connect(): calling CreateDeviceStackClient...
        client created
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end CreateDeviceStackClient.
        client SetClientMode(1)
        client InstallEventHandler(handler)
        client InstallResponseHandler(handler)
        client InstallFieldHandler(handler)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): calling RegisterApplication DscKnxAppPrg...
        client RegisterApplication(DscKnxAppPrg, field, KNX)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end RegisterApplication DscKnxAppPrg.
        client SetValueFormat(Native)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end.
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        library A loaded
        plugin A CreateHandler(A.json)
        plugin A Initialize()
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): end
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): started a new thread for updating enabled objects.
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): end.
        DEBUG KnxStack.DscKnxAppPrg | OnDeviceRestart(): end.
    )");
}

TEST_F(RestartTest, WithoutAClientThatCanBeMade_Fails) {
    stack.faults.Refuse("CreateDeviceStackClient");
    Create();
    ASSERT_EQ(Init(), StartupState::Failed);
    recorder.Clear();
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::Failed);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | OnDeviceRestart(): starting...
        hub OnApplicationProgramStartupStateChanged(2)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): starting...
        DEBUG KnxStack.DscKnxAppPrg | Connect(): calling CreateDeviceStackClient...
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end CreateDeviceStackClient.
        ERROR KnxStack.DscKnxAppPrg | Init(): Connect failed.
    )");
}

TEST_F(RestartTest, WithARefusedRegistration_FailsAndKeepsTheClient) {
    stack.faults.Refuse("CreateDeviceStackClient");
    Create();
    ASSERT_EQ(Init(), StartupState::Failed);
    stack.faults.Mend("CreateDeviceStackClient");
    stack.faults.Refuse("RegisterApplication");
    recorder.Clear();
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::Failed);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | OnDeviceRestart(): starting...
        hub OnApplicationProgramStartupStateChanged(2)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): starting...
        DEBUG KnxStack.DscKnxAppPrg | Connect(): calling CreateDeviceStackClient...
        client created
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end CreateDeviceStackClient.
        client SetClientMode(1)
        client InstallEventHandler(handler)
        client InstallResponseHandler(handler)
        client InstallFieldHandler(handler)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): calling RegisterApplication DscKnxAppPrg...
        client RegisterApplication(DscKnxAppPrg, field, KNX)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end RegisterApplication DscKnxAppPrg.
        client SetValueFormat(Native)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end.
        ERROR KnxStack.DscKnxAppPrg | Init(): Connect failed.
    )");
}

TEST_F(RestartTest, OverAStartThatHangs_WaitsFiveSecondsForIt) {
    RegisterPlugins({"A"});
    const auto gate = plugins["A"].faults.Block("GetUseUrns");
    CreateAndInit();
    ASSERT_TRUE(gate->WaitForArrival());
    plugins["A"].faults.Mend("GetUseUrns");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::seconds(5));
    EXPECT_LT(elapsed, std::chrono::seconds(8));
    gate->Open();
}

/// Switch 500 was sent once, so that no later change of it needs a plug-in.
class LeavingTheFinalState : public ProgramTest {
protected:
    LeavingTheFinalState() {
        plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .eventing = true}};
        service.objects[5] = TestSupport::FakeGroupObject(1);
        RegisterPlugins({"A"});
    }

    /// `call` hangs in `operation`, and a change meanwhile is not sent.
    template <typename Call>
    void ExpectNoChangeDuring(Call call, TestSupport::Faults& faults, const char* operation) {
        Start();
        ASSERT_TRUE(stack.ValueChanged(500, "", "0").get());
        ASSERT_EQ(recorder.Count("service SendGroupValue(5, 00/1, 0) -> true"), 1u);
        const auto gate = faults.Block(operation);
        const auto running = std::async(std::launch::async, call);
        ASSERT_TRUE(gate->WaitForArrival());
        EXPECT_TRUE(stack.ValueChanged(500, "", "1").get());
        gate->Open();
        running.wait();
        EXPECT_EQ(recorder.Count("service SendGroupValue(5, 01/1, 0) -> true"), 0u);
    }
};

TEST_F(LeavingTheFinalState, Init_DoesItWithItsReport) {
    ExpectNoChangeDuring([this] { EXPECT_EQ(Init(), StartupState::Failed); }, hub.faults,
                         "IsDeviceRestartPending"); // the init thread is still there
}

TEST_F(LeavingTheFinalState, OnDeviceRestart_DoesItBeforeAnythingElse) {
    ExpectNoChangeDuring([this] { EXPECT_EQ(program->OnDeviceRestart(), StartupState::InProgress); },
                         hub.faults, "OnApplicationProgramStartupStateChanged");
}

TEST_F(LeavingTheFinalState, Exit_DoesItBeforeThePluginsGo) {
    ExpectNoChangeDuring([this] { EXPECT_TRUE(Exit()); }, plugins["A"].faults, "DeleteHandler");
}

} // namespace
