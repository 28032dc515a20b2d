// Operations of downloads and configuration changes on their own.
#include "FailingThreads.h"
#include "KnxHandlerTest.h"

namespace {

class ConfigurationChangePartsTest : public KnxHandlerTest {
protected:
    /// As the device stack client calls it.
    bool Change(const std::string& key) {
        return (program.*Reach(PrivateMembers::OnConfigurationChanged()))(nullptr, 0, key, "");
    }

    std::atomic<bool>& announced = program.*Reach(PrivateMembers::ChangeIsAnnounced());
};

TEST_F(ConfigurationChangePartsTest, NothingIsAnnounced_AtFirst) {
    EXPECT_FALSE(announced);
}

TEST_F(ConfigurationChangePartsTest, Announcement_IsRememberedBeforeItIsSent) {
    SetUpWith({});
    const auto gate = stack.faults.Block("Command");
    std::thread download([this] { (program.*Reach(PrivateMembers::AnnounceConfigurationChange()))(); });
    EXPECT_TRUE(gate->WaitForArrival());
    EXPECT_TRUE(announced);
    gate->Open();
    download.join();
}

TEST_F(ConfigurationChangePartsTest, Project_EndsTheAnnouncementBeforeTheCallbackReturns) {
    SetUpWith({});
    announced = true;
    EXPECT_TRUE(Change("Project"));
    EXPECT_FALSE(announced);
    EXPECT_TRUE(program.WaitForWorkers(30000));
}

TEST_F(ConfigurationChangePartsTest, OtherKey_LeavesTheAnnouncement) {
    SetUpWith({});
    announced = true;
    EXPECT_TRUE(Change("project"));
    EXPECT_TRUE(announced);
}

TEST_F(ConfigurationChangePartsTest, WhereTheSystemGivesNoThread_TheNextProjectFinishesTheChange) {
    SetUpWith({"A"});
    announced = true;
    {
        const FailingThreads noThreads;
        EXPECT_TRUE(Change("Project"));
    }
    EXPECT_TRUE(announced);
    ExpectRecord("host", R"(
        INFO KnxStack.DscKnxAppPrg | OnConfigurationChanged(): reload KnxAppPrgHandlers
        plugin A Reload()
        ERROR KnxStack.DscKnxAppPrg | Cannot create Thread. Resource temporarily unavailable
    )");
    recorder.Clear();
    EXPECT_TRUE(Change("Project"));
    EXPECT_TRUE(program.WaitForWorkers(30000));
    EXPECT_FALSE(announced);
    ExpectRecord("worker 1", R"(
        client Command({"command":"EmitEvent","eventType":"configurationChangeEnd"})
        INFO KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Updating ID-URN Map
        client Command({"command":"GetProcessView","cached":true}, 5 s)
        WARN KnxStack.DscKnxAppPrg.KnxHandler | UpdateIdUrnMap: Failed to parse GetProcessView response: "response" is missing
    )");
}

TEST_F(ConfigurationChangePartsTest, Download_WithoutAHub_AsksNobody) {
    RegisterDownloadHandlers({"DownloadA"});
    SetUpWith({});
    EXPECT_EQ((program.*Reach(PrivateMembers::ExecuteDownloadHandler()))(),
              DscKnxAppPrg::UpdateAppState::NoFile);
    ExpectRecord("host", R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        download DownloadA DeleteHandler()
        library DownloadA unloaded
    )");
}

} // namespace
