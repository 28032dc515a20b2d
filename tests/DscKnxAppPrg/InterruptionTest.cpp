// A start that is stopped while hub, client or plug-in have it: the call runs to its own end, and then the
// start does no further step.
#include "KnxHandlerTest.h"

#include <chrono>
#include <future>
#include <ostream>
#include <thread>

namespace {

/// A call that hangs while its start is stopped, and what the init thread does once it comes back.
struct HangingCall {
    enum Owner { Hub, Client, Plugin, Properties };

    const char* operation;
    Owner owner;
    bool inARestart;
    bool refused; // the call then answers with its failure result
    bool urns;
    const char* afterwards;
};

void PrintTo(const HangingCall& call, std::ostream* out) {
    *out << call.operation << (call.inARestart ? " in a restart" : "") << (call.urns ? " with URNs" : "");
}

class StopTest : public KnxHandlerTest, public testing::WithParamInterface<HangingCall> {
protected:
    StopTest() {
        hub.settings = {{"ImplicitNtpDisableOnClientMode", "true"}};
        propertyService.Add(50001).Add(201).value = {0x40};
        plugins["A"].interfaceObjectId = 50001;
        plugins["A"].useUrns = GetParam().urns;
        plugins["A"].bindings = {{.co = 12, .id = 1002, .dpt = {1, 0, 1, 1}}};
        service.objects[12] = TestSupport::FakeGroupObject(1);
        RegisterPlugins({"A"});
    }
    ~StopTest() override { program.Exit(); }

    TestSupport::Faults& FaultsOf(HangingCall::Owner owner) {
        switch (owner) {
        case HangingCall::Hub: return hub.faults;
        case HangingCall::Client: return stack.faults;
        case HangingCall::Properties: return propertyService.faults;
        default: return plugins["A"].faults;
        }
    }

    /// Starts, and comes back while the call hangs. The record then is empty.
    std::shared_ptr<TestSupport::Gate> StartUpToTheCall() {
        const HangingCall& call = GetParam();
        EXPECT_EQ(program.Init(hub), StartupState::InProgress);
        if (call.inARestart) {
            EXPECT_EQ(program.OnDeviceRestart(), StartupState::InProgress);
        }
        TestSupport::Faults& faults = FaultsOf(call.owner);
        if (call.refused)
            faults.Refuse(call.operation);
        const auto gate = faults.Block(call.operation); // the start is in its first pause
        EXPECT_TRUE(gate->WaitForArrival());
        recorder.Clear();
        return gate;
    }

    void ExpectAfterwards() {
        EXPECT_TRUE(program.WaitForWorkers(30000));
        ExpectRecord(GetParam().inARestart ? "worker 2" : "worker 1", GetParam().afterwards);
    }
};

using InterruptionTest = StopTest;

TEST_P(InterruptionTest, StopDuringTheCall_TakesEffectAfterIt) {
    const auto gate = StartUpToTheCall();
    EXPECT_FALSE((program.*Reach(PrivateMembers::StopInitThread()))(0));
    gate->Open();
    ExpectAfterwards();
}

INSTANTIATE_TEST_SUITE_P(
    Calls, InterruptionTest,
    testing::Values(HangingCall{"GetProperty", HangingCall::Properties, false, false, false, R"(
            object 50001/1 GetProperty(201)
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"GetValue", HangingCall::Properties, false, false, false, R"(
            property 50001/1/201 GetValue() -> 40
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"GetApplicationProgramSettings", HangingCall::Hub, false, false, false, R"(
            DEBUG KnxStack.DscKnxAppPrg | operator()(): Implicit NTP disable on client mode is active.
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"SetConfiguration", HangingCall::Client, false, false, false, R"(
            INFO KnxStack.DscKnxAppPrg | operator()(): Enable NTP.
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"GetUrn", HangingCall::Client, false, false, true, R"(
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"OnApplicationProgramRestarted", HangingCall::Hub, true, false, false, R"(
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"GetDownloadService", HangingCall::Hub, true, false, false, R"(
            DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 1
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"Command", HangingCall::Client, false, true, true, R"(
            WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: No response received for GetProcessView
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"OnApplicationProgramStartupStateChanged", HangingCall::Hub, false, false,
                                false, R"(
            DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"Command", HangingCall::Client, false, true, false, R"(
            ERROR KnxStack.DscKnxAppPrg | Emit event failed: configurationLoaded
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"},
                    HangingCall{"GetValueRequest", HangingCall::Client, false, true, false, R"(
            ERROR KnxStack.DscKnxAppPrg | WriteState(): Get ready data point value failed. Error = refused by the test
            DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1003 Urn  for writing
            plugin A GetCOFromID(1003, writing)
            DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
            ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1003
            ERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.
        )"}));

/// The same with a call that comes back before the patience of the stop is over.
class StopInTimeTest : public StopTest {};

TEST_P(StopInTimeTest, AfterTheCall_NoFurtherStepIsDone) {
    const auto gate = StartUpToTheCall();
    const std::shared_ptr<DscKnxAppPrg::ThreadControl> control = program.*Reach(PrivateMembers::InitThread());
    auto exit = std::async(std::launch::async, [this] { return program.Exit(); });
    while (control->running)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    gate->Open();
    EXPECT_TRUE(exit.get());
    ExpectAfterwards();
}

INSTANTIATE_TEST_SUITE_P(
    Calls, StopInTimeTest,
    testing::Values(HangingCall{"GetValue", HangingCall::Properties, false, false, false, R"(
                        property 50001/1/201 GetValue() -> 40
                        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is: 40
                        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode is: 1
                        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
                    )"},
                    HangingCall{"GetApplicationProgramSettings", HangingCall::Hub, false, false, false, R"(
                        DEBUG KnxStack.DscKnxAppPrg | operator()(): Implicit NTP disable on client mode is active.
                        client SetConfiguration(Ntp=true)
                        INFO KnxStack.DscKnxAppPrg | operator()(): Enable NTP.
                        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
                    )"},
                    HangingCall{"GetUseUrns", HangingCall::Plugin, false, false, false, R"(
                        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: false
                        plugin A GetGroupAddressTranslationRange()
                        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
                    )"},
                    HangingCall{"GetUseUrns", HangingCall::Plugin, true, false, false, R"(
                        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: false
                        plugin A GetGroupAddressTranslationRange()
                        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
                    )"},
                    HangingCall{"OnApplicationProgramRestarted", HangingCall::Hub, true, false, true, R"(
                        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
                    )"},
                    HangingCall{"GetDownloadService", HangingCall::Hub, true, false, true, R"(
                        DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 1
                        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
                    )"},
                    HangingCall{"Command", HangingCall::Client, false, true, true, R"(
                        WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: No response received for GetProcessView
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

    /// Stops a start that hangs in a question, and lets it have its answer, which is recorded as `answer` if
    /// at all.
    void StopDuring(TestSupport::Faults& faults, const char* operation, const std::string& answer = {}) {
        const auto gate = faults.Block(operation);
        ASSERT_EQ(program.Init(hub), StartupState::InProgress);
        ASSERT_TRUE(gate->WaitForArrival());
        EXPECT_FALSE((program.*Reach(PrivateMembers::StopInitThread()))(0));
        recorder.Clear();
        gate->Open();
        ASSERT_TRUE(program.WaitForWorkers(30000));
        ExpectRecord("worker 1",
                     answer +
                         "\nERROR KnxStack.DscKnxAppPrg | operator()(): Init thread has been interrupted.");
    }
};

TEST_F(LateAnswerTest, WhetherToUseUrns_IsNotTaken) {
    StopDuring(plugins["A"].faults, "GetUseUrns");
    EXPECT_FALSE(handler.UsesUrns());
}

TEST_F(LateAnswerTest, TimeMode_IsNotTaken) {
    propertyService.Add(50001).Add(201).value = {0x40};
    plugins["A"].interfaceObjectId = 50001;
    StopDuring(propertyService.faults, "GetValue", "property 50001/1/201 GetValue() -> 40");
    EXPECT_EQ(handler.TimeMode(), 0);
}

TEST_F(LateAnswerTest, UrnOfTheDevice_IsNotTaken) {
    StopDuring(stack.faults, "GetUrn");
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:old:lamp"), "urn:oxn:dp:old:lamp"); // no prefix yet
}

} // namespace
