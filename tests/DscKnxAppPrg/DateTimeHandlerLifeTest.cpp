// The clock's device stack, its thread and its end.
#include "ClockClient.h"
#include "DateTimeHandlerTest.h"

#include <boost/thread/exceptions.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

namespace {

using Handler = DscKnxAppPrg::DateTimeHandler;
using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- Where the device's time is not to be had

/// The system's clock counts in a zone that is not UTC.
class SystemClockTest : public DateTimeHandlerTest {
protected:
    SystemClockTest() { setenv("TZ", "XYZ-05:30", 1); }

    /// Sets the date alone, so that the time of day is that of the base, and compares the record.
    void ExpectSystemTimeAfter(const std::string& errors) {
        const std::time_t before = std::time(nullptr);
        clock.AddEntry(Date(2001, 1, 1), OfMain(11));
        const std::string sets = "client SetValue(1005, '2001-01-01T";
        for (int patience = 3000; recorder.LinesWith(sets).empty() && patience != 0; --patience)
            std::this_thread::sleep_for(milliseconds(10));
        const std::time_t after = std::time(nullptr);
        const auto line = recorder.LinesWith(sets);
        ASSERT_EQ(line.size(), 1u);
        const std::string text = line[0].substr(sets.size(), 8);
        bool isBetween = false;
        for (std::time_t second = before; second <= after; ++second) {
            TAVTIME time;
            time.Set(second, true);
            isBetween |= text == time.Format("%H:%M:%S");
        }
        EXPECT_TRUE(isBetween) << text;
        ExpectTranscript(recorder.Lines(), R"(
            DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 2001-01-01
            )" + errors + "\n" + Consumed(1, "2001-01-01T" + text) +
                                               "\n" + sets + text + "', 0, 0)\n");
    }
};

TEST_F(SystemClockTest, IsTheBaseWhenTheReadFails) {
    stack.faults.Refuse("GetValue");
    ExpectSystemTimeAfter(R"(
        client GetValue(1005, 0)
        ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Can't get current time from OXN.
        ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Time from OXN has wrong ivt.)");
}

TEST_F(SystemClockTest, IsTheBaseWhenTheValueIsNoTime) {
    stack.values[1005] = "half past eight";
    ExpectSystemTimeAfter(R"(
        client GetValue(1005, 0)
        ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Time from OXN has wrong ivt.)");
}

TEST_F(SystemClockTest, IsTheBaseWhenTheValueIsNull) {
    stack.values[1005] = "";
    ExpectSystemTimeAfter(R"(
        client GetValue(1005, 0)
        ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Time from OXN has wrong ivt.)");
}

TEST_F(SystemClockTest, IsNotOverlaidByTheTextOfAReadThatFailed) {
    // A client that leaves something in the text all the same.
    class Liar : public ClockClient {
    public:
        using ClockClient::ClockClient;
        bool GetValue(TAVOBJECTID id, std::string& text, bool readInternal) override {
            ClockClient::GetValue(id, text, readInternal);
            return false;
        }
    };
    std::unique_ptr<Vesk::IDeviceStackClient> liar = std::make_unique<Liar>("2024-04-30T08:00:00");
    Handler lied(liar);
    lied.AddEntry(Date(2024, 4, 30), OfMain(11)); // the time that the liar tells; nobody else has it
    EXPECT_TRUE(recorder.WaitFor("ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): "
                                 "Time from OXN has wrong ivt."));
    lied.Exit();
    EXPECT_THAT(dynamic_cast<Liar&>(*liar).Written(), testing::SizeIs(1));
}

TEST_F(DateTimeHandlerTest, WithoutAClient_NobodyIsAskedOrWrittenTo) {
    BusyClock busy(clock);
    clock.AddEntry(Date(2001, 1, 1), OfMain(11));
    client.reset();
    busy.Release();
    EXPECT_TRUE(recorder.WaitFor("ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): "
                                 "Time from OXN has wrong ivt."));
    clock.Exit();
    EXPECT_EQ(recorder.Count("ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): "
                             "Can't get current time from OXN."),
              1u);
    EXPECT_THAT(recorder.LinesWith("client GetValue"), IsEmpty());
    EXPECT_THAT(recorder.LinesWith("client SetValue"), IsEmpty());
}

TEST_F(DateTimeHandlerTest, AClientThatComesLater_IsUsed) {
    // The pointer is read each time, not kept.
    std::unique_ptr<Vesk::IDeviceStackClient> later;
    Handler late(later);
    later = std::make_unique<ClockClient>("2024-04-30T08:00:00");
    late.AddEntry(kNoon, OfMain(10));
    auto& asked = dynamic_cast<ClockClient&>(*later);
    EXPECT_TRUE(asked.WaitForQuestion());
    late.Exit();
    EXPECT_THAT(asked.Written(), ElementsAre("2024-04-30T12:00:00"));
}

TEST_F(DateTimeHandlerTest, ARefusedWrite_IsNotNoticed) {
    stack.faults.Refuse("SetValue");
    clock.AddEntry(kNoon, OfMain(10));
    WaitUntilApplied();
    EXPECT_FALSE(HasEntries());
    ExpectTranscript(recorder.Lines(), R"(
        DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 12:00:00
        client GetValue(1005, 0)
        INFO KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Consumed 1 entries to set the time to 2024-04-30T12:00:00
        client SetValue(1005, '2024-04-30T12:00:00', 0, 0)
    )");
}

// ---- Clients that throw

TEST_F(DateTimeHandlerTest, AClientThatThrowsInAQuestion_CostsOneBatch) {
    stack.faults.Throw("GetValue", "no memory");
    clock.AddEntry(kMayDay, OfMain(11));
    ASSERT_TRUE(recorder.WaitFor("ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): "
                                 "Can't set the time: no memory"));
    ExpectTranscript(recorder.Lines(), R"(
        DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 2024-05-01
        client GetValue(1005, 0)
        ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Can't set the time: no memory
    )");
    stack.faults.Mend("GetValue");
    clock.AddEntry(kNoon, OfMain(10));
    WaitUntilApplied(2);
    EXPECT_EQ(recorder.Count(Consumed(1, "2024-04-30T12:00:00")), 1u);
    EXPECT_THAT(recorder.LinesWith("ERROR"), testing::SizeIs(1));
}

TEST_F(DateTimeHandlerTest, AClientThatThrowsInAWrite_CostsOneBatch) {
    stack.faults.Throw("SetValue", "no memory");
    clock.AddEntry(kMayDay, OfMain(11));
    ASSERT_TRUE(recorder.WaitFor("ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): "
                                 "Can't set the time: no memory"));
    stack.faults.Mend("SetValue");
    clock.AddEntry(kNoon, OfMain(10));
    WaitUntilApplied(2);
    EXPECT_EQ(recorder.Count(Consumed(1, "2024-04-30T12:00:00")), 1u);
}

TEST_F(DateTimeHandlerTest, AClientThatThrowsAnythingAtAll_CostsOneBatch) {
    auto wild = std::make_unique<ClockClient>(kApril);
    ClockClient& asked = *wild;
    asked.onGetValue = [] { throw 42; };
    std::unique_ptr<Vesk::IDeviceStackClient> owner = std::move(wild);
    Handler hurt(owner);
    hurt.AddEntry(kMayDay, OfMain(11));
    ASSERT_TRUE(recorder.WaitFor("ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): "
                                 "Can't set the time: unknown exception"));
    asked.onGetValue = [] {};
    hurt.AddEntry(kNoon, OfMain(10));
    EXPECT_TRUE(recorder.WaitFor(Consumed(1, "2024-04-30T12:00:00")));
    hurt.Exit();
    EXPECT_THAT(asked.Written(), ElementsAre("2024-04-30T12:00:00"));
}

// ---- The thread and its end

unsigned ClockThreads() {
    unsigned count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        count += name == "AppPrgTimeHndlr" ? 1 : 0;
    }
    return count;
}

TEST_F(DateTimeHandlerTest, TheThreadLivesFromTheConstructorToExitUnderItsName) {
    { const BusyClock runs(clock); } // a thread names itself before it does anything else
    EXPECT_EQ(ClockThreads(), 1u);
    std::this_thread::sleep_for(milliseconds(300)); // idle, it stays
    EXPECT_EQ(ClockThreads(), 1u);
    clock.Exit();
    EXPECT_EQ(ClockThreads(), 0u);
}

TEST_F(DateTimeHandlerTest, Exit_WithAnArmedTimer_AppliesNothing) {
    BusyClock busy(clock);
    clock.AddEntry(kNoon, OfMain(10));
    auto exit = std::async(std::launch::async, [this] { clock.Exit(); });
    WaitForExitToHoldTheMutex();
    busy.Release();
    exit.get();
    EXPECT_FALSE(IsArmed());
    EXPECT_THAT(recorder.LinesWith("client "), IsEmpty());
}

TEST(ClockExitTest, WithAnArmedTimer_DoesNotWaitForIt) {
    // Once in twenty is enough: a busy machine may be slow, but an Exit that sits the timer out is never
    // fast.
    std::unique_ptr<Vesk::IDeviceStackClient> client = std::make_unique<ClockClient>(kApril);
    auto shortest = SteadyClock::duration::max();
    for (int round = 0; round != 20 && shortest >= milliseconds(100); ++round) {
        Handler clock(client);
        const auto start = SteadyClock::now();
        clock.AddEntry(kNoon, OfMain(10));
        clock.Exit();
        shortest = std::min(shortest, SteadyClock::now() - start);
    }
    EXPECT_LT(shortest, milliseconds(100));
}

TEST_F(DateTimeHandlerTest, Exit_Again_HasNothingToDo) {
    clock.Exit();
    clock.Exit();
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(DateTimeHandlerTest, AfterExit_EntriesAreTakenAndNeverApplied) {
    clock.Exit();
    clock.AddEntry(kNoon, OfMain(10));
    clock.AddEntry(kMayDay, OfMain(11));
    EXPECT_TRUE(HasEntries());
    std::this_thread::sleep_for(milliseconds(300));
    clock.Exit();
    ExpectTranscript(recorder.Lines(), R"(
        DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 12:00:00
        DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 2024-05-01
    )");
}

TEST_F(DateTimeHandlerTest, TheDestructor_EndsTheThreadAndAppliesNothing) {
    auto dying = std::make_unique<Handler>(client);
    BusyClock busy(*dying);
    dying->AddEntry(kNoon, OfMain(10));
    auto end = std::async(std::launch::async, [&] { dying.reset(); });
    EXPECT_EQ(end.wait_for(milliseconds(100)), std::future_status::timeout);
    EXPECT_EQ(ClockThreads(), 2u);
    busy.Release();
    end.get();
    EXPECT_EQ(ClockThreads(), 1u);
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_THAT(recorder.LinesWith("client "), IsEmpty());
}

TEST_F(DateTimeHandlerTest, Exit_DuringASetTime_WaitsForItsEnd) {
    const auto gate = stack.faults.Block("GetValue");
    clock.AddEntry(kNoon, OfMain(10));
    ASSERT_TRUE(gate->WaitForArrival());
    auto exit = std::async(std::launch::async, [this] { clock.Exit(); });
    EXPECT_EQ(exit.wait_for(milliseconds(100)), std::future_status::timeout);
    gate->Open();
    exit.get();
    EXPECT_EQ(recorder.Count("client SetValue(1005, '2024-04-30T12:00:00', 0, 0)"), 1u);
}

TEST_F(DateTimeHandlerTest, Exit_WhileAFiredTimerWantsTheMutex_EndsAndAppliesNothing) {
    // The timer has fired, but its SetTime comes only when Exit holds the mutex and waits for the thread.
    BusyClock busy(clock);
    clock.AddEntry(kNoon, OfMain(10));
    boost::asio::post(clock.*Reach(PrivateMembers::ClockContext()), [this] { clock.SetTime(); });
    auto exit = std::async(std::launch::async, [this] { clock.Exit(); });
    WaitForExitToHoldTheMutex();
    auto entry = std::async(std::launch::async, [this] { clock.AddEntry(kMayDay, OfMain(11)); });
    EXPECT_EQ(entry.wait_for(milliseconds(100)), std::future_status::timeout); // waits for Exit
    busy.Release();
    exit.get();
    entry.get();
    EXPECT_THAT(recorder.LinesWith("client "), IsEmpty());
}

TEST_F(DateTimeHandlerTest, Exit_OnItsOwnThread_ThrowsTheResourceError) {
    std::promise<std::string> thrown;
    boost::asio::post(clock.*Reach(PrivateMembers::ClockContext()), [&] {
        try {
            clock.Exit();
            thrown.set_value("nothing");
        } catch (const boost::thread_resource_error& error) {
            thrown.set_value(error.what());
        }
    });
    EXPECT_THAT(thrown.get_future().get(), testing::StartsWith("boost thread: trying joining itself"));
    clock.Exit(); // another thread may still end it
    { const std::lock_guard free(clock.*Reach(PrivateMembers::ClockMutex())); }
}

TEST_F(DateTimeHandlerTest, Exit_IsNoInterruptionPoint) {
    std::string outcome = "interrupted";
    boost::thread host([&] {
        clock.Exit();
        outcome = "ended";
    });
    host.interrupt();
    host.join();
    EXPECT_EQ(outcome, "ended");
}

} // namespace
