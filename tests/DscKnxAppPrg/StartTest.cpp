// The first start, as host, device stack, bus and log see it.
#include "ProgramTest.h"

namespace {

using StartTest = ProgramTest;

TEST_F(StartTest, Version_IsTheOneOfTheInterfaceThatTheLibraryWasBuiltAgainst) {
    EXPECT_EQ(ProgramLibrary::Get().version(), 23u);
}

TEST_F(StartTest, CreateAndDelete_TouchNothingElse) {
    Create();
    EXPECT_NE(program, nullptr);
    Delete();
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | createApplicationProgram(): ...
        DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ...
    )");
}

TEST_F(StartTest, Delete_OfNull_IsAllowed) {
    ProgramLibrary::Get().destroy(nullptr);
    ExpectRecord("host", "DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ...");
}

/// A program of somebody else, which tells of its end.
class OtherProgram : public KnxStack::IApplicationProgram {
public:
    explicit OtherProgram(TestSupport::Recorder& recorder) : m_recorder(recorder) {}
    ~OtherProgram() override { m_recorder.Add("other program destroyed"); }
    StartupState Init(KnxStack::IApiHub&) override { return StartupState::Failed; }
    StartupState OnDeviceRestart() override { return StartupState::Failed; }
    bool Exit() override { return false; }

private:
    TestSupport::Recorder& m_recorder;
};

TEST_F(StartTest, Delete_GoesThroughTheDestructorOfTheInterface) {
    ProgramLibrary::Get().destroy(new OtherProgram(recorder));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ...
        other program destroyed
    )");
}

TEST_F(StartTest, FirstStart_OnTheHostsThread) {
    RegisterPlugins({"A"});
    Create();
    EXPECT_EQ(Init(), StartupState::InProgress);
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | createApplicationProgram(): ...
        DEBUG KnxStack.DscKnxAppPrg | Init(): starting...
        hub OnApplicationProgramStartupStateChanged(2)
        hub IsDeviceRestartPending() -> false
        DEBUG KnxStack.DscKnxAppPrg | Init(): start up state is 1
        hub GetApplicationProgramSettings()
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = KNX
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = dscknxappprg
        DEBUG KnxStack.DscKnxAppPrg | Connect(): starting...
        DEBUG KnxStack.DscKnxAppPrg | Connect(): calling CreateDeviceStackClient...
        client created
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end CreateDeviceStackClient.
        client SetClientMode(1)
        client InstallEventHandler(handler)
        client InstallResponseHandler(handler)
        client InstallFieldHandler(handler)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): calling RegisterApplication DscKnxAppPrg...
        client RegisterApplication(DscKnxAppPrg, field, KNX)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end RegisterApplication DscKnxAppPrg.
        client SetValueFormat(Native)
        DEBUG KnxStack.DscKnxAppPrg | Connect(): end.
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        library A loaded
        plugin A CreateHandler(A.json)
        plugin A Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
        hub GetGroupValueService()
        hub GetApplicationProgramMemory()
        service RegisterGroupValueUser(user)
        hub GetPropertyService()
        plugin A GetInterfaceObjectId()
        plugin A GetExtendedProperties()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): end
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): started a new thread for updating enabled objects.
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): end.
        INFO KnxStack.DscKnxAppPrg | Init(): Init succeeded.
        DEBUG KnxStack.DscKnxAppPrg | Init(): end.
    )");
}

TEST_F(StartTest, FirstStart_HandsTheProgramToTheClientAsContext) {
    CreateAndInit();
    EXPECT_EQ(stack.EventContext(), program);
    EXPECT_EQ(stack.ResponseContext(), program);
    EXPECT_EQ(stack.FieldContext(), program);
}

TEST_F(StartTest, FirstStart_OnTheInitThread) {
    plugins["A"].bindings = {{.co = 12, .id = 1002, .dpt = {1, 0, 1, 1}},
                             {.co = 13, .id = 1003, .dpt = {8, 0, 5, 10}}};
    service.objects[12] = TestSupport::FakeGroupObject(1);
    service.objects[13] = TestSupport::FakeGroupObject(8);
    RegisterPlugins({"A"});
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    ExpectRecord("worker 1", R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator configuration interface object
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
        hub GetApplicationProgramSettings()
        plugin A GetUseUrns()
        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: false
        plugin A GetGroupAddressTranslationRange()
        DEBUG KnxStack.DscKnxAppPrg | operator()(): do not start download handler.
        DEBUG KnxStack.DscKnxAppPrg | operator()(): DoFinalStartupState with state: 1
        hub OnApplicationProgramStartupStateChanged(1)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 1
        client Command({"command":"EmitEvent","eventType":"configurationLoaded"})
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1002 Urn  for writing
        plugin A GetCOFromID(1002, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 12 and DPT 1.1
        client GetValueRequest(1002, 1)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1003 Urn  for writing
        plugin A GetCOFromID(1003, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 13 and DPT 5.10
        client GetValueRequest(1003, 1)
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )");
}

TEST_F(StartTest, FirstStart_WithADeviceRestartToCome_ReportsAFinalStateButAnnouncesNothing) {
    hub.restartPending = true;
    RegisterPlugins({"A"});
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_TRUE(recorder.InOrder("hub IsDeviceRestartPending() -> true",
                                 "DEBUG KnxStack.DscKnxAppPrg | Init(): start up state is 0"));
    ExpectRecord("worker 1", R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator configuration interface object
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
        hub GetApplicationProgramSettings()
        plugin A GetUseUrns()
        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: false
        plugin A GetGroupAddressTranslationRange()
        DEBUG KnxStack.DscKnxAppPrg | operator()(): do not start download handler.
        DEBUG KnxStack.DscKnxAppPrg | operator()(): DoFinalStartupState with state: 1
        hub OnApplicationProgramStartupStateChanged(1)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 0
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )");

    recorder.Clear();
    EXPECT_TRUE(stack.ValueChanged(500, "urn:oxn:dp:house:lamp", "1").get());
    EXPECT_THAT(recorder.Lines(), testing::IsEmpty());
}

TEST_F(StartTest, FirstStart_WithUrns_AsksForThePrefixAndTheProcessView) {
    plugins["A"].useUrns = true;
    stack.urns[1000] = "urn:oxn:dp:house";
    stack.responses[R"({"command":"GetProcessView","cached":true})"] =
        R"({"response":{"processView":{"datapoints":[
        {"id":500,"urn":"urn:oxn:dp:house:lamp"},
        {"id":"501","urn":"urn:oxn:dp:house:blind"},
        {"id":900,"urn":"urn:oxn:dp:garden:lamp"}]}}})";
    RegisterPlugins({"A"});
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    ExpectRecord("worker 1", R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator configuration interface object
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
        hub GetApplicationProgramSettings()
        plugin A GetUseUrns()
        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: true
        client GetUrn(1000, 0)
        INFO KnxStack.DscKnxAppPrg.KnxHandler | URN prefix: 'urn:oxn:dp:house:'
        plugin A GetGroupAddressTranslationRange()
        DEBUG KnxStack.DscKnxAppPrg | operator()(): do not start download handler.
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        client Command({"command":"GetProcessView","cached":true}, 5 s)
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 2 entries to ID-URN Map
        DEBUG KnxStack.DscKnxAppPrg | operator()(): DoFinalStartupState with state: 1
        hub OnApplicationProgramStartupStateChanged(1)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 1
        client Command({"command":"EmitEvent","eventType":"configurationLoaded"})
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1002 Urn  for writing
        plugin A GetCOFromID(1002, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1002
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1003 Urn  for writing
        plugin A GetCOFromID(1003, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1003
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )");
}

TEST_F(StartTest, FirstStart_WithoutGroupCommunication_StillStarts) {
    hub.groupValueService = nullptr;
    Create();
    EXPECT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_EQ(recorder.Count("hub OnApplicationProgramStartupStateChanged(1)"), 1u);
    EXPECT_THAT(recorder.LinesWith("service "), testing::IsEmpty());
}

TEST_F(StartTest, FinalState_FollowsTheAnnouncementByOneSecond) {
    RegisterPlugins({"A"});
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .eventing = true}};
    service.objects[5] = TestSupport::FakeGroupObject(1);
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(
        recorder.WaitFor(R"(client Command({"command":"EmitEvent","eventType":"configurationLoaded"}))"));
    EXPECT_TRUE(stack.ValueChanged(500, "", "1").get()); // not yet
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_TRUE(stack.ValueChanged(500, "", "0").get());
    EXPECT_THAT(recorder.LinesWith("service Send"),
                testing::ElementsAre("service SendGroupValue(5, 00/1, 0) -> true"));
}

TEST_F(StartTest, LogRecords_NameTheSourceFileAndTheOperation) {
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    for (const TestSupport::LogLocation& location : log.Locations()) {
        EXPECT_THAT(location.file, testing::MatchesRegex("DscKnxAppPrg[A-Za-z]*\\.cpp")) << location.message;
        EXPECT_GT(location.line, 0) << location.message;
        EXPECT_THAT(location.function, testing::HasSubstr("(")) << location.message;
    }
    const auto locations = log.Locations();
    ASSERT_THAT(locations, testing::SizeIs(testing::Gt(2)));
    EXPECT_EQ(locations[1].message, "Init(): starting...");
    EXPECT_EQ(locations[1].file, "DscKnxAppPrg.cpp");
    EXPECT_THAT(locations[1].function, testing::HasSubstr("DscKnxAppPrg::Init(KnxStack::IApiHub&)"));
}

} // namespace
