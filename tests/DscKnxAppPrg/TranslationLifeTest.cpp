// Group address translation over the life of an application program: its threads, its clients, its locks.
#include "TranslationTest.h"

#include <atomic>
#include <future>
#include <thread>

namespace {

using TestSupport::Bits;

TEST_F(TranslationTest, NeitherDirectionWantsTheClientMutex) {
    Start();
    const auto gate = stack.faults.Block("SetValue");
    auto hanging = std::async(std::launch::async, [this] { service.Write(5, Bits(1, 1)); });
    ASSERT_TRUE(gate->WaitForArrival()); // with the client mutex held
    auto telegram =
        std::async(std::launch::async, [this] { service.User()->OnGroupValueWrite(12, Bits(1, 1)); });
    auto message = stack.ApplicationEvent("DscKnxAppPrg", "?000c");
    EXPECT_EQ(telegram.wait_for(TestSupport::Recorder::kPatience), std::future_status::ready);
    EXPECT_EQ(message.wait_for(TestSupport::Recorder::kPatience), std::future_status::ready);
    EXPECT_EQ(recorder.Count(Sent("!000c0101")), 1u);
    EXPECT_EQ(recorder.Count("service SendReadRequest(12) -> true"), 1u);
    gate->Open();
}

TEST_F(TranslationTest, AMessage_IsAnsweredWhileATelegramIsBeingSentOn) {
    Start();
    const auto gate = stack.faults.Block("Command");
    auto telegram = std::async(std::launch::async, [this] { service.Read(12); });
    ASSERT_TRUE(gate->WaitForArrival());
    auto message = stack.ApplicationEvent("DscKnxAppPrg", "?000c");
    EXPECT_EQ(message.wait_for(TestSupport::Recorder::kPatience), std::future_status::ready);
    gate->Open();
}

TEST_F(TranslationTest, ARestart_KeepsTheClientThatItHas) {
    Start();
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    recorder.Clear();
    service.Read(12);
    EXPECT_THAT(recorder.LinesWith("client "), testing::ElementsAre(Sent("?000c")));
}

TEST_F(TranslationTest, ARestartThatConnectsAnew_SendsThroughTheNewClient) {
    Start();
    KnxStack::IGroupValueUser* const user = service.User();
    Exit();
    stack.faults.Refuse("CreateDeviceStackClient");
    ASSERT_EQ(Init(), StartupState::Failed);
    recorder.Clear();
    user->OnGroupValueWrite(12, Bits(1, 1)); // as a host that does not let go of the user would
    ExpectRecord("host",
                 "ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueWrite(): client is not connected.");
    stack.faults.Mend("CreateDeviceStackClient");
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    recorder.Clear();
    user->OnGroupValueWrite(12, Bits(1, 1));
    EXPECT_THAT(recorder.LinesOf("host"), testing::ElementsAre(Sent("!000c0101")));
}

TEST_F(TranslationTest, ALaterInit_SendsThroughItsOwnClient) {
    Start();
    Exit();
    ASSERT_EQ(Init(), StartupState::InProgress);
    recorder.Clear();
    service.Write(12, Bits(1, 1)); // the range is that of the former start until it is read again
    EXPECT_THAT(recorder.LinesOf("host"), testing::ElementsAre(Sent("!000c0101")));
}

TEST_F(TranslationTest, Exit_WaitsForATelegramThatIsBeingSentOn) {
    Start();
    const auto gate = stack.faults.Block("Command");
    auto telegram = std::async(std::launch::async, [this] { service.Read(12); });
    ASSERT_TRUE(gate->WaitForArrival());
    auto exit = std::async(std::launch::async, [this] { return Exit(); });
    ASSERT_TRUE(recorder.WaitFor("service RegisterGroupValueUser(null)"));
    EXPECT_EQ(exit.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    EXPECT_EQ(recorder.Count("client is being destroyed"), 0u);
    gate->Open();
    EXPECT_TRUE(exit.get());
    EXPECT_EQ(recorder.Count("client Command refused"), 0u);
}

TEST_F(TranslationTest, AfterExit_ATelegramIsRefused) {
    Start();
    KnxStack::IGroupValueUser* const user = service.User();
    Exit();
    recorder.Clear();
    KnxStack::GroupValue answer;
    user->OnGroupValueWrite(12, Bits(1, 1));
    user->OnGroupValueResponse(12, Bits(1, 1));
    EXPECT_FALSE(user->OnGroupValueRead(12, answer));
    ExpectRecord("host", R"(
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueWrite(): client is not connected.
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueResponse(): client is not connected.
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueRead(): client is not connected.
    )");
}

TEST_F(TranslationTest, MessagesDuringDisconnect_EndBeforeTheClientDoes) {
    Start();
    const auto gate = service.faults.Block("SendReadRequest");
    std::vector<std::future<bool>> messages;
    for (int count = 0; count != 3; ++count)
        messages.push_back(stack.ApplicationEvent("DscKnxAppPrg", "?000c"));
    ASSERT_TRUE(gate->WaitForArrival());
    auto exit = std::async(std::launch::async, [this] { return Exit(); });
    ASSERT_TRUE(recorder.WaitFor("client is being destroyed"));
    gate->Open();
    EXPECT_TRUE(exit.get());
    for (auto& message : messages)
        EXPECT_TRUE(message.get());
    ExpectRecord("client", R"(
        service SendReadRequest(12) -> true
        service SendReadRequest(12) -> true
        service SendReadRequest(12) -> true
    )");
    EXPECT_TRUE(recorder.InOrder("service SendReadRequest(12) -> true", "client destroyed"));
}

TEST_F(TranslationTest, ATelegramDuringDisconnect_FindsNoClient) {
    // A host that delivers one more telegram while the client's last callback is still running.
    Start();
    KnxStack::IGroupValueUser* const user = service.User();
    const auto gate = service.faults.Block("SendReadRequest");
    auto message = stack.ApplicationEvent("DscKnxAppPrg", "?000c");
    ASSERT_TRUE(gate->WaitForArrival());
    auto exit = std::async(std::launch::async, [this] { return Exit(); });
    ASSERT_TRUE(recorder.WaitFor("client is being destroyed"));
    recorder.Clear();
    user->OnGroupValueWrite(12, Bits(1, 1));
    ExpectRecord("host",
                 "ERROR GroupAddressTranslation | Sending event not possible, target name is empty or "
                 "DSC not connected.");
    gate->Open();
    EXPECT_TRUE(exit.get());
}

/// Nothing is logged or recorded meanwhile: both would put an order between threads that have none of their
/// own. For the thread sanitizer.
class TranslationStressTest : public TranslationTest {
protected:
    TranslationStressTest() {
        TestSupport::LogRecorder::Silence();
        recorder.Pause();
    }

    template <typename Loop>
    std::thread Forever(Loop loop) {
        return std::thread([this, loop] {
            while (!m_stop.load(std::memory_order_relaxed)) {
                loop();
                rounds.fetch_add(1, std::memory_order_relaxed);
                std::this_thread::yield();
            }
        });
    }

    void Stop(std::vector<std::thread>& threads) {
        m_stop.store(true, std::memory_order_relaxed);
        for (std::thread& thread : threads)
            thread.join();
        m_stop.store(false, std::memory_order_relaxed);
    }

    std::vector<std::thread> Bus() {
        std::vector<std::thread> threads;
        threads.push_back(Forever([this] { service.Write(12, Bits(1, 1)); }));
        threads.push_back(Forever([this] { service.Read(13); }));
        return threads;
    }

    std::atomic<unsigned> rounds = 0;

private:
    std::atomic<bool> m_stop = false;
};

TEST_F(TranslationStressTest, BothWaysDuringAStartAndARestart) {
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    auto threads = Bus();
    threads.push_back(Forever([this] { Receive("!000c0101"); }));
    threads.push_back(Forever([this] { Receive("?000c"); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(2500)); // over the whole start
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    Stop(threads);
    EXPECT_GT(rounds, 100u);
    EXPECT_TRUE(Exit());
}

TEST_F(TranslationStressTest, BothWaysDuringExitAndALaterInit) {
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500)); // the range is known
    for (int round = 0; round != 3; ++round) {
        auto threads = Bus();
        std::vector<std::future<bool>> messages;
        for (int count = 0; count != 200; ++count)
            messages.push_back(stack.ApplicationEvent("DscKnxAppPrg", "?000c"));
        EXPECT_TRUE(Exit());
        Stop(threads);
        for (auto& message : messages)
            message.get(); // the client let every callback end
        ASSERT_EQ(Init(), StartupState::InProgress);
    }
}

} // namespace
