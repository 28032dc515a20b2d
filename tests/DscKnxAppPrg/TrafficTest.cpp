// Group telegrams of the bus.
#include "ProgramTest.h"

namespace {

using TestSupport::Bits;
using TestSupport::Octets;

/// Switch 500 on CO 5, temperature 600 on CO 6 (held by the device stack), scene 800 on CO 8, restart 1004 on
/// CO 4, a data point without datapoint type, 900, on CO 9.
class TrafficTest : public ProgramTest {
protected:
    TrafficTest() {
        Bind(4, 1004, {1, 0, 1, 1});
        Bind(5, 500, {1, 0, 1, 1});
        Bind(6, 600, {16, 0, 9, 1}, true);
        Bind(8, 800, {8, 0, 18, 1});
        Bind(9, 900, {8, 0, 0, 0});
        RegisterPlugins({"A"});
    }

    void Bind(std::uint16_t co, std::uint32_t id, KNXDPT dpt, bool readInternal = false) {
        plugins["A"].bindings.push_back({.co = co, .id = id, .dpt = dpt, .readInternal = readInternal});
        service.objects[co] = TestSupport::FakeGroupObject(dpt.sizeInBits);
    }

    /// What the client is asked for by the calls since the record was last empty.
    std::vector<std::string> Client() const { return recorder.LinesWith("client "); }
};

TEST_F(TrafficTest, Write_SetsTheDataPoint) {
    CreateAndInit();
    service.Write(5, Bits(1, 1));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 5 for unknown
        plugin A GetIDFromCO(5)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 500 and DPT 1.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsOxnReadInternalDataPoint(): Checking if read internal for ID 500
        plugin A IsOxnReadInternalDataPoint(500)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsOxnReadInternalDataPoint(): Returning read internal state false
        client SetValue(500, '1', 0, 0)
    )");
}

TEST_F(TrafficTest, Write_Again_AsksNoPlugin) {
    CreateAndInit();
    service.Write(5, Bits(1, 1));
    recorder.Clear();
    service.Write(5, Bits(1, 0));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 5 for unknown
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 500 and DPT 1.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsOxnReadInternalDataPoint(): Checking if read internal for ID 500
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsOxnReadInternalDataPoint(): Returning read internal state false
        client SetValue(500, '0', 0, 0)
    )");
}

TEST_F(TrafficTest, Write_OfAValueThatTheDeviceStackHolds_IsReadInternal) {
    CreateAndInit();
    service.Write(6, Octets({0x0C, 0x33}));
    EXPECT_THAT(Client(), testing::ElementsAre("client SetValue(600, '21.5', 1, 0)"));
    EXPECT_EQ(
        recorder.Count(
            "DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsOxnReadInternalDataPoint(): Returning read internal "
            "state true"),
        1u);
}

TEST_F(TrafficTest, OnlyTheLowSixteenBitsOfACoCount) {
    CreateAndInit();
    service.Write(0x10005, Bits(1, 1));
    EXPECT_THAT(Client(), testing::ElementsAre("client SetValue(500, '1', 0, 0)"));
}

struct ReadInternalCase {
    std::uint32_t id;
    bool asksThePlugins;
};

void PrintTo(const ReadInternalCase& row, std::ostream* out) {
    *out << row.id;
}

class ReadInternalFlag : public TrafficTest, public testing::WithParamInterface<ReadInternalCase> {};

TEST_P(ReadInternalFlag, OfAWrite_IsFalseForFixedIdsAndElseThePluginsAnswer) {
    const auto [id, asks] = GetParam();
    Bind(30, id, {1, 0, 1, 1}, true);
    CreateAndInit();
    service.Write(30, Bits(1, 1));
    EXPECT_THAT(Client(), testing::ElementsAre("client SetValue(" + std::to_string(id) + ", '1', " +
                                               (asks ? "1" : "0") + ", 0)"));
    EXPECT_EQ(recorder.LinesWith("IsOxnReadInternalDataPoint").size(), asks ? 3u : 0u);
}

TEST_P(ReadInternalFlag, OfARead_IsAlwaysThePluginsAnswer) {
    const std::uint32_t id = GetParam().id;
    Bind(30, id, {1, 0, 1, 1}, true);
    stack.values[id] = "1";
    CreateAndInit();
    EXPECT_EQ(service.Read(30), Bits(1, 1));
    EXPECT_THAT(Client(), testing::ElementsAre("client GetValue(" + std::to_string(id) + ", 1)"));
}

INSTANTIATE_TEST_SUITE_P(TrafficTest, ReadInternalFlag,
                         testing::Values(ReadInternalCase{1001, true}, ReadInternalCase{1002, false},
                                         ReadInternalCase{1003, false}, ReadInternalCase{1006, true},
                                         ReadInternalCase{1007, true}, ReadInternalCase{1008, false},
                                         ReadInternalCase{1049, false}, ReadInternalCase{1050, true},
                                         ReadInternalCase{8999, true}, ReadInternalCase{9000, false},
                                         ReadInternalCase{9999, false}, ReadInternalCase{10000, true}),
                         [](const auto& row) { return "Id" + std::to_string(row.param.id); });

TEST_F(TrafficTest, Write_OfAnUnknownCo_IsDropped) {
    CreateAndInit();
    service.Write(99, Bits(1, 1));
    service.Write(99, Bits(1, 1));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 99 for unknown
        plugin A GetIDFromCO(99)
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): ID = '0' is invalid from CO =  '99'
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 0 and DPT 0.0
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 99 for unknown
        plugin A GetIDFromCO(99)
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): ID = '0' is invalid from CO =  '99'
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 0 and DPT 0.0
    )");
}

TEST_F(TrafficTest, WithoutADatapointType_IsDropped) {
    CreateAndInit();
    service.Write(9, Octets({5}));
    service.Response(9, Octets({5}));
    EXPECT_THAT(
        recorder.LinesWith("ERROR"),
        testing::ElementsAre(
            "ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueWrite(): Failed to get DPT for CO '9'.",
            "ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueResponse(): Failed to get DPT for CO "
            "'9'."));
    EXPECT_THAT(Client(), testing::IsEmpty());
}

TEST_F(TrafficTest, AValueOfAnotherSize_IsDropped) {
    CreateAndInit();
    service.Write(6, Octets({5}));
    service.Response(6, Octets({5}));
    EXPECT_THAT(
        recorder.LinesWith("ERROR"),
        testing::ElementsAre(
            "ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueWrite(): Can't get value from group value.",
            "ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueResponse(): Can't get value from group "
            "value."));
    EXPECT_THAT(Client(), testing::IsEmpty());
}

TEST_F(TrafficTest, WithoutAClient_EveryTelegramIsDropped) {
    CreateAndInit();
    KnxStack::IGroupValueUser* const user = service.User();
    ASSERT_TRUE(Exit()); // a stack that forgets that it was told so
    recorder.Clear();
    KnxStack::GroupValue value;
    user->OnGroupValueWrite(5, Bits(1, 1));
    user->OnGroupValueResponse(5, Bits(1, 1));
    EXPECT_FALSE(user->OnGroupValueRead(5, value));
    ExpectRecord("host", R"(
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueWrite(): client is not connected.
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueResponse(): client is not connected.
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueRead(): client is not connected.
    )");
}

TEST_F(TrafficTest, Write_OfTheRestartDataPoint_Restarts) {
    CreateAndInit();
    service.Write(4, Bits(1, 1));
    EXPECT_THAT(Client(), testing::ElementsAre(R"(client Command({"command":"Restart", "type":"Device"}))"));
}

TEST_F(TrafficTest, Write_OfZeroToTheRestartDataPoint_IsAnOrdinaryWrite) {
    CreateAndInit();
    service.Write(4, Bits(1, 0));
    EXPECT_THAT(Client(), testing::ElementsAre("client SetValue(1004, '0', 0, 0)"));
}

TEST_F(TrafficTest, Response_OfTheRestartDataPoint_IsAnOrdinaryResponse) {
    CreateAndInit();
    service.Response(4, Bits(1, 1));
    EXPECT_THAT(Client(), testing::ElementsAre("client SetValue(1004, '1', 1, 1)"));
}

TEST_F(TrafficTest, Response_OfTheClock_IsAnOrdinaryResponse) {
    Bind(20, 1005, {8, 0, 5, 10});
    CreateAndInit();
    service.Response(20, Octets({7}));
    EXPECT_THAT(Client(), testing::ElementsAre("client SetValue(1005, '7', 1, 1)"));
}

TEST_F(TrafficTest, Scene_Activated_SetsItsDataPoint) {
    CreateAndInit();
    service.Write(8, Octets({0x04}));
    service.Response(8, Octets({0x04}));
    EXPECT_THAT(Client(),
                testing::ElementsAre("client SetValue(800, '5', 0, 0)", "client SetValue(800, '5', 1, 1)"));
}

TEST_F(TrafficTest, Scene_Learnt_SetsTheNextDataPoint) {
    CreateAndInit();
    service.Write(8, Octets({0x84}));
    service.Response(8, Octets({0x84}));
    EXPECT_THAT(Client(),
                testing::ElementsAre("client SetValue(801, '5', 0, 0)", "client SetValue(801, '5', 1, 1)"));
    EXPECT_EQ(recorder.Count("plugin A IsOxnReadInternalDataPoint(801)"), 1u);
}

TEST_F(TrafficTest, NegativeValueOfAnotherType_StaysOnItsDataPoint) {
    Bind(10, 610, {8, 0, 6, 10});
    CreateAndInit();
    service.Write(10, Octets({0xFB}));
    service.Response(10, Octets({0xFB}));
    EXPECT_THAT(Client(),
                testing::ElementsAre("client SetValue(610, '-5', 0, 0)", "client SetValue(610, '-5', 1, 1)"));
}

TEST_F(TrafficTest, SceneOfAnotherSubType_StaysOnItsDataPoint) {
    Bind(10, 810, {8, 0, 18, 2});
    CreateAndInit();
    service.Write(10, Octets({0x84}));
    service.Response(10, Octets({0x84}));
    EXPECT_THAT(Client(),
                testing::ElementsAre("client SetValue(810, '-5', 0, 0)", "client SetValue(810, '-5', 1, 1)"));
}

TEST_F(TrafficTest, WriteAndResponse_AskThePluginsWithTheSizeOfTheTelegram) {
    plugins["A"].recordsGivenDpt = true;
    CreateAndInit();
    service.Write(5, Octets({0, 1})); // the objects have 1 and 16 bits
    service.Response(6, Bits(4, 1));
    EXPECT_THAT(recorder.LinesWith("is given"),
                testing::ElementsAre("plugin A is given 16:0.0", "plugin A is given 4:0.0"));
}

TEST_F(TrafficTest, WriteAndResponse_WhoseTypeThePluginsLeaveOpen_AreDropped) {
    plugins["A"].keepsGivenSize = true;
    CreateAndInit();
    service.Write(5, Bits(1, 1));
    service.Response(6, Octets({0x0C, 0x33}));
    EXPECT_THAT(
        recorder.LinesWith("ERROR"),
        testing::ElementsAre(
            "ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueWrite(): Failed to get DPT for CO '5'.",
            "ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueResponse(): Failed to get DPT for CO "
            "'6'."));
    EXPECT_THAT(Client(), testing::IsEmpty());
}

TEST_F(TrafficTest, Read_WhoseTypeThePluginsLeaveOpen_IsAnsweredInTheSizeOfTheObject) {
    plugins["A"].keepsGivenSize = true;
    plugins["A"].recordsGivenDpt = true;
    plugins["A"].bindings.push_back({.co = 10, .id = 910, .dpt = {}});
    service.objects[10] = TestSupport::FakeGroupObject(8);
    stack.values[910] = "5";
    CreateAndInit();
    EXPECT_EQ(service.Read(10), Octets({5}));
    EXPECT_THAT(recorder.LinesWith("is given"), testing::ElementsAre("plugin A is given 8:0.0"));
    EXPECT_EQ(recorder.Count("DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(5, 10, 05) - "
                             "ToKnxValue(5, 8, 05) succeeded (3)."),
              1u);
}

TEST_F(TrafficTest, Response_SetsTheDataPointWithBothFlags) {
    CreateAndInit();
    service.Response(6, Octets({0x0C, 0x33}));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 6 for unknown
        plugin A GetIDFromCO(6)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 600 and DPT 9.1
        client SetValue(600, '21.5', 1, 1)
    )");
}

TEST_F(TrafficTest, InvalidData_IsNull) {
    CreateAndInit();
    service.Write(6, Octets({0x7F, 0xFF}));
    EXPECT_THAT(Client(), testing::ElementsAre("client SetValue(600, '', 1, 0)"));
}

TEST_F(TrafficTest, Read_IsAnsweredWithTheDataPoint) {
    stack.values[600] = "21.5";
    CreateAndInit();
    EXPECT_EQ(service.Read(6), Octets({0x0C, 0x33}));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 6 for unknown
        plugin A GetIDFromCO(6)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 600 and DPT 9.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsOxnReadInternalDataPoint(): Checking if read internal for ID 600
        plugin A IsOxnReadInternalDataPoint(600)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsOxnReadInternalDataPoint(): Returning read internal state true
        client GetValue(600, 1)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(21.5, 6, 0c33) - ToKnxValue(16:9.1, 21.5, 0c33) succeeded (2).
    )");
}

TEST_F(TrafficTest, Read_WithoutADatapointType_IsAnsweredByTheSize) {
    stack.values[900] = "5";
    CreateAndInit();
    EXPECT_EQ(service.Read(9), Octets({5}));
    EXPECT_EQ(recorder.Count("DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(5, 9, 05) - "
                             "ToKnxValue(5, 8, 05) "
                             "succeeded (3)."),
              1u);
}

TEST_F(TrafficTest, Read_OfAnUnknownCo_HasNoAnswer) {
    CreateAndInit();
    EXPECT_EQ(service.Read(99), std::nullopt);
    EXPECT_THAT(Client(), testing::IsEmpty());
}

TEST_F(TrafficTest, Read_OfADataPointWithoutValue_HasNoAnswer) {
    CreateAndInit();
    EXPECT_EQ(service.Read(6), std::nullopt);
    EXPECT_THAT(Client(), testing::ElementsAre("client GetValue(600, 1)"));
}

TEST_F(TrafficTest, Read_OfAValueThatDoesNotFit_HasNoAnswer) {
    stack.values[600] = "warm";
    CreateAndInit();
    EXPECT_EQ(service.Read(6), std::nullopt);
    EXPECT_THAT(recorder.LinesWith("ERROR"), testing::IsEmpty());
}

TEST_F(TrafficTest, InUrnMode_TelegramsAreKnownByUrn) {
    plugins["A"].useUrns = true;
    plugins["A"].bindings[1].urn = "lamp";
    stack.urns = {{1000, "urn:oxn:dp:house"}, {500, "urn:oxn:dp:house:lamp"}};
    Start();
    service.Write(5, Bits(1, 1));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 5 for unknown
        plugin A GetUrnFromCO(5)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveUrn: Resolving ID for URN 'lamp'.
        client GetId(urn:oxn:dp:house:lamp)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveUrn: Resolved ID for URN 'lamp' via OXN-API: 500
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 500 and DPT 1.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsOxnReadInternalDataPoint(): Checking if read internal for ID 500
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Resolving URN for ID 500.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | ResolveID: Found URN for ID 500 in map: 'lamp'
        plugin A IsOxnReadInternalDataPoint('lamp')
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsOxnReadInternalDataPoint(): Returning read internal state false
        client SetValue(500, '1', 0, 0)
    )");
}

} // namespace
