// The device's clock, set from dates and times of day of the bus.
#include "DateTimeHandlerTest.h"
#include "ClockClient.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <ostream>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Handler = DscKnxAppPrg::DateTimeHandler;
using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- What a telegram sets, by the main number of its type

struct KindCase {
    std::uint16_t main;
    const char* record; ///< of 1 May 2024, 12:34:56
};

constexpr const char* kNoDpt =
    "ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): No valid DPT.";

void PrintTo(const KindCase& row, std::ostream* out) {
    *out << row.main;
}

class KindOfAMainNumber : public DateTimeHandlerTest, public testing::WithParamInterface<KindCase> {};

TEST_P(KindOfAMainNumber, TellsThePartsThatATelegramSets) {
    clock.AddEntry(DateAndTime(Date(2024, 5, 1), TimeOfDay(12, 34, 56)), OfMain(GetParam().main));
    if (GetParam().record != kNoDpt) {
        WaitUntilApplied();
    } else {
        EXPECT_FALSE(HasEntries());
        EXPECT_FALSE(IsArmed());
    }
    ExpectTranscript(recorder.Lines(), GetParam().record);
}

INSTANTIATE_TEST_SUITE_P(DateTimeHandlerTest, KindOfAMainNumber,
                         testing::Values(KindCase{0, kNoDpt}, KindCase{9, kNoDpt}, KindCase{10, R"(
            DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 12:34:56
            client GetValue(1005, 0)
            INFO KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Consumed 1 entries to set the time to 2024-04-30T12:34:56
            client SetValue(1005, '2024-04-30T12:34:56', 0, 0)
        )"},
                                         KindCase{11, R"(
            DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 2024-05-01
            client GetValue(1005, 0)
            INFO KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Consumed 1 entries to set the time to 2024-05-01T08:00:00
            client SetValue(1005, '2024-05-01T08:00:00', 0, 0)
        )"},
                                         KindCase{12, kNoDpt}, KindCase{13, kNoDpt}, KindCase{14, kNoDpt},
                                         KindCase{15, kNoDpt}, KindCase{16, kNoDpt}, KindCase{17, kNoDpt},
                                         KindCase{18, kNoDpt}, KindCase{19, R"(
            DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 2024-05-01 12:34:56
            client GetValue(1005, 0)
            INFO KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Consumed 1 entries to set the time to 2024-05-01T12:34:56
            client SetValue(1005, '2024-05-01T12:34:56', 0, 0)
        )"},
                                         KindCase{20, kNoDpt}, KindCase{65535, kNoDpt}),
                         [](const auto& row) { return "Main" + std::to_string(row.param.main); });

TEST_F(DateTimeHandlerTest, AnEntryIsLoggedInTheFormatOfItsKind) {
    clock.Exit(); // from now on, entries stay where they are
    const TAVTIME time = DateAndTime(Date(987, 6, 5), TimeOfDay(4, 3, 2));
    for (const auto& [main, format] :
         {std::pair{10, "%H:%M:%S"}, std::pair{11, "%Y-%m-%d"}, std::pair{19, "%Y-%m-%d %H:%M:%S"}}) {
        recorder.Clear();
        clock.AddEntry(time, OfMain(static_cast<std::uint16_t>(main)));
        EXPECT_THAT(
            recorder.Lines(),
            ElementsAre(
                "DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime "
                "entry " +
                time.Format(format)));
    }
}

// ---- What is refused

class ClockRefusalTest : public DateTimeHandlerTest {
protected:
    /// The log lines of an entry, which is then forgotten.
    std::vector<std::string> Add(const TAVTIME& time, std::uint16_t main) {
        recorder.Clear();
        clock.AddEntry(time, OfMain(main));
        if (recorder.LinesWith("ERROR").empty())
            return {};
        EXPECT_FALSE(HasEntries());
        EXPECT_FALSE(IsArmed());
        return recorder.Lines();
    }

    static constexpr const char* kNoDate =
        "ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): No valid date.";
    static constexpr const char* kNoTime =
        "ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): No valid time.";
};

TEST_F(ClockRefusalTest, OfDaysThatTheCalendarDoesNotHave) {
    for (const TAVTIME& day :
         {Date(2023, 2, 30), Date(2023, 2, 29), Date(2100, 2, 29), Date(2024, 4, 31), Date(2024, 0, 1),
          Date(2024, 13, 1), Date(2024, 5, 0), Date(2024, 5, 32), Date(0, 5, 1), TAVTIME{}}) {
        EXPECT_THAT(Add(day, 11), ElementsAre(kNoDate)) << day.Format("%F");
        EXPECT_THAT(Add(day, 19), ElementsAre(kNoDate)) << day.Format("%F");
    }
}

TEST_F(ClockRefusalTest, OfTimesPastTheEndOfTheDay) {
    for (const TAVTIME& time : {TimeOfDay(24, 0, 0), TimeOfDay(12, 60, 0), TimeOfDay(12, 0, 60),
                                TimeOfDay(31, 63, 63), TimeOfDay(255, 255, 255)}) {
        EXPECT_THAT(Add(time, 10), ElementsAre(kNoTime)) << time.Format("%T");
        EXPECT_THAT(Add(DateAndTime(Date(2024, 5, 1), time), 19), ElementsAre(kNoTime)) << time.Format("%T");
    }
}

TEST_F(ClockRefusalTest, OfBothParts_NamesTheDate) {
    EXPECT_THAT(Add(DateAndTime(Date(2023, 2, 30), TimeOfDay(24, 0, 0)), 19), ElementsAre(kNoDate));
}

TEST_F(ClockRefusalTest, LooksOnlyAtThePartsThatAreSet) {
    // Held until after the last entry: what was refused would be missing in the count.
    BusyClock busy(clock);
    EXPECT_THAT(Add(DateAndTime(Date(2024, 2, 29), TimeOfDay(24, 0, 0)), 11), IsEmpty());
    EXPECT_THAT(Add(DateAndTime(Date(2023, 2, 30), TimeOfDay(23, 59, 59)), 10), IsEmpty());
    EXPECT_THAT(Add(DateAndTime(Date(2000, 2, 29), TimeOfDay(0, 0, 0)), 19), IsEmpty());
    busy.Release();
    WaitUntilApplied();
    EXPECT_EQ(recorder.Count(Consumed(3, "2000-02-29T00:00:00")), 1u);
}

// ---- What the parts come to

struct Merge {
    const char* name;
    const char* device; ///< what its clock shows
    std::vector<std::pair<std::uint16_t, TAVTIME>> entries;
    const char* written; ///< null: nothing
};

const std::array s_merges{
    Merge{"a date and a later time", kApril, {{11, kMayDay}, {10, kNoon}}, "2024-05-01T12:00:00"},
    Merge{"a time and a later date", kApril, {{10, kNoon}, {11, kMayDay}}, "2024-05-01T12:00:00"},
    Merge{"a later time of two", kApril, {{10, kNoon}, {10, TimeOfDay(9, 8, 7)}}, "2024-04-30T09:08:07"},
    Merge{"a later date of two", kApril, {{11, kMayDay}, {11, Date(2025, 6, 7)}}, "2025-06-07T08:00:00"},
    Merge{"a date behind both",
          kApril,
          {{19, DateAndTime(kMayDay, kNoon)}, {11, Date(2025, 6, 7)}},
          "2025-06-07T12:00:00"},
    Merge{"a time behind both",
          kApril,
          {{19, DateAndTime(kMayDay, kNoon)}, {10, TimeOfDay(9, 8, 7)}},
          "2024-05-01T09:08:07"},
    Merge{"both behind a date and a time",
          kApril,
          {{11, Date(2025, 6, 7)}, {10, TimeOfDay(9, 8, 7)}, {19, DateAndTime(kMayDay, kNoon)}},
          "2024-05-01T12:00:00"},
    Merge{"what comes back to the device's own time",
          kApril,
          {{19, DateAndTime(kMayDay, kNoon)}, {11, Date(2024, 4, 30)}, {10, TimeOfDay(8, 0, 0)}},
          nullptr},
    Merge{"the device's own time", kApril, {{10, TimeOfDay(8, 0, 0)}}, nullptr},
    Merge{"two seconds ahead", kApril, {{10, TimeOfDay(8, 0, 2)}}, nullptr},
    Merge{"three seconds ahead", kApril, {{10, TimeOfDay(8, 0, 3)}}, "2024-04-30T08:00:03"},
    Merge{"two seconds behind", kApril, {{10, TimeOfDay(7, 59, 58)}}, nullptr},
    Merge{"three seconds behind", kApril, {{10, TimeOfDay(7, 59, 57)}}, "2024-04-30T07:59:57"},
    Merge{"two seconds ahead over midnight",
          "2024-04-30T23:59:59",
          {{19, DateAndTime(kMayDay, TimeOfDay(0, 0, 1))}},
          nullptr},
    Merge{"three seconds ahead over midnight",
          "2024-04-30T23:59:59",
          {{19, DateAndTime(kMayDay, TimeOfDay(0, 0, 2))}},
          "2024-05-01T00:00:02"},
    Merge{"two seconds behind over a new year",
          "2025-01-01T00:00:01",
          {{19, DateAndTime(Date(2024, 12, 31), TimeOfDay(23, 59, 59))}},
          nullptr},
    Merge{"the same time of day a day later", kApril, {{11, kMayDay}}, "2024-05-01T08:00:00"},
    Merge{"a date far away", kApril, {{11, Date(2090, 1, 31)}}, "2090-01-31T08:00:00"},
    Merge{"the flags of the device's time are not its own",
          "2024-04-30T08:00:00;f=1;clq=1",
          {{10, kNoon}},
          "2024-04-30T12:00:00"},
    // In Berlin clocks go from 02:00:00 to 03:00:00 on that day, and back on the other.
    Merge{"one second of time over the switch to summer time",
          "2024-03-31T01:59:59",
          {{10, TimeOfDay(3, 0, 0)}},
          "2024-03-31T03:00:00"},
    Merge{"two seconds of the wall clock in the hour that daylight saving leaves out",
          "2024-03-31T01:59:59",
          {{10, TimeOfDay(2, 0, 1)}},
          nullptr},
    Merge{"an hour of the wall clock over the switch to winter time",
          "2024-10-27T02:30:00",
          {{10, TimeOfDay(3, 30, 0)}},
          "2024-10-27T03:30:00"},
};

/// A clock of its own for each row, all at work at the same time.
class RunningMerge {
public:
    explicit RunningMerge(const Merge& merge)
        : m_client(std::make_unique<ClockClient>(merge.device)), m_clock(m_client), m_busy(m_clock) {
        for (const auto& [main, time] : merge.entries)
            m_clock.AddEntry(time, OfMain(main));
        m_busy.Release();
    }

    std::vector<std::string> Written() {
        auto& client = dynamic_cast<ClockClient&>(*m_client);
        EXPECT_TRUE(client.WaitForQuestion());
        m_clock.Exit();
        EXPECT_FALSE(HasEntries());
        EXPECT_EQ(client.Questions(), 1u);
        return client.Written();
    }

private:
    bool HasEntries() const { return !(m_clock.*Reach(PrivateMembers::ClockEntries())).empty(); }

    std::unique_ptr<Vesk::IDeviceStackClient> m_client;
    Handler m_clock;
    BusyClock m_busy;
};

TEST(ClockMergeTest, LaterPartsWinAndOnlyMoreThanTwoSecondsAreWritten) {
    ASSERT_EQ(setenv("TZ", "Europe/Berlin", 1), 0);
    std::vector<std::unique_ptr<RunningMerge>> rows;
    for (const Merge& merge : s_merges)
        rows.push_back(std::make_unique<RunningMerge>(merge));
    for (std::size_t row = 0; row != rows.size(); ++row) {
        const Merge& merge = s_merges[row];
        const auto written = rows[row]->Written();
        if (merge.written != nullptr)
            EXPECT_THAT(written, ElementsAre(merge.written)) << merge.name;
        else
            EXPECT_THAT(written, IsEmpty()) << merge.name;
    }
}

TEST_F(DateTimeHandlerTest, ADateBringsItsDayOfWeekAndDayOfYear) {
    clock.Exit(); // from now on, entries stay where they are
    clock.AddEntry({.year = 2024, .month = 5, .day = 1, .dayOfWeek = 7, .dayOfYear = 7}, OfMain(11));
    const auto& entries = clock.*Reach(PrivateMembers::ClockEntries());
    const TAVTIME device{.year = 2024, .month = 4, .day = 30, .hour = 8, .dayOfWeek = 2, .dayOfYear = 121};
    const TAVTIME merged = Reach(PrivateMembers::ClockMerge())(device, entries);
    EXPECT_EQ(merged,
              (TAVTIME{.year = 2024, .month = 5, .day = 1, .hour = 8, .dayOfWeek = 3, .dayOfYear = 122}));
}

TEST_F(DateTimeHandlerTest, ATimeOfDayLeavesTheDayAlone) {
    clock.Exit();
    clock.AddEntry({.hour = 12, .dayOfWeek = 7}, OfMain(10)); // "Sun 12:00:00"
    const auto& entries = clock.*Reach(PrivateMembers::ClockEntries());
    const TAVTIME device{.year = 2024, .month = 4, .day = 30, .hour = 8, .dayOfWeek = 2, .dayOfYear = 121};
    const TAVTIME merged = Reach(PrivateMembers::ClockMerge())(device, entries);
    EXPECT_EQ(merged,
              (TAVTIME{.year = 2024, .month = 4, .day = 30, .hour = 12, .dayOfWeek = 2, .dayOfYear = 121}));
}

// ---- Batches

TEST_F(DateTimeHandlerTest, TheTimerTakes200MillisecondsAndIsNotExtended) {
    BusyClock busy(clock);
    const auto& timer = clock.*Reach(PrivateMembers::ClockTimer());
    const auto before = SteadyClock::now();
    clock.AddEntry(kMayDay, OfMain(11));
    const auto after = SteadyClock::now();
    const auto expiry = timer.expiry();
    EXPECT_GE(expiry, before + milliseconds(200));
    EXPECT_LE(expiry, after + milliseconds(200));
    std::this_thread::sleep_for(milliseconds(20));
    clock.AddEntry(kNoon, OfMain(10));
    EXPECT_EQ(timer.expiry(), expiry);
    busy.Release();
    WaitUntilApplied();
    EXPECT_GE(SteadyClock::now(), expiry);
}

TEST_F(DateTimeHandlerTest, TenTelegramsOfABatch_AreAppliedAtOnce) {
    BusyClock busy(clock);
    for (std::uint8_t minute = 1; minute <= 10; ++minute)
        clock.AddEntry(TimeOfDay(9, minute, 0), OfMain(10));
    busy.Release();
    WaitUntilApplied();
    clock.Exit();
    const auto lines = recorder.Lines();
    ASSERT_EQ(lines.size(), 13u);
    EXPECT_THAT(recorder.LinesWith("DEBUG"), testing::SizeIs(10));
    ExpectTranscript({lines.end() - 3, lines.end()}, R"(
        client GetValue(1005, 0)
        INFO KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Consumed 10 entries to set the time to 2024-04-30T09:10:00
        client SetValue(1005, '2024-04-30T09:10:00', 0, 0)
    )");
}

TEST_F(DateTimeHandlerTest, ATelegramAfterABatch_StartsTheNext) {
    clock.AddEntry(kMayDay, OfMain(11));
    WaitUntilApplied();
    clock.AddEntry(kNoon, OfMain(10));
    WaitUntilApplied(2);
    EXPECT_THAT(
        recorder.LinesWith("SetValue"),
        ElementsAre("client SetValue(1005, '2024-05-01T08:00:00', 0, 0)", // the fake's clock stays in April
                    "client SetValue(1005, '2024-04-30T12:00:00', 0, 0)"));
}

TEST_F(DateTimeHandlerTest, WithinTheTolerance_NothingIsLoggedAndTheBatchIsGone) {
    clock.AddEntry(TimeOfDay(8, 0, 2), OfMain(10));
    WaitUntilApplied();
    EXPECT_FALSE(HasEntries());
    ExpectTranscript(recorder.Lines(), R"(
        DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 08:00:02
        client GetValue(1005, 0)
    )");
    clock.AddEntry(kMayDay, OfMain(11));
    WaitUntilApplied(2);
    EXPECT_EQ(recorder.Count(Consumed(1, "2024-05-01T08:00:00")), 1u);
}

TEST_F(DateTimeHandlerTest, WithoutEntries_NobodyIsAsked) {
    clock.SetTime();
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

} // namespace
