// The KNX side's set-up and what it passes on to the plug-ins.
#include "KnxHandlerTest.h"

#include "OwnTicks.h"

namespace {

using TestSupport::FakeGroupObject;
using Descriptors = Vesk::KnxAppPrg::CoDescriptorDataMap;
using SetUpTest = KnxHandlerTest;

TEST_F(SetUpTest, Init_TakesTheServicesAndRegisters) {
    EXPECT_TRUE(handler.Init(hub, DscKnxAppPrg::CallerEntryPoint::Init));
    EXPECT_TRUE(handler.Exit());
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
        hub GetGroupValueService()
        hub GetApplicationProgramMemory()
        service RegisterGroupValueUser(user)
        hub GetPropertyService()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): end
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): starting...
        service RegisterGroupValueUser(null)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): end
    )");
}

TEST_F(SetUpTest, Init_AfterADeviceRestart_AsksTheHubForNothing) {
    EXPECT_TRUE(handler.Init(hub, DscKnxAppPrg::CallerEntryPoint::DeviceRestart));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): end
    )");
}

TEST_F(SetUpTest, BeforeInit_EverythingIsEmpty) {
    EXPECT_EQ(handler.TimeMode(), 0);
    EXPECT_TRUE(handler.InterfaceObjects().empty());
    EXPECT_FALSE(handler.UsesUrns());
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:house:lamp"), "urn:oxn:dp:house:lamp");
    EXPECT_TRUE(handler.IsTimeTransferDue());
    EXPECT_FALSE(handler.Translation().IsEnabled());
}

TEST_F(SetUpTest, Init_WithoutPropertyService_Fails) {
    hub.propertyService = nullptr;
    EXPECT_FALSE(handler.Init(hub, DscKnxAppPrg::CallerEntryPoint::Init));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
        hub GetGroupValueService()
        hub GetApplicationProgramMemory()
        service RegisterGroupValueUser(user)
        hub GetPropertyService()
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Property service is NULL.
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error init KNX property handler
    )");
}

TEST_F(SetUpTest, Init_ThatFails_LeavesTheTranslationAlone) {
    hub.propertyService = nullptr;
    handler.Init(hub, DscKnxAppPrg::CallerEntryPoint::Init);
    recorder.Clear();
    EXPECT_FALSE(handler.Translation().OnMessageReceived("?0005"));
    ExpectRecord("host", "ERROR GroupAddressTranslation | Received message can't be sent, there is no group "
                         "value service.");

    hub.propertyService = &propertyService;
    handler.Init(hub, DscKnxAppPrg::CallerEntryPoint::Init);
    recorder.Clear();
    EXPECT_TRUE(handler.Translation().OnMessageReceived("?0005"));
    ExpectRecord("host", "service SendReadRequest(5) -> true");
}

TEST_F(SetUpTest, Init_KeepsTheInterfaceObjects) {
    plugins["A"].interfaceObjectId = 50001;
    propertyService.Add(50001);
    SetUpWith({"A"});
    EXPECT_THAT(
        handler.InterfaceObjects(),
        testing::ElementsAre(testing::Pair(50001, testing::ElementsAre(&propertyService.Object(50001)))));
    EXPECT_TRUE(handler.Init(hub, DscKnxAppPrg::CallerEntryPoint::DeviceRestart));
    EXPECT_EQ(handler.InterfaceObjects().size(), 1u);
    handler.Exit();
    EXPECT_EQ(handler.InterfaceObjects().size(), 1u);
}

TEST_F(SetUpTest, Init_FromEitherPlace_ForgetsTheLastTimeTransfer) {
    const OwnTicks ticks(10'000'000'000);
    handler.NoteTimeTransfer();
    EXPECT_FALSE(handler.IsTimeTransferDue());
    handler.Init(hub, DscKnxAppPrg::CallerEntryPoint::Init);
    EXPECT_TRUE(handler.IsTimeTransferDue());
    handler.NoteTimeTransfer();
    handler.Init(hub, DscKnxAppPrg::CallerEntryPoint::DeviceRestart);
    EXPECT_TRUE(handler.IsTimeTransferDue());
}

TEST_F(SetUpTest, Identification_WithUrnsButWithoutClient_KeepsThePrefix) {
    SetUpWithUrns({"A"});
    (program.*Reach(PrivateMembers::Disconnect()))();
    recorder.Clear();
    handler.InitFromDynamicHandlers();
    ExpectRecord("host", R"(
        plugin A GetUseUrns()
        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: true
        plugin A GetGroupAddressTranslationRange()
    )");
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:house:lamp"), "lamp");
}

TEST_F(SetUpTest, Identification_WithoutUrns_KeepsThePrefix) {
    SetUpWithUrns({"A"});
    plugins["A"].useUrns = false;
    handler.InitFromDynamicHandlers();
    EXPECT_FALSE(handler.UsesUrns());
    EXPECT_EQ(handler.TrimUrn("urn:oxn:dp:house:lamp"), "lamp");
}

TEST_F(SetUpTest, Descriptors_WithoutGroupCommunication_Fail) {
    Descriptors descriptors;
    EXPECT_FALSE(handler.FillCoDescriptorData(descriptors));
    ExpectRecord("host", "ERROR KnxStack.DscKnxAppPrg.KnxHandler | Group value service is NULL.");
}

TEST_F(SetUpTest, Descriptors_StopAtTheFirstMissingCo) {
    service.objects = {{1, FakeGroupObject(1)},
                       {2, FakeGroupObject(1, false)},
                       {3, FakeGroupObject(8)},
                       {5, FakeGroupObject(1)}};
    SetUpWith({});
    Descriptors descriptors{{3, {3, 9}}, {70, {70, 1}}}; // what is there stays
    EXPECT_TRUE(handler.FillCoDescriptorData(descriptors));
    EXPECT_EQ(descriptors, (Descriptors{{1, {1, 1}}, {3, {3, 9}}, {70, {70, 1}}}));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 3
    )");
}

TEST_F(SetUpTest, Descriptors_OfEveryPossibleCo_EndWithoutALog) {
    for (unsigned co = 1; co <= 0xFFFF; ++co)
        service.objects.emplace_hint(service.objects.end(), co, FakeGroupObject(1));
    SetUpWith({});
    Descriptors descriptors;
    EXPECT_TRUE(handler.FillCoDescriptorData(descriptors));
    EXPECT_EQ(descriptors.size(), 65534u);
    EXPECT_EQ(descriptors.rbegin()->first, 65534);
    ExpectRecord("host", "");
}

TEST_F(SetUpTest, Questions_ArePassedOnUnchanged) {
    plugins["A"].timeCos = {{20, {24, 0, 10, 1}}};
    plugins["A"].interfaceObjectId = 400;
    plugins["A"].properties = {{.name = "name", .propertyId = 52, .dataType = 5, .elementCount = 3}};
    SetUpWith({"A"});
    unsigned char dataType = 0;
    std::string name;
    std::uint16_t count = 0;
    EXPECT_EQ(handler.GetTimeCoByIndex(1, false, dpt), 20);
    EXPECT_EQ(dpt, (KNXDPT{24, 0, 10, 1}));
    EXPECT_EQ(handler.GetTimeCoByIndex(2, true, dpt), 0xFFFF);
    EXPECT_EQ(handler.GetInterfaceObjectId(), 400u);
    EXPECT_EQ(handler.GetPropertyByIndex(1, dataType, name, count), 52u);
    EXPECT_EQ(dataType, 5);
    EXPECT_EQ(name, "name");
    EXPECT_EQ(count, 3);
    ExpectRecord("host", R"(
        plugin A GetTimeCoByIndex(1, reading)
        plugin A GetTimeCoByIndex(2, writing)
        plugin A GetInterfaceObjectId()
        plugin A GetPropertyByIndex(1)
    )");
}

} // namespace
