// Settings of the host, and the device configuration with its plug-ins.
#include "ParameterNames.h"
#include "ProgramTest.h"

#include <algorithm>
#include <filesystem>

namespace {

class ConfigurationTest : public ProgramTest {
protected:
    /// The lines from the question for the device configuration to the set-up of the KNX side.
    void ExpectReading(std::string_view transcript, const char* file = __builtin_FILE(),
                       int line = __builtin_LINE()) {
        Create();
        EXPECT_EQ(Init(), StartupState::InProgress); // no failure of the reading stops the start
        const auto lines = recorder.LinesOf("host");
        const auto from =
            std::find(lines.begin(), lines.end(), "DEBUG KnxStack.DscKnxAppPrg | Connect(): end.");
        const auto to = std::find(lines.begin(), lines.end(),
                                  "DEBUG KnxStack.DscKnxAppPrg.KnxHandler | Init(): starting...");
        ASSERT_NE(from, lines.end());
        ASSERT_NE(to, lines.end());
        ExpectTranscript({from + 1, to}, transcript, file, line);
    }
};

TEST_F(ConfigurationTest, Settings_AreAppliedBeforeTheRegistration) {
    hub.settings = {{"DscInstanceId", "5"}, {"AppPrgHandlerName", "other"}, {"Unknown", "ignored"}};
    RegisterPlugins({"B"}, "stack", "other");
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    EXPECT_TRUE(recorder.InOrder("INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = 5",
                                 "INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = other"));
    EXPECT_TRUE(recorder.InOrder("INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = other",
                                 "client RegisterApplication(DscKnxAppPrg, field, 5)"));
    EXPECT_EQ(recorder.Count("plugin B Initialize()"), 1u);
}

TEST_F(ConfigurationTest, Settings_ThatAreGoneAtALaterInit_HaveTheirDefaultsAgain) {
    hub.settings = {{"DscInstanceId", "5"}, {"AppPrgHandlerName", "other"}};
    RegisterPlugins({"A"});
    CreateAndInit();
    Exit();
    hub.settings.clear();
    recorder.Clear();
    EXPECT_EQ(Init(), StartupState::InProgress);
    EXPECT_EQ(recorder.Count("client RegisterApplication(DscKnxAppPrg, field, KNX)"), 1u);
    EXPECT_EQ(recorder.Count("INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = dscknxappprg"), 1u);
    EXPECT_EQ(recorder.Count("plugin A Initialize()"), 1u);
}

TEST_F(ConfigurationTest, NoAnswer_LeavesEverythingUnread) {
    stack.configuration.reset();
    RegisterPlugins({"A"});
    ExpectReading(R"(
        client GetConfiguration(1)
        ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Unable to get the device configuration.
    )");
}

TEST_F(ConfigurationTest, IncompleteJson_IsAWarning) {
    stack.configuration = "{";
    ExpectReading(R"(
        client GetConfiguration(1)
        WARN KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Failed to parse device configuration response: incomplete JSON
    )");
}

TEST_F(ConfigurationTest, OtherText_IsAWarning) {
    stack.configuration = "no configuration";
    ExpectReading(R"(
        client GetConfiguration(1)
        WARN KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Failed to parse device configuration response: syntax error
    )");
}

class NoIpcObject : public ConfigurationTest, public testing::WithParamInterface<const char*> {};

TEST_P(NoIpcObject, IsAWarningAndLoadsNoPlugins) {
    stack.configuration = GetParam();
    RegisterPlugins({"A"});
    ExpectReading(R"(
        client GetConfiguration(1)
        WARN KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Failed to get ipc object.
    )");
}
INSTANTIATE_TEST_SUITE_P(ConfigurationTest, NoIpcObject,
                         testing::Values("{}", "[]", "null", R"({"ipc":null})", R"({"ipc":"text"})",
                                         R"({"ipc":[]})", R"({"IPC":{}})"),
                         TestSupport::NamesInOrder({"EmptyObject", "Array", "Null", "IpcNull", "IpcText",
                                                    "IpcArray", "IpcInUpperCase"}));

TEST_F(ConfigurationTest, EmptyIpcObject_LoadsPluginsFromEmptyPaths) {
    stack.configuration = R"({"ipc":{}})";
    ExpectReading("client GetConfiguration(1)");
}

TEST_F(ConfigurationTest, MembersOfOtherKinds_CountAsAbsent) {
    stack.configuration = R"({"ipc":{"DeviceId":5,"DeviceStackConfigPath":["a"],"UserDataPath":{}}})";
    ExpectReading("client GetConfiguration(1)");
}

TEST_F(ConfigurationTest, UnknownDevice_IsNamedAllTheSame) {
    stack.configuration = R"({"ipc":{"DeviceId":"veldnv03"}})";
    ExpectReading(R"(
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is veldnv03
    )");
}

TEST_F(ConfigurationTest, WithoutUserDataPath_PluginsStillLoad) {
    stack.configuration = R"({"ipc":{"DeviceStackConfigPath":")" + files / "stack" + R"("}})";
    RegisterPlugins({"A"});
    ExpectReading(R"(
        client GetConfiguration(1)
        library A loaded
        plugin A CreateHandler(A.json)
        plugin A Initialize()
    )");
}

TEST_F(ConfigurationTest, BothDirectories_GiveTheirPluginsInOrder) {
    RegisterPlugins({"B", "A"}, "stack");
    RegisterPlugins({"C"}, "user");
    ExpectReading(R"(
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        library B loaded
        plugin B CreateHandler(B.json)
        plugin B Initialize()
        library A loaded
        plugin A CreateHandler(A.json)
        plugin A Initialize()
        library C loaded
        plugin C CreateHandler(C.json)
        plugin C Initialize()
    )");
}

TEST_F(ConfigurationTest, DecliningPlugin_IsNoFailure) {
    plugins["A"].faults.Refuse("CreateHandler");
    RegisterPlugins({"A", "B"});
    ExpectReading(R"(
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        library A loaded
        plugin A CreateHandler(A.json)
        library A unloaded
        library B loaded
        plugin B CreateHandler(B.json)
        plugin B Initialize()
    )");
}

TEST_F(ConfigurationTest, PluginThatDoesNotInitialize_TakesAllWithIt) {
    plugins["C"].faults.Refuse("Initialize");
    RegisterPlugins({"A", "B", "C"});
    ExpectReading(R"(
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        library A loaded
        plugin A CreateHandler(A.json)
        plugin A Initialize()
        library B loaded
        plugin B CreateHandler(B.json)
        plugin B Initialize()
        library C loaded
        plugin C CreateHandler(C.json)
        plugin C Initialize()
        plugin A DeleteHandler()
        library A unloaded
        plugin B DeleteHandler()
        library B unloaded
        plugin C DeleteHandler()
        library C unloaded
        ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.
    )");
}

TEST_F(ConfigurationTest, PluginThatThrows_IsALoadingErrorLikeAnyOther) {
    plugins["B"].faults.Throw("Initialize", "out of order");
    RegisterPlugins({"A", "B"});
    ExpectReading(R"(
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        library A loaded
        plugin A CreateHandler(A.json)
        plugin A Initialize()
        library B loaded
        plugin B CreateHandler(B.json)
        plugin B Initialize()
        plugin A DeleteHandler()
        library A unloaded
        plugin B DeleteHandler()
        library B unloaded
        ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.
    )");
}

TEST_F(ConfigurationTest, PluginWithoutCreateHandler_IsALoadingError) {
    RegisterPlugins({"WithoutCreate"});
    ExpectReading(R"(
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        library WithoutCreate loaded
        library WithoutCreate unloaded
        ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.
    )");
}

class BadLibrary : public ConfigurationTest, public testing::WithParamInterface<const char*> {};

TEST_P(BadLibrary, IsALoadingError) {
    RegisterLibrary(GetParam());
    ExpectReading(R"(
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.
    )");
}
INSTANTIATE_TEST_SUITE_P(ConfigurationTest, BadLibrary,
                         testing::Values("", "/nowhere/libplugin.so", "/etc/passwd"),
                         TestSupport::NamesInOrder({"NoName", "NoFile", "NoLibrary"}));

TEST_F(ConfigurationTest, DirectoryWhoseStatusIsUnknown_IsALoadingError) {
    std::filesystem::create_symlink(files / "loop", files / "loop");
    stack.configuration = R"({"ipc":{"DeviceStackConfigPath":")" + files / "loop" + R"("}})";
    ExpectReading(R"(
        client GetConfiguration(1)
        ERROR KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.
    )");
}

TEST_F(ConfigurationTest, AfterALoadingError_NoPluginIsAsked) {
    plugins["B"].faults.Refuse("Initialize");
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}}};
    RegisterPlugins({"A", "B"});
    CreateAndInit();
    service.Write(5, TestSupport::Bits(1, 1));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Getting ID for CO 5 for unknown
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): ID = '0' is invalid from CO =  '5'
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): Returning ID 0 and DPT 0.0
    )");
}

} // namespace
