// What a device restart makes of a download: what the download handlers are asked, and what follows from
// their answers.
#include "DownloadTest.h"

#include <chrono>

namespace {

TEST_F(DownloadTest, WithoutHandlers_GoesOnWithoutAMessage) {
    StartAndRestart();
    ExpectDownload(R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
    )",
                   m_goesOn);
    EXPECT_GE(recorder.Between("DEBUG KnxStack.DscKnxAppPrg | operator()(): Waiting 1 second before "
                               "executing download handler to finish writing config.",
                               "DEBUG KnxStack.DscKnxAppPrg | operator()(): execute download handler."),
              std::chrono::seconds(1));
}

TEST_F(DownloadTest, HandlersUnderAnotherName_AreNotLoaded) {
    RegisterPlugins({"DownloadA"}, "user", "DscKnxDownload");
    StartAndRestart();
    ExpectDownload(R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
    )",
                   m_goesOn);
}

TEST_F(DownloadTest, OneHandler_ThatCreatesNothing_TheStartGoesOn) {
    RegisterDownloadHandlers({"DownloadA"});
    StartAndRestart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
        download DownloadA DeleteHandler()
        library DownloadA unloaded
    )",
                   m_goesOn);
}

TEST_F(DownloadTest, OneHandler_ThatAnnouncesTheChange_TheStartWaitsForTheProject) {
    plugins.Download("DownloadA").announcements = 1;
    plugins.Download("DownloadA").creates = true;
    RegisterDownloadHandlers({"DownloadA"});
    StartAndRestart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
        download DownloadA announces
        client Command({"command":"EmitEvent","eventType":"configurationChangeBegin"})
        client Command({"command":"EmitEvent","eventType":"etsConfigChanged"})
        download DownloadA DeleteHandler()
        library DownloadA unloaded
    )",
                   kWaits);
}

TEST_F(DownloadTest, OneHandler_ThatCreatesTheFileUnannounced_TheStartGoesOn) {
    plugins.Download("DownloadA").creates = true;
    RegisterDownloadHandlers({"DownloadA"});
    StartAndRestart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
        download DownloadA DeleteHandler()
        library DownloadA unloaded
    )",
                   m_goesOnWithTheFile);
}

TEST_F(DownloadTest, OneHandler_ThatAnnouncesButCreatesNothing_TheStartGoesOn) {
    plugins.Download("DownloadA").announcements = 1;
    RegisterDownloadHandlers({"DownloadA"});
    StartAndRestart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
        download DownloadA announces
        client Command({"command":"EmitEvent","eventType":"configurationChangeBegin"})
        client Command({"command":"EmitEvent","eventType":"etsConfigChanged"})
        download DownloadA DeleteHandler()
        library DownloadA unloaded
    )",
                   m_goesOn);
}

TEST_F(DownloadTest, TwoHandlers_OnlyTheFirstGetsTheCallback) {
    plugins.Download("DownloadB").announcements = 1;
    plugins.Download("DownloadB").creates = true;
    RegisterDownloadHandlers({"DownloadA", "DownloadB"});
    StartAndRestart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        library DownloadB loaded
        download DownloadB CreateHandler(DownloadB.json)
        download DownloadB Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
        download DownloadB CreateFileWithKnxData({50001: 1}, 0a0b, nothing, not raised, {1, 3})
        download DownloadA DeleteHandler()
        library DownloadA unloaded
        download DownloadB DeleteHandler()
        library DownloadB unloaded
    )",
                   m_goesOnWithTheFile);
}

TEST_F(DownloadTest, TwoHandlers_TheFirstAnnouncesAndTheSecondCreates_TheStartWaits) {
    plugins.Download("DownloadA").announcements = 1;
    plugins.Download("DownloadB").creates = true;
    RegisterDownloadHandlers({"DownloadA", "DownloadB"});
    StartAndRestart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        library DownloadB loaded
        download DownloadB CreateHandler(DownloadB.json)
        download DownloadB Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
        download DownloadA announces
        client Command({"command":"EmitEvent","eventType":"configurationChangeBegin"})
        client Command({"command":"EmitEvent","eventType":"etsConfigChanged"})
        download DownloadB CreateFileWithKnxData({50001: 1}, 0a0b, nothing, not raised, {1, 3})
        download DownloadA DeleteHandler()
        library DownloadA unloaded
        download DownloadB DeleteHandler()
        library DownloadB unloaded
    )",
                   kWaits);
}

TEST_F(DownloadTest, TwoHandlers_NeitherCreates_TheStartGoesOn) {
    RegisterDownloadHandlers({"DownloadA", "DownloadB"});
    StartAndRestart();
    EXPECT_THAT(recorder.LinesWith("CreateFileWithKnxData"),
                testing::ElementsAre("download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, "
                                     "not raised, {1, 3})",
                                     "download DownloadB CreateFileWithKnxData({50001: 1}, 0a0b, nothing, "
                                     "not raised, {1, 3})"));
    EXPECT_EQ(recorder.Count("DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 1"), 1u);
}

TEST_F(DownloadTest, TwoHandlers_TheFirstCreates_TheSecondIsNotAsked) {
    plugins.Download("DownloadA").creates = true;
    plugins.Download("DownloadB").creates = true;
    RegisterDownloadHandlers({"DownloadA", "DownloadB"});
    StartAndRestart();
    EXPECT_THAT(recorder.LinesWith("CreateFileWithKnxData"),
                testing::ElementsAre("download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, "
                                     "not raised, {1, 3})"));
    EXPECT_EQ(recorder.Count("download DownloadB DeleteHandler()"), 1u);
}

TEST_F(DownloadTest, HandlersOfBothDirectories_AreAskedInOrder) {
    RegisterPlugins({"DownloadB"}, "user", "dscknxdownload");
    // Both programs in one file.
    files.Write(
        "stack/knxappprghandlers.xml",
        "<KnxApplicationPrograms><KnxApplicationProgram Name=\"dscknxdownload\"><DynamicHandlers>"
        "<DynamicHandler Library=\"" +
            TestSupport::FakePlugins::Library("DownloadA") +
            "\" ConfigFile=\"first.json\"/></DynamicHandlers></KnxApplicationProgram>"
            "<KnxApplicationProgram Name=\"dscknxappprg\"><DynamicHandlers><DynamicHandler Library=\"" +
            TestSupport::FakePlugins::Library("A") +
            "\"/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>");
    StartAndRestart();
    EXPECT_THAT(
        recorder.LinesWith("download Download"),
        testing::ElementsAre(
            "download DownloadA CreateHandler(first.json)", "download DownloadA Initialize()",
            "download DownloadB CreateHandler(DownloadB.json)", "download DownloadB Initialize()",
            "download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})",
            "download DownloadB CreateFileWithKnxData({50001: 1}, 0a0b, nothing, not raised, {1, 3})",
            "download DownloadA DeleteHandler()", "download DownloadB DeleteHandler()"));
}

TEST_F(DownloadTest, EachCallOfTheCallback_IsTwoEvents) {
    plugins.Download("DownloadA").announcements = 2;
    plugins.Download("DownloadA").creates = true;
    RegisterDownloadHandlers({"DownloadA"});
    StartAndRestart();
    EXPECT_THAT(recorder.LinesWith("EmitEvent"),
                testing::ElementsAre(
                    R"(client Command({"command":"EmitEvent","eventType":"configurationChangeBegin"}))",
                    R"(client Command({"command":"EmitEvent","eventType":"etsConfigChanged"}))",
                    R"(client Command({"command":"EmitEvent","eventType":"configurationChangeBegin"}))",
                    R"(client Command({"command":"EmitEvent","eventType":"etsConfigChanged"}))"));
    EXPECT_EQ(recorder.Count("DEBUG KnxStack.DscKnxAppPrg | operator()(): start up state is waiting for ETS "
                             "project created. Flag is 1"),
              1u);
}

TEST_F(DownloadTest, UnansweredAnnouncement_IsLoggedAndCountsAllTheSame) {
    plugins.Download("DownloadA").announcements = 1;
    plugins.Download("DownloadA").creates = true;
    RegisterDownloadHandlers({"DownloadA"});
    Start();
    stack.faults.Refuse("Command");
    Restart();
    EXPECT_THAT(
        recorder.LinesWith("Emit event failed"),
        testing::ElementsAre("ERROR KnxStack.DscKnxAppPrg | Emit event failed: configurationChangeBegin",
                             "ERROR KnxStack.DscKnxAppPrg | Emit event failed: etsConfigChanged"));
    EXPECT_EQ(recorder.Count("DEBUG KnxStack.DscKnxAppPrg | operator()(): start up state is waiting for ETS "
                             "project created. Flag is 1"),
              1u);
}

TEST_F(DownloadTest, ChangeThatIsStillAnnounced_EveryHandlerIsTold) {
    plugins.Download("DownloadA").announcements = 1;
    RegisterDownloadHandlers({"DownloadA", "DownloadB"});
    StartAndRestart();
    plugins.Download("DownloadA").announcements = 0;
    plugins.Download("DownloadB").creates = true;
    recorder.Clear();
    Restart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        library DownloadB loaded
        download DownloadB CreateHandler(DownloadB.json)
        download DownloadB Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, raised, {1, 3})
        download DownloadB CreateFileWithKnxData({50001: 1}, 0a0b, nothing, raised, {1, 3})
        download DownloadA DeleteHandler()
        library DownloadA unloaded
        download DownloadB DeleteHandler()
        library DownloadB unloaded
    )",
                   kWaits, "worker 3");
}

TEST_F(DownloadTest, StartThatWaits_SendsNoChanges) {
    plugins["A"].bindings.push_back({.co = 4, .id = 500, .dpt = {1, 0, 1, 1}, .eventing = true});
    service.objects[4] = TestSupport::FakeGroupObject(1);
    plugins.Download("DownloadA").announcements = 1;
    plugins.Download("DownloadA").creates = true;
    RegisterDownloadHandlers({"DownloadA"});
    StartAndRestart();
    recorder.Clear();
    EXPECT_TRUE(stack.ValueChanged(500, "", "1").get());
    EXPECT_THAT(recorder.Lines(), testing::IsEmpty());
}

TEST_F(DownloadTest, WithoutGroupCommunication_HandlersGetNoCos) {
    hub.groupValueService = nullptr;
    RegisterDownloadHandlers({"DownloadA"});
    StartAndRestart();
    EXPECT_EQ(recorder.Count("ERROR KnxStack.DscKnxAppPrg.KnxHandler | Group value service is NULL."), 1u);
    EXPECT_EQ(recorder.Count(
                  "download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {})"),
              1u);
}

TEST_F(DownloadTest, EmptyDownload_IsHandedOnAsItIs) {
    hub.applicationData = {};
    service.objects.clear();
    plugins["A"].interfaceObjectId = 0;
    RegisterDownloadHandlers({"DownloadA"});
    StartAndRestart();
    EXPECT_EQ(recorder.Count("download DownloadA CreateFileWithKnxData({}, , announce, not raised, {})"), 1u);
}

TEST_F(DownloadTest, HandlerThatThrows_IsUnloadedAndTheStartGoesOn) {
    plugins.Download("DownloadA").announcements = 1;
    plugins.Download("DownloadA").faults.Throw("CreateFileWithKnxData", "table is cut short");
    RegisterDownloadHandlers({"DownloadA", "DownloadB"});
    StartAndRestart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        library DownloadB loaded
        download DownloadB CreateHandler(DownloadB.json)
        download DownloadB Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
        download DownloadA announces
        client Command({"command":"EmitEvent","eventType":"configurationChangeBegin"})
        client Command({"command":"EmitEvent","eventType":"etsConfigChanged"})
        download DownloadA DeleteHandler()
        library DownloadA unloaded
        download DownloadB DeleteHandler()
        library DownloadB unloaded
        ERROR KnxStack.DscKnxAppPrg | operator()(): download handler failed: table is cut short
    )",
                   m_goesOn);
}

} // namespace
