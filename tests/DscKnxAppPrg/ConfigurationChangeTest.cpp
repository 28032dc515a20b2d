// The end of a configuration change: the device stack has the project that a download handler announced.
#include "DownloadTest.h"

#include <chrono>
#include <future>

namespace {

constexpr const char* kReload =
    "INFO KnxStack.DscKnxAppPrg | OnConfigurationChanged(): reload KnxAppPrgHandlers";
constexpr const char* kChangeEnd =
    R"(client Command({"command":"EmitEvent","eventType":"configurationChangeEnd"}))";
constexpr const char* kConfigurationLoaded =
    R"(client Command({"command":"EmitEvent","eventType":"configurationLoaded"}))";
constexpr const char* kLastRequest = "client GetValueRequest(1003, 1)";

constexpr std::string_view kReloadAndEnd = R"(
    INFO KnxStack.DscKnxAppPrg | OnConfigurationChanged(): reload KnxAppPrgHandlers
    plugin A Reload()
    client Command({"command":"EmitEvent","eventType":"configurationChangeEnd"})
    INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
    client Command({"command":"GetProcessView","cached":true}, 5 s)
    INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 0 entries to ID-URN Map
)";

/// A download handler that announces the change and creates the file.
class ConfigurationChangeTest : public DownloadTest {
protected:
    ConfigurationChangeTest() {
        stack.responses[R"({"command":"GetProcessView","cached":true})"] =
            R"({"response":{"processView":{"datapoints":[]}}})";
        plugins.Download("DownloadA").announcements = 1;
        plugins.Download("DownloadA").creates = true;
        RegisterDownloadHandlers({"DownloadA"});
    }

    /// A start and a device restart that waits for the project; the record then is empty.
    void Announce() {
        StartAndRestart();
        recorder.Clear();
    }

    /// The new project, up to the last step of the thread that finishes the change.
    void Change() {
        EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
        ASSERT_TRUE(recorder.WaitFor(kLastRequest));
    }
};

TEST_F(ConfigurationChangeTest, Project_FinishesTheStart) {
    Announce();
    Change();
    ExpectTranscript(recorder.Lines(), std::string(kReloadAndEnd).append(kFinalState));
}

TEST_F(ConfigurationChangeTest, Project_IsReloadedOnTheClientsThreadAndFinishedOnAnother) {
    Announce();
    Change();
    ExpectRecord("client", R"(
        INFO KnxStack.DscKnxAppPrg | OnConfigurationChanged(): reload KnxAppPrgHandlers
        plugin A Reload()
    )");
    ExpectRecord("host", "");
    ExpectRecord("worker 2", ""); // the init thread
}

TEST_F(ConfigurationChangeTest, Project_TheCallbackReturnsBeforeTheChangeIsFinished) {
    Announce();
    const auto gate = stack.faults.Block("Command");
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ASSERT_TRUE(gate->WaitForArrival());
    EXPECT_EQ(recorder.Count(kChangeEnd), 1u);
    gate->Open();
    ASSERT_TRUE(recorder.WaitFor(kLastRequest));
}

TEST_F(ConfigurationChangeTest, WholeDownload_EventsAreInOrder) {
    StartAndRestart();
    Change();
    EXPECT_THAT(recorder.LinesWith("EmitEvent"),
                testing::ElementsAre(
                    R"(client Command({"command":"EmitEvent","eventType":"configurationChangeBegin"}))",
                    R"(client Command({"command":"EmitEvent","eventType":"etsConfigChanged"}))", kChangeEnd,
                    kConfigurationLoaded));
    EXPECT_THAT(recorder.LinesWith("hub OnApplicationProgramStartupStateChanged"),
                testing::ElementsAre("hub OnApplicationProgramStartupStateChanged(2)",
                                     "hub OnApplicationProgramStartupStateChanged(1)"));
}

TEST_F(ConfigurationChangeTest, Project_TheStatusIsRequestedOneSecondAfterTheAnnouncement) {
    Announce();
    Change();
    EXPECT_GE(recorder.Between(kConfigurationLoaded, "client GetValueRequest(1002, 1)"),
              std::chrono::seconds(1));
}

TEST_F(ConfigurationChangeTest, Project_ChangesAreSentFromTheFinalStateOn) {
    plugins["A"].bindings.push_back({.co = 4, .id = 500, .dpt = {1, 0, 1, 1}, .eventing = true});
    service.objects[4] = TestSupport::FakeGroupObject(1);
    Announce();
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ASSERT_TRUE(recorder.WaitFor(kConfigurationLoaded));
    EXPECT_TRUE(stack.ValueChanged(500, "", "0").get()); // not yet
    ASSERT_TRUE(recorder.WaitFor(kLastRequest));
    EXPECT_TRUE(stack.ValueChanged(500, "", "1").get());
    EXPECT_THAT(recorder.LinesWith("service Send"),
                testing::ElementsAre("service SendGroupValue(4, 01/1, 0) -> true"));
}

TEST_F(ConfigurationChangeTest, Project_ItsValueIsNotLookedAt) {
    Announce();
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "refused").get());
    ASSERT_TRUE(recorder.WaitFor(kLastRequest));
    ExpectTranscript(recorder.Lines(), std::string(kReloadAndEnd).append(kFinalState));
}

TEST_F(ConfigurationChangeTest, Project_Unannounced_IsIgnored) {
    Start();
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ExpectTranscript(recorder.Lines(), "");
}

TEST_F(ConfigurationChangeTest, OtherKeys_AreIgnoredAndTheChangeStaysAnnounced) {
    Announce();
    for (const char* key : {"project", "PROJECT", "Projec", "Projects", "Project ", "Ntp", ""})
        EXPECT_TRUE(stack.ConfigurationChanged(key, "").get());
    ExpectTranscript(recorder.Lines(), "");
    Change();
    EXPECT_EQ(recorder.Count(kReload), 1u);
}

TEST_F(ConfigurationChangeTest, Project_TheSecondTime_IsIgnored) {
    Announce();
    Change();
    recorder.Clear();
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ExpectTranscript(recorder.Lines(), "");
}

TEST_F(ConfigurationChangeTest, Project_AfterAnotherDownload_CountsAgain) {
    Announce();
    Change();
    recorder.Clear();
    Restart();
    EXPECT_EQ(recorder.Count("download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not "
                             "raised, {1, 3})"),
              1u);
    recorder.Clear();
    Change();
    ExpectTranscript(recorder.Lines(), std::string(kReloadAndEnd).append(kFinalState));
}

TEST_F(ConfigurationChangeTest, Project_AfterAnAnnouncementWithoutAFile_IsFinishedAllTheSame) {
    plugins.Download("DownloadA").creates = false;
    Announce();
    Change();
    ExpectTranscript(recorder.Lines(), std::string(kReloadAndEnd).append(kFinalState));
}

TEST_F(ConfigurationChangeTest, Project_WithADeviceRestartToCome_AnnouncesNothing) {
    // The announcement is left over from a life before.
    Announce();
    ASSERT_TRUE(Exit());
    hub.restartPending = true;
    recorder.Clear();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    recorder.Clear();
    EXPECT_TRUE(stack.ConfigurationChanged("Project", "").get());
    ASSERT_TRUE(recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 0"));
    EXPECT_TRUE(Exit());
    Delete(); // no thread is left
    const auto lines = recorder.LinesOf("worker 4");
    ExpectTranscript(lines, R"(
        client Command({"command":"EmitEvent","eventType":"configurationChangeEnd"})
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        client Command({"command":"GetProcessView","cached":true}, 5 s)
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 0 entries to ID-URN Map
        hub OnApplicationProgramStartupStateChanged(1)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 0
    )");
}

// What is read again, and what is not.

class ReloadTest : public ConfigurationChangeTest {
protected:
    /// CO 4 is data point 500.
    ReloadTest() {
        plugins["A"].bindings.push_back(
            {.co = 4, .id = 500, .dpt = {1, 0, 1, 1}, .urn = "lamp", .eventing = true});
        service.objects[4] = TestSupport::FakeGroupObject(1);
        service.objects[5] = TestSupport::FakeGroupObject(1);
        stack.urns = {{1000, "urn:oxn:dp:house"}, {500, "urn:oxn:dp:house:lamp"}};
    }
};

TEST_F(ReloadTest, NewBindings_Count) {
    Announce();
    service.Write(4, TestSupport::Bits(1, 1));
    plugins["A"].bindings.back() = {.co = 4, .id = 600, .dpt = {1, 0, 1, 1}};
    service.Write(4, TestSupport::Bits(1, 1));
    Change();
    service.Write(4, TestSupport::Bits(1, 1));
    EXPECT_THAT(recorder.LinesWith("client SetValue"),
                testing::ElementsAre("client SetValue(500, '1', 0, 0)", "client SetValue(500, '1', 0, 0)",
                                     "client SetValue(600, '1', 0, 0)"));
}

TEST_F(ReloadTest, Answers_GivenBeforeTheReloadAreForgotten) {
    // A telegram that asks while the plug-ins read their configuration again.
    Announce();
    const auto gate = plugins["A"].faults.Block("Reload");
    auto change = stack.ConfigurationChanged("Project", "");
    ASSERT_TRUE(gate->WaitForArrival());
    service.Write(4, TestSupport::Bits(1, 1));
    plugins["A"].bindings.back().id = 600;
    gate->Open();
    EXPECT_TRUE(change.get());
    service.Write(4, TestSupport::Bits(1, 1));
    EXPECT_THAT(recorder.LinesWith("client SetValue"),
                testing::ElementsAre("client SetValue(500, '1', 0, 0)", "client SetValue(600, '1', 0, 0)"));
    ASSERT_TRUE(recorder.WaitFor(kLastRequest));
}

TEST_F(ReloadTest, IdentificationRangeAndTimeMode_AreNotReadAgain) {
    Announce();
    plugins["A"].useUrns = true;
    plugins["A"].translationRange = {4, 5};
    Change();
    for (const char* question : {"GetUseUrns", "GetUrn(", "GetGroupAddressTranslationRange", "GetProperty(",
                                 "GetApplicationProgramSettings", "GetConfiguration", "library "})
        EXPECT_THAT(recorder.LinesWith(question), testing::IsEmpty()) << question;
}

TEST_F(ReloadTest, EveryPlugin_IsTold) {
    plugins["A"].reloads = true;
    RegisterPlugins({"A", "B"});
    Announce();
    Change();
    EXPECT_THAT(recorder.LinesWith("Reload()"),
                testing::ElementsAre("plugin A Reload()", "plugin B Reload()"));
}

TEST_F(ReloadTest, PluginThatCannot_DoesNotKeepTheChangeFromItsEnd) {
    plugins["A"].reloads = false;
    Announce();
    Change();
    ExpectTranscript(recorder.Lines(), std::string(kReloadAndEnd).append(kFinalState));
}

TEST_F(ReloadTest, PluginThatThrows_IsLoggedAndTheChangeStillEnds) {
    plugins["A"].faults.Throw("Reload", "no project");
    Announce();
    Change();
    ExpectTranscript(recorder.Lines(), std::string(R"(
        INFO KnxStack.DscKnxAppPrg | OnConfigurationChanged(): reload KnxAppPrgHandlers
        plugin A Reload()
        ERROR KnxStack.DscKnxAppPrg | OnConfigurationChanged(): Can't reload: no project
        client Command({"command":"EmitEvent","eventType":"configurationChangeEnd"})
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        client Command({"command":"GetProcessView","cached":true}, 5 s)
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 0 entries to ID-URN Map
    )")
                                           .append(kFinalState));
}

TEST_F(ReloadTest, WithUrns_TheMapIsRebuilt) {
    plugins["A"].useUrns = true;
    const std::string processView = R"({"command":"GetProcessView","cached":true})";
    stack.responses[processView] =
        R"({"response":{"processView":{"datapoints":[{"id":500,"urn":"urn:oxn:dp:house:lamp"}]}}})";
    Announce();
    service.Write(4, TestSupport::Bits(1, 1));
    EXPECT_THAT(recorder.LinesWith("client "), testing::ElementsAre("client SetValue(500, '1', 0, 0)"));
    recorder.Clear();

    stack.responses[processView] =
        R"({"response":{"processView":{"datapoints":[{"id":700,"urn":"urn:oxn:dp:house:lamp"},
        {"id":701,"urn":"urn:oxn:dp:house:blind"}]}}})";
    Change();
    ExpectTranscript(recorder.Lines(), std::string(R"(
        INFO KnxStack.DscKnxAppPrg | OnConfigurationChanged(): reload KnxAppPrgHandlers
        plugin A Reload()
        client Command({"command":"EmitEvent","eventType":"configurationChangeEnd"})
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        client Command({"command":"GetProcessView","cached":true}, 5 s)
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Added 2 entries to ID-URN Map
    )")
                                           .append(kFinalState));
    recorder.Clear();
    service.Write(4, TestSupport::Bits(1, 1));
    EXPECT_THAT(recorder.LinesWith("client "), testing::ElementsAre("client SetValue(700, '1', 0, 0)"));
}

} // namespace
