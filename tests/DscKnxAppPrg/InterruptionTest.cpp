// A start that is stopped while the hub or the client has it: the call runs to its own end, and what the
// program does next is the last thing it does.
#include "KnxHandlerTest.h"

#include <ostream>

namespace {

/// A call that hangs while its start is stopped, and what the init thread does once it comes back.
struct HangingCall {
    const char* operation;
    bool ofTheHub;
    bool inARestart;
    bool refused; // the call then answers with its failure result
    bool urns;
    const char* afterwards;
};

void PrintTo(const HangingCall& call, std::ostream* out) {
    *out << call.operation << (call.inARestart ? " in a restart" : "") << (call.urns ? " with URNs" : "");
}

class InterruptionTest : public KnxHandlerTest, public testing::WithParamInterface<HangingCall> {
protected:
    InterruptionTest() {
        hub.settings = {{"ImplicitNtpDisableOnClientMode", "true"}};
        plugins["A"].useUrns = GetParam().urns;
        plugins["A"].bindings = {{.co = 12, .id = 1002, .dpt = {1, 0, 1, 1}}};
        service.objects[12] = TestSupport::FakeGroupObject(1);
        RegisterPlugins({"A"});
    }
    ~InterruptionTest() override { program.Exit(); }
};

TEST_P(InterruptionTest, StopDuringTheCall_TakesEffectAfterIt) {
    const HangingCall& call = GetParam();
    ASSERT_EQ(program.Init(hub), StartupState::InProgress);
    if (call.inARestart) {
        ASSERT_EQ(program.OnDeviceRestart(), StartupState::InProgress);
    }
    TestSupport::Faults& faults = call.ofTheHub ? hub.faults : stack.faults;
    if (call.refused)
        faults.Refuse(call.operation);
    const auto gate = faults.Block(call.operation); // the start is in its first pause
    ASSERT_TRUE(gate->WaitForArrival());
    recorder.Clear();
    EXPECT_FALSE((program.*Reach(PrivateMembers::StopInitThread()))(0));
    gate->Open();
    ASSERT_TRUE(program.WaitForWorkers(30000));
    ExpectRecord(call.inARestart ? "worker 2" : "worker 1", call.afterwards);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, InterruptionTest,
    testing::Values(HangingCall{"GetApplicationProgramSettings", true, false, false, false, R"(
            DEBUG KnxStack.DscKnxAppPrg | operator()(): Implicit NTP disable on client mode is active.
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"SetConfiguration", false, false, false, false, R"(
            INFO KnxStack.DscKnxAppPrg | operator()(): Enable NTP.
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"GetUrn", false, false, false, true, R"(
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"OnApplicationProgramRestarted", true, true, false, false, R"(
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"Command", false, false, true, true, R"(
            WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: No response received for GetProcessView
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"OnApplicationProgramStartupStateChanged", true, false, false, false, R"(
            DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"Command", false, false, true, false, R"(
            ERROR KnxStack.DscKnxAppPrg | Emit event failed: configurationLoaded
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"GetValueRequest", false, false, true, false, R"(
            ERROR KnxStack.DscKnxAppPrg | WriteState(): Get ready data point value failed. Error = refused by the test
            DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1003 Urn  for writing
            plugin A GetCOFromID(1003, writing)
            DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
            ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1003
            DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
        )"}));

/// A start that was stopped and comes late leaves what it was told to the start after it.
class LateAnswerTest : public KnxHandlerTest {
protected:
    LateAnswerTest() {
        plugins["A"].useUrns = true;
        stack.urns[1000] = "urn:oxn:dp:old";
        RegisterPlugins({"A"});
    }
    ~LateAnswerTest() override { program.Exit(); }

    /// Stops a start that hangs in a question, and lets it have its answer.
    void StopDuring(TestSupport::Faults& faults, const char* operation) {
        const auto gate = faults.Block(operation);
        ASSERT_EQ(program.Init(hub), StartupState::InProgress);
        ASSERT_TRUE(gate->WaitForArrival());
        EXPECT_FALSE((program.*Reach(PrivateMembers::StopInitThread()))(0));
        recorder.Clear();
        gate->Open();
        ASSERT_TRUE(program.WaitForWorkers(30000));
        ExpectRecord("worker 1",
                     "ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.");
    }
};

TEST_F(LateAnswerTest, WhetherToUseUrns_IsNotTaken) {
    StopDuring(plugins["A"].faults, "GetUseUrns");
    EXPECT_FALSE(handler.UsesUrns());
}

TEST_F(LateAnswerTest, UrnOfTheDevice_IsNotTaken) {
    StopDuring(stack.faults, "GetUrn");
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:old:lamp"), "urn:oxn:dp:old:lamp"); // no prefix yet
}

} // namespace
