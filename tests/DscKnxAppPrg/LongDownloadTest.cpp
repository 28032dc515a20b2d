// Downloads that meet a stop, a restart or the end of the program.
#include "DownloadTest.h"

#include <chrono>
#include <filesystem>
#include <future>
#include <iterator>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr const char* kInterrupted =
    "ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.";
constexpr const char* kFinalReport = "hub OnApplicationProgramStartupStateChanged(1)";

/// A download handler that announces the change and then hangs.
class LongDownload : public DownloadTest {
protected:
    LongDownload() {
        plugins.Download("DownloadA").announcements = 1;
        plugins.Download("DownloadA").creates = true;
        RegisterDownloadHandlers({"DownloadA"});
    }

    /// A start that nobody waits for has said its last word before its thread is gone; what the thread holds
    /// of the logging would count as leaked if the process ended in between.
    void TearDown() override {
        DownloadTest::TearDown();
        const auto end = Clock::now() + seconds(10);
        while (program == nullptr && Threads() > m_threads && Clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }

    static std::ptrdiff_t Threads() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    }

    /// Comes back while the restart's download handler hangs in `operation`. The record then is empty.
    void RestartUpTo(const char* operation) {
        Start();
        gate = plugins.Download("DownloadA").faults.Block(operation);
        ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
        ASSERT_TRUE(gate->WaitForArrival());
        recorder.Clear();
    }

    /// The start gets its 5 seconds and no more.
    void ExitWhileHanging() {
        const auto start = Clock::now();
        EXPECT_TRUE(Exit());
        const auto elapsed = Clock::now() - start;
        EXPECT_GE(elapsed, seconds(5));
        EXPECT_LT(elapsed, seconds(8));
    }

    std::shared_ptr<TestSupport::Gate> gate;

private:
    const std::ptrdiff_t m_threads = Threads();
};

constexpr std::string_view kExitWithoutTheStart = R"(
    DEBUG KnxStack.DscKnxAppPrg | Exit(): starting...
    DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
    ERROR KnxStack.DscKnxAppPrg | StopInitThread(): Thread join timeout. Interrupting thread...
    DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): duration: # ms
    DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
    plugin A DeleteHandler()
    library A unloaded
    DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): starting...
    service RegisterGroupValueUser(null)
    DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): end
    DEBUG KnxStack.DscKnxAppPrg | Disconnect(): starting...
    client is being destroyed
    client destroyed
    DEBUG KnxStack.DscKnxAppPrg | Disconnect(): duration: # ms
    DEBUG KnxStack.DscKnxAppPrg | Disconnect(): end.
    DEBUG KnxStack.DscKnxAppPrg | Exit(): end.
)";

TEST_F(LongDownload, Exit_InterruptsTheStartAndTheHandlersAreUnloadedByIt) {
    RestartUpTo("CreateFileWithKnxData");
    ExitWhileHanging();
    ExpectRecord("host", kExitWithoutTheStart);
    gate->Open();
    EXPECT_TRUE(recorder.WaitFor(kInterrupted));
    Delete();
    ExpectRecord("worker 2", R"(
        download DownloadA DeleteHandler()
        library DownloadA unloaded
        DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 0
        ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
    )");
}

TEST_F(LongDownload, Exit_DeleteWaitsForTheHandler) {
    RestartUpTo("CreateFileWithKnxData");
    ExitWhileHanging();
    recorder.Clear();
    auto end = std::async(std::launch::async, [this] {
        recorder.NameThisThread("deleter");
        Delete();
    });
    ASSERT_TRUE(recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ..."));
    gate->Open();
    end.get();
    EXPECT_EQ(recorder.Count(kInterrupted), 1u);
    ExpectRecord("deleter", "DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ...");
}

TEST_F(LongDownload, Exit_DeleteLeavesTheObjectToAHandlerThatDoesNotEnd) {
    static KnxStack::IApplicationProgram* s_left = nullptr; // still known, so not a leak of the test
    RestartUpTo("CreateFileWithKnxData");
    ExitWhileHanging();
    recorder.Clear();
    s_left = program;
    Delete();
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ...
        ERROR KnxStack.DscKnxAppPrg | deleteApplicationProgram(): A worker thread does not end, the object is left in memory.
    )");
    gate->Open();
    EXPECT_TRUE(recorder.WaitFor(kInterrupted));
    EXPECT_NE(s_left, nullptr);
}

TEST_F(LongDownload, Exit_HandlerThatThrowsAtLast_IsLoggedAndTheStartEnds) {
    RestartUpTo("CreateFileWithKnxData");
    plugins.Download("DownloadA").faults.Throw("CreateFileWithKnxData", "too late");
    ExitWhileHanging();
    gate->Open();
    EXPECT_TRUE(recorder.WaitFor(kInterrupted));
    Delete();
    EXPECT_EQ(recorder.Count(kFinalReport), 0u);
}

TEST_F(LongDownload, Exit_WhileAHandlerIsMade_AsksForNoFileAfterwards) {
    RestartUpTo("Initialize");
    ExitWhileHanging();
    gate->Open();
    EXPECT_TRUE(recorder.WaitFor(kInterrupted));
    Delete();
    ExpectRecord("worker 2", R"(
        download DownloadA DeleteHandler()
        library DownloadA unloaded
        ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
    )");
}

TEST_F(LongDownload, Exit_InTime_EndsTheStartWithoutAFinalState) {
    RestartUpTo("CreateFileWithKnxData");
    auto exit = std::async(std::launch::async, [this] { return Exit(); });
    ASSERT_TRUE(recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting..."));
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // the stop is on its way
    gate->Open();
    EXPECT_TRUE(exit.get());
    ExpectRecord("worker 2", R"(
        download DownloadA DeleteHandler()
        library DownloadA unloaded
        DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 0
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )");
}

TEST_F(LongDownload, Exit_InThePauseBeforeIt_LetsTheDownloadEnd) {
    Start();
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ASSERT_TRUE(recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | operator()(): Waiting 1 second before "
                                 "executing download handler to finish writing config."));
    EXPECT_TRUE(Exit());
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
        download DownloadA announces
        client Command({"command":"EmitEvent","eventType":"configurationChangeBegin"})
        client Command({"command":"EmitEvent","eventType":"etsConfigChanged"})
        download DownloadA DeleteHandler()
        library DownloadA unloaded
    )",
                   R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 0
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )");
}

TEST_F(LongDownload, Restart_StartsAfreshBesideTheLateHandler) {
    RestartUpTo("CreateFileWithKnxData");
    plugins.Download("DownloadA").faults.Mend("CreateFileWithKnxData");
    plugins.Download("DownloadA").announcements = 0;
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    gate->Open();
    EXPECT_TRUE(recorder.WaitFor(kInterrupted));
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_EQ(recorder.Count(
                  "download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, raised, {1, 3})"),
              1u); // the late handler's announcement stands
    EXPECT_EQ(recorder.Count(kFinalReport), 0u);
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    EXPECT_TRUE(recorder.WaitFor(kFinalReport));
}

TEST_F(LongDownload, Project_BeforeTheHandlerHasEnded_FinishesTheChangeAndTheStart) {
    RestartUpTo("CreateFileWithKnxData");
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ASSERT_TRUE(recorder.WaitFor("client GetValueRequest(1003, 1)"));
    gate->Open();
    ASSERT_TRUE(InitThreadFinished());
    ExpectRecord("worker 3", std::string(R"(
        client Command({"command":"EmitEvent","eventType":"configurationChangeEnd"})
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        client Command({"command":"GetProcessView","cached":true}, 5 s)
        WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Failed to parse GetProcessView response: "response" is missing
    )")
                                 .append(kFinalState));
    ExpectRecord("worker 2", R"(
        download DownloadA DeleteHandler()
        library DownloadA unloaded
        DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 0
        DEBUG KnxStack.DscKnxAppPrg | operator()(): ETS Configuration Changed Raised not set, so change uas.
        DEBUG KnxStack.DscKnxAppPrg | operator()(): DoFinalStartupState with state: 1
        hub OnApplicationProgramStartupStateChanged(1)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 1
        client Command({"command":"EmitEvent","eventType":"configurationLoaded"})
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1002 Urn  for writing
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 1 and DPT 1.1
        client GetValueRequest(1002, 1)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1003 Urn  for writing
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 3 and DPT 5.10
        client GetValueRequest(1003, 1)
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )");
}

} // namespace
