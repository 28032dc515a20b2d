// Whole lives of a program, from Init to Exit, whose device configuration or plug-ins cannot be used: it runs
// without bindings.
#include "ParameterNames.h"
#include "ProgramTest.h"

#include <filesystem>
#include <ostream>
#include <string>

namespace {

constexpr std::string_view kUpToTheConfiguration = R"(
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
)";

constexpr std::string_view kSetUp = R"(
    DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...
    hub GetGroupValueService()
    hub GetApplicationProgramMemory()
    service RegisterGroupValueUser(user)
    hub GetPropertyService()
    DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): end
    DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): starting...
    DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): started a new thread for updating enabled objects.
    DEBUG KnxStack.DscKnxAppPrg | StartInitThread(): end.
    INFO KnxStack.DscKnxAppPrg | Init(): Init succeeded.
    DEBUG KnxStack.DscKnxAppPrg | Init(): end.
)";

constexpr std::string_view kInitThreadWithoutPlugins = R"(
    DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
    ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator configuration interface object
    ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
    INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
    hub GetApplicationProgramSettings()
    INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: false
    DEBUG KnxStack.DscKnxAppPrg | operator()(): do not start download handler.
    DEBUG KnxStack.DscKnxAppPrg | operator()(): DoFinalStartupState with state: 1
    hub OnApplicationProgramStartupStateChanged(1)
    DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
    DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 1
    client Command({"command":"EmitEvent","eventType":"configurationLoaded"})
    DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1002 Urn  for writing
    DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
    ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1002
    DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1003 Urn  for writing
    DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
    ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1003
    DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
)";

constexpr std::string_view kExitWithoutPlugins = R"(
    DEBUG KnxStack.DscKnxAppPrg | Exit(): starting...
    DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
    DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): duration: # ms
    DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
    DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): starting...
    service RegisterGroupValueUser(null)
    DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): end
    DEBUG KnxStack.DscKnxAppPrg | Disconnect(): starting...
    client is being destroyed
    client destroyed
    DEBUG KnxStack.DscKnxAppPrg | Disconnect(): duration: # ms
    DEBUG KnxStack.DscKnxAppPrg | Disconnect(): end.
    DEBUG KnxStack.DscKnxAppPrg | Exit(): end.
    DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ...
)";

struct Case {
    const char* configuration; ///< null = there is an answer as always; empty = none
    const char* library;       ///< null = none is listed
    const char* reading;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.reading;
}

class LifeTest : public ProgramTest {
protected:
    void WholeLife(std::string_view reading) {
        Create();
        EXPECT_EQ(Init(), StartupState::InProgress);
        ASSERT_TRUE(InitThreadFinished());
        EXPECT_TRUE(Exit());
        Delete();
        ExpectRecord(
            "host",
            std::string(kUpToTheConfiguration).append(reading).append(kSetUp).append(kExitWithoutPlugins));
        ExpectRecord("worker 1", kInitThreadWithoutPlugins);
    }
};

class LifeWithoutPlugins : public LifeTest, public testing::WithParamInterface<Case> {};

TEST_P(LifeWithoutPlugins, RunsToItsEnd) {
    const Case& row = GetParam();
    if (row.configuration != nullptr && *row.configuration == '\0')
        stack.configuration.reset();
    else if (row.configuration != nullptr)
        stack.configuration = row.configuration;
    if (row.library != nullptr)
        RegisterLibrary(*row.library == '/' ? std::string(row.library)
                                            : TestSupport::FakePlugins::Library(row.library));
    plugins["A"].faults.Refuse("Initialize");
    plugins["B"].faults.Throw("CreateHandler", "no");
    plugins["C"].faults.Refuse("CreateHandler");
    WholeLife(row.reading);
}

INSTANTIATE_TEST_SUITE_P(Cases, LifeWithoutPlugins,
                         testing::Values(Case{"", nullptr, R"(
            ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Unable to get the device configuration.
        )"},
                                         Case{"{", nullptr, R"(
            WARN KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Failed to parse device configuration response: incomplete JSON
        )"},
                                         Case{"[]", nullptr, R"(
            WARN KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Failed to get ipc object.
        )"},
                                         Case{nullptr, nullptr, R"(
            INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        )"},
                                         Case{nullptr, "/nowhere/libplugin.so", R"(
            INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
            ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.
        )"},
                                         Case{nullptr, "WithoutCreate", R"(
            INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
            library WithoutCreate loaded
            library WithoutCreate unloaded
            ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.
        )"},
                                         Case{nullptr, "A", R"(
            INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
            library A loaded
            plugin A CreateHandler()
            plugin A Initialize()
            plugin A DeleteHandler()
            library A unloaded
            ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.
        )"},
                                         Case{nullptr, "B", R"(
            INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
            library B loaded
            plugin B CreateHandler()
            plugin B DeleteHandler()
            library B unloaded
            ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.
        )"},
                                         Case{nullptr, "C", R"(
            INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
            library C loaded
            plugin C CreateHandler()
            library C unloaded
        )"}),
                         TestSupport::NamesInOrder({"NoConfiguration", "NoJson", "NoIpcObject",
                                                    "NothingListed", "NoFile", "NoCreateHandler",
                                                    "NotInitialized", "ThrowsWhenMade", "Declines"}));

TEST_F(LifeTest, WithADirectoryOfUnknownStatus_RunsToItsEnd) {
    std::filesystem::create_symlink(files / "loop", files / "loop");
    stack.configuration = R"({"ipc":{"DeviceStackConfigPath":")" + files / "loop" + R"("}})";
    WholeLife(R"(
        ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.
    )");
}

TEST_F(LifeTest, WithARefusedRegistration_ExitReleasesTheClientAlone) {
    stack.faults.Refuse("RegisterApplication");
    RegisterPlugins({"A"});
    Create();
    ASSERT_EQ(Init(), StartupState::Failed);
    recorder.Clear();
    EXPECT_TRUE(Exit());
    Delete();
    ExpectTranscript(recorder.Lines(), R"(
        DEBUG KnxStack.DscKnxAppPrg | Exit(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): starting...
        DEBUG KnxStack.DscKnxAppPrg | StopInitThread(): end.
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): starting...
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Exit(): end
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): starting...
        client is being destroyed
        client destroyed
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): duration: # ms
        DEBUG KnxStack.DscKnxAppPrg | Disconnect(): end.
        DEBUG KnxStack.DscKnxAppPrg | Exit(): end.
        DEBUG KnxStack.DscKnxAppPrg | deleteApplicationProgram(): ...
    )");
}

} // namespace
