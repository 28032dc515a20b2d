// Configuration changes that meet a stop, a restart or the end of the program.
#include "DownloadTest.h"

#include <chrono>
#include <future>
#include <thread>

namespace {

using std::chrono::seconds;

constexpr const char* kConfigurationLoaded =
    R"(client Command({"command":"EmitEvent","eventType":"configurationLoaded"}))";
constexpr const char* kFinalReport = "hub OnApplicationProgramStartupStateChanged(1)";

/// A change that was announced, with the start waiting for the project.
class EndOfAChange : public DownloadTest {
protected:
    EndOfAChange() {
        stack.responses[R"({"command":"GetProcessView","cached":true})"] =
            R"({"response":{"processView":{"datapoints":[]}}})";
        plugins.Download("DownloadA").announcements = 1;
        plugins.Download("DownloadA").creates = true;
        RegisterDownloadHandlers({"DownloadA"});
    }

    void Announce() {
        StartAndRestart();
        // The next download changes nothing.
        plugins.Download("DownloadA").announcements = 0;
        plugins.Download("DownloadA").creates = false;
        recorder.Clear();
    }

    /// Comes back while the thread that finishes the change hangs in its first command.
    std::shared_ptr<TestSupport::Gate> ChangeUpToItsFirstCommand() {
        auto gate = stack.faults.Block("Command");
        EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
        EXPECT_TRUE(gate->WaitForArrival());
        stack.faults.Mend("Command");
        return gate;
    }

    /// What the thread that finishes the change does before the final state.
    static constexpr std::string_view kRebuild = R"(
        client Command({"command":"EmitEvent","eventType":"configurationChangeEnd"})
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        client Command({"command":"GetProcessView","cached":true}, 5 s)
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 0 entries to ID-URN Map
    )";
    static constexpr std::string_view kReportAndAnnouncement = R"(
        hub OnApplicationProgramStartupStateChanged(1)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 1
        client Command({"command":"EmitEvent","eventType":"configurationLoaded"})
    )";
};

TEST_F(EndOfAChange, ThatMeetsARestart_DoesNotCountForIt) {
    Announce();
    const auto gate = ChangeUpToItsFirstCommand();
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    gate->Open();
    ASSERT_TRUE(InitThreadFinished());
    ExpectRecord("worker 3", kRebuild);
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
        download DownloadA DeleteHandler()
        library DownloadA unloaded
    )",
                   m_goesOn, "worker 4");
}

TEST_F(EndOfAChange, ThatMeetsARestartInItsPause_LeavesTheStateToIt) {
    Announce();
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ASSERT_TRUE(recorder.WaitFor(kConfigurationLoaded));
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_TRUE(Exit());
    Delete();
    ExpectRecord("worker 3", std::string(kRebuild).append(kReportAndAnnouncement));
    EXPECT_EQ(recorder.Count("client GetValueRequest(1002, 1)"), 1u);
}

TEST_F(EndOfAChange, ThatMeetsExitInItsPause_EndsWithoutTheClient) {
    Announce();
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ASSERT_TRUE(recorder.WaitFor(kConfigurationLoaded));
    EXPECT_TRUE(Exit());
    Delete(); // waits for the rest of the pause
    ExpectRecord("worker 3", std::string(kRebuild).append(kReportAndAnnouncement));
}

TEST_F(EndOfAChange, ThatMeetsExitInACommand_ReportsNothing) {
    Announce();
    const auto gate = ChangeUpToItsFirstCommand();
    auto exit = std::async(std::launch::async, [this] { return Exit(); });
    ASSERT_TRUE(recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | Disconnect(): starting..."));
    gate->Open(); // Disconnect waits for the command
    EXPECT_TRUE(exit.get());
    Delete();
    EXPECT_EQ(recorder.Count(kFinalReport), 0u);
    EXPECT_EQ(recorder.Count(kConfigurationLoaded), 0u);
}

TEST_F(EndOfAChange, InAPlugin_DeleteLeavesTheObjectInMemory) {
    static KnxStack::IApplicationProgram* s_left = nullptr; // still known, so not a leak of the test
    Announce();
    const auto gate = plugins["A"].faults.Block("GetCOFromID");
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ASSERT_TRUE(gate->WaitForArrival());
    EXPECT_TRUE(Exit());
    recorder.Clear();
    s_left = program;
    Delete();
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ...
        ERROR KnxStack.DscKnxAppPrg | deleteApplicationProgram(): A worker thread does not end, the object is left in memory.
    )");
    gate->Open();
    EXPECT_TRUE(
        recorder.WaitFor("ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): client not connected."));
    ExpectRecord("worker 3", R"(
        plugin A DeleteHandler()
        library A unloaded
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 1 and DPT 1.1
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): client not connected.
    )");
    EXPECT_NE(s_left, nullptr);
}

TEST_F(EndOfAChange, ThatBeginsWhileTheProgramIsDeletedWithoutExit_EndsBeforeIt) {
    Announce();
    const auto gate = plugins["A"].faults.Block("Reload");
    auto change = stack.ConfigurationChanged("Project", "");
    ASSERT_TRUE(gate->WaitForArrival());
    auto end = std::async(std::launch::async, [this] {
        recorder.NameThisThread("deleter");
        ProgramLibrary::Get().destroy(program);
    });
    ASSERT_TRUE(recorder.WaitFor("client is being destroyed"));
    gate->Open();
    end.get();
    EXPECT_TRUE(change.get());
    ExpectRecord("worker 3", R"(
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: No response received for GetProcessView
    )");
    Forget();
}

TEST_F(EndOfAChange, Exit_WhileThePluginsReload_LetsThemEnd) {
    Announce();
    const auto gate = plugins["A"].faults.Block("Reload");
    auto change = stack.ConfigurationChanged("Project", "");
    ASSERT_TRUE(gate->WaitForArrival());
    recorder.Clear();
    auto exit = std::async(std::launch::async, [this] { return Exit(); });
    ASSERT_TRUE(recorder.WaitFor("client is being destroyed"));
    EXPECT_EQ(recorder.Count("library A unloaded"), 0u);
    gate->Open();
    EXPECT_TRUE(change.get());
    EXPECT_TRUE(exit.get());
    Delete();
    ExpectRecord("client", R"(
        plugin A DeleteHandler()
        library A unloaded
    )");
    EXPECT_EQ(recorder.Count(kFinalReport), 0u);
}

TEST_F(EndOfAChange, ThatBeginsBetweenThePluginsAndTheClient_OfAnExit_ReportsNothing) {
    Announce();
    const auto gate = plugins["A"].faults.Block("DeleteHandler");
    auto exit = std::async(std::launch::async, [this] { return Exit(); });
    ASSERT_TRUE(gate->WaitForArrival());
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ASSERT_TRUE(recorder.WaitFor(
        "INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 0 entries to ID-URN Map"));
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // the next step
    gate->Open();
    EXPECT_TRUE(exit.get());
    Delete();
    EXPECT_EQ(recorder.Count(kFinalReport), 0u);
}

TEST_F(EndOfAChange, Restart_WhileThePluginsReload_HasAnEndOfItsOwn) {
    Announce();
    const auto gate = plugins["A"].faults.Block("Reload");
    auto change = stack.ConfigurationChanged("Project", "");
    ASSERT_TRUE(gate->WaitForArrival());
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    gate->Open();
    EXPECT_TRUE(change.get());
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_EQ(recorder.Count(kFinalReport), 1u);
    EXPECT_EQ(recorder.Count(kConfigurationLoaded), 1u);
}

TEST_F(EndOfAChange, ThatFailsInTheClient_IsLoggedAndTheHubIsTold) {
    Announce();
    stack.faults.Throw("Command", "link is broken");
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ASSERT_TRUE(recorder.WaitFor(
        "ERROR KnxStack.DscKnxAppPrg | operator()(): Thread ended by an exception: link is broken"));
    ExpectRecord("worker 3", R"(
        client Command({"command":"EmitEvent","eventType":"configurationChangeEnd"})
        hub OnApplicationProgramStartupStateChanged(0)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 0
        ERROR KnxStack.DscKnxAppPrg | operator()(): Thread ended by an exception: link is broken
    )");
}

TEST_F(EndOfAChange, InTheFirstPauseOfARestart_FinishesTheChangeAndTheStartGoesOn) {
    // The announcement is of the start before.
    Announce();
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_THAT(
        recorder.LinesWith("hub OnApplicationProgramStartupStateChanged"),
        testing::ElementsAre("hub OnApplicationProgramStartupStateChanged(2)", kFinalReport, kFinalReport));
    EXPECT_THAT(recorder.LinesWith("CreateFileWithKnxData"),
                testing::ElementsAre("download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, "
                                     "not raised, {1, 3})"));
}

} // namespace
