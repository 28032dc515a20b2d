// The end of an application program, at rest and in the middle of a start.
#include "ProgramTest.h"

#include <chrono>
#include <future>
#include <thread>

namespace {

using ExitTest = ProgramTest;
using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

TEST_F(ExitTest, AtRest_ReleasesPluginsThenTheBusThenTheClient) {
    RegisterPlugins({"A", "B"});
    Start();
    EXPECT_TRUE(Exit());
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | Exit(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
        plugin A DeleteHandler()
        library A unloaded
        plugin B DeleteHandler()
        library B unloaded
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): starting...
        service RegisterGroupValueUser(null)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): end
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): starting...
        client is being destroyed
        client destroyed
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): end.
        DEBUG KnxStack.DscKnxAppPrg | Exit(): end.
    )");
}

TEST_F(ExitTest, BeforeInit_HasNothingToRelease) {
    Create();
    recorder.Clear();
    EXPECT_TRUE(Exit());
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | Exit(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): starting...
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): end
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): starting...
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): end.
        DEBUG KnxStack.DscKnxAppPrg | Exit(): end.
    )");
}

TEST_F(ExitTest, Twice_LeavesTheBusAgainAndNothingElse) {
    RegisterPlugins({"A"});
    Start();
    ASSERT_TRUE(Exit());
    recorder.Clear();
    EXPECT_TRUE(Exit());
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | Exit(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): starting...
        service RegisterGroupValueUser(null)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): end
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): starting...
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): end.
        DEBUG KnxStack.DscKnxAppPrg | Exit(): end.
    )");
}

TEST_F(ExitTest, WithoutExit_DeleteReleasesPluginsThenTheClientAndLeavesTheBusAlone) {
    RegisterPlugins({"A", "B"});
    Start();
    ProgramLibrary::Get().destroy(program);
    Forget();
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ...
        plugin A DeleteHandler()
        library A unloaded
        plugin B DeleteHandler()
        library B unloaded
        client is being destroyed
        client destroyed
    )");
}

TEST_F(ExitTest, InTheFirstPause_EndsTheStartAfterIt) {
    RegisterPlugins({"A"});
    CreateAndInit();
    EXPECT_TRUE(Exit());
    ExpectRecord("worker 1", "DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.");
    EXPECT_THAT(recorder.LinesWith("hub "), testing::IsEmpty());
}

TEST_F(ExitTest, WithoutExit_DeleteEndsTheStartAndTheClient) {
    CreateAndInit();
    ProgramLibrary::Get().destroy(program);
    EXPECT_EQ(recorder.Count("DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished."), 1u);
    EXPECT_EQ(recorder.Count("client destroyed"), 1u);
    EXPECT_EQ(recorder.Count("service RegisterGroupValueUser(null)"), 0u);
    Forget();
}

/// A start that hangs inside something that the program waits for.
class ExitInALongStep : public ProgramTest {
protected:
    ExitInALongStep() { RegisterPlugins({"A"}); }

    /// Exits while `gate` is shut: the start gets its 5 seconds and no more.
    void ExitWhileHanging(TestSupport::Gate& gate) {
        ASSERT_TRUE(gate.WaitForArrival());
        recorder.Clear();
        const auto start = Clock::now();
        EXPECT_TRUE(Exit());
        const auto elapsed = Clock::now() - start;
        EXPECT_GE(elapsed, seconds(5));
        EXPECT_LT(elapsed, seconds(8));
    }

    void ExpectInterruption() {
        EXPECT_TRUE(recorder.WaitFor(
            "ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted."));
    }
};

TEST_F(ExitInALongStep, InAPlugin_LeavesThePluginToTheThreadThatIsInside) {
    const auto gate = plugins["A"].faults.Block("GetUseUrns");
    CreateAndInit();
    ExitWhileHanging(*gate);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | Exit(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        ERROR KnxStack.DscKnxAppPrg | StopInitThread(): Thread join timeout. Interrupting thread...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): starting...
        service RegisterGroupValueUser(null)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): end
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): starting...
        client is being destroyed
        client destroyed
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): end.
        DEBUG KnxStack.DscKnxAppPrg | Exit(): end.
    )");
    gate->Open();
    ExpectInterruption();
    Delete();
    ExpectRecord("worker 1", R"(
        plugin A DeleteHandler()
        library A unloaded
        ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
    )");
}

TEST_F(ExitInALongStep, InAPlugin_DeleteLeavesTheObjectInMemory) {
    static KnxStack::IApplicationProgram* s_left = nullptr; // still known, so not a leak of the test
    const auto gate = plugins["A"].faults.Block("GetUseUrns");
    CreateAndInit();
    ExitWhileHanging(*gate);
    recorder.Clear();
    s_left = program;
    Delete();
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ...
        ERROR KnxStack.DscKnxAppPrg | deleteApplicationProgram(): A worker thread does not end, the object is left in memory.
    )");
    gate->Open();
    ExpectInterruption();
    EXPECT_NE(s_left, nullptr);
}

TEST_F(ExitInALongStep, InAPluginThatThrowsAtLast_TheExceptionOutlivesTheLibrary) {
    plugins["A"].faults.Throw("GetUseUrns", "too late");
    const auto gate = plugins["A"].faults.Block("GetUseUrns");
    CreateAndInit();
    ExitWhileHanging(*gate);
    gate->Open();
    EXPECT_TRUE(recorder.WaitFor(
        "ERROR KnxStack.DscKnxAppPrg | operator()(): Thread ended by an exception: too late"));
    Delete();
    ExpectRecord("worker 1", R"(
        plugin A DeleteHandler()
        library A unloaded
        ERROR KnxStack.DscKnxAppPrg | operator()(): Thread ended by an exception: too late
    )");
}

TEST_F(ExitInALongStep, InTheQuestionForTheSettings_TouchesNoClientAfterwards) {
    CreateAndInit();
    hub.settings = {{"ImplicitNtpDisableOnClientMode", "true"}};
    const auto gate = hub.faults.Block("GetApplicationProgramSettings");
    ExitWhileHanging(*gate);
    gate->Open();
    ExpectInterruption();
    Delete();
    ExpectRecord("worker 1", R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Implicit NTP disable on client mode is active.
        ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
    )");
}

TEST_F(ExitInALongStep, InTheReportOfTheFinalState_AnnouncesNothingAfterwards) {
    CreateAndInit();
    const auto gate = hub.faults.Block("OnApplicationProgramStartupStateChanged");
    ExitWhileHanging(*gate);
    gate->Open();
    ExpectInterruption();
    Delete();
    ExpectRecord("worker 1", R"(
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
        ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
    )");
}

TEST_F(ExitInALongStep, BeforeTheReportOfTheFinalState_ReportsNothing) {
    // Nothing between this question and the report watches the stop but the interruption.
    plugins["A"].useUrns = true;
    const auto gate = stack.faults.Block("GetUrn");
    CreateAndInit();
    ASSERT_TRUE(gate->WaitForArrival());
    recorder.Clear();
    const auto opener = std::async(std::launch::async, [&] {
        recorder.WaitFor(
            "ERROR KnxStack.DscKnxAppPrg | StopInitThread(): Thread join timeout. Interrupting thread...");
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        gate->Open(); // Disconnect waits for the client call, which holds the client mutex
    });
    EXPECT_TRUE(Exit());
    ExpectInterruption();
    Delete();
    EXPECT_THAT(recorder.LinesWith("hub "), testing::IsEmpty());
}

TEST_F(ExitInALongStep, InTheLookupsAfterTheFinalState_FindsTheClientGone) {
    const auto gate = plugins["A"].faults.Block("GetCOFromID");
    CreateAndInit();
    ExitWhileHanging(*gate);
    gate->Open();
    Delete();
    ExpectRecord("worker 1", R"(
        plugin A DeleteHandler()
        library A unloaded
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1002
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): client not connected.
        ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
    )");
}

TEST_F(ExitInALongStep, InTheLookupOfAnObjectThatIsThere_RequestsNothingOfTheClientThatIsGone) {
    plugins["A"].bindings = {{.co = 12, .id = 1002, .dpt = {1, 0, 1, 1}}};
    service.objects[12] = TestSupport::FakeGroupObject(1);
    const auto gate = plugins["A"].faults.Block("GetCOFromID");
    CreateAndInit();
    ExitWhileHanging(*gate);
    gate->Open();
    Delete();
    ExpectRecord("worker 1", R"(
        plugin A DeleteHandler()
        library A unloaded
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 12 and DPT 1.1
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): client not connected.
        ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
    )");
}

TEST_F(ExitInALongStep, InTheSecondPause_TheStartEndsWithIt) {
    CreateAndInit();
    ASSERT_TRUE(
        recorder.WaitFor(R"(client Command({"command":"EmitEvent","eventType":"configurationLoaded"}))"));
    EXPECT_TRUE(Exit());
    EXPECT_EQ(recorder.Count("DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished."), 1u);
    EXPECT_EQ(recorder.LinesWith("ERROR KnxStack.DscKnxAppPrg | StopInitThread()").size(), 0u);
}

TEST_F(ExitInALongStep, RestartInAPlugin_StartsAfreshBesideTheLateThread) {
    const auto gate = plugins["A"].faults.Block("GetUseUrns");
    CreateAndInit();
    ASSERT_TRUE(gate->WaitForArrival());
    plugins["A"].faults.Mend("GetUseUrns");
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    EXPECT_EQ(
        recorder.Count(
            "ERROR KnxStack.DscKnxAppPrg | StopInitThread(): Thread join timeout. Interrupting thread..."),
        1u);
    gate->Open();
    ExpectInterruption();
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_EQ(recorder.Count("hub OnApplicationProgramStartupStateChanged(1)"), 1u);
}

} // namespace
