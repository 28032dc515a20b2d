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
        hub GetApplicationProgramSettings()
        plugin A GetUseUrns()
        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: false
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

} // namespace
