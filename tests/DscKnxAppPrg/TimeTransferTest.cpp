// How often the time data points go to the bus in time mode 1: once a second, counted from the last time that
// one was sent or read.
#include "OwnTicks.h"
#include "ParameterNames.h"
#include "ProgramTest.h"

#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kStart = 10'000'000'000;
constexpr std::uint64_t kSecond = 1'000'000'000;

/// Date and time, 1005, on CO 20; date, 1006, on CO 21; time of day, 1007, on CO 22; none of them is sent by
/// itself on a change. A lamp, 500, on CO 5. The counter stands still at kStart.
class TimeTransferTest : public ProgramTest {
protected:
    TimeTransferTest() {
        propertyService.Add(50001).Add(201).value = {0x40};
        plugins["A"].interfaceObjectId = 50001;
        Bind(5, 500, {1, 0, 1, 1});
        Bind(20, 1005, {8, 0, 5, 10});
        Bind(21, 1006, {8, 0, 5, 10});
        Bind(22, 1007, {8, 0, 5, 10});
        plugins["A"].timeCos = {{20, {8, 0, 5, 10}}};
        RegisterPlugins({"A"});
    }

    void Bind(std::uint16_t co, std::uint32_t id, KNXDPT dpt, bool eventing = false) {
        plugins["A"].bindings.push_back({.co = co, .id = id, .dpt = dpt, .eventing = eventing});
        service.objects[co] = TestSupport::FakeGroupObject(dpt.sizeInBits);
    }

    void AllAreEventing() {
        for (Binding& binding : plugins["A"].bindings)
            binding.eventing = true;
    }

    /// What is sent for a change of the data point. The change is handled in any case.
    std::vector<std::string> SentFor(std::uint32_t id) {
        recorder.Clear();
        EXPECT_TRUE(stack.ValueChanged(id, "", "18").get());
        return recorder.LinesWith("service Send");
    }

    static std::string Sent(unsigned co) {
        return "service SendGroupValue(" + std::to_string(co) + ", 12/8, 0) -> true";
    }

    OwnTicks ticks{kStart};
};

TEST_F(TimeTransferTest, Change_AsksForNoEventingState) {
    Start();
    EXPECT_TRUE(stack.ValueChanged(1006, "", "18").get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1006 Urn  for reading
        plugin A GetCOFromID(1006, reading)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 21 and DPT 5.10
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(18, 21, 12) - ToKnxValue(8:5.10, 18, 12) succeeded (2).
        service SendGroupValue(21, 12/8, 0) -> true
    )");
}

TEST_F(TimeTransferTest, ChangeWithinASecond_IsHandledWithoutAnything) {
    Start();
    EXPECT_TRUE(stack.ValueChanged(1006, "", "18").get());
    recorder.Clear();
    EXPECT_TRUE(stack.ValueChanged(1006, "", "19").get());
    ExpectRecord("client", "");
}

struct TimeDataPoint {
    std::uint32_t id;
    std::uint16_t co;
};

class EveryTimeDataPoint : public TimeTransferTest, public testing::WithParamInterface<TimeDataPoint> {};

TEST_P(EveryTimeDataPoint, IsSentAgainAfterTheSecond) {
    Start();
    EXPECT_THAT(SentFor(GetParam().id), ElementsAre(Sent(GetParam().co)));
    ticks.Set(kStart + kSecond - 1);
    EXPECT_THAT(SentFor(GetParam().id), IsEmpty());
    ticks.Set(kStart + kSecond);
    EXPECT_THAT(SentFor(GetParam().id), ElementsAre(Sent(GetParam().co)));
    ticks.Set(kStart + 2 * kSecond - 1);
    EXPECT_THAT(SentFor(GetParam().id), IsEmpty());
}

TEST_P(EveryTimeDataPoint, ReadOnTheBus_CountsAsSent) {
    stack.values[GetParam().id] = "7";
    Start();
    EXPECT_EQ(service.Read(GetParam().co), TestSupport::Octets({7}));
    ticks.Set(kStart + kSecond - 1);
    EXPECT_THAT(SentFor(1006), IsEmpty());
    ticks.Set(kStart + kSecond);
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
}

INSTANTIATE_TEST_SUITE_P(TimeTransferTest, EveryTimeDataPoint,
                         testing::Values(TimeDataPoint{1005, 20}, TimeDataPoint{1006, 21},
                                         TimeDataPoint{1007, 22}),
                         TestSupport::NamesInOrder({"DateAndTime", "Date", "TimeOfDay"}));

TEST_F(TimeTransferTest, TheThreeDataPoints_ShareTheSecond) {
    Start();
    EXPECT_THAT(SentFor(1005), ElementsAre(Sent(20)));
    EXPECT_THAT(SentFor(1006), IsEmpty());
    EXPECT_THAT(SentFor(1007), IsEmpty());
    ticks.Set(kStart + kSecond);
    EXPECT_THAT(SentFor(1007), ElementsAre(Sent(22)));
    EXPECT_THAT(SentFor(1005), IsEmpty());
}

TEST_F(TimeTransferTest, OtherDataPoints_AreNotLimited) {
    Bind(23, 1008, {8, 0, 5, 10});
    Bind(4, 1004, {1, 0, 1, 1});
    AllAreEventing();
    Start();
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
    EXPECT_THAT(SentFor(1008), ElementsAre(Sent(23)));
    EXPECT_THAT(SentFor(1008), ElementsAre(Sent(23)));
    EXPECT_TRUE(stack.ValueChanged(1004, "", "1").get());
    EXPECT_TRUE(stack.ValueChanged(1004, "", "1").get());
    EXPECT_EQ(recorder.Count(R"(client Command({"command":"Restart", "type":"Device"}))"), 2u);
}

class OtherTimeMode : public TimeTransferTest, public testing::WithParamInterface<std::uint8_t> {};

TEST_P(OtherTimeMode, DoesNotLimitWhatIsEventing) {
    propertyService.Object(50001).properties.at(201).value = {GetParam()};
    plugins["A"].bindings[2].eventing = true; // 1006
    Start();
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
    EXPECT_THAT(SentFor(1007), IsEmpty());
}
INSTANTIATE_TEST_SUITE_P(TimeTransferTest, OtherTimeMode, testing::Values(0x00, 0x80, 0xC0),
                         TestSupport::NamesInOrder({"Mode0", "Mode2", "Mode3"}));

TEST_F(TimeTransferTest, ChangeThatCannotBeSent_IsNotCounted) {
    Start();
    service.faults.Refuse("SendGroupValue");
    EXPECT_FALSE(stack.ValueChanged(1006, "", "18").get());
    service.faults.Mend("SendGroupValue");
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
}

TEST_F(TimeTransferTest, ChangeOfADataPointWithoutCo_IsAFailureAndNotCounted) {
    plugins["A"].bindings.pop_back(); // 1007
    Start();
    EXPECT_FALSE(stack.ValueChanged(1007, "", "18").get());
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
}

TEST_F(TimeTransferTest, TheSecond_BeginsWhenTheSendingIsDone) {
    Start();
    const auto gate = service.faults.Block("SendGroupValue");
    auto slow = stack.ValueChanged(1006, "", "18");
    ASSERT_TRUE(gate->WaitForArrival());
    ticks.Set(kStart + 5 * kSecond);
    gate->Open();
    EXPECT_TRUE(slow.get());
    ticks.Set(kStart + 6 * kSecond - 1);
    EXPECT_THAT(SentFor(1006), IsEmpty());
    ticks.Set(kStart + 6 * kSecond);
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
}

TEST_F(TimeTransferTest, ReadWithoutAnAnswer_CountsAllTheSame) {
    Start();
    stack.faults.Refuse("GetValue");
    EXPECT_EQ(service.Read(21), std::nullopt);
    EXPECT_THAT(SentFor(1006), IsEmpty());
}

TEST_F(TimeTransferTest, ReadOfAnotherDataPoint_DoesNotCount) {
    stack.values[500] = "1";
    Start();
    EXPECT_NE(service.Read(5), std::nullopt);
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
}

TEST_F(TimeTransferTest, WritesAndAnswersOfTheBus_DoNotCount) {
    Start();
    service.Write(21, TestSupport::Octets({7}));
    service.Response(21, TestSupport::Octets({7}));
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
}

TEST_F(TimeTransferTest, ReadThatIsNotedDuringAChange_HoldsTheChangeBack) {
    stack.values[1006] = "7";
    Start();
    ticks.Set(kStart + 1);
    ASSERT_NE(service.Read(21), std::nullopt);
    ticks.Set(kStart); // as the change looked at the counter, before the read did
    EXPECT_THAT(SentFor(1006), IsEmpty());
}

TEST_F(TimeTransferTest, WriteOfTheDeviceStack_IsNotLimited) {
    Start();
    EXPECT_TRUE(stack.WriteValue(1006, "18", "").get());
    EXPECT_TRUE(stack.WriteValue(1006, "18", "").get());
    EXPECT_THAT(recorder.LinesWith("service Send"), ElementsAre(Sent(21), Sent(21)));
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21))); // nor does it count
}

TEST_F(TimeTransferTest, FirstSecondOfTheCounter_CountsFromZero) {
    ticks.Set(kSecond - 1);
    Start();
    EXPECT_THAT(SentFor(1006), IsEmpty());
    ticks.Set(kSecond);
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
}

TEST_F(TimeTransferTest, DeviceRestart_ForgetsTheLastTransfer) {
    Start();
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
    recorder.Clear();
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
}

TEST_F(TimeTransferTest, Init_ForgetsTheLastTransfer) {
    Start();
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
    ASSERT_TRUE(Exit());
    recorder.Clear();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_THAT(SentFor(1006), ElementsAre(Sent(21)));
}

TEST_F(TimeTransferTest, ReadsAndChangesAtTheSameTime_AreCountedTogether) {
    stack.values[1006] = "7";
    Start();
    std::thread bus([this] {
        for (int count = 0; count != 200; ++count)
            service.Read(21);
    });
    for (int count = 0; count != 200; ++count)
        EXPECT_TRUE(stack.ValueChanged(1006, "", "18").get());
    bus.join();
    EXPECT_LE(recorder.LinesWith("service Send").size(), 1u);
}

} // namespace
