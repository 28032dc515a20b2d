// Device restarts after a download.
#include "ProgramTest.h"

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

TEST_F(RestartTest, DuringAStart_EndsItFirst) {
    RegisterPlugins({"A"});
    CreateAndInit();
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ExpectRecord("worker 1", "DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.");
    ASSERT_TRUE(InitThreadFinished(2));
    EXPECT_EQ(recorder.Count("hub OnApplicationProgramStartupStateChanged(1)"), 1u);
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

} // namespace
