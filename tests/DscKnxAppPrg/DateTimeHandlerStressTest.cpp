// Ends of the clock at every moment of its work, for the thread sanitizer. The batching period is real, so
// many objects are at work at once. Nothing is logged meanwhile: it would put an order between threads that
// have none.
#include "ClockClient.h"
#include "DateTimeHandlerTest.h"
#include "KnxHandlerTest.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

namespace {

using Handler = DscKnxAppPrg::DateTimeHandler;
using SteadyClock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr milliseconds kBatchPeriod{200};

/// A clock with a client of its own, and the moment at which its timer fires.
class ClockLife {
public:
    explicit ClockLife(milliseconds answerTime = {}) {
        auto client = std::make_unique<ClockClient>("2024-04-30T08:00:00");
        m_asked = client.get();
        if (answerTime != milliseconds::zero())
            client->onGetValue = [answerTime] { std::this_thread::sleep_for(answerTime); };
        m_client = std::move(client);
        m_clock.emplace(m_client);
    }

    void AddEntry() {
        m_clock->AddEntry(TimeOfDay(12, 0, 0), OfMain(10));
        m_fires = SteadyClock::now() + kBatchPeriod;
    }
    SteadyClock::time_point Fires() const { return m_fires; }

    /// By Exit or by the destructor alone.
    void End(bool byExit) {
        if (byExit)
            m_clock->Exit();
        else
            m_clock.reset();
        m_questionsAtTheEnd = m_asked->Questions();
    }
    Handler& Clock() { return *m_clock; }

    bool WasApplied() const { return m_questionsAtTheEnd != 0; }
    /// What was begun was brought to its end, and nothing came after it.
    bool IsConsistent() const {
        return m_asked->Questions() == m_questionsAtTheEnd &&
               m_asked->Written().size() == m_questionsAtTheEnd;
    }

private:
    std::unique_ptr<Vesk::IDeviceStackClient> m_client;
    ClockClient* m_asked = nullptr;
    std::optional<Handler> m_clock;
    SteadyClock::time_point m_fires;
    unsigned m_questionsAtTheEnd = 0;
};

struct Outcome {
    std::atomic<unsigned> ended = 0;
    std::atomic<unsigned> applied = 0;
    std::atomic<unsigned> inconsistent = 0;
};

/// A bus that never pauses: telegrams for one clock after the other, so that its mutex is hardly ever free.
class CrowdedBus {
public:
    CrowdedBus() : m_thread([this] { Run(); }) {}
    ~CrowdedBus() {
        m_stop.store(true, std::memory_order_relaxed);
        m_thread.join();
    }
    CrowdedBus(const CrowdedBus&) = delete;
    CrowdedBus& operator=(const CrowdedBus&) = delete;

    /// The clock has to outlive the bus.
    void TurnTo(Handler* clock) { m_clock.store(clock, std::memory_order_release); }

private:
    void Run() {
        while (!m_stop.load(std::memory_order_relaxed)) {
            if (Handler* const clock = m_clock.load(std::memory_order_acquire))
                clock->AddEntry(TimeOfDay(12, 0, 0), OfMain(10));
            else
                std::this_thread::sleep_for(microseconds(50));
        }
    }

    std::atomic<bool> m_stop = false;
    std::atomic<Handler*> m_clock = nullptr;
    std::thread m_thread;
};

/// Lets `count` clocks at a time live, each to `offset(number)` from the firing of its timer. Every other one
/// is ended by Exit, with telegrams coming in, the rest by the destructor.
template <typename Offset>
void LiveInBatches(unsigned batches, unsigned count, milliseconds answerTime, Offset offset,
                   Outcome& outcome) {
    for (unsigned batch = 0; batch != batches; ++batch) {
        std::vector<std::unique_ptr<ClockLife>> lives;
        for (unsigned number = 0; number != count; ++number) {
            lives.push_back(std::make_unique<ClockLife>(answerTime));
            lives.back()->AddEntry();
        }
        {
            CrowdedBus bus;
            for (unsigned number = 0; number != count; ++number) {
                ClockLife& life = *lives[number];
                const bool byExit = number % 2 == 0;
                const auto end = life.Fires() + offset(number);
                std::this_thread::sleep_until(std::min(end, life.Fires()) - microseconds(300));
                bus.TurnTo(byExit ? &life.Clock() : nullptr);
                std::this_thread::sleep_until(end);
                life.End(byExit);
            }
        }
        for (const auto& life : lives) {
            ++outcome.ended;
            outcome.applied += life->WasApplied() ? 1 : 0;
            outcome.inconsistent += life->IsConsistent() ? 0 : 1;
        }
    }
}

class DateTimeHandlerStressTest : public testing::Test {
protected:
    DateTimeHandlerStressTest() { TestSupport::LogRecorder::Silence(); }
};

TEST_F(DateTimeHandlerStressTest, TenThousandEndsAroundTheFiringOfTheTimer) {
    // Most ends come within half a millisecond of the timer, before and after it; some far enough for either.
    const auto around = [](unsigned number) {
        return number % 10 == 0   ? microseconds(-20'000)
               : number % 10 == 9 ? microseconds(5'000)
                                  : microseconds(-500) + microseconds(10) * number;
    };
    Outcome outcome;
    std::vector<std::thread> lanes;
    for (int lane = 0; lane != 2; ++lane)
        lanes.emplace_back([&] { LiveInBatches(50, 100, milliseconds(0), around, outcome); });
    for (std::thread& lane : lanes)
        lane.join();
    EXPECT_EQ(outcome.ended, 10'000u);
    EXPECT_EQ(outcome.inconsistent, 0u);
    EXPECT_GT(outcome.applied, 0u);
    EXPECT_LT(outcome.applied, 10'000u);
    RecordProperty("applied", static_cast<int>(outcome.applied));
}

TEST_F(DateTimeHandlerStressTest, EndsWhileTheClientIsAtWork) {
    const auto within = [](unsigned number) { return microseconds(100) * number; };
    Outcome outcome;
    LiveInBatches(4, 100, milliseconds(5), within, outcome);
    EXPECT_EQ(outcome.ended, 400u);
    EXPECT_EQ(outcome.inconsistent, 0u);
    EXPECT_GT(outcome.applied, 0u);
}

TEST_F(DateTimeHandlerStressTest, EndsAtOnce) {
    for (unsigned round = 0; round != 1000; ++round) {
        ClockLife life;
        if (round % 4 < 2)
            life.AddEntry();
        life.End(round % 2 == 0);
        EXPECT_TRUE(life.IsConsistent());
    }
}

TEST_F(DateTimeHandlerStressTest, EntriesDuringExit) {
    // Telegrams come without a pause, before, during and after the end of each clock.
    for (unsigned batch = 0; batch != 3; ++batch) {
        std::vector<std::unique_ptr<ClockLife>> lives;
        for (unsigned number = 0; number != 50; ++number)
            lives.push_back(std::make_unique<ClockLife>());
        std::atomic<bool> stop = false;
        std::atomic<unsigned> rounds = 0;
        std::thread bus([&] {
            while (!stop.load(std::memory_order_relaxed)) {
                for (const auto& life : lives)
                    life->Clock().AddEntry(TimeOfDay(12, 0, 0), OfMain(10));
                rounds.fetch_add(1, std::memory_order_relaxed);
                std::this_thread::sleep_for(milliseconds(1));
            }
        });
        std::this_thread::sleep_for(kBatchPeriod - milliseconds(5));
        for (const auto& life : lives)
            life->End(true);
        const unsigned roundsOfTheLiving = rounds;
        while (rounds < roundsOfTheLiving + 3)
            std::this_thread::sleep_for(milliseconds(1));
        stop = true;
        bus.join();
        for (const auto& life : lives)
            EXPECT_TRUE(life->IsConsistent());
    }
}

/// A program whose client takes its time over the device's clock.
class SlowClientStressTest : public KnxHandlerTest {
protected:
    static constexpr int kTimeCo = 20;
    static constexpr int kSwitchCo = 5;

    SlowClientStressTest() {
        plugins["A"].bindings = {{.co = kTimeCo, .id = 1005, .dpt = {24, 0, 10, 1}},
                                 {.co = kSwitchCo, .id = 500, .dpt = {1, 0, 1, 1}}};
        service.objects[kTimeCo] = TestSupport::FakeGroupObject(24);
        service.objects[kSwitchCo] = TestSupport::FakeGroupObject(1);
        SetUpWith({"A"});
        auto slow = std::make_unique<ClockClient>("2024-04-30T08:00:00");
        slow->onGetValue = [] { std::this_thread::sleep_for(milliseconds(20)); };
        slow->onSetValue = [] { std::this_thread::sleep_for(milliseconds(1)); };
        client = slow.get();
        (program.*Reach(PrivateMembers::Disconnect()))();
        program.*Reach(PrivateMembers::Client()) = std::move(slow);
        TestSupport::LogRecorder::Silence();
        recorder.Pause();
    }

    ClockClient* client = nullptr;
};

TEST_F(SlowClientStressTest, TelegramsWaitForTheClockWithTheClientMutexHeld) {
    // The bus thread holds the client mutex while it waits for the clock, which is waiting for the client.
    // The client's own thread goes on, and so does the clock.
    std::atomic<bool> stop = false;
    std::atomic<unsigned> telegrams = 0;
    std::atomic<unsigned> callbacks = 0;
    std::thread bus([&] {
        for (std::uint8_t second = 0; !stop.load(std::memory_order_relaxed); second = (second + 1) % 60) {
            handler.OnGroupValueWrite(kSwitchCo, TestSupport::Bits(1, 1)); // holds the client mutex a while
            handler.OnGroupValueWrite(kTimeCo, TestSupport::Octets({12, 0, second}));
            telegrams.fetch_add(1, std::memory_order_relaxed);
            std::this_thread::yield();
        }
    });
    std::thread callbackThread([&] {
        const auto onWriteValue = Reach(PrivateMembers::OnWriteValue());
        while (!stop.load(std::memory_order_relaxed)) {
            (program.*onWriteValue)(&program, 500, "1", "");
            callbacks.fetch_add(1, std::memory_order_relaxed);
            std::this_thread::yield();
        }
    });
    const auto end = SteadyClock::now() + TestSupport::Recorder::kPatience;
    while (client->Questions() < 5 && SteadyClock::now() < end)
        std::this_thread::sleep_for(milliseconds(10));
    EXPECT_GE(client->Questions(), 5u);
    handler.Exit(); // with telegrams still under way
    const unsigned questions = client->Questions();
    const unsigned telegramsBefore = telegrams;
    while (telegrams < telegramsBefore + 100 && SteadyClock::now() < end)
        std::this_thread::sleep_for(milliseconds(1));
    EXPECT_GE(telegrams, telegramsBefore + 100);
    stop = true;
    bus.join();
    callbackThread.join();
    EXPECT_GT(callbacks, 100u);
    EXPECT_EQ(client->Questions(), questions);
}

} // namespace
