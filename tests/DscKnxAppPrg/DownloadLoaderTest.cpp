// Download handlers from loading to unloading, and what keeps them from being loaded.
#include "DownloadTest.h"

#include "ParameterNames.h"

#include <filesystem>

namespace {

using DownloadLoaderTest = DownloadTest;

constexpr const char* kLoadingError = "DEBUG KnxStack.DscKnxAppPrg | ExecuteDownloadHandler(): Error while "
                                      "loading dynamic knx download handlers.";

TEST_F(DownloadLoaderTest, HandlerThatDoesNotInitialize_TakesAllWithIt) {
    plugins.Download("DownloadB").faults.Refuse("Initialize");
    RegisterDownloadHandlers({"DownloadA", "DownloadB"});
    StartAndRestart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        library DownloadB loaded
        download DownloadB CreateHandler(DownloadB.json)
        download DownloadB Initialize()
        download DownloadA DeleteHandler()
        library DownloadA unloaded
        download DownloadB DeleteHandler()
        library DownloadB unloaded
        DEBUG KnxStack.DscKnxAppPrg | ExecuteDownloadHandler(): Error while loading dynamic knx download handlers.
    )",
                   m_goesOn);
}

TEST_F(DownloadLoaderTest, LibraryWithoutCreateHandler_IsALoadingError) {
    RegisterDownloadHandlers({"WithoutCreate"});
    StartAndRestart();
    ExpectDownload(R"(
        library WithoutCreate loaded
        library WithoutCreate unloaded
        DEBUG KnxStack.DscKnxAppPrg | ExecuteDownloadHandler(): Error while loading dynamic knx download handlers.
    )",
                   m_goesOn);
}

class BadDownloadLibrary : public DownloadTest, public testing::WithParamInterface<const char*> {};

TEST_P(BadDownloadLibrary, IsALoadingError) {
    files.Write("user/knxappprghandlers.xml",
                R"(<KnxApplicationPrograms><KnxApplicationProgram Name="dscknxdownload"><DynamicHandlers>)"
                R"(<DynamicHandler Library=")" +
                    std::string(GetParam()) +
                    R"("/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>)");
    StartAndRestart();
    ExpectDownload(kLoadingError, m_goesOn);
}
INSTANTIATE_TEST_SUITE_P(DownloadLoaderTest, BadDownloadLibrary,
                         testing::Values("", "/nowhere/libdownload.so", "/etc/passwd"),
                         TestSupport::NamesInOrder({"NoName", "NoFile", "NoLibrary"}));

TEST_F(DownloadLoaderTest, DecliningHandler_IsNeitherAFailureNorAsked) {
    plugins.Download("DownloadA").faults.Refuse("CreateHandler");
    plugins.Download("DownloadB").announcements = 1;
    plugins.Download("DownloadB").creates = true;
    RegisterDownloadHandlers({"DownloadA", "DownloadB"});
    StartAndRestart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        library DownloadA unloaded
        library DownloadB loaded
        download DownloadB CreateHandler(DownloadB.json)
        download DownloadB Initialize()
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
        download DownloadB CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
        download DownloadB announces
        client Command({"command":"EmitEvent","eventType":"configurationChangeBegin"})
        client Command({"command":"EmitEvent","eventType":"etsConfigChanged"})
        download DownloadB DeleteHandler()
        library DownloadB unloaded
    )",
                   kWaits);
}

TEST_F(DownloadLoaderTest, HandlerThatThrowsInInitialize_IsUnloadedAndTheStartGoesOn) {
    plugins.Download("DownloadA").faults.Throw("Initialize", "no template");
    RegisterDownloadHandlers({"DownloadA"});
    StartAndRestart();
    ExpectDownload(R"(
        library DownloadA loaded
        download DownloadA CreateHandler(DownloadA.json)
        download DownloadA Initialize()
        download DownloadA DeleteHandler()
        library DownloadA unloaded
        ERROR KnxStack.DscKnxAppPrg | operator()(): download handler failed: no template
    )",
                   m_goesOn);
}

TEST_F(DownloadLoaderTest, DirectoryWhoseStatusIsUnknown_IsLoggedAndTheStartGoesOn) {
    Start();
    std::filesystem::rename(files / "user", files / "away");
    std::filesystem::create_symlink(files / "user", files / "user");
    Restart();
    ExpectDownload("ERROR KnxStack.DscKnxAppPrg | operator()(): download handler failed: Too many levels of "
                   "symbolic links",
                   m_goesOn);
}

TEST_F(DownloadLoaderTest, DirectoryThatIsGone_ListsNothing) {
    RegisterDownloadHandlers({"DownloadA"});
    Start();
    std::filesystem::remove_all(files / "user");
    Restart();
    ExpectDownload(R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | FillCoDescriptorData(): CO count with enabled communication flag: 2
        hub GetDownloadService()
    )",
                   m_goesOn);
}

TEST_F(DownloadLoaderTest, EveryDownload_ReadsTheRegistryAndLoadsAnew) {
    RegisterDownloadHandlers({"DownloadA"});
    StartAndRestart();
    RegisterDownloadHandlers({"DownloadB"});
    recorder.Clear();
    Restart();
    EXPECT_THAT(recorder.LinesWith("library "),
                testing::ElementsAre("library DownloadB loaded", "library DownloadB unloaded"));
}

} // namespace
