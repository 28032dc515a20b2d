// Starts that cannot begin or go wrong on the way.
#include "FailingThreads.h"
#include "ProgramTest.h"

namespace {

using StartFailureTest = ProgramTest;

TEST_F(StartFailureTest, Init_WithoutAClient_FailsAndDoesNothingElse) {
    stack.faults.Refuse("CreateDeviceStackClient");
    Create();
    EXPECT_EQ(Init(), StartupState::Failed);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | createApplicationProgram(): ...
        DEBUG KnxStack.DscKnxAppPrg | Init(): starting...
        hub OnApplicationProgramStartupStateChanged(2)
        hub IsDeviceRestartPending() -> false
        DEBUG KnxStack.DscKnxAppPrg | Init(): start up state is 1
        hub GetApplicationProgramSettings()
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = KNX
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = dscknxappprg
        DEBUG KnxStack.DscKnxAppPrg | Connect(): starting...
        DEBUG KnxStack.DscKnxAppPrg | Connect(): calling CreateDeviceStackClient...
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end CreateDeviceStackClient.
        ERROR KnxStack.DscKnxAppPrg | Init(): Connect failed.
    )");
}

TEST_F(StartFailureTest, Init_WithARefusedRegistration_FailsAndKeepsTheClient) {
    stack.faults.Refuse("RegisterApplication");
    Create();
    EXPECT_EQ(Init(), StartupState::Failed);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | createApplicationProgram(): ...
        DEBUG KnxStack.DscKnxAppPrg | Init(): starting...
        hub OnApplicationProgramStartupStateChanged(2)
        hub IsDeviceRestartPending() -> false
        DEBUG KnxStack.DscKnxAppPrg | Init(): start up state is 1
        hub GetApplicationProgramSettings()
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = KNX
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = dscknxappprg
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
    recorder.Clear();
    EXPECT_TRUE(Exit());
    EXPECT_EQ(recorder.Count("client destroyed"), 1u);
}

TEST_F(StartFailureTest, Restart_AfterARefusedRegistration_UsesTheClientThatIsThere) {
    stack.faults.Refuse("RegisterApplication");
    Create();
    ASSERT_EQ(Init(), StartupState::Failed);
    recorder.Clear();
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    EXPECT_THAT(recorder.LinesWith("Connect()"), testing::IsEmpty());
    EXPECT_THAT(recorder.LinesWith("GetConfiguration"), testing::IsEmpty());
}

TEST_F(StartFailureTest, Init_Again_FindsTheClientAndTheInitThread) {
    CreateAndInit();
    EXPECT_EQ(Init(), StartupState::Failed);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | Init(): starting...
        hub OnApplicationProgramStartupStateChanged(2)
        hub IsDeviceRestartPending() -> false
        DEBUG KnxStack.DscKnxAppPrg | Init(): start up state is 1
        hub GetApplicationProgramSettings()
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = KNX
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = dscknxappprg
        DEBUG KnxStack.DscKnxAppPrg | Connect(): starting...
        DEBUG KnxStack.DscKnxAppPrg | Connect(): allready connected.
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
        hub GetGroupValueService()
        hub GetApplicationProgramMemory()
        service RegisterGroupValueUser(user)
        hub GetPropertyService()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): end
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): starting...
        ERROR KnxStack.DscKnxAppPrg | Cannot create Thread. Thread already running.
        ERROR KnxStack.DscKnxAppPrg | Init(): StartInitThread() failed.
        INFO KnxStack.DscKnxAppPrg | Init(): Init succeeded.
        ERROR KnxStack.DscKnxAppPrg | Init(): got error.
        DEBUG KnxStack.DscKnxAppPrg | Init(): end.
    )");
}

TEST_F(StartFailureTest, Create_WhereTheSystemGivesNoThread_Throws) {
    {
        const FailingThreads noThreads;
        EXPECT_THROW(Create(), std::exception);
    }
    EXPECT_EQ(program, nullptr);
    ExpectRecord("host", "DEBUG KnxStack.DscKnxAppPrg | createApplicationProgram(): ...");
    CreateAndInit(); // nothing is left of the first one
}

TEST_F(StartFailureTest, Init_WhereTheSystemGivesNoThread_FailsByItsResult) {
    Create();
    {
        const FailingThreads noThreads(1); // one for the fake client
        EXPECT_EQ(Init(), StartupState::Failed);
    }
    const auto lines = recorder.LinesOf("host");
    ExpectTranscript({lines.end() - 6, lines.end()}, R"(
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): starting...
        ERROR KnxStack.DscKnxAppPrg | Cannot create Thread. Resource temporarily unavailable
        ERROR KnxStack.DscKnxAppPrg | Init(): StartInitThread() failed.
        INFO KnxStack.DscKnxAppPrg | Init(): Init succeeded.
        ERROR KnxStack.DscKnxAppPrg | Init(): got error.
        DEBUG KnxStack.DscKnxAppPrg | Init(): end.
    )");
    EXPECT_TRUE(Exit());
    Delete();
}

TEST_F(StartFailureTest, Restart_WhereTheSystemGivesNoThread_FailsByItsResult) {
    Start();
    {
        const FailingThreads noThreads;
        EXPECT_EQ(program->OnDeviceRestart(), StartupState::Failed);
    }
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | OnDeviceRestart(): starting...
        hub OnApplicationProgramStartupStateChanged(2)
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): end
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): starting...
        ERROR KnxStack.DscKnxAppPrg | Cannot create Thread. Resource temporarily unavailable
        ERROR KnxStack.DscKnxAppPrg | OnDeviceRestart(): got error.
        DEBUG KnxStack.DscKnxAppPrg | OnDeviceRestart(): end.
    )");
}

TEST_F(StartFailureTest, InitThread_ThatMeetsAThrowingPlugin_LogsItAndEnds) {
    plugins["A"].faults.Throw("GetUseUrns", "no configuration file");
    RegisterPlugins({"A"});
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(recorder.WaitFor(
        "ERROR KnxStack.DscKnxAppPrg | operator()(): Thread ended by an exception: no configuration file"));
    ExpectRecord("worker 1", R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator configuration interface object
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
        hub GetApplicationProgramSettings()
        plugin A GetUseUrns()
        hub OnApplicationProgramStartupStateChanged(0)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 0
        ERROR KnxStack.DscKnxAppPrg | operator()(): Thread ended by an exception: no configuration file
    )");
    EXPECT_TRUE(Exit());
    Delete();
}

TEST_F(StartFailureTest, InitThread_ThatMeetsAThrowingPluginOnceTheProgramRuns_ReportsNoFailure) {
    plugins["A"].faults.Throw("GetCOFromID", "no table");
    RegisterPlugins({"A"});
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(recorder.WaitFor(
        "ERROR KnxStack.DscKnxAppPrg | operator()(): Thread ended by an exception: no table"));
    EXPECT_EQ(recorder.Count("hub OnApplicationProgramStartupStateChanged(1)"), 1u);
    EXPECT_EQ(recorder.Count("hub OnApplicationProgramStartupStateChanged(0)"), 0u);
    EXPECT_TRUE(Exit());
    Delete();
}

/// A hub of a maker who throws anything at all.
class ThrowingHub : public TestSupport::FakeHub {
public:
    using FakeHub::FakeHub;
    void OnApplicationProgramStartupStateChanged(KnxStack::IApplicationProgram::StartupState state) override {
        FakeHub::OnApplicationProgramStartupStateChanged(state);
        if (state == KnxStack::IApplicationProgram::StartupState::Running)
            throw 42;
    }
};

TEST_F(StartFailureTest, InitThread_ThatMeetsAnUnknownException_LogsItAndEnds) {
    ThrowingHub throwing(recorder);
    throwing.propertyService = &propertyService;
    Create();
    EXPECT_EQ(program->Init(throwing), StartupState::InProgress);
    EXPECT_TRUE(recorder.WaitFor(
        "ERROR KnxStack.DscKnxAppPrg | operator()(): Thread ended by an unknown exception."));
    EXPECT_TRUE(Exit());
    Delete();
}

} // namespace
