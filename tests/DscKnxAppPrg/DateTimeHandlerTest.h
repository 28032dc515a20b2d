// Fixture for the clock on its own, and what its tests share.
#pragma once

#include "Faults.h"
#include "PrivateMembers.h"
#include "World.h"

#include "Tav/TAVTIME.h"

#include <boost/asio/post.hpp>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace PrivateMembers {

/// For members whose types are private, too.
template <typename Tag, auto Member>
struct GrantAny {
    friend auto Reach(Tag) { return Member; }
};

struct ClockEntries {
    friend auto Reach(ClockEntries);
};
struct ClockMerge {
    friend auto Reach(ClockMerge);
};
template struct GrantAny<ClockEntries, &DscKnxAppPrg::DateTimeHandler::m_entries>;
template struct GrantAny<ClockMerge, &DscKnxAppPrg::DateTimeHandler::Merge>;

using DateTimeHandler = DscKnxAppPrg::DateTimeHandler;
KNX_PRIVATE_MEMBER(ClockMutex, std::mutex DateTimeHandler::*, DateTimeHandler::m_mutex);
KNX_PRIVATE_MEMBER(ClockContext, boost::asio::io_context DateTimeHandler::*, DateTimeHandler::m_ioContext);
KNX_PRIVATE_MEMBER(ClockTimer, boost::asio::steady_timer DateTimeHandler::*, DateTimeHandler::m_timer);
KNX_PRIVATE_MEMBER(ClockTimerArmed, bool DateTimeHandler::*, DateTimeHandler::m_timerArmed);

} // namespace PrivateMembers

/// Keeps a clock's thread busy from construction to Release(): no timer fires meanwhile.
class BusyClock {
public:
    explicit BusyClock(DscKnxAppPrg::DateTimeHandler& clock) {
        boost::asio::post(clock.*Reach(PrivateMembers::ClockContext()), [gate = m_gate] { gate->Pass(); });
        m_gate->WaitForArrival();
    }
    ~BusyClock() { Release(); }
    BusyClock(const BusyClock&) = delete;
    BusyClock& operator=(const BusyClock&) = delete;

    void Release() { m_gate->Open(); }

private:
    std::shared_ptr<TestSupport::Gate> m_gate = std::make_shared<TestSupport::Gate>();
};

constexpr KNXDPT OfMain(std::uint16_t main) {
    return {.main = main, .sub = 1};
}

constexpr TAVTIME Date(std::uint16_t year, std::uint8_t month, std::uint8_t day) {
    return {.year = year, .month = month, .day = day};
}

constexpr TAVTIME TimeOfDay(std::uint8_t hour, std::uint8_t minute, std::uint8_t second) {
    return {.hour = hour, .minute = minute, .second = second};
}

constexpr TAVTIME DateAndTime(const TAVTIME& date, const TAVTIME& time) {
    TAVTIME both = date;
    both.hour = time.hour;
    both.minute = time.minute;
    both.second = time.second;
    return both;
}

inline constexpr TAVTIME kMayDay = Date(2024, 5, 1);
inline constexpr TAVTIME kNoon = TimeOfDay(12, 0, 0);
inline constexpr const char* kApril = "2024-04-30T08:00:00";
inline constexpr const char* kQuestion = "client GetValue(1005, 0)";

inline std::string Consumed(unsigned count, const std::string& time) {
    return "INFO KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Consumed " +
           std::to_string(count) + " entries to set the time to " + time;
}

/// A clock whose device shows 30 April 2024, 08:00:00. The record is empty.
class DateTimeHandlerTest : public World {
protected:
    DateTimeHandlerTest() {
        stack.values[1005] = "2024-04-30T08:00:00";
        recorder.Clear();
    }

    /// Waits for the `count`th question for the device's time, and for what follows from it.
    void WaitUntilApplied(std::size_t count = 1) {
        EXPECT_TRUE(recorder.WaitFor(kQuestion, count));
        const std::lock_guard lock(clock.*Reach(PrivateMembers::ClockMutex()));
    }

    /// While the clock's thread is busy: Exit waits for it with the mutex held.
    void WaitForExitToHoldTheMutex() {
        std::mutex& mutex = clock.*Reach(PrivateMembers::ClockMutex());
        while (mutex.try_lock()) {
            mutex.unlock();
            std::this_thread::yield();
        }
    }

    bool HasEntries() const { return !(clock.*Reach(PrivateMembers::ClockEntries())).empty(); }
    bool IsArmed() const { return clock.*Reach(PrivateMembers::ClockTimerArmed()); }

    std::unique_ptr<Vesk::IDeviceStackClient> client = TestSupport::FakeDeviceStack::MakeClient();
    DscKnxAppPrg::DateTimeHandler clock{client};
};
