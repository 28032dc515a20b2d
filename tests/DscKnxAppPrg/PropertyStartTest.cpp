// Starts of a program that has interface objects, properties and a time mode.
#include "ProgramTest.h"

#include <algorithm>

namespace {

/// Own object 50001 with a time mode and a table; two further objects of type 50002, one of which exists.
class PropertyStartTest : public ProgramTest {
protected:
    PropertyStartTest() {
        propertyService.Add(50001).Add(201).value = {0x40};
        propertyService.Add(50002);
        plugins["A"].interfaceObjectId = 50001;
        plugins["A"].properties = {
            {.name = "time mode", .propertyId = 201, .dataType = 17, .elementCount = 1},
            {.name = "table", .propertyId = 203, .dataType = 4, .elementCount = 8}};
        plugins["A"].extendedProperties = {{"level", 51, 4, 1, 50002, 2}, {"names", 52, 2, 10, 50002, 2}};
        RegisterPlugins({"A"});
    }

    /// The lines of a thread from `first` on; all of them if there is no such line.
    std::vector<std::string> LinesFrom(const std::string& thread, const std::string& first) const {
        std::vector<std::string> lines = recorder.LinesOf(thread);
        const auto begin = std::find(lines.begin(), lines.end(), first);
        if (begin != lines.end())
            lines.erase(lines.begin(), begin);
        return lines;
    }
};

TEST_F(PropertyStartTest, FirstStart_OnTheHostsThread) {
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
        properties GetInterfaceObjectById(50001) -> 50001/1
        plugin A GetPropertyByIndex(1)
        object 50001/1 CreateProperty(201, 17, 0, 1)
        property 50001/1/201 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, count=1, pid=201, name=time mode
        plugin A GetPropertyByIndex(2)
        object 50001/1 CreateArrayProperty(203, 4, 8, 0, 1)
        property 50001/1/203 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, count=1, pid=203, name=table
        plugin A GetPropertyByIndex(3)
        plugin A GetExtendedProperties()
        properties GetInterfaceObject(50002, 1) -> 50002/1
        properties GetInterfaceObject(50002, 2) -> null
        properties CreateInterfaceObject(50002) -> 50002/2
        object 50002/1 CreateProperty(51, 4, 0, 1)
        property 50002/1/51 SetActive(1)
        object 50002/2 CreateProperty(51, 4, 0, 1)
        property 50002/2/51 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50002, count=2, pid=51, name=level
        object 50002/1 CreateArrayProperty(52, 2, 10, 0, 1)
        property 50002/1/52 SetActive(1)
        object 50002/2 CreateArrayProperty(52, 2, 10, 0, 1)
        property 50002/2/52 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50002, count=2, pid=52, name=names
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): end
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): started a new thread for updating enabled objects.
        DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): end.
        INFO KnxStack.DscKnxAppPrg | Init(): Init succeeded.
        DEBUG KnxStack.DscKnxAppPrg | Init(): end.
    )");
}

TEST_F(PropertyStartTest, FirstStartInTimeMode1_OnTheInitThread) {
    hub.settings = {{"ImplicitNtpDisableOnClientMode", "true"}};
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    ExpectRecord("worker 1", R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
        object 50001/1 GetProperty(201)
        property 50001/1/201 GetValue() -> 40
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is: 40
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode is: 1
        hub GetApplicationProgramSettings()
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Implicit NTP disable on client mode is active.
        client SetConfiguration(Ntp=true)
        INFO KnxStack.DscKnxAppPrg | operator()(): Enable NTP.
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
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1002
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1003 Urn  for writing
        plugin A GetCOFromID(1003, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1003
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )");
}

TEST_F(PropertyStartTest, FirstStartInTheClientMode_DisablesNtp) {
    propertyService.Object(50001).properties.at(201).value = {0xBF};
    hub.settings = {{"ImplicitNtpDisableOnClientMode", "true"}};
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    const auto lines = recorder.LinesOf("worker 1");
    ASSERT_GE(lines.size(), 9u);
    ExpectTranscript({lines.begin() + 3, lines.begin() + 9}, R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is: bf
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode is: 2
        hub GetApplicationProgramSettings()
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Implicit NTP disable on client mode is active.
        client SetConfiguration(Ntp=false)
        INFO KnxStack.DscKnxAppPrg | operator()(): Disable NTP.
    )");
}

TEST_F(PropertyStartTest, FirstStartInMode3_EnablesNtp) {
    propertyService.Object(50001).properties.at(201).value = {0xC0};
    hub.settings = {{"ImplicitNtpDisableOnClientMode", "true"}};
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_THAT(
        recorder.LinesWith("NTP"),
        testing::ElementsAre(
            "DEBUG KnxStack.DscKnxAppPrg | operator()(): Implicit NTP disable on client mode is active.",
            "INFO KnxStack.DscKnxAppPrg | operator()(): Enable NTP."));
}

TEST_F(PropertyStartTest, DeviceRestart_ReadsTheModeAnewAndRegistersNothing) {
    hub.settings = {{"ImplicitNtpDisableOnClientMode", "true"}};
    Start();
    propertyService.Object(50001).properties.at(201).value = {0x80};
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_THAT(recorder.LinesWith("propert"),
                testing::ElementsAre(
                    "property 50001/1/201 GetValue() -> 80",
                    "DEBUG KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode "
                    "property is: 80"));
    EXPECT_EQ(recorder.Count("client SetConfiguration(Ntp=false)"), 1u);
}

/// Set-ups that end at the properties.
class PropertyFailureTest : public PropertyStartTest {
protected:
    /// The set-up of the KNX side and what follows it.
    void ExpectFailingSetUp(std::string_view transcript) {
        Create();
        EXPECT_EQ(Init(), StartupState::Failed);
        ExpectTranscript(LinesFrom("host", "DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting..."),
                         transcript);
        EXPECT_THAT(recorder.LinesOf("worker 1"), testing::IsEmpty());
    }
};

TEST_F(PropertyFailureTest, WithoutAPropertyService_InitFails) {
    hub.propertyService = nullptr;
    Create();
    EXPECT_EQ(Init(), StartupState::Failed);
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
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Property service is NULL.
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error init KNX property handler
        ERROR KnxStack.DscKnxAppPrg | Init(): knxHandler init failed.
        ERROR KnxStack.DscKnxAppPrg | Init(): got error.
        DEBUG KnxStack.DscKnxAppPrg | Init(): end.
    )");
}

TEST_F(PropertyFailureTest, AfterAFailingSetUp_ExitReleasesEverything) {
    hub.propertyService = nullptr;
    Create();
    ASSERT_EQ(Init(), StartupState::Failed);
    recorder.Clear();
    EXPECT_TRUE(Exit());
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg | Exit(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
        plugin A DeleteHandler()
        library A unloaded
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): starting...
        service RegisterGroupValueUser(null)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): end
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): starting...
        client is being destroyed
        client destroyed
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): end.
        DEBUG KnxStack.DscKnxAppPrg | Exit(): end.
    )");
}

TEST_F(PropertyFailureTest, WithoutTheOwnObject_InitFails) {
    propertyService.faults.Refuse("GetInterfaceObjectById");
    ExpectFailingSetUp(R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
        hub GetGroupValueService()
        hub GetApplicationProgramMemory()
        service RegisterGroupValueUser(user)
        hub GetPropertyService()
        plugin A GetInterfaceObjectId()
        properties GetInterfaceObjectById(50001) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Failed to get interface object type 50001
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error init KNX property handler
        ERROR KnxStack.DscKnxAppPrg | Init(): knxHandler init failed.
        ERROR KnxStack.DscKnxAppPrg | Init(): got error.
        DEBUG KnxStack.DscKnxAppPrg | Init(): end.
    )");
}

TEST_F(PropertyFailureTest, WithAFurtherObjectThatCannotBeCreated_InitFails) {
    plugins["A"].properties.clear();
    propertyService.faults.Refuse("CreateInterfaceObject");
    ExpectFailingSetUp(R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
        hub GetGroupValueService()
        hub GetApplicationProgramMemory()
        service RegisterGroupValueUser(user)
        hub GetPropertyService()
        plugin A GetInterfaceObjectId()
        properties GetInterfaceObjectById(50001) -> 50001/1
        plugin A GetPropertyByIndex(1)
        plugin A GetExtendedProperties()
        properties GetInterfaceObject(50002, 1) -> 50002/1
        properties GetInterfaceObject(50002, 2) -> null
        properties CreateInterfaceObject(50002) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating extended interface object with type = 50002
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error init KNX property handler
        ERROR KnxStack.DscKnxAppPrg | Init(): knxHandler init failed.
        ERROR KnxStack.DscKnxAppPrg | Init(): got error.
        DEBUG KnxStack.DscKnxAppPrg | Init(): end.
    )");
}

TEST_F(PropertyFailureTest, WithAPropertyThatCannotBeCreated_InitGoesOn) {
    propertyService.faults.Refuse("CreateProperty");
    Create();
    EXPECT_EQ(Init(), StartupState::InProgress);
    EXPECT_THAT(recorder.LinesWith("ERROR"), testing::SizeIs(3));
}

/// What is thrown at the set-up stays in there.
class ThrowingSetUp : public PropertyFailureTest {
protected:
    /// Init fails, and `line` says why.
    void ExpectFailure(const std::string& line) {
        Create();
        EXPECT_EQ(Init(), StartupState::Failed);
        const auto lines = recorder.LinesOf("host");
        ASSERT_GT(lines.size(), 5u);
        ExpectTranscript({lines.end() - 5, lines.end()}, line + R"(
            ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error init KNX property handler
            ERROR KnxStack.DscKnxAppPrg | Init(): knxHandler init failed.
            ERROR KnxStack.DscKnxAppPrg | Init(): got error.
            DEBUG KnxStack.DscKnxAppPrg | Init(): end.
        )");
        EXPECT_TRUE(Exit());
        EXPECT_EQ(recorder.Count("client destroyed"), 1u);
    }
};

class ThrowingPlugin : public ThrowingSetUp, public testing::WithParamInterface<const char*> {};

TEST_P(ThrowingPlugin, FailsInit) {
    plugins["A"].faults.Throw(GetParam(), "no configuration file");
    ExpectFailure("ERROR KnxStack.DscKnxAppPrg.KnxHandler | Init(): Can't register KNX properties: no "
                  "configuration file");
}
INSTANTIATE_TEST_SUITE_P(PropertyFailureTest, ThrowingPlugin,
                         testing::Values("GetInterfaceObjectId", "GetPropertyByIndex",
                                         "GetExtendedProperties"),
                         [](const auto& row) { return std::string(row.param); });

class ThrowingPropertyService : public ThrowingSetUp, public testing::WithParamInterface<const char*> {};

TEST_P(ThrowingPropertyService, FailsInit) {
    propertyService.faults.Throw(GetParam(), "the stack is gone");
    ExpectFailure(
        "ERROR KnxStack.DscKnxAppPrg.KnxHandler | Init(): Can't register KNX properties: the stack is gone");
}
INSTANTIATE_TEST_SUITE_P(PropertyFailureTest, ThrowingPropertyService,
                         testing::Values("GetInterfaceObjectById", "GetInterfaceObject",
                                         "CreateInterfaceObject", "CreateProperty", "CreateArrayProperty"),
                         [](const auto& row) { return std::string(row.param); });

/// A stack of a maker who throws anything at all.
class StackThatThrowsANumber : public TestSupport::FakePropertyService {
public:
    using FakePropertyService::FakePropertyService;
    KnxStack::IInterfaceObject* GetInterfaceObjectById(std::uint32_t) override { throw 42; }
};

TEST_F(ThrowingSetUp, WhateverItIs_FailsInit) {
    StackThatThrowsANumber throwing(recorder);
    hub.propertyService = &throwing;
    ExpectFailure(
        "ERROR KnxStack.DscKnxAppPrg.KnxHandler | Init(): Can't register KNX properties: unknown exception");
}

/// What is thrown at the question for the time mode ends that start; the host is told and may make another.
class ThrowingTimeMode : public PropertyStartTest, public testing::WithParamInterface<const char*> {};

TEST_P(ThrowingTimeMode, EndsTheStart) {
    propertyService.faults.Throw(GetParam(), "the stack is gone");
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(recorder.WaitFor(
        "ERROR KnxStack.DscKnxAppPrg | operator()(): Thread ended by an exception: the stack is gone"));
    EXPECT_EQ(recorder.Count("hub OnApplicationProgramStartupStateChanged(0)"), 1u);
    EXPECT_TRUE(Exit());
    Delete();
}
INSTANTIATE_TEST_SUITE_P(PropertyStartTest, ThrowingTimeMode, testing::Values("GetProperty", "GetValue"),
                         [](const auto& row) { return std::string(row.param); });

} // namespace
