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

/// The lines of a start from the question for the settings to the connection.
class SettingsTest : public ConfigurationTest {
protected:
    void ExpectSettings(std::string_view transcript, const char* file = __builtin_FILE(),
                        int line = __builtin_LINE()) {
        Create();
        EXPECT_EQ(Init(), StartupState::InProgress);
        const auto lines = recorder.LinesOf("host");
        const auto from = std::find(lines.begin(), lines.end(), "hub GetApplicationProgramSettings()");
        const auto to =
            std::find(lines.begin(), lines.end(), "DEBUG KnxStack.DscKnxAppPrg | Connect(): starting...");
        ASSERT_NE(from, lines.end());
        ASSERT_NE(to, lines.end());
        ExpectTranscript({from + 1, to}, transcript, file, line);
    }
};

TEST_F(SettingsTest, AreToldInOrder) {
    hub.settings = {{"AppPrgHandlerName", "other"},
                    {"DscInstanceId", "5"},
                    {"GroupAddressTranslationTargetId", "7"},
                    {"ImplicitNtpDisableOnClientMode", "true"},
                    {"Unknown", "ignored"}};
    ExpectSettings(R"(
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = 5
        INFO KnxStack.DscKnxAppPrg | Init(): GroupAddressTranslationTargetId = 7
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = other
    )");
}

TEST_F(SettingsTest, KeysInAnotherCase_CountAsAbsent) {
    hub.settings = {
        {"APPPRGHANDLERNAME", "other"}, {"dscinstanceid", "5"}, {"groupAddressTranslationTargetId", "7"}};
    ExpectSettings(R"(
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = KNX
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = dscknxappprg
    )");
}

TEST_F(SettingsTest, EmptyTarget_IsPassedOverInSilence) {
    hub.settings = {{"GroupAddressTranslationTargetId", ""}};
    ExpectSettings(R"(
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = KNX
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = dscknxappprg
    )");
}

TEST_F(SettingsTest, EmptyTexts_CountAsGiven) {
    hub.settings = {{"AppPrgHandlerName", ""}, {"DscInstanceId", ""}};
    RegisterPlugins({"A"}, "stack", "one");
    RegisterPlugins({"B"}, "user", "another");
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    EXPECT_EQ(recorder.Count("client RegisterApplication(DscKnxAppPrg, field, )"), 1u);
    EXPECT_EQ(recorder.Count("INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = "), 1u);
    EXPECT_EQ(recorder.Count("INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = "), 1u);
    EXPECT_TRUE(recorder.InOrder("plugin A Initialize()", "plugin B Initialize()")); // of every program
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

struct BadJson {
    const char* name;
    const char* text;
    const char* error;
};

void PrintTo(const BadJson& row, std::ostream* out) {
    *out << row.name;
}

class NoJson : public ConfigurationTest, public testing::WithParamInterface<BadJson> {};

TEST_P(NoJson, IsAWarningInTheParsersWords) {
    stack.configuration = GetParam().text;
    RegisterPlugins({"A"});
    ExpectReading(std::string(R"(
        client GetConfiguration(1)
        WARN KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Failed to parse device configuration response: )") +
                  GetParam().error);
}
INSTANTIATE_TEST_SUITE_P(
    ConfigurationTest, NoJson,
    testing::Values(BadJson{"Nothing", "", "incomplete JSON"}, BadJson{"Blanks", "  \n", "incomplete JSON"},
                    BadJson{"SecondValue", R"({"ipc":{}} {"ipc":{}})", "extra data"},
                    BadJson{"Comment", R"({"ipc":{}} // all)", "extra data"},
                    BadJson{"TrailingComma", R"({"ipc":{},})", "syntax error"},
                    BadJson{"SingleQuotes", "{'ipc':{}}", "syntax error"},
                    BadJson{"ByteOrderMark", "\xEF\xBB\xBF{\"ipc\":{}}", "syntax error"},
                    BadJson{"ControlCharacter", "{\"ipc\":{\"DeviceId\":\"a\tb\"}}", "syntax error"}),
    [](const auto& row) { return row.param.name; });

TEST_F(ConfigurationTest, MemberThatIsRepeated_CountsAsItStandsLast) {
    stack.configuration = R"({"ipc":5,"ipc":{"DeviceId":"QTRMNV01","DeviceId":"VELDNV03"}})";
    ExpectReading(R"(
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is VELDNV03
    )");
}

TEST_F(ConfigurationTest, MembersInAnotherCase_CountAsAbsent) {
    RegisterPlugins({"A"});
    stack.configuration = R"({"ipc":{"deviceId":"QTRMNV01","deviceStackConfigPath":")" + files / "stack" +
                          R"(","USERDATAPATH":")" + files / "stack" + R"("}})";
    ExpectReading("client GetConfiguration(1)");
}

TEST_F(ConfigurationTest, EscapedTexts_AreRead) {
    stack.configuration = R"({"ipc":{"DeviceId":"\u0056ELD\u004eV03"},"other":[1,{"ipc":null}]})";
    ExpectReading(R"(
        client GetConfiguration(1)
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is VELDNV03
    )");
}

TEST_F(ConfigurationTest, EmptyDevice_IsNamedToo) {
    stack.configuration = R"({"ipc":{"DeviceId":""}})";
    Create();
    EXPECT_EQ(Init(), StartupState::InProgress);
    EXPECT_EQ(recorder.Count("INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is "), 1u);
}

TEST_F(ConfigurationTest, SameDirectoryTwice_ListsItsPluginsTwice) {
    stack.configuration = R"({"ipc":{"DeviceStackConfigPath":")" + files / "stack" + R"(","UserDataPath":")" +
                          files / "stack" + R"("}})";
    RegisterPlugins({"A"});
    ExpectReading(R"(
        client GetConfiguration(1)
        library A loaded
        plugin A CreateHandler(A.json)
        plugin A Initialize()
        plugin A CreateHandler(A.json)
        plugin A Initialize()
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
