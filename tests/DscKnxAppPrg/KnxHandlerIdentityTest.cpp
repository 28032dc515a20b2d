// COs and data points: who belongs to whom, and what is remembered of it.
#include "KnxHandlerTest.h"

#include <future>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr DscKnxAppPrg::KnxHandler::OpMode kTelegram = DscKnxAppPrg::KnxHandler::kTelegram;

using CoOfId = KnxHandlerTest;

TEST_F(CoOfId, IsAskedOnceForEachDirection) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .writing = false},
                             {.co = 6, .id = 500, .dpt = {1, 0, 1, 2}, .reading = false}};
    service.objects[5] = TestSupport::FakeGroupObject(1);
    service.objects[6] = TestSupport::FakeGroupObject(1);
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetCOFromID(500, "urn:x", dpt, OpMode::Reading), 5);
    EXPECT_EQ(handler.GetCOFromID(500, "urn:x", dpt, OpMode::Writing), 6);
    dpt = {};
    EXPECT_EQ(handler.GetCOFromID(500, "urn:x", dpt, OpMode::Reading), 5);
    EXPECT_EQ(dpt, (KNXDPT{1, 0, 1, 1}));
    EXPECT_EQ(handler.GetCOFromID(500, "urn:x", dpt, OpMode::Writing), 6);
    EXPECT_EQ(dpt, (KNXDPT{1, 0, 1, 2}));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 500 Urn urn:x for reading
        plugin A GetCOFromID(500, reading)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 5 and DPT 1.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 500 Urn urn:x for writing
        plugin A GetCOFromID(500, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 6 and DPT 1.2
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 500 Urn urn:x for reading
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 5 and DPT 1.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 500 Urn urn:x for writing
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 6 and DPT 1.2
    )");
}

TEST_F(CoOfId, TelegramMode_ReadsAsWritingAndFillsNothing) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}}};
    service.objects[5] = TestSupport::FakeGroupObject(1);
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, kTelegram), 5);
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, kTelegram), 5);
    EXPECT_EQ(recorder.Count("plugin A GetCOFromID(500, writing)"), 2u);
    EXPECT_EQ(
        recorder.Count(
            "DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 500 Urn  for writing"),
        2u);
}

TEST_F(CoOfId, UnknownId_IsRememberedAsHavingNone) {
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetCOFromID(77, "", dpt, OpMode::Reading), 0xFFFF);
    EXPECT_EQ(handler.GetCOFromID(78, "", dpt, OpMode::Reading), 0xFFFF);
    EXPECT_EQ(handler.GetCOFromID(77, "", dpt, OpMode::Reading), 0xFFFF);
    EXPECT_EQ(handler.GetIDFromCO(0xFFFF, dpt, OpMode::Reading), 77u); // the first of them stands for "no CO"
    EXPECT_THAT(recorder.LinesWith("plugin"),
                ElementsAre("plugin A GetCOFromID(77, reading)", "plugin A GetCOFromID(78, reading)"));
}

TEST_F(CoOfId, CoZero_IsAskedForEveryTime) {
    plugins["A"].bindings = {{.co = 0, .id = 500, .dpt = {}}};
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 0);
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 0);
    EXPECT_EQ(recorder.Count("plugin A GetCOFromID(500, reading)"), 2u);
}

TEST_F(CoOfId, TypeOfAnotherSize_IsAskedAgainWithTheObjectsSize) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {16, 7, 9, 1}}};
    plugins["A"].keepsGivenSize = true;
    service.objects[5] = TestSupport::FakeGroupObject(8);
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 5);
    EXPECT_EQ(dpt, (KNXDPT{8, 7, 0, 0})); // the second byte is carried along
    EXPECT_EQ(recorder.Count("plugin A GetCOFromID(500, reading)"), 2u);
}

TEST_F(CoOfId, AnswerToTheSecondQuestion_Counts) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {16, 0, 9, 1}}};
    plugins["A"].refusesGivenSize = true;
    service.objects[5] = TestSupport::FakeGroupObject(8);
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 0xFFFF);
}

TEST_F(CoOfId, InUrnMode_TypeOfAnotherSize_IsAskedAgainByUrn) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {16, 0, 9, 1}, .urn = "lamp"}};
    plugins["A"].recordsGivenDpt = true;
    service.objects[5] = TestSupport::FakeGroupObject(8);
    SetUpWithUrns({"A"});
    EXPECT_EQ(handler.GetCOFromID(500, "urn:oxn:dp:house:lamp", dpt, OpMode::Reading), 5);
    EXPECT_THAT(recorder.LinesWith("plugin"),
                ElementsAre("plugin A GetCOFromUrn('lamp', reading)", "plugin A is given 0:0.0",
                            "plugin A GetCOFromUrn('lamp', reading)", "plugin A is given 8:0.0"));
}

TEST_F(CoOfId, WithoutAnObject_IsAskedAgainWithoutSize) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {16, 0, 9, 1}}};
    plugins["A"].recordsGivenDpt = true;
    SetUpWith({"A"});
    dpt = {1, 0, 1, 1};
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 5);
    EXPECT_THAT(recorder.LinesWith("is given"),
                ElementsAre("plugin A is given 1:1.1", "plugin A is given 0:0.0"));
    EXPECT_EQ(dpt, (KNXDPT{16, 0, 9, 1})); // the second answer counts
}

TEST_F(CoOfId, WithoutGroupCommunication_IsAskedAgainWithoutSize) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {16, 0, 9, 1}}};
    plugins["A"].recordsGivenDpt = true;
    service.objects[5] = TestSupport::FakeGroupObject(16); // which nobody hands out
    hub.groupValueService = nullptr;
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 5);
    EXPECT_THAT(recorder.LinesWith("is given"),
                ElementsAre("plugin A is given 0:0.0", "plugin A is given 0:0.0"));
}

TEST_F(CoOfId, AskedByTwoThreads_IsAskedOnce) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}}};
    service.objects[5] = TestSupport::FakeGroupObject(1);
    SetUpWith({"A"});
    const auto ask = [this] {
        KNXDPT own;
        return handler.GetCOFromID(500, "", own, OpMode::Writing);
    };
    const auto gate = plugins["A"].faults.Block("GetCOFromID");
    auto first = std::async(std::launch::async, ask);
    ASSERT_TRUE(gate->WaitForArrival());
    auto second = std::async(std::launch::async, ask);
    ASSERT_TRUE(recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID "
                                 "500 Urn  for writing",
                                 2));
    // It would ask right away, so it has some time to do so.
    EXPECT_EQ(second.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    EXPECT_EQ(recorder.Count("plugin A GetCOFromID(500, writing)"), 1u);
    gate->Open();
    EXPECT_EQ(first.get(), 5);
    EXPECT_EQ(second.get(), 5);
    EXPECT_EQ(recorder.Count("plugin A GetCOFromID(500, writing)"), 1u);
}

TEST_F(CoOfId, TypeWithoutSize_IsTakenAsItIs) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {0, 0, 9, 1}}};
    service.objects[5] = TestSupport::FakeGroupObject(8);
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 5);
    EXPECT_EQ(recorder.LinesWith("plugin").size(), 1u);
}

TEST_F(CoOfId, InUrnMode_IsAskedByTheTrimmedUrnOrElseById) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {}, .urn = "lamp"}};
    SetUpWithUrns({"A"});
    EXPECT_EQ(handler.GetCOFromID(500, "urn:oxn:dp:house:lamp", dpt, OpMode::Writing), 5);
    EXPECT_EQ(handler.GetCOFromID(500, "urn:oxn:dp:house:lamp", dpt, OpMode::Reading), 5);
    EXPECT_EQ(handler.GetCOFromID(501, "urn:oxn:dp:garden:lamp", dpt, OpMode::Writing), 0xFFFF);
    EXPECT_EQ(handler.GetCOFromID(502, "", dpt, OpMode::Writing), 0xFFFF);
    EXPECT_THAT(recorder.LinesWith("plugin"),
                ElementsAre("plugin A GetCOFromUrn('lamp', writing)",
                            "plugin A GetCOFromUrn('lamp', reading)", "plugin A GetCOFromUrn('', writing)",
                            "plugin A GetCOFromID(502, writing)"));
    EXPECT_THAT(recorder.LinesWith("client"), IsEmpty());
}

using IdOfCo = KnxHandlerTest;

TEST_F(IdOfCo, IsRememberedWhateverTheDirection) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}}};
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, OpMode::Reading), 500u);
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, OpMode::Writing), 500u);
    dpt = {};
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, kTelegram), 500u);
    EXPECT_EQ(dpt, (KNXDPT{1, 0, 1, 1}));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 5 for reading
        plugin A GetIDFromCO(5)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 500 and DPT 1.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 5 for writing
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 500 and DPT 1.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 5 for unknown
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 500 and DPT 1.1
    )");
}

TEST_F(IdOfCo, FoundForADirection_AlsoAnswersForTheId) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}}};
    service.objects[5] = TestSupport::FakeGroupObject(1);
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, OpMode::Reading), 500u);
    recorder.Clear();
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 5);
    EXPECT_THAT(recorder.LinesWith("plugin"), IsEmpty());
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Writing), 5);
    EXPECT_EQ(recorder.Count("plugin A GetCOFromID(500, writing)"), 1u);
}

TEST_F(IdOfCo, FoundForWriting_AlsoAnswersForTheId) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}}};
    service.objects[5] = TestSupport::FakeGroupObject(1);
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, OpMode::Writing), 500u);
    recorder.Clear();
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Writing), 5);
    EXPECT_THAT(recorder.LinesWith("plugin"), IsEmpty());
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 5);
    EXPECT_EQ(recorder.Count("plugin A GetCOFromID(500, reading)"), 1u);
}

TEST_F(IdOfCo, FoundForASecondCo_LeavesTheIdItsFirst) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}},
                             {.co = 6, .id = 500, .dpt = {1, 0, 1, 2}}};
    service.objects = {{5, TestSupport::FakeGroupObject(1)}, {6, TestSupport::FakeGroupObject(1)}};
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, OpMode::Reading), 500u);
    EXPECT_EQ(handler.GetIDFromCO(6, dpt, OpMode::Reading), 500u);
    EXPECT_EQ(handler.GetIDFromCO(6, dpt, OpMode::Writing), 500u); // known: no direction is filled
    recorder.Clear();
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 5);
    EXPECT_THAT(recorder.LinesWith("plugin"), IsEmpty());
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Writing), 5);
    EXPECT_EQ(recorder.Count("plugin A GetCOFromID(500, writing)"), 1u);
}

TEST_F(IdOfCo, FoundAfterAQuestionForItsState_KeepsTheState) {
    plugins["A"].bindings = {
        {.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .eventing = true, .readInternal = true}};
    SetUpWith({"A"});
    EXPECT_TRUE(handler.IsKnxEventDataPoint(500, ""));
    EXPECT_TRUE(handler.IsOxnReadInternalDataPoint(500));
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, OpMode::Writing), 500u);
    recorder.Clear();
    EXPECT_TRUE(handler.IsKnxEventDataPoint(500, ""));
    EXPECT_TRUE(handler.IsOxnReadInternalDataPoint(500));
    EXPECT_THAT(recorder.LinesWith("plugin"), IsEmpty());
}

TEST_F(IdOfCo, FoundForATelegram_AnswersForNoDirection) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}}};
    service.objects[5] = TestSupport::FakeGroupObject(1);
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, kTelegram), 500u);
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 5);
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Writing), 5);
    EXPECT_EQ(recorder.LinesWith("plugin").size(), 3u);
}

TEST_F(IdOfCo, FirstPair_RecordedForACoStays) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}},
                             {.co = 5, .id = 501, .dpt = {8, 0, 5, 1}}};
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetCOFromID(501, "", dpt, OpMode::Reading), 5);
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 5);
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, kTelegram), 501u);
}

TEST_F(IdOfCo, Unknown_IsAskedForEveryTime) {
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetIDFromCO(9, dpt, OpMode::Writing), 0u);
    EXPECT_EQ(handler.GetIDFromCO(9, dpt, OpMode::Writing), 0u);
    EXPECT_EQ(recorder.Count("plugin A GetIDFromCO(9)"), 2u);
    EXPECT_EQ(
        recorder.Count(
            "ERROR KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): ID = '0' is invalid from CO =  '9'"),
        2u);
}

TEST_F(IdOfCo, ZeroThatIsRemembered_IsNoError) {
    plugins["A"].bindings = {{.co = 5, .id = 0, .dpt = {}}};
    SetUpWith({"A"});
    EXPECT_EQ(handler.GetCOFromID(0, "", dpt, OpMode::Writing), 5);
    recorder.Clear();
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, kTelegram), 0u);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 5 for unknown
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 0 and DPT 0.0
    )");
}

TEST_F(IdOfCo, InUrnMode_ComesFromTheUrn) {
    plugins["A"].bindings = {{.co = 5, .id = 0, .dpt = {1, 0, 1, 1}, .urn = "lamp"},
                             {.co = 6, .id = 0, .dpt = {}, .urn = "gone"}};
    stack.urns[500] = "urn:oxn:dp:house:lamp";
    SetUpWithUrns({"A"});
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, kTelegram), 500u);
    EXPECT_EQ(handler.GetIDFromCO(6, dpt, kTelegram), 0u);
    EXPECT_EQ(handler.GetIDFromCO(7, dpt, kTelegram), 0u); // no URN at all: nothing to resolve
    EXPECT_THAT(recorder.LinesWith("client"),
                ElementsAre("client GetId(urn:oxn:dp:house:lamp)", "client GetId(urn:oxn:dp:house:gone)"));
    EXPECT_EQ(
        recorder.Count(
            "DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveUrn: Resolved ID for URN 'gone' via OXN-API: 0"),
        1u);
}

using DataPointStates = KnxHandlerTest;

TEST_F(DataPointStates, AreAskedOnceAndKeptById) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {}, .eventing = true, .readInternal = true}};
    SetUpWith({"A"});
    EXPECT_TRUE(handler.IsKnxEventDataPoint(500, "urn:x"));
    EXPECT_TRUE(handler.IsKnxEventDataPoint(500, "urn:other"));
    EXPECT_FALSE(handler.IsKnxEventDataPoint(501, ""));
    EXPECT_FALSE(handler.IsKnxEventDataPoint(501, ""));
    EXPECT_TRUE(handler.IsOxnReadInternalDataPoint(500));
    EXPECT_TRUE(handler.IsOxnReadInternalDataPoint(500));
    EXPECT_FALSE(handler.IsOxnReadInternalDataPoint(501));
    EXPECT_FALSE(handler.IsOxnReadInternalDataPoint(501));
    EXPECT_THAT(recorder.LinesWith("plugin"),
                ElementsAre("plugin A IsKnxEventDataPoint(500)", "plugin A IsKnxEventDataPoint(501)",
                            "plugin A IsOxnReadInternalDataPoint(500)",
                            "plugin A IsOxnReadInternalDataPoint(501)"));
    const auto lines = recorder.LinesWith("IsKnxEventDataPoint()");
    ExpectTranscript({lines.begin(), lines.begin() + 4}, R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Checking if eventing for ID 500 or URN 'urn:x'
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Returning eventing state true
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Checking if eventing for ID 500 or URN 'urn:other'
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Returning eventing state true
    )");
}

TEST_F(DataPointStates, DoNotCountAsLookups) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {}}};
    SetUpWith({"A"});
    handler.IsKnxEventDataPoint(500, "");
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Writing), 5);
}

TEST_F(DataPointStates, InUrnMode_AreAskedByName) {
    plugins["A"].bindings = {
        {.co = 5, .id = 0, .dpt = {}, .urn = "lamp", .eventing = true, .readInternal = true}};
    stack.urns[500] = "urn:oxn:dp:house:lamp";
    stack.urns[501] = "urn:oxn:dp:garden:lamp";
    SetUpWithUrns({"A"});
    EXPECT_TRUE(handler.IsKnxEventDataPoint(400, "urn:oxn:dp:house:lamp"));
    EXPECT_TRUE(handler.IsKnxEventDataPoint(500, ""));
    EXPECT_FALSE(handler.IsKnxEventDataPoint(501, "urn:oxn:dp:garden:lamp"));
    EXPECT_TRUE(handler.IsOxnReadInternalDataPoint(500));
    EXPECT_FALSE(handler.IsOxnReadInternalDataPoint(501));
    EXPECT_THAT(recorder.LinesWith("plugin"),
                ElementsAre("plugin A IsKnxEventDataPoint('lamp')", "plugin A IsKnxEventDataPoint('lamp')",
                            "plugin A IsKnxEventDataPoint('')", "plugin A IsOxnReadInternalDataPoint('lamp')",
                            "plugin A IsOxnReadInternalDataPoint('')"));
    EXPECT_THAT(recorder.LinesWith("client"), ElementsAre("client GetUrn(500, 0)", "client GetUrn(501, 0)"));
}

TEST_F(DataPointStates, Exit_ForgetsNothing) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {}, .eventing = true, .readInternal = true}};
    SetUpWith({"A"});
    handler.GetCOFromID(500, "", dpt, OpMode::Reading);
    handler.IsKnxEventDataPoint(500, "");
    handler.IsOxnReadInternalDataPoint(500);
    EXPECT_TRUE(handler.Exit());
    recorder.Clear();
    EXPECT_EQ(handler.GetCOFromID(500, "", dpt, OpMode::Reading), 5);
    EXPECT_EQ(handler.GetIDFromCO(5, dpt, kTelegram), 500u);
    EXPECT_TRUE(handler.IsKnxEventDataPoint(500, ""));
    EXPECT_TRUE(handler.IsOxnReadInternalDataPoint(500));
    EXPECT_THAT(recorder.LinesWith("plugin"), IsEmpty());
}

TEST_F(DataPointStates, ClearCoAndIdMap_ForgetsEverythingOfThePlugins) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {}, .eventing = true}};
    SetUpWith({"A"});
    for (int round = 0; round != 2; ++round) {
        handler.GetCOFromID(500, "", dpt, OpMode::Reading);
        handler.GetCOFromID(77, "", dpt, OpMode::Reading);
        handler.GetIDFromCO(5, dpt, kTelegram);
        handler.IsKnxEventDataPoint(500, "");
        handler.IsOxnReadInternalDataPoint(500);
        handler.ClearCoAndIdMap();
    }
    EXPECT_EQ(recorder.LinesWith("plugin").size(), 8u); // the CO is known from the look-up of the ID
}

} // namespace
