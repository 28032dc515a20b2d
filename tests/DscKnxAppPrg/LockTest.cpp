// Threads that meet: who may wait for whom, and what lives how long.
#include "ProgramTest.h"

#include <future>

namespace {

using TestSupport::Bits;

/// Switch 500 on CO 5, sent when it changes.
class LockTest : public ProgramTest {
protected:
    LockTest() {
        plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .urn = "lamp", .eventing = true}};
        service.objects[5] = TestSupport::FakeGroupObject(1);
        RegisterPlugins({"A"});
    }

    /// A telegram whose call into the device stack hangs, and with it the client mutex.
    class HangingTelegram {
    public:
        explicit HangingTelegram(LockTest& test)
            : m_gate(test.stack.faults.Block("SetValue")),
              m_bus(std::async(std::launch::async, [&test] { test.service.Write(5, Bits(1, 1)); })) {
            EXPECT_TRUE(m_gate->WaitForArrival());
            test.stack.faults.Mend("SetValue");
        }
        ~HangingTelegram() { m_gate->Open(); }

    private:
        std::shared_ptr<TestSupport::Gate> m_gate;
        std::future<void> m_bus; // its end waits for the telegram
    };

    template <typename Result>
    static testing::AssertionResult Ends(const std::future<Result>& call) {
        if (call.wait_for(TestSupport::Recorder::kPatience) == std::future_status::ready)
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "the call waits for the client mutex";
    }
};

TEST_F(LockTest, ClientMutex_IsNotWantedByAFailingWriteOfTheClient) {
    CreateAndInit();
    const HangingTelegram telegram(*this);
    auto call = stack.WriteValue(77, "1", "");
    ASSERT_TRUE(Ends(call));
    EXPECT_FALSE(call.get());
    EXPECT_EQ(recorder.Count("client SetValue(77, '', 1, 1)"), 1u);
}

TEST_F(LockTest, ClientMutex_IsNotWantedByAFailingReadOfTheClient) {
    CreateAndInit();
    const HangingTelegram telegram(*this);
    auto call = stack.ReadValue(77, "");
    ASSERT_TRUE(Ends(call));
    EXPECT_FALSE(call.get());
}

TEST_F(LockTest, ClientMutex_IsNotWantedByARestartOfTheClient) {
    CreateAndInit();
    const HangingTelegram telegram(*this);
    auto call = stack.WriteValue(1004, "1", "");
    ASSERT_TRUE(Ends(call));
    EXPECT_TRUE(call.get());
}

TEST_F(LockTest, ClientMutex_IsNotWantedByAValueChangeThatAsksForAUrn) {
    plugins["A"].useUrns = true;
    stack.urns = {{1000, "urn:oxn:dp:house"}, {500, "urn:oxn:dp:house:lamp"}};
    Start();
    const HangingTelegram telegram(*this);
    stack.urns[501] = "urn:oxn:dp:house:lamp";
    auto call = stack.ValueChanged(501, "", "1");
    ASSERT_TRUE(Ends(call));
    EXPECT_EQ(recorder.Count("client GetUrn(501, 0)"), 1u);
}

TEST_F(LockTest, TelegramsOfTheBus_TakeTurnsAtTheClient) {
    CreateAndInit();
    std::future<void> bus;
    {
        const HangingTelegram telegram(*this);
        bus = std::async(std::launch::async, [this] { service.User()->OnGroupValueResponse(5, Bits(1, 0)); });
        EXPECT_EQ(bus.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        EXPECT_EQ(recorder.Count("client SetValue(500, '0', 1, 1)"), 0u);
    }
    bus.get();
    EXPECT_EQ(recorder.Count("client SetValue(500, '0', 1, 1)"), 1u);
}

TEST_F(LockTest, Disconnect_WaitsForACallbackThatStillUsesTheDyingClient) {
    CreateAndInit();
    const auto gate = plugins["A"].faults.Block("GetCOFromID");
    auto callback = stack.WriteValue(77, "1", "urn:oxn:dp:house:none");
    ASSERT_TRUE(gate->WaitForArrival());
    auto exit = std::async(std::launch::async, [this] { return Exit(); });
    ASSERT_TRUE(recorder.WaitFor("client is being destroyed"));
    gate->Open();
    EXPECT_TRUE(exit.get());
    EXPECT_FALSE(callback.get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 77 Urn urn:oxn:dp:house:none for writing
        plugin A GetCOFromID(77, writing)
        plugin A DeleteHandler()
        library A unloaded
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg | OnWriteValue(): m_knxHandler.WriteValue failed, so set NULL value. Object ID = 77 Urn = urn:oxn:dp:house:none
        client SetValue(77, '', 1, 1)
        client SetValue refused
    )");
    EXPECT_TRUE(recorder.InOrder("client SetValue refused", "client destroyed"));
}

TEST_F(LockTest, Delete_WithoutExit_EndsTheClientBeforeAnythingItsCallbacksUse) {
    CreateAndInit();
    ASSERT_TRUE(InitThreadFinished());
    const auto gate = plugins["A"].faults.Block("GetCOFromID");
    auto callback = stack.WriteValue(77, "1", "");
    ASSERT_TRUE(gate->WaitForArrival());
    auto end = std::async(std::launch::async, [this] { ProgramLibrary::Get().destroy(program); });
    ASSERT_TRUE(recorder.WaitFor("client is being destroyed"));
    gate->Open();
    end.get();
    EXPECT_FALSE(callback.get());
    Forget();
}

TEST_F(LockTest, Exit_WithATelegramInAPlugin_UnloadsThePluginWithTheTelegram) {
    CreateAndInit();
    const auto gate = plugins["A"].faults.Block("GetIDFromCO");
    auto bus = std::async(std::launch::async, [this] { service.Write(5, Bits(1, 1)); });
    ASSERT_TRUE(gate->WaitForArrival());
    auto exit = std::async(std::launch::async, [this] { return Exit(); });
    ASSERT_TRUE(recorder.WaitFor("service RegisterGroupValueUser(null)")); // the plug-ins are gone by now
    EXPECT_EQ(recorder.Count("library A unloaded"), 0u);
    gate->Open();
    bus.get();
    EXPECT_TRUE(exit.get());
    EXPECT_TRUE(recorder.InOrder("plugin A DeleteHandler()", "library A unloaded"));
    EXPECT_EQ(recorder.Count("client SetValue(500, '1', 0, 0)"), 1u); // the client was still there
}

TEST_F(LockTest, PluginThatThrowsInACallback_IsTheClientsToCatch) {
    CreateAndInit();
    plugins["A"].faults.Throw("GetCOFromID", "no");
    auto call = stack.WriteValue(500, "1", "");
    try {
        call.get();
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no");
    }
    plugins["A"].faults.Mend("GetCOFromID");
    EXPECT_TRUE(stack.WriteValue(500, "1", "").get()); // no lock was left behind
}

TEST_F(LockTest, PluginThatThrowsInATelegram_IsTheHostsToCatch) {
    CreateAndInit();
    plugins["A"].faults.Throw("IsOxnReadInternalDataPoint", "no");
    EXPECT_THROW(service.Write(5, Bits(1, 1)), std::runtime_error);
    plugins["A"].faults.Mend("IsOxnReadInternalDataPoint");
    service.Write(5, Bits(1, 1));
    EXPECT_EQ(recorder.Count("client SetValue(500, '1', 0, 0)"), 1u);
}

} // namespace
