#include "Tav/TavEvents.h"

#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr unsigned kLong = 60000; // ms; a wait that a test expects to end for another reason

// A thread inside Wait(). Its outcome can be read after Join().
class Waiter {
public:
    explicit Waiter(TavEvents& events, unsigned timeoutMs = kLong, bool interruptible = true)
        : m_thread([this, &events, timeoutMs, interruptible] {
              m_threadId = gettid();
              try {
                  std::optional<boost::this_thread::disable_interruption> disabled;
                  if (!interruptible) {
                      disabled.emplace();
                  }
                  signalled = events.Wait(timeoutMs, id);
              } catch (const boost::thread_interrupted&) {
                  interrupted = true;
              }
              end = Clock::now();
              ended = true;
          }) {}

    ~Waiter() { Join(); }

    // Returns once the system shows the thread asleep, which it does nowhere but in the wait.
    void UntilAsleep() {
        while (State() != 'S') {
            std::this_thread::sleep_for(1ms);
        }
    }

    void Interrupt() { m_thread.interrupt(); }

    void Join() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    bool EndedEarly() const { return end - m_start < std::chrono::milliseconds(kLong); }

    bool signalled = false;
    bool interrupted = false;
    TavEvents::Id id = 77;
    Clock::time_point end;
    std::atomic<bool> ended = false;

private:
    char State() const {
        const auto threadId = m_threadId.load();
        if (threadId == 0) {
            return ' ';
        }
        std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/stat");
        std::string line;
        std::getline(file, line);
        const auto name = line.rfind(") ");
        return name == std::string::npos ? ' ' : line[name + 2];
    }

    const Clock::time_point m_start = Clock::now();
    std::atomic<pid_t> m_threadId = 0;
    boost::thread m_thread;
};

TEST(TavEventsTest, IsUnnamedAndNotOpenAtFirst) {
    const TavEvents events;
    EXPECT_EQ(events.GetName(), "<unnamed events>");
    EXPECT_FALSE(events.IsOpen());
}

TEST(TavEventsTest, CreateOpensUnderTheNameOnce) {
    TavEvents events;
    EXPECT_TRUE(events.Create("first"));
    EXPECT_TRUE(events.IsOpen());
    EXPECT_FALSE(events.Create("second"));
    EXPECT_EQ(events.GetName(), "first");
    events.Close();
    EXPECT_FALSE(events.IsOpen());
    EXPECT_TRUE(events.Create("second"));
    EXPECT_EQ(events.GetName(), "second");
}

TEST(TavEventsTest, TwoSetsMayBearTheSameName) {
    TavEvents one;
    TavEvents other;
    TavEvent event(one, 0);
    ASSERT_TRUE(one.Create("same"));
    ASSERT_TRUE(other.Create("same"));
    event.Set();
    TavEvents::Id id = 77;
    EXPECT_FALSE(other.Wait(0, id));
    EXPECT_TRUE(one.Wait(0, id));
}

TEST(TavEventsTest, EventsAreCountedFromOneAndNumbersAreNotReused) {
    TavEvents events;
    TavEvents other;
    const TavEvent first(events, 0);
    auto second = std::make_unique<TavEvent>(events, 1);
    EXPECT_EQ(first.GetId(), 1U);
    EXPECT_EQ(second->GetId(), 2U);
    second.reset();
    EXPECT_EQ(TavEvent(events, 1).GetId(), 3U);
    EXPECT_EQ(TavEvent(other, 1).GetId(), 1U);
}

TEST(TavEventsTest, WaitOnASetThatIsNotOpenFailsAtOnce) {
    TavEvents events;
    const TavEvent event(events, 1);
    Waiter waiter(events);
    waiter.Join();
    EXPECT_FALSE(waiter.signalled);
    EXPECT_TRUE(waiter.EndedEarly());
    EXPECT_EQ(waiter.id, 77U);
}

TEST(TavEventsTest, WaitTimesOutNotBeforeItsTime) {
    TavEvents events;
    ASSERT_TRUE(events.Create("timed"));
    const TavEvent event(events, 1);
    for (const unsigned timeoutMs : {0U, 1U, 50U}) {
        TavEvents::Id id = 77;
        const auto start = Clock::now();
        EXPECT_FALSE(events.Wait(timeoutMs, id));
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(timeoutMs));
        EXPECT_EQ(id, 77U);
    }
}

TEST(TavEventsTest, SetEndsAWait) {
    TavEvents events;
    ASSERT_TRUE(events.Create("set"));
    const TavEvent first(events, 0);
    TavEvent second(events, 0);
    Waiter waiter(events);
    waiter.UntilAsleep();
    second.Set();
    waiter.Join();
    EXPECT_TRUE(waiter.signalled);
    EXPECT_TRUE(waiter.EndedEarly());
    EXPECT_EQ(waiter.id, second.GetId());
}

TEST(TavEventsTest, ASignalBeforeTheWaitIsNotLost) {
    TavEvents events;
    ASSERT_TRUE(events.Create("early"));
    TavEvent event(events, 0);
    event.Set();
    event.Set();
    TavEvents::Id id = 0;
    EXPECT_TRUE(events.Wait(0, id));
    EXPECT_EQ(id, event.GetId());
    EXPECT_FALSE(events.Wait(0, id));
}

TEST(TavEventsTest, LowestOfSeveralSignalledEventsComesFirst) {
    TavEvents events;
    ASSERT_TRUE(events.Create("several"));
    TavEvent first(events, 0);
    TavEvent second(events, 0);
    TavEvent third(events, 0);
    third.Set();
    first.Set();
    second.Set();
    for (const auto expected : {first.GetId(), second.GetId(), third.GetId()}) {
        TavEvents::Id id = 0;
        ASSERT_TRUE(events.Wait(0, id));
        EXPECT_EQ(id, expected);
    }
    TavEvents::Id id = 0;
    EXPECT_FALSE(events.Wait(0, id));
}

TEST(TavEventsTest, ManualResetEventStaysUntilItIsReset) {
    TavEvents events;
    ASSERT_TRUE(events.Create("manual"));
    TavEvent event(events, 1);
    event.Set();
    TavEvents::Id id = 0;
    EXPECT_TRUE(events.Wait(0, id));
    EXPECT_TRUE(events.Wait(0, id));
    EXPECT_EQ(id, event.GetId());
    EXPECT_TRUE(events.Reset(event.GetId()));
    EXPECT_FALSE(events.Wait(0, id));
}

TEST(TavEventsTest, ResetTakesAnUnseenSignalBack) {
    TavEvents events;
    ASSERT_TRUE(events.Create("reset"));
    TavEvent event(events, 0);
    event.Set();
    EXPECT_TRUE(events.Reset(event.GetId()));
    TavEvents::Id id = 0;
    EXPECT_FALSE(events.Wait(0, id));
}

TEST(TavEventsTest, ResetOfAnEventThatIsNotThereFails) {
    TavEvents events;
    EXPECT_FALSE(events.Reset(0));
    EXPECT_FALSE(events.Reset(1));
    TavEvents::Id id = 0;
    {
        const TavEvent event(events, 1);
        id = event.GetId();
        EXPECT_TRUE(events.Reset(id));
    }
    EXPECT_FALSE(events.Reset(id));
}

TEST(TavEventsTest, OneSignalEndsExactlyOneOfTwoWaits) {
    TavEvents events;
    ASSERT_TRUE(events.Create("two"));
    TavEvent event(events, 0);
    Waiter one(events);
    Waiter other(events);
    one.UntilAsleep();
    other.UntilAsleep();
    event.Set();
    while (!one.ended && !other.ended) {
        std::this_thread::sleep_for(1ms);
    }
    (one.ended ? other : one).UntilAsleep();
    events.Close();
    one.Join();
    other.Join();
    EXPECT_NE(one.signalled, other.signalled);
}

TEST(TavEventsTest, CloseEndsEveryWait) {
    TavEvents events;
    ASSERT_TRUE(events.Create("close"));
    const TavEvent event(events, 1);
    Waiter one(events);
    Waiter other(events);
    one.UntilAsleep();
    other.UntilAsleep();
    events.Close();
    for (auto* waiter : {&one, &other}) {
        waiter->Join();
        EXPECT_FALSE(waiter->signalled);
        EXPECT_TRUE(waiter->EndedEarly());
        EXPECT_EQ(waiter->id, 77U);
    }
}

TEST(TavEventsTest, CloseEndsAWaitAlsoWhenTheSetIsOpenAgainAtOnce) {
    TavEvents events;
    ASSERT_TRUE(events.Create("close"));
    TavEvent event(events, 1);
    for (int round = 0; round < 20; ++round) {
        Waiter waiter(events);
        waiter.UntilAsleep();
        events.Close();
        ASSERT_TRUE(events.Create("again"));
        event.Set();
        waiter.Join();
        ASSERT_FALSE(waiter.signalled);
        ASSERT_TRUE(waiter.EndedEarly());
        ASSERT_TRUE(events.Reset(event.GetId()));
    }
}

TEST(TavEventsTest, CloseTakesSignalsBackAndAClosedSetTakesNone) {
    TavEvents events;
    ASSERT_TRUE(events.Create("closed"));
    TavEvent event(events, 1);
    event.Set();
    events.Close();
    event.Set();
    ASSERT_TRUE(events.Create("open"));
    TavEvents::Id id = 0;
    EXPECT_FALSE(events.Wait(0, id));
    event.Set();
    EXPECT_TRUE(events.Wait(0, id));
}

TEST(TavEventsTest, DestroyingTheSetEndsItsWaits) {
    auto events = std::make_unique<TavEvents>();
    ASSERT_TRUE(events->Create("destroyed"));
    Waiter waiter(*events);
    waiter.UntilAsleep();
    events.reset();
    waiter.Join();
    EXPECT_FALSE(waiter.signalled);
    EXPECT_TRUE(waiter.EndedEarly());
}

TEST(TavEventsTest, EventMayOutliveItsSet) {
    auto events = std::make_unique<TavEvents>();
    ASSERT_TRUE(events->Create("short"));
    TavEvent event(*events, 1);
    events.reset();
    event.Set();
    EXPECT_EQ(event.GetId(), 1U);
}

TEST(TavEventsTest, ADestroyedEventTakesItsSignalAlong) {
    TavEvents events;
    ASSERT_TRUE(events.Create("gone"));
    std::make_unique<TavEvent>(events, 1)->Set();
    TavEvents::Id id = 0;
    EXPECT_FALSE(events.Wait(0, id));
}

TEST(TavEventsTest, InterruptionEndsAWait) {
    TavEvents events;
    ASSERT_TRUE(events.Create("interrupted"));
    const TavEvent event(events, 0);
    Waiter waiter(events);
    waiter.UntilAsleep();
    waiter.Interrupt();
    waiter.Join();
    EXPECT_TRUE(waiter.interrupted);
    EXPECT_FALSE(waiter.signalled);
    EXPECT_TRUE(waiter.EndedEarly());
    EXPECT_EQ(waiter.id, 77U);
    events.Close(); // nobody holds the lock any more
}

TEST(TavEventsTest, InterruptionIsSeenBeforeASignalAndLeavesIt) {
    TavEvents events;
    ASSERT_TRUE(events.Create("both"));
    TavEvent event(events, 0);
    event.Set();
    std::atomic go = false;
    bool interrupted = false;
    boost::thread thread([&] {
        while (!go) {
            std::this_thread::yield();
        }
        try {
            TavEvents::Id id = 0;
            events.Wait(kLong, id);
        } catch (const boost::thread_interrupted&) {
            interrupted = true;
        }
    });
    thread.interrupt();
    go = true;
    thread.join();
    EXPECT_TRUE(interrupted);
    TavEvents::Id id = 0;
    EXPECT_TRUE(events.Wait(0, id));
}

TEST(TavEventsTest, WaitWithInterruptionDisabledGoesOn) {
    TavEvents events;
    ASSERT_TRUE(events.Create("disabled"));
    TavEvent event(events, 0);
    Waiter waiter(events, kLong, false);
    waiter.UntilAsleep();
    waiter.Interrupt();
    std::this_thread::sleep_for(20ms);
    event.Set();
    waiter.Join();
    EXPECT_FALSE(waiter.interrupted);
    EXPECT_TRUE(waiter.signalled);
}

TEST(TavEventsTest, SetAndWaitFromManyThreadsLoseNothing) {
    TavEvents events;
    ASSERT_TRUE(events.Create("many"));
    constexpr int kRounds = 2000;
    const auto answer = std::make_unique<TavEvent>(events, 0);
    TavEvents questions;
    ASSERT_TRUE(questions.Create("questions"));
    TavEvent question(questions, 0);
    std::thread peer([&] {
        for (int i = 0; i < kRounds; ++i) {
            TavEvents::Id id = 0;
            ASSERT_TRUE(questions.Wait(kLong, id)) << i;
            answer->Set();
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        question.Set();
        TavEvents::Id id = 0;
        ASSERT_TRUE(events.Wait(kLong, id)) << i;
    }
    peer.join();
}

} // namespace
