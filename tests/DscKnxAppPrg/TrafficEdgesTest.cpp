// Group telegrams at the edges of their numbers and sizes.
#include "ProgramTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::Bits;
using TestSupport::Octets;

class TrafficEdgesTest : public ProgramTest {
protected:
    TrafficEdgesTest() { RegisterPlugins({"A"}); }

    void Bind(std::uint16_t co, std::uint32_t id, KNXDPT dpt, bool readInternal = false) {
        plugins["A"].bindings.push_back({.co = co, .id = id, .dpt = dpt, .readInternal = readInternal});
        service.objects[co] = TestSupport::FakeGroupObject(dpt.sizeInBits);
    }

    std::vector<std::string> Client() const { return recorder.LinesWith("client "); }
};

TEST_F(TrafficEdgesTest, OnlyTheLowSixteenBitsOfACo_CountInEveryTelegram) {
    Bind(5, 500, {1, 0, 1, 1});
    stack.values[500] = "1";
    CreateAndInit();
    for (const int co : {0x10005, 0x7FFF0005, -65531, static_cast<int>(0x80000005u)}) {
        recorder.Clear();
        service.Write(co, Bits(1, 1));
        service.Response(co, Bits(1, 0));
        EXPECT_EQ(service.Read(co), Bits(1, 1));
        EXPECT_THAT(Client(), ElementsAre("client SetValue(500, '1', 0, 0)",
                                          "client SetValue(500, '0', 1, 1)", "client GetValue(500, 0)"));
    }
}

TEST_F(TrafficEdgesTest, CoOfAllBits_IsNamedByItsLowSixteen) {
    CreateAndInit();
    service.Write(-1, Bits(1, 1));
    EXPECT_THAT(
        recorder.LinesWith("ERROR"),
        ElementsAre("ERROR KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): ID = '0' is invalid from CO =  "
                    "'65535'"));
}

TEST_F(TrafficEdgesTest, CoZero_IsAskedForLikeAnyOther) {
    Bind(0, 500, {1, 0, 1, 1});
    CreateAndInit();
    service.Write(0, Bits(1, 1));
    service.Write(0x10000, Bits(1, 0));
    EXPECT_THAT(recorder.LinesWith("GetIDFromCO(0)"), ElementsAre("plugin A GetIDFromCO(0)"));
    EXPECT_THAT(Client(), ElementsAre("client SetValue(500, '1', 0, 0)", "client SetValue(500, '0', 0, 0)"));
}

TEST_F(TrafficEdgesTest, NumberOfNoCo_StandsForTheFirstDataPointThatHasNone) {
    CreateAndInit();
    EXPECT_FALSE(stack.WriteValue(77, "1", "").get());
    recorder.Clear();
    service.Write(0xFFFF, Bits(1, 1));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 65535 for unknown
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 77 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | OnGroupValueWrite(): Failed to get DPT for CO '65535'.
    )");
}

TEST_F(TrafficEdgesTest, LargestId_IsOneLikeAnyOther) {
    Bind(5, 4294967295, {1, 0, 1, 1});
    CreateAndInit();
    service.Write(5, Bits(1, 1));
    EXPECT_THAT(Client(), ElementsAre("client SetValue(4294967295, '1', 0, 0)"));
}

TEST_F(TrafficEdgesTest, SizeOfATelegram_ReachesThePluginsModulo256) {
    plugins["A"].recordsGivenDpt = true;
    CreateAndInit();
    service.Write(5, KnxStack::GroupValue());
    service.Write(5, KnxStack::GroupValue(KnxStack::BinaryData(), 255));
    service.Write(5, KnxStack::GroupValue(KnxStack::BinaryData(), 256));
    service.Response(5, KnxStack::GroupValue(KnxStack::BinaryData(), 264));
    EXPECT_THAT(recorder.LinesWith("is given"),
                ElementsAre("plugin A is given 0:0.0", "plugin A is given 255:0.0", "plugin A is given 0:0.0",
                            "plugin A is given 8:0.0"));
}

TEST_F(TrafficEdgesTest, SizeOfAnObject_ReachesThePluginsModulo256) {
    plugins["A"].recordsGivenDpt = true;
    service.objects = {{5, TestSupport::FakeGroupObject(248)},
                       {6, TestSupport::FakeGroupObject(256)},
                       {7, TestSupport::FakeGroupObject(4)}};
    CreateAndInit();
    for (const int co : {5, 6, 7, 8})
        EXPECT_EQ(service.Read(co), std::nullopt);
    EXPECT_THAT(recorder.LinesWith("is given"),
                ElementsAre("plugin A is given 248:0.0", "plugin A is given 0:0.0", "plugin A is given 4:0.0",
                            "plugin A is given 0:0.0"));
}

TEST_F(TrafficEdgesTest, EmptyTelegram_IsDropped) {
    Bind(5, 500, {1, 0, 1, 1});
    CreateAndInit();
    service.Write(5, KnxStack::GroupValue());
    service.Response(5, KnxStack::GroupValue());
    EXPECT_THAT(recorder.LinesWith("Can't get value from group value."), testing::SizeIs(2));
    EXPECT_THAT(Client(), IsEmpty());
}

TEST_F(TrafficEdgesTest, SceneLearn_HasTheFlagOfTheDataPointThatItGoesTo) {
    Bind(5, 1001, {8, 0, 18, 1}, true);
    Bind(6, 1049, {8, 0, 18, 1}, true);
    Bind(7, 9999, {8, 0, 18, 1}, true);
    plugins["A"].bindings.push_back({.co = 90, .id = 1050, .dpt = {}, .readInternal = true});
    CreateAndInit();
    service.Write(5, Octets({0x80}));
    service.Write(6, Octets({0xBF}));
    service.Write(7, Octets({0x81}));
    EXPECT_THAT(Client(), ElementsAre("client SetValue(1002, '1', 0, 0)", "client SetValue(1050, '64', 1, 0)",
                                      "client SetValue(10000, '2', 0, 0)"));
    EXPECT_THAT(recorder.LinesWith("plugin A IsOxnReadInternal"),
                ElementsAre("plugin A IsOxnReadInternalDataPoint(1050)",
                            "plugin A IsOxnReadInternalDataPoint(10000)"));
}

TEST_F(TrafficEdgesTest, RestartDataPoint_OfAnotherType_RestartsUnlessItIsZero) {
    Bind(4, 1004, {8, 0, 5, 10});
    CreateAndInit();
    service.Write(4, Octets({0}));
    service.Write(4, Octets({200}));
    EXPECT_THAT(Client(), ElementsAre("client SetValue(1004, '0', 0, 0)",
                                      R"(client Command({"command":"Restart", "type":"Device"}))"));
    EXPECT_THAT(recorder.LinesWith("plugin A IsOxnReadInternal"), testing::SizeIs(1));
}

TEST_F(TrafficEdgesTest, RefusedValue_IsNobodysConcern) {
    Bind(5, 500, {1, 0, 1, 1});
    CreateAndInit();
    stack.faults.Refuse("SetValue");
    service.Write(5, Bits(1, 1));
    service.Response(5, Bits(1, 1));
    EXPECT_THAT(Client(), ElementsAre("client SetValue(500, '1', 0, 0)", "client SetValue(500, '1', 1, 1)"));
    EXPECT_THAT(recorder.LinesWith("ERROR"), IsEmpty());
}

TEST_F(TrafficEdgesTest, InUrnMode_AReadIsKnownByUrn) {
    plugins["A"].useUrns = true;
    Bind(5, 500, {1, 0, 1, 1});
    plugins["A"].bindings.back().urn = "lamp";
    stack.urns = {{1000, "urn:oxn:dp:house"}, {500, "urn:oxn:dp:house:lamp"}};
    stack.values[500] = "1";
    Start();
    EXPECT_EQ(service.Read(5), Bits(1, 1));
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
        client GetValue(500, 0)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(1, 5, 01) - ToKnxValue(1:1.1, 1, 01) succeeded (2).
    )");
}

TEST_F(TrafficEdgesTest, InUrnMode_AChangeIsKnownByUrn) {
    plugins["A"].useUrns = true;
    Bind(5, 0, {1, 0, 1, 1});
    plugins["A"].bindings.back().urn = "lamp";
    plugins["A"].bindings.back().eventing = true;
    stack.urns = {{1000, "urn:oxn:dp:house"}};
    Start();
    EXPECT_TRUE(stack.ValueChanged(500, "urn:oxn:dp:house:lamp", "1").get());
    EXPECT_TRUE(stack.ValueChanged(501, "urn:oxn:dp:garden:lamp", "1").get()); // of another device
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Checking if eventing for ID 500 or URN 'urn:oxn:dp:house:lamp'
        plugin A IsKnxEventDataPoint('lamp')
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Returning eventing state true
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 500 Urn urn:oxn:dp:house:lamp for reading
        plugin A GetCOFromUrn('lamp', reading)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 5 and DPT 1.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(1, 5, 01) - ToKnxValue(1:1.1, 1, 01) succeeded (2).
        service SendGroupValue(5, 01/1, 0) -> true
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Checking if eventing for ID 501 or URN 'urn:oxn:dp:garden:lamp'
        plugin A IsKnxEventDataPoint('')
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Returning eventing state false
    )");
}

} // namespace
