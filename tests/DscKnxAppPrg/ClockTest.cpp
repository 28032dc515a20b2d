// Clock telegrams of the bus, through the platform's converter to the device's clock.
#include "FailingThreads.h"
#include "ProgramTest.h"

#include <boost/thread/exceptions.hpp>

#include <chrono>
#include <future>
#include <ostream>

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::Octets;

constexpr const char* kQuestion = "client GetValue(1005, 0)";
constexpr const char* kNoTime =
    "ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): No valid time.";
constexpr const char* kNoDate =
    "ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): No valid date.";
constexpr const char* kNoValue =
    "ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueWrite(): Can't get value from group value.";

/// The clock on CO 20 (time of day), CO 21 (date) and CO 22 (both); the device shows 30 April 2024, 08:00:00.
class ClockTest : public ProgramTest {
protected:
    ClockTest() {
        Bind(20, {24, 0, 10, 1});
        Bind(21, {24, 0, 11, 1});
        Bind(22, {64, 0, 19, 1});
        stack.values[1005] = "2024-04-30T08:00:00";
        RegisterPlugins({"A"});
    }

    void Bind(std::uint16_t co, KNXDPT dpt) {
        plugins["A"].bindings.push_back({.co = co, .id = 1005, .dpt = dpt});
        service.objects[co] = TestSupport::FakeGroupObject(dpt.sizeInBits);
    }
};

TEST_F(ClockTest, ADateAndATimeTelegram_SetTheClockInOneWrite) {
    CreateAndInit();
    service.Write(21, Octets({1, 5, 24}));
    service.Write(20, Octets({0x6C, 0, 0})); // Wednesday, 12:00:00
    ASSERT_TRUE(recorder.WaitFor("client SetValue(1005, '2024-05-01T12:00:00', 0, 0)"));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 21 for unknown
        plugin A GetIDFromCO(21)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 1005 and DPT 11.1
        DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 2024-05-01
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 20 for unknown
        plugin A GetIDFromCO(20)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 1005 and DPT 10.1
        DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): Adding DateTime entry 12:00:00
    )");
    EXPECT_GE(recorder.Between("DEBUG KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): "
                               "Adding DateTime entry 2024-05-01",
                               kQuestion),
              milliseconds(199)); // the line is a little late
    ASSERT_TRUE(Exit());
    ExpectTranscript(recorder.LinesWith("1005"), R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 1005 and DPT 11.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 1005 and DPT 10.1
        client GetValue(1005, 0)
        client SetValue(1005, '2024-05-01T12:00:00', 0, 0)
    )");
    EXPECT_THAT(
        recorder.LinesWith("SetTime()"),
        ElementsAre("INFO KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Consumed 2 "
                    "entries to set the time to 2024-05-01T12:00:00"));
}

// ---- What single telegrams come to

struct ClockTelegram {
    const char* name;
    int co;
    KnxStack::GroupValue value;
    const char* outcome; ///< an ERROR line, or the time that is written
};

void PrintTo(const ClockTelegram& row, std::ostream* out) {
    *out << row.name;
}

class SingleClockTelegram : public ClockTest, public testing::WithParamInterface<ClockTelegram> {};

TEST_P(SingleClockTelegram, SetsOrIsRefused) {
    const ClockTelegram& telegram = GetParam();
    const std::string outcome = telegram.outcome;
    CreateAndInit();
    service.Write(telegram.co, telegram.value);
    if (outcome.starts_with("ERROR")) {
        EXPECT_THAT(recorder.LinesWith("ERROR"), ElementsAre(outcome));
        // The next telegram is alone in its batch.
        service.Write(21, Octets({1, 5, 24}));
        EXPECT_TRUE(recorder.WaitFor("INFO KnxStack.DscKnxAppPrg.DateTimeHandler | "
                                     "DateTimeHandler::SetTime(): Consumed 1 "
                                     "entries to set the time to 2024-05-01T08:00:00"));
    } else {
        EXPECT_TRUE(recorder.WaitFor("client SetValue(1005, '" + outcome + "', 0, 0)"));
        EXPECT_THAT(recorder.LinesWith("ERROR"), IsEmpty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    ClockTest, SingleClockTelegram,
    testing::Values(
        ClockTelegram{"NightOf24Hours", 22, Octets({124, 5, 1, 0x78, 0, 0, 0, 0}), kNoTime},
        ClockTelegram{"TimeOfDayOf24Hours", 20, Octets({24, 0, 0}), kNoValue},
        ClockTelegram{"LastSecondOfTheDay", 20, Octets({23, 59, 59}), "2024-04-30T23:59:59"},
        ClockTelegram{"The30thOfFebruary", 21, Octets({30, 2, 24}), kNoDate},
        ClockTelegram{"The30thOfFebruaryWithATime", 22, Octets({124, 2, 30, 12, 0, 0, 0, 0}), kNoDate},
        ClockTelegram{"LeapDay", 21, Octets({29, 2, 24}), "2024-02-29T08:00:00"},
        ClockTelegram{"Month13", 21, Octets({1, 13, 24}), kNoValue},
        ClockTelegram{"Day0", 21, Octets({0, 5, 24}), kNoValue},
        ClockTelegram{"Year2090", 22, Octets({190, 1, 31, 12, 0, 0, 0, 0}), "2090-01-31T12:00:00"},
        ClockTelegram{"Year2155", 22, Octets({255, 12, 31, 23, 59, 59, 0, 0}), "2155-12-31T23:59:59"},
        ClockTelegram{"Year90OfADate", 21, Octets({31, 1, 90}), "1990-01-31T08:00:00"},
        ClockTelegram{"Year100OfADate", 21, Octets({31, 1, 100}), kNoValue},
        ClockTelegram{"FlagsThatTakeNothingAway", 22, Octets({124, 5, 1, 0x6C, 0, 0, 0x61, 0xC0}),
                      "2024-05-01T12:00:00"},
        ClockTelegram{"NoDayOfTheWeek", 22, Octets({124, 5, 1, 0x0C, 0, 0, 0x04, 0}), "2024-05-01T12:00:00"},
        ClockTelegram{"Fault", 22, Octets({124, 5, 1, 12, 0, 0, 0x80, 0}), kNoDate},
        ClockTelegram{"NoYear", 22, Octets({124, 5, 1, 12, 0, 0, 0x10, 0}), kNoDate},
        ClockTelegram{"NoDate", 22, Octets({124, 5, 1, 12, 0, 0, 0x08, 0}), kNoDate},
        ClockTelegram{"NoDateAndNothingInItsPlace", 22, Octets({0, 0, 0, 12, 0, 0, 0x18, 0}), kNoDate},
        ClockTelegram{"NoTime", 22, Octets({124, 5, 1, 0, 0, 0, 0x02, 0}), kNoTime},
        ClockTelegram{"NoTimeAndAnythingInItsPlace", 22, Octets({124, 5, 1, 0x1F, 63, 63, 0x02, 0}), kNoTime},
        ClockTelegram{"EveryBitSet", 22, Octets({255, 255, 255, 255, 255, 255, 255, 255}), kNoDate},
        ClockTelegram{"AnotherSize", 22, Octets({12, 0, 0}), kNoValue}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(ClockTest, ATelegramOfAnotherType_IsRefused) {
    Bind(23, {32, 0, 12, 1});
    CreateAndInit();
    service.Write(23, Octets({0, 0, 0, 12}));
    EXPECT_THAT(
        recorder.LinesWith("ERROR"),
        ElementsAre(
            "ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::AddEntry(): No valid DPT."));
}

TEST_F(ClockTest, ATelegramWithoutType_DoesNotReachTheClock) {
    Bind(23, {24, 0, 0, 0});
    CreateAndInit();
    service.Write(23, Octets({12, 0, 0}));
    EXPECT_THAT(
        recorder.LinesWith("ERROR"),
        ElementsAre(
            "ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueWrite(): Failed to get DPT for CO '23'."));
}

// ---- The end of the program

TEST_F(ClockTest, Exit_DuringASetTime_EndsTheClockBehindTheBusAndBeforeTheClient) {
    const auto gate = stack.faults.Block("GetValue");
    CreateAndInit();
    service.Write(20, Octets({12, 0, 0}));
    ASSERT_TRUE(gate->WaitForArrival());
    const auto opener = std::async(std::launch::async, [&] {
        recorder.WaitFor("service RegisterGroupValueUser(null)");
        std::this_thread::sleep_for(milliseconds(100));
        recorder.Add("the device stack answers");
        gate->Open();
    });
    recorder.Clear();
    EXPECT_TRUE(Exit());
    auto lines = recorder.Lines();
    std::erase_if(lines, [](const auto& line) { return line.find("nit thread") != line.npos; });
    ExpectTranscript(lines, R"(
        DEBUG KnxStack.DscKnxAppPrg | Exit(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
        plugin A DeleteHandler()
        library A unloaded
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): starting...
        service RegisterGroupValueUser(null)
        the device stack answers
        INFO KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): Consumed 1 entries to set the time to 2024-04-30T12:00:00
        client SetValue(1005, '2024-04-30T12:00:00', 0, 0)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): end
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): starting...
        client is being destroyed
        client destroyed
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): end.
        DEBUG KnxStack.DscKnxAppPrg | Exit(): end.
    )");
}

TEST_F(ClockTest, WithoutExit_DeleteEndsTheClockBeforeTheClient) {
    const auto gate = stack.faults.Block("GetValue");
    CreateAndInit();
    service.Write(20, Octets({12, 0, 0}));
    ASSERT_TRUE(gate->WaitForArrival());
    ASSERT_TRUE(InitThreadFinished()); // Delete waits for it
    auto end = std::async(std::launch::async, [this] { ProgramLibrary::Get().destroy(program); });
    EXPECT_EQ(end.wait_for(milliseconds(100)), std::future_status::timeout);
    EXPECT_EQ(recorder.Count("client is being destroyed"), 0u);
    gate->Open();
    end.get();
    Forget();
    EXPECT_TRUE(
        recorder.InOrder("client SetValue(1005, '2024-04-30T12:00:00', 0, 0)", "client is being destroyed"));
}

TEST_F(ClockTest, ATelegramAfterExit_IsDropped) {
    CreateAndInit();
    KnxStack::IGroupValueUser* const user = service.User();
    ASSERT_TRUE(Exit());
    recorder.Clear();
    user->OnGroupValueWrite(20, Octets({12, 0, 0})); // a stack that forgets that it was told so
    ExpectTranscript(
        recorder.Lines(),
        "ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueWrite(): client is not connected.");
}

TEST_F(ClockTest, WhereTheSystemGivesNoThread_TheProgramIsNotMade) {
    const FailingThreads noThreads;
    EXPECT_THROW(ProgramLibrary::Get().create(), boost::thread_resource_error);
}

// ---- The device stack hangs or fails

TEST_F(ClockTest, TelegramsDuringASetTime_AreAppliedInTheNextBatch) {
    plugins["A"].bindings.push_back({.co = 5, .id = 500, .dpt = {1, 0, 1, 1}});
    service.objects[5] = TestSupport::FakeGroupObject(1);
    const auto gate = stack.faults.Block("GetValue");
    CreateAndInit();
    service.Write(20, Octets({12, 0, 0}));
    ASSERT_TRUE(gate->WaitForArrival());
    auto telegram = std::async(std::launch::async, [this] { service.Write(21, Octets({1, 5, 24})); });
    EXPECT_EQ(telegram.wait_for(milliseconds(100)), std::future_status::timeout);
    EXPECT_TRUE(stack.WriteValue(500, "1", "").get()); // the client's thread goes on
    gate->Open();
    telegram.get();
    EXPECT_TRUE(recorder.WaitFor("client SetValue(1005, '2024-05-01T08:00:00', 0, 0)"));
    EXPECT_THAT(recorder.LinesWith("client SetValue"),
                ElementsAre("client SetValue(1005, '2024-04-30T12:00:00', 0, 0)",
                            "client SetValue(1005, '2024-05-01T08:00:00', 0, 0)"));
}

TEST_F(ClockTest, AClientThatThrows_LeavesTheProgramRunning) {
    stack.faults.Throw("GetValue", "out of memory");
    CreateAndInit();
    service.Write(20, Octets({12, 0, 0}));
    ASSERT_TRUE(recorder.WaitFor("ERROR KnxStack.DscKnxAppPrg.DateTimeHandler | DateTimeHandler::SetTime(): "
                                 "Can't set the time: out of memory"));
    stack.faults.Mend("GetValue");
    service.Write(20, Octets({13, 0, 0}));
    EXPECT_TRUE(recorder.WaitFor("client SetValue(1005, '2024-04-30T13:00:00', 0, 0)"));
    EXPECT_THAT(recorder.LinesWith("ERROR"), testing::SizeIs(1));
}

} // namespace
