// URNs of data points and the map of the process view.
#include "KnxHandlerTest.h"
#include "ParameterNames.h"

#include <atomic>
#include <future>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class UrnTest : public KnxHandlerTest {
protected:
    static constexpr const char* kQuestion = R"({"command":"GetProcessView","cached":true})";

    /// An answer of the device stack with the list of data points.
    static std::string ProcessView(const std::string& dataPoints) {
        return R"({"response":{"processView":{"datapoints":)" + dataPoints + "}}}";
    }

    /// What the map holds for an ID, without asking the client.
    std::string Mapped(std::uint32_t id) {
        stack.faults.Refuse("GetUrn");
        return handler.ResolveID(id);
    }
};

TEST_F(UrnTest, TrimUrn_WithoutPrefix_IsTheWholeUrn) {
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:house:lamp"), "urn:oxn:dp:house:lamp");
    EXPECT_EQ(handler.TrimUrn(""), "");
}

TEST_F(UrnTest, TrimUrn_TakesThePrefixOffAndKnowsNoOtherUrn) {
    SetUpWithUrns({"A"});
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:house:lamp"), "lamp");
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:house:floor:lamp"), "floor:lamp");
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:house:"), "");
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:house"), "");
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:House:lamp"), "");
    EXPECT_EQ(handler.TrimUrn("lamp"), "");
}

TEST_F(UrnTest, TrimUrn_WhileThePrefixIsBeingSet_SeesAWholePrefix) {
    SetUpWithUrns({"A"});
    TestSupport::LogRecorder::Silence();
    recorder.Pause();
    std::atomic<bool> stop = false;
    std::atomic<bool> reading = false;
    std::thread reader([&] {
        while (!stop.load(std::memory_order_relaxed)) {
            EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:house:lamp"), "lamp");
            reading.store(true, std::memory_order_relaxed);
        }
    });
    while (!reading.load(std::memory_order_relaxed))
        std::this_thread::yield();
    for (int round = 0; round != 200; ++round)
        handler.InitFromDynamicHandlers();
    stop.store(true, std::memory_order_relaxed);
    reader.join();
}

TEST_F(UrnTest, ResolveID_AsksOnce) {
    stack.urns[500] = "urn:oxn:dp:house:lamp";
    SetUpWithUrns({"A"});
    EXPECT_EQ(handler.ResolveID(500), "lamp");
    EXPECT_EQ(handler.ResolveID(500), "lamp");
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Resolving URN for ID 500.
        client GetUrn(500, 0)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Resolved URN for ID 500 via OXN-API: 'lamp'
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Resolving URN for ID 500.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Found URN for ID 500 in map: 'lamp'
    )");
}

TEST_F(UrnTest, ResolveID_Unknown_IsAskedForEveryTime) {
    SetUpWithUrns({"A"});
    EXPECT_EQ(handler.ResolveID(77), "");
    EXPECT_EQ(handler.ResolveID(77), "");
    EXPECT_EQ(recorder.Count("client GetUrn(77, 0)"), 2u);
    EXPECT_EQ(
        recorder.Count(
            "DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Resolved URN for ID 77 via OXN-API: ''"),
        2u);
}

TEST_F(UrnTest, ResolveID_InvalidIds_AreNotLookedUp) {
    SetUpWithUrns({"A"});
    EXPECT_EQ(handler.ResolveID(0), "");
    EXPECT_EQ(handler.ResolveID(0xFFFFFFFF), "");
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Resolving URN for ID 0.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Resolving URN for ID 4294967295.
    )");
}

TEST_F(UrnTest, ResolveUrn_AsksOnceAndAlsoAnswersForTheId) {
    stack.urns[500] = "urn:oxn:dp:house:lamp";
    SetUpWithUrns({"A"});
    EXPECT_EQ(handler.ResolveUrn("lamp"), 500u);
    EXPECT_EQ(handler.ResolveUrn("lamp"), 500u);
    EXPECT_EQ(handler.ResolveID(500), "lamp");
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveUrn: Resolving ID for URN 'lamp'.
        client GetId(urn:oxn:dp:house:lamp)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveUrn: Resolved ID for URN 'lamp' via OXN-API: 500
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveUrn: Resolving ID for URN 'lamp'.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveUrn: Found ID for URN 'lamp' in map: 500
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Resolving URN for ID 500.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Found URN for ID 500 in map: 'lamp'
    )");
}

TEST_F(UrnTest, ResolveUrn_Empty_IsNotLookedUp) {
    SetUpWithUrns({"A"});
    EXPECT_EQ(handler.ResolveUrn(""), 0u);
    ExpectRecord("host", "DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveUrn: Resolving ID for URN ''.");
}

TEST_F(UrnTest, WithoutClient_NothingIsResolved) {
    EXPECT_EQ(handler.ResolveID(500), "");
    EXPECT_EQ(handler.ResolveUrn("lamp"), 0u);
    EXPECT_FALSE(handler.UpdateIdUrnMap());
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Resolving URN for ID 500.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveUrn: Resolving ID for URN 'lamp'.
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: No response received for GetProcessView
    )");
}

TEST_F(UrnTest, ProcessView_FillsTheMap) {
    SetUpWithUrns({"A"});
    stack.responses[kQuestion] =
        R"({"ignored":[],"response":{"ignored":1,"processView":{"ignored":{},"datapoints":[
        {"id":500,"urn":"urn:oxn:dp:house:a","ignored":null},
        {"id":501.0,"urn":"urn:oxn:dp:house:b"},
        {"id":"502","urn":"urn:oxn:dp:house:c"},
        {"id":4294967295,"urn":"urn:oxn:dp:house:d"}]}}})";
    EXPECT_TRUE(handler.UpdateIdUrnMap());
    ExpectRecord("host", R"(
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        client Command({"command":"GetProcessView","cached":true}, 5 s)
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 4 entries to ID-URN Map
    )");
    EXPECT_EQ(Mapped(500), "a");
    EXPECT_EQ(Mapped(501), "b");
    EXPECT_EQ(Mapped(502), "c");
}

struct IdCase {
    const char* name;
    const char* json;
    std::uint32_t id;
};

void PrintTo(const IdCase& row, std::ostream* out) {
    *out << row.json;
}

class ProcessViewId : public UrnTest, public testing::WithParamInterface<IdCase> {};

TEST_P(ProcessViewId, IsReadLeniently) {
    SetUpWithUrns({"A"});
    stack.responses[kQuestion] =
        ProcessView(std::string(R"([{"id":)") + GetParam().json + R"(,"urn":"urn:oxn:dp:house:a"}])");
    EXPECT_TRUE(handler.UpdateIdUrnMap());
    const bool added = GetParam().id != 0;
    EXPECT_EQ(recorder.Count("INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added " +
                             std::string(added ? "1" : "0") + " entries to ID-URN Map"),
              1u);
    if (added) {
        EXPECT_EQ(Mapped(GetParam().id), "a");
    }
}
INSTANTIATE_TEST_SUITE_P(
    UrnTest, ProcessViewId,
    testing::Values(IdCase{"DigitsBeforeLetters", R"("42abc")", 42}, IdCase{"Letters", R"("abc")", 0},
                    IdCase{"EmptyText", R"("")", 0}, IdCase{"SignedText", R"("-5")", 0},
                    IdCase{"BlankBeforeDigits", R"(" 5")", 0},
                    IdCase{"LargestText", R"("4294967294")", 4294967294},
                    IdCase{"TextTooLarge", R"("4294967296")", 0}, IdCase{"Null", "null", 0},
                    IdCase{"Boolean", "true", 0}, IdCase{"Array", "[5]", 0}, IdCase{"Object", "{}", 0},
                    IdCase{"Zero", "0", 0}, IdCase{"Exponent", "1e3", 1000},
                    IdCase{"WholeDouble", "42.0", 42}, IdCase{"MinusZero", "-0.0", 0},
                    IdCase{"LargestDouble", "4294967294.0", 4294967294},
                    IdCase{"LeadingZeros", R"("0042")", 42}, IdCase{"PlusSign", R"("+5")", 0},
                    IdCase{"DigitsBeforeAPoint", R"("42.9")", 42}, IdCase{"HexadecimalText", R"("0x2A")", 0},
                    IdCase{"TextFarTooLarge", R"("99999999999999999999999")", 0},
                    IdCase{"RepeatedMember", R"(7,"id":42)", 42}),
    [](const auto& row) { return row.param.name; });

class ProcessViewBadElement : public UrnTest, public testing::WithParamInterface<IdCase> {};

TEST_P(ProcessViewBadElement, StopsTheUpdateAndKeepsWhatCameBefore) {
    SetUpWithUrns({"A"});
    stack.responses[kQuestion] = ProcessView(std::string(R"([{"id":500,"urn":"urn:oxn:dp:house:a"},)") +
                                             GetParam().json + R"(,{"id":502,"urn":"urn:oxn:dp:house:c"}])");
    EXPECT_FALSE(handler.UpdateIdUrnMap());
    EXPECT_THAT(recorder.LinesWith("WARN"),
                ElementsAre(testing::StartsWith(
                    "WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Failed to parse "
                    "GetProcessView response: ")));
    EXPECT_THAT(recorder.LinesWith("Added"), IsEmpty());
    EXPECT_EQ(Mapped(500), "a");
    EXPECT_EQ(Mapped(502), "");
}
INSTANTIATE_TEST_SUITE_P(
    UrnTest, ProcessViewBadElement,
    testing::Values(IdCase{"NegativeId", R"({"id":-1,"urn":"urn:oxn:dp:house:b"})", 0},
                    IdCase{"BrokenId", R"({"id":1.5,"urn":"urn:oxn:dp:house:b"})", 0},
                    IdCase{"IdTooLarge", R"({"id":4294967296,"urn":"urn:oxn:dp:house:b"})", 0},
                    IdCase{"IdJustTooLargeADouble", R"({"id":4294967296.0,"urn":"urn:oxn:dp:house:b"})", 0},
                    IdCase{"IdFarTooLarge", R"({"id":99999999999999999999999,"urn":"urn:oxn:dp:house:b"})",
                           0},
                    IdCase{"IdBeyondADouble", R"({"id":1e400,"urn":"urn:oxn:dp:house:b"})", 0},
                    IdCase{"NegativeDouble", R"({"id":-1.0,"urn":"urn:oxn:dp:house:b"})", 0},
                    IdCase{"BadIdWithoutUrn", R"({"id":-1,"urn":""})", 0},
                    IdCase{"NullAsUrn", R"({"id":0,"urn":null})", 0}, IdCase{"NullAsElement", "null", 0},
                    IdCase{"ArrayAsElement", R"([501,"urn:oxn:dp:house:b"])", 0},
                    IdCase{"NumberAsUrn", R"({"id":501,"urn":5})", 0}, IdCase{"NoUrn", R"({"id":501})", 0},
                    IdCase{"NoId", R"({"urn":"urn:oxn:dp:house:b"})", 0}, IdCase{"NoObject", "5", 0}),
    [](const auto& row) { return row.param.name; });

TEST_F(UrnTest, ProcessView_WhatIsWrong_IsNamed) {
    SetUpWithUrns({"A"});
    for (const char* const text : {R"({"response":{"processView":{"datapoints":[{"id":-1,"urn":""}]}}})",
                                   R"({"response":{"processView":{"datapoints":[{"id":1}]}}})",
                                   R"({"response":{"processView":{"datapoints":[{"id":1,"urn":1}]}}})",
                                   R"({"response":{"processView":{"datapoints":[1]}}})"}) {
        stack.responses[kQuestion] = text;
        EXPECT_FALSE(handler.UpdateIdUrnMap());
    }
    ExpectTranscript(recorder.LinesWith("WARN"), R"(
        WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Failed to parse GetProcessView response: "id": not exact
        WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Failed to parse GetProcessView response: "urn" is missing
        WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Failed to parse GetProcessView response: "urn" is not a string
        WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Failed to parse GetProcessView response: the parent of "id" is not an object
    )");
}

class ProcessViewShape : public UrnTest, public testing::WithParamInterface<const char*> {};

TEST_P(ProcessViewShape, ThatIsWrong_LeavesTheMapEmpty) {
    stack.urns[500] = "urn:oxn:dp:house:lamp";
    SetUpWithUrns({"A"});
    handler.ResolveID(500);
    stack.responses[kQuestion] = GetParam();
    EXPECT_FALSE(handler.UpdateIdUrnMap());
    EXPECT_EQ(recorder
                  .LinesWith("WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Failed to parse "
                             "GetProcessView response: ")
                  .size(),
              1u);
    EXPECT_EQ(Mapped(500), "");
}
INSTANTIATE_TEST_SUITE_P(UrnTest, ProcessViewShape,
                         testing::Values("{}", "[]", R"({"response":[]})", R"({"response":{}})",
                                         R"({"response":{"processView":5}})",
                                         R"({"response":{"processView":{}}})",
                                         R"({"response":{"processView":{"datapoints":{}}}})"),
                         TestSupport::NamesInOrder({"EmptyObject", "Array", "ResponseArray", "ResponseEmpty",
                                                    "ProcessViewNumber", "ProcessViewEmpty",
                                                    "DataPointsObject"}));

TEST_F(UrnTest, ProcessView_WhoseDataPointsAreNoList_IsNamed) {
    SetUpWithUrns({"A"});
    stack.responses[kQuestion] = ProcessView("{}");
    EXPECT_FALSE(handler.UpdateIdUrnMap());
    EXPECT_EQ(recorder.Count("WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Failed to parse "
                             "GetProcessView response: "
                             "\"datapoints\" is not an array"),
              1u);
}

TEST_F(UrnTest, ProcessView_ThatIsNoJson_IsAWarning) {
    SetUpWithUrns({"A"});
    stack.responses[kQuestion] = "{";
    EXPECT_FALSE(handler.UpdateIdUrnMap());
    EXPECT_THAT(recorder.LinesWith("WARN"),
                ElementsAre("WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Failed to parse "
                            "GetProcessView response."));
}

TEST_F(UrnTest, ProcessView_ThatDoesNotCome_LeavesTheMapEmpty) {
    stack.urns[500] = "urn:oxn:dp:house:lamp";
    SetUpWithUrns({"A"});
    handler.ResolveID(500);
    recorder.Clear();
    stack.faults.Refuse("Command");
    EXPECT_FALSE(handler.UpdateIdUrnMap());
    ExpectRecord("host", R"(
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        client Command({"command":"GetProcessView","cached":true}, 5 s)
        WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: No response received for GetProcessView
    )");
    EXPECT_EQ(Mapped(500), "");
}

TEST_F(UrnTest, ProcessView_ThatIsAnEmptyText_CountsAsNone) {
    SetUpWithUrns({"A"});
    stack.responses[kQuestion] = "";
    EXPECT_FALSE(handler.UpdateIdUrnMap());
    EXPECT_EQ(
        recorder.Count("WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: No response received for "
                       "GetProcessView"),
        1u);
}

TEST_F(UrnTest, ProcessView_WithoutDataPoints_EmptiesTheMap) {
    stack.urns[500] = "urn:oxn:dp:house:lamp";
    SetUpWithUrns({"A"});
    handler.ResolveID(500);
    stack.responses[kQuestion] = ProcessView("[]");
    EXPECT_TRUE(handler.UpdateIdUrnMap());
    EXPECT_EQ(recorder.Count(
                  "INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 0 entries to ID-URN Map"),
              1u);
    EXPECT_EQ(Mapped(500), "");
}

TEST_F(UrnTest, ProcessView_WhileItIsAskedFor_KeepsNobodyWaiting) {
    stack.urns[500] = "urn:oxn:dp:house:lamp";
    SetUpWithUrns({"A"});
    stack.responses[kQuestion] = ProcessView(R"([{"id":501,"urn":"urn:oxn:dp:house:b"}])");
    const auto gate = stack.faults.Block("Command");
    auto update = std::async(std::launch::async, [this] { return handler.UpdateIdUrnMap(); });
    ASSERT_TRUE(gate->WaitForArrival());
    auto others = std::async(std::launch::async, [this] {
        EXPECT_EQ(handler.ResolveID(500), "lamp"); // asked for, and added
        EXPECT_EQ(handler.ResolveUrn("lamp"), 500u);
    });
    EXPECT_EQ(others.wait_for(TestSupport::Recorder::kPatience), std::future_status::ready);
    gate->Open();
    EXPECT_TRUE(update.get());
    others.wait();
    EXPECT_EQ(recorder.Count(
                  "INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 2 entries to ID-URN Map"),
              1u); // what the map holds, whoever put it there
}

TEST_F(UrnTest, LargestId_IsMappedButNeverResolved) {
    SetUpWithUrns({"A"});
    stack.responses[kQuestion] = ProcessView(R"([{"id":"4294967295","urn":"urn:oxn:dp:house:a"}])");
    EXPECT_TRUE(handler.UpdateIdUrnMap());
    EXPECT_EQ(handler.ResolveUrn("a"), 4294967295u);
    EXPECT_EQ(handler.ResolveID(4294967295u), "");
    EXPECT_THAT(recorder.LinesWith("client Get"), IsEmpty());
}

TEST_F(UrnTest, ProcessView_RepeatedIdsAndUrns_AreRefused) {
    SetUpWithUrns({"A"});
    stack.responses[kQuestion] =
        ProcessView(R"([{"id":500,"urn":"urn:oxn:dp:house:a"},{"id":501,"urn":"urn:oxn:dp:house:a"},
        {"id":500,"urn":"urn:oxn:dp:house:b"},{"id":502,"urn":"urn:oxn:dp:house:"},{"id":503,"urn":"urn:oxn:dp:garden:c"}])");
    EXPECT_TRUE(handler.UpdateIdUrnMap());
    EXPECT_EQ(recorder.Count(
                  "INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 1 entries to ID-URN Map"),
              1u);
    EXPECT_EQ(Mapped(500), "a");
    EXPECT_EQ(Mapped(501), "");
}

TEST_F(UrnTest, ClearCoAndIdMap_KeepsTheUrns) {
    stack.urns[500] = "urn:oxn:dp:house:lamp";
    SetUpWithUrns({"A"});
    handler.ResolveID(500);
    handler.ClearCoAndIdMap();
    EXPECT_EQ(Mapped(500), "lamp");
}

struct PrefixCase {
    const char* name;
    const char* urn;
    const char* prefix;
};

void PrintTo(const PrefixCase& row, std::ostream* out) {
    *out << row.urn;
}

class UrnPrefix : public UrnTest, public testing::WithParamInterface<PrefixCase> {};

TEST_P(UrnPrefix, IsMadeOfTheDevicesOwnUrn) {
    plugins["A"].useUrns = true;
    stack.urns[1000] = GetParam().urn;
    SetUpWith({"A"});
    handler.InitFromDynamicHandlers();
    EXPECT_EQ(recorder.Count(std::string("INFO KnxStack.DscKnxAppPrg.KnxHandler | URN prefix: '") +
                             GetParam().prefix + "'"),
              1u);
    EXPECT_EQ(handler.TrimUrn(GetParam().prefix + std::string("lamp")), "lamp");
}
INSTANTIATE_TEST_SUITE_P(UrnTest, UrnPrefix,
                         testing::Values(PrefixCase{"Usual", "urn:oxn:dp:house", "urn:oxn:dp:house:"},
                                         PrefixCase{"LastPartCounts", "a:b:c:d:e", "urn:oxn:dp:e:"},
                                         PrefixCase{"WithoutColon", "house", "urn:oxn:dp:house:"},
                                         PrefixCase{"EndsWithColon", "urn:", "urn:oxn:dp::"},
                                         PrefixCase{"Unknown", "", "urn:oxn:dp::"}),
                         [](const auto& row) { return row.param.name; });

} // namespace
