// Answers that were asked for before the caches were emptied: they are given, but not kept.
#include "KnxHandlerTest.h"

#include <future>

namespace {

constexpr DscKnxAppPrg::KnxHandler::OpMode kTelegram = DscKnxAppPrg::KnxHandler::kTelegram;

class StaleAnswersTest : public KnxHandlerTest {
protected:
    StaleAnswersTest() {
        plugins["A"].bindings = {
            {.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .urn = "lamp", .eventing = true, .readInternal = true}};
        stack.urns[500] = "urn:oxn:dp:house:lamp";
    }

    /// Runs `ask` up to the question `operation`, empties the caches by `empty`, and lets it end.
    template <typename Ask, typename Empty>
    auto AskAcross(TestSupport::Faults& faults, const std::string& operation, Ask ask, Empty empty) {
        const auto gate = faults.Block(operation);
        auto answer = std::async(std::launch::async, ask);
        EXPECT_TRUE(gate->WaitForArrival());
        empty();
        faults.Mend(operation);
        gate->Open();
        return answer.get();
    }

    template <typename Ask>
    auto AskAcrossClear(const std::string& operation, Ask ask) {
        return AskAcross(plugins["A"].faults, operation, ask, [this] { handler.ClearCoAndIdMap(); });
    }
};

TEST_F(StaleAnswersTest, IdOfACo_IsAskedForAgain) {
    SetUpWith({"A"});
    const auto ask = [this] {
        KNXDPT own;
        return handler.GetIDFromCO(5, own, kTelegram);
    };
    EXPECT_EQ(AskAcrossClear("GetIDFromCO", ask), 500u);
    EXPECT_EQ(ask(), 500u);
    EXPECT_EQ(recorder.Count("plugin A GetIDFromCO(5)"), 2u);
    EXPECT_EQ(ask(), 500u);
    EXPECT_EQ(recorder.Count("plugin A GetIDFromCO(5)"), 2u);
}

TEST_F(StaleAnswersTest, EventingState_IsAskedForAgain) {
    SetUpWith({"A"});
    const auto ask = [this] { return handler.IsKnxEventDataPoint(500, ""); };
    EXPECT_TRUE(AskAcrossClear("IsKnxEventDataPoint", ask));
    EXPECT_TRUE(ask());
    EXPECT_EQ(recorder.Count("plugin A IsKnxEventDataPoint(500)"), 2u);
    EXPECT_TRUE(ask());
    EXPECT_EQ(recorder.Count("plugin A IsKnxEventDataPoint(500)"), 2u);
}

TEST_F(StaleAnswersTest, ReadInternalState_IsAskedForAgain) {
    SetUpWith({"A"});
    const auto ask = [this] { return handler.IsOxnReadInternalDataPoint(500); };
    EXPECT_TRUE(AskAcrossClear("IsOxnReadInternalDataPoint", ask));
    EXPECT_TRUE(ask());
    EXPECT_EQ(recorder.Count("plugin A IsOxnReadInternalDataPoint(500)"), 2u);
}

TEST_F(StaleAnswersTest, UrnOfAnId_IsAskedForAgain) {
    SetUpWithUrns({"A"});
    const auto ask = [this] { return handler.ResolveID(500); };
    const auto update = [this] { handler.UpdateIdUrnMap(); };
    EXPECT_EQ(AskAcross(stack.faults, "GetUrn", ask, update), "lamp");
    EXPECT_EQ(ask(), "lamp");
    EXPECT_EQ(recorder.Count("client GetUrn(500, 0)"), 2u);
    EXPECT_EQ(ask(), "lamp");
    EXPECT_EQ(recorder.Count("client GetUrn(500, 0)"), 2u);
}

TEST_F(StaleAnswersTest, IdOfAUrn_IsAskedForAgain) {
    SetUpWithUrns({"A"});
    const auto ask = [this] { return handler.ResolveUrn("lamp"); };
    const auto update = [this] { handler.UpdateIdUrnMap(); };
    EXPECT_EQ(AskAcross(stack.faults, "GetId", ask, update), 500u);
    EXPECT_EQ(ask(), 500u);
    EXPECT_EQ(recorder.Count("client GetId(urn:oxn:dp:house:lamp)"), 2u);
}

TEST_F(StaleAnswersTest, AnswerOfTheFormerIdentification_IsForgotten) {
    plugins["A"].useUrns = true;
    stack.urns[1000] = "urn:oxn:dp:house";
    plugins["A"].bindings[0].id = 9; // what the plug-in says by ID is not what the URN says
    SetUpWith({"A"});
    const auto gate = stack.faults.Block("GetUrn");
    auto start = std::async(std::launch::async, [this] { handler.InitFromDynamicHandlers(); });
    ASSERT_TRUE(gate->WaitForArrival()); // URNs are used already, the prefix is not known yet
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, kTelegram), 0u);
    EXPECT_FALSE(handler.IsKnxEventDataPoint(500, "urn:oxn:dp:house:lamp")); // the whole URN is nobody's name
    gate->Open();
    start.get();
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, kTelegram), 500u);
    EXPECT_TRUE(handler.IsKnxEventDataPoint(500, "urn:oxn:dp:house:lamp"));
}

TEST_F(StaleAnswersTest, AnswerInIdsWhileUrnsAreComing_IsForgotten) {
    plugins["A"].useUrns = true;
    stack.urns[1000] = "urn:oxn:dp:house";
    plugins["A"].bindings[0].id = 9;
    SetUpWith({"A"});
    const auto gate = plugins["A"].faults.Block("GetUseUrns");
    auto start = std::async(std::launch::async, [this] { handler.InitFromDynamicHandlers(); });
    ASSERT_TRUE(gate->WaitForArrival());
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, kTelegram), 9u);
    gate->Open();
    start.get();
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, kTelegram), 500u);
}

} // namespace
