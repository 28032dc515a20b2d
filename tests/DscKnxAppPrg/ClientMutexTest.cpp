// Who holds the client mutex while the client is at work, and who must not.
#include "KnxHandlerTest.h"

#include <functional>
#include <future>
#include <ostream>

namespace {

using TestSupport::Bits;

/// Switch 500 on CO 5, and the two status data points.
class ClientMutexTest : public KnxHandlerTest {
protected:
    ClientMutexTest() {
        plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .urn = "lamp", .eventing = true},
                                 {.co = 6, .id = 1004, .dpt = {1, 0, 1, 1}},
                                 {.co = 12, .id = 1002, .dpt = {1, 0, 1, 1}},
                                 {.co = 13, .id = 1003, .dpt = {8, 0, 5, 10}}};
        for (const std::uint16_t co : {5, 6, 12})
            service.objects[co] = TestSupport::FakeGroupObject(1);
        service.objects[13] = TestSupport::FakeGroupObject(8);
        stack.values[500] = "1";
        stack.urns[1000] = "urn:oxn:dp:house";
    }

    bool IsFree() {
        std::mutex& mutex = program.*Reach(PrivateMembers::ClientMutex());
        if (!mutex.try_lock())
            return false;
        mutex.unlock();
        return true;
    }

public:
    // For the list of calls.
    void Connect() { (program.*Reach(PrivateMembers::Connect()))(); }
    void Disconnect() { (program.*Reach(PrivateMembers::Disconnect()))(); }
    void SendEmitEvent() { (program.*Reach(PrivateMembers::SendEmitEvent()))("configurationLoaded"); }
    void ReadDeviceConfiguration() { (program.*Reach(PrivateMembers::ReadDeviceConfiguration()))(); }
    void WriteState() { (program.*Reach(PrivateMembers::WriteState()))(); }
    void WriteStateWithoutReady() {
        service.objects.erase(12);
        WriteState();
    }
    void InitFromDynamicHandlersWithUrns() {
        plugins["A"].useUrns = true;
        handler.InitFromDynamicHandlers();
    }
    void UpdateIdUrnMap() { handler.UpdateIdUrnMap(); }
    void OnGroupValueWrite() { handler.OnGroupValueWrite(5, Bits(1, 1)); }
    void OnGroupValueWriteOfTheRestart() { handler.OnGroupValueWrite(6, Bits(1, 1)); }
    void OnGroupValueResponse() { handler.OnGroupValueResponse(5, Bits(1, 1)); }
    void OnGroupValueRead() {
        KnxStack::GroupValue value;
        handler.OnGroupValueRead(5, value);
    }
};

/// A call of the program and the operation of the client that it comes to.
struct Taker {
    const char* name;
    void (ClientMutexTest::*call)();
    const char* operation;
    bool connectsItself = false;
};

void PrintTo(const Taker& taker, std::ostream* out) {
    *out << taker.name;
}

class TakerTest : public ClientMutexTest, public testing::WithParamInterface<Taker> {};

TEST_P(TakerTest, HoldsTheClientMutexWhileTheClientIsAtWork) {
    const Taker& taker = GetParam();
    if (!taker.connectsItself)
        SetUpWith({"A"});
    ASSERT_TRUE(IsFree());
    const auto gate = stack.faults.Block(taker.operation);
    const auto call = std::async(std::launch::async, [&] { (this->*taker.call)(); });
    ASSERT_TRUE(gate->WaitForArrival());
    EXPECT_FALSE(IsFree());
    gate->Open();
    call.wait();
    EXPECT_TRUE(IsFree());
}

INSTANTIATE_TEST_SUITE_P(
    Calls, TakerTest,
    testing::Values(
        Taker{"Connect", &ClientMutexTest::Connect, "CreateDeviceStackClient", true},
        Taker{"ConnectToItsEnd", &ClientMutexTest::Connect, "SetValueFormat", true},
        Taker{"SendEmitEvent", &ClientMutexTest::SendEmitEvent, "Command"},
        Taker{"ReadDeviceConfiguration", &ClientMutexTest::ReadDeviceConfiguration, "GetConfiguration"},
        Taker{"WriteState", &ClientMutexTest::WriteState, "GetValueRequest"},
        Taker{"WriteStateWithoutReady", &ClientMutexTest::WriteStateWithoutReady, "GetValueRequest"},
        Taker{"QuestionForDataPoint1000", &ClientMutexTest::InitFromDynamicHandlersWithUrns, "GetUrn"},
        Taker{"UpdateIdUrnMap", &ClientMutexTest::UpdateIdUrnMap, "Command"},
        Taker{"OnGroupValueWrite", &ClientMutexTest::OnGroupValueWrite, "SetValue"},
        Taker{"OnGroupValueWriteOfTheRestart", &ClientMutexTest::OnGroupValueWriteOfTheRestart, "Command"},
        Taker{"OnGroupValueResponse", &ClientMutexTest::OnGroupValueResponse, "SetValue"},
        Taker{"OnGroupValueRead", &ClientMutexTest::OnGroupValueRead, "GetValue"}),
    [](const auto& taker) { return std::string(taker.param.name); });

TEST_F(ClientMutexTest, Disconnect_HoldsItUntilTheClientIsGone) {
    SetUpWith({"A"});
    const auto gate = plugins["A"].faults.Block("GetCOFromID");
    auto callback = stack.WriteValue(500, "1", "");
    ASSERT_TRUE(gate->WaitForArrival());
    const auto call = std::async(std::launch::async, [this] { Disconnect(); });
    ASSERT_TRUE(recorder.WaitFor("client is being destroyed")); // and waits for the callback
    EXPECT_FALSE(IsFree());
    gate->Open();
    callback.wait();
    call.wait();
    EXPECT_TRUE(IsFree());
}

TEST_F(ClientMutexTest, WriteState_WantsItForItsRequestsOnly) {
    SetUpWith({"A"});
    std::future<void> state;
    {
        const std::lock_guard lock(program.*Reach(PrivateMembers::ClientMutex()));
        state = std::async(std::launch::async, [this] { WriteState(); });
        EXPECT_TRUE(recorder.WaitFor(
            "DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 12 and DPT 1.1"));
        EXPECT_EQ(state.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        EXPECT_THAT(recorder.LinesWith("GetValueRequest"), testing::IsEmpty());
    }
    state.wait();
    EXPECT_THAT(recorder.LinesWith("GetValueRequest"),
                testing::ElementsAre("client GetValueRequest(1002, 1)", "client GetValueRequest(1003, 1)"));
}

TEST_F(ClientMutexTest, WriteState_WithAClientThatIsGoing_FindsNone) {
    // A start that comes late must not look at it, nor wait for its end.
    SetUpWith({"A"});
    const auto gate = plugins["A"].faults.Block("GetCOFromID");
    auto callback = stack.WriteValue(77, "1", "");
    ASSERT_TRUE(gate->WaitForArrival());
    const auto end = std::async(std::launch::async, [this] { Disconnect(); });
    ASSERT_TRUE(recorder.WaitFor("client is being destroyed"));
    const auto state = std::async(std::launch::async, [this] { WriteState(); });
    EXPECT_TRUE(recorder.WaitFor("ERROR KnxStack.DscKnxAppPrg | WriteState(): client not connected."));
    gate->Open();
    callback.wait();
}

TEST_F(ClientMutexTest, OnGroupValueWriteOfTheClock_HoldsItWhileTheClockIsAtWork) {
    plugins["A"].bindings.push_back({.co = 20, .id = 1005, .dpt = {24, 0, 10, 1}});
    service.objects[20] = TestSupport::FakeGroupObject(24);
    SetUpWith({"A"});
    const auto gate = stack.faults.Block("GetValue");
    handler.OnGroupValueWrite(20, TestSupport::Octets({12, 0, 0}));
    ASSERT_TRUE(gate->WaitForArrival());
    EXPECT_TRUE(IsFree()); // the clock itself goes without it
    auto telegram = std::async(std::launch::async, [this] {
        handler.OnGroupValueWrite(20, TestSupport::Octets({13, 0, 0}));
    });
    EXPECT_EQ(telegram.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    EXPECT_FALSE(IsFree());
    gate->Open();
    telegram.wait();
    EXPECT_TRUE(IsFree());
}

TEST_F(ClientMutexTest, TheClock_GoesWithoutIt) {
    plugins["A"].bindings.push_back({.co = 20, .id = 1005, .dpt = {24, 0, 10, 1}});
    service.objects[20] = TestSupport::FakeGroupObject(24);
    stack.values[1005] = "2024-04-30T08:00:00";
    SetUpWith({"A"});
    handler.OnGroupValueWrite(20, TestSupport::Octets({12, 0, 0}));
    const std::lock_guard lock(program.*Reach(PrivateMembers::ClientMutex()));
    EXPECT_TRUE(recorder.WaitFor("client SetValue(1005, '2024-04-30T12:00:00', 0, 0)"));
}

TEST_F(ClientMutexTest, TheEndOfTheClock_GoesWithoutIt) {
    SetUpWith({"A"});
    const std::lock_guard lock(program.*Reach(PrivateMembers::ClientMutex()));
    const auto end = std::async(std::launch::async, [this] { handler.Exit(); });
    EXPECT_EQ(end.wait_for(TestSupport::Recorder::kPatience), std::future_status::ready);
}

TEST_F(ClientMutexTest, SetNtpState_GoesWithoutIt) {
    // The first thing that the start asks of the client; nobody else is there who could hold the mutex.
    hub.settings = {{"ImplicitNtpDisableOnClientMode", "true"}};
    RegisterPlugins({"A"});
    ASSERT_EQ(program.Init(hub), StartupState::InProgress);
    {
        const std::lock_guard lock(program.*Reach(PrivateMembers::ClientMutex()));
        EXPECT_TRUE(recorder.WaitFor("client SetConfiguration(Ntp=true)"));
    }
    EXPECT_TRUE(program.Exit());
}

} // namespace
