// Registry files and the loading of plug-ins.
#include "DynamicKnxAppPrgHandlers.h"
#include "ParameterNames.h"
#include "World.h"

#include <boost/filesystem/exception.hpp>

#include <filesystem>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RegistryTest : public World {
protected:
    /// The libraries listed by the registry file in "stack" when it holds `xml`.
    std::vector<std::string> Listed(const std::string& xml, const std::string& name = "wanted") {
        files.Write("stack/knxappprghandlers.xml", xml);
        std::vector<std::string> libraries;
        for (const RegisteredHandler& handler : ReadHandlerRegistry(files / "stack", name))
            libraries.push_back(handler.libraryPath + ":" + handler.configFile);
        return libraries;
    }
};

TEST_F(RegistryTest, File_ListsPluginsInDocumentOrder) {
    EXPECT_THAT(Listed(R"(<?xml version="1.0"?>
        <KnxApplicationPrograms>
          <KnxApplicationProgram Name="wanted">
            <DynamicHandlers>
              <DynamicHandler Library="libb.so" ConfigFile="b.json"/>
              <Other Library="ignored.so"/>
              <DynamicHandler Library="liba.so" Ignored="x"/>
              <DynamicHandler ConfigFile="without.json"/>
              <DynamicHandler Library=""/>
              <DynamicHandler Library="libb.so"/>
            </DynamicHandlers>
          </KnxApplicationProgram>
        </KnxApplicationPrograms>)"),
                ElementsAre("libb.so:b.json", "liba.so:", ":", "libb.so:"));
}

constexpr const char* kThreePrograms = R"(
    <KnxApplicationPrograms>
      <KnxApplicationProgram Name="wanted"><DynamicHandlers><DynamicHandler Library="1"/></DynamicHandlers></KnxApplicationProgram>
      <KnxApplicationProgram Name="Wanted"><DynamicHandlers><DynamicHandler Library="2"/></DynamicHandlers></KnxApplicationProgram>
      <KnxApplicationProgram><DynamicHandlers><DynamicHandler Library="3"/></DynamicHandlers></KnxApplicationProgram>
      <KnxApplicationProgram Name="wanted"><DynamicHandlers><DynamicHandler Library="4"/></DynamicHandlers></KnxApplicationProgram>
      <KnxApplicationProgram Name="wanted2"><DynamicHandlers><DynamicHandler Library="5"/></DynamicHandlers></KnxApplicationProgram>
    </KnxApplicationPrograms>)";

TEST_F(RegistryTest, Name_SelectsEveryProgramThatBearsIt) {
    EXPECT_THAT(Listed(kThreePrograms, "wanted"), ElementsAre("1:", "4:"));
}

TEST_F(RegistryTest, Name_IsComparedLetterForLetter) {
    EXPECT_THAT(Listed(kThreePrograms, "WANTED"), IsEmpty());
    EXPECT_THAT(Listed(kThreePrograms, "wante"), IsEmpty());
}

TEST_F(RegistryTest, EmptyName_SelectsEveryProgram) {
    EXPECT_THAT(Listed(kThreePrograms, ""), ElementsAre("1:", "2:", "3:", "4:", "5:"));
}

TEST_F(RegistryTest, OnlyTheFirstContainers_Count) {
    EXPECT_THAT(Listed(R"(
        <KnxApplicationPrograms>
          <KnxApplicationProgram Name="wanted">
            <DynamicHandlers><DynamicHandler Library="1"/></DynamicHandlers>
            <DynamicHandlers><DynamicHandler Library="2"/></DynamicHandlers>
          </KnxApplicationProgram>
        </KnxApplicationPrograms>
        <KnxApplicationPrograms>
          <KnxApplicationProgram Name="wanted"><DynamicHandlers><DynamicHandler Library="3"/></DynamicHandlers></KnxApplicationProgram>
        </KnxApplicationPrograms>)"),
                ElementsAre("1:"));
}

TEST_F(RegistryTest, References_AreExpanded) {
    EXPECT_THAT(Listed(R"(<KnxApplicationPrograms><KnxApplicationProgram Name="wanted"><DynamicHandlers>
        <DynamicHandler Library="a&amp;b&#x2e;so"/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>)"),
                ElementsAre("a&b.so:"));
}

class ListsNothing : public RegistryTest, public testing::WithParamInterface<const char*> {};

TEST_P(ListsNothing, WithoutAMessage) {
    EXPECT_THAT(Listed(GetParam()), IsEmpty());
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}
INSTANTIATE_TEST_SUITE_P(
    RegistryTest, ListsNothing,
    testing::Values("", "no XML", "<KnxApplicationPrograms>", "<Other/>", "<KnxApplicationPrograms/>",
                    "<KnxApplicationPrograms><KnxApplicationProgram "
                    "Name='wanted'/></KnxApplicationPrograms>",
                    "<KnxApplicationPrograms><KnxApplicationProgram Name='wanted'>"
                    "<DynamicHandler Library='x'/></KnxApplicationProgram></KnxApplicationPrograms>",
                    // The parser hands out what stood before the error: a whole program, and half of one.
                    "<KnxApplicationPrograms><KnxApplicationProgram Name='wanted'><DynamicHandlers>"
                    "<DynamicHandler Library='x'/></DynamicHandlers></KnxApplicationProgram>"
                    "</KnxApplicationPrograms><garbage",
                    "<KnxApplicationPrograms><KnxApplicationProgram Name='wanted'><DynamicHandlers>"
                    "<DynamicHandler Library='x'/>"),
    TestSupport::NamesInOrder({"EmptyFile", "NoXml", "OpenElement", "OtherRoot", "NoProgram",
                               "ProgramWithoutHandlers", "HandlersWithoutList", "GarbageBehindTheRoot",
                               "HalfAProgram"}));

TEST_F(RegistryTest, DirectoryOrFileThatIsMissing_ListsNothing) {
    EXPECT_THAT(ReadHandlerRegistry(files / "user", ""), IsEmpty());
    EXPECT_THAT(ReadHandlerRegistry(files / "nowhere", ""), IsEmpty());
    EXPECT_THAT(ReadHandlerRegistry("", ""), IsEmpty());
    EXPECT_THAT(ReadHandlerRegistry(files / "user/readme.txt", ""), IsEmpty());
}

TEST_F(RegistryTest, DirectoryWithTrailingSlashes_IsTheDirectory) {
    RegisterPlugins({"A"});
    EXPECT_THAT(ReadHandlerRegistry(files / "stack" + "//", "dscknxappprg"), testing::SizeIs(1));
}

TEST_F(RegistryTest, DirectoryWhoseStatusIsUnknown_Throws) {
    std::filesystem::create_symlink(files / "loop", files / "loop");
    EXPECT_THROW(ReadHandlerRegistry(files / "loop", ""), boost::filesystem::filesystem_error);
}

class LoaderTest : public World {
protected:
    class Set : public DynamicKnxAppPrgHandlers {
    public:
        using DynamicHandlers::Libraries;
    };

    bool Init(const std::string& name = "dscknxappprg") {
        return set->Init(files / "stack", files / "user", name);
    }

    std::unique_ptr<Set> set = std::make_unique<Set>();
};

TEST_F(LoaderTest, NothingListed_Succeeds) {
    EXPECT_TRUE(Init());
    EXPECT_THAT(set->Libraries(), IsEmpty());
    RegisterPlugins({"A"});
    EXPECT_TRUE(Init("DSCKNXAPPPRG"));
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(LoaderTest, OnlyTheSecondDirectory_Counts) {
    RegisterPlugins({"B"}, "user");
    EXPECT_TRUE(Init());
    ASSERT_THAT(set->Libraries(), testing::SizeIs(1));
    EXPECT_EQ(set->Libraries().front().libraryPath, TestSupport::FakePlugins::Library("B"));
}

TEST_F(LoaderTest, WholeLife_FrontToBack) {
    RegisterPlugins({"A", "B"});
    EXPECT_TRUE(Init());
    set.reset();
    ExpectRecord("host", R"(
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
    )");
}

TEST_F(LoaderTest, InitAgain_UnloadsAndLoadsEveryLibrary) {
    RegisterPlugins({"A"});
    EXPECT_TRUE(Init());
    recorder.Clear();
    EXPECT_TRUE(Init());
    ExpectRecord("host", R"(
        plugin A DeleteHandler()
        library A unloaded
        library A loaded
        plugin A CreateHandler(A.json)
        plugin A Initialize()
    )");
}

TEST_F(LoaderTest, InitAgain_ReadsTheFilesAnew) {
    RegisterPlugins({"A"});
    EXPECT_TRUE(Init());
    RegisterPlugins({"B"});
    EXPECT_TRUE(Init());
    ASSERT_THAT(set->Libraries(), testing::SizeIs(1));
    EXPECT_EQ(set->Libraries().front().configFile, "B.json");
}

TEST_F(LoaderTest, LibraryListedTwice_GivesTwoHandlers) {
    RegisterPlugins({"A", "A"});
    EXPECT_TRUE(Init());
    ASSERT_THAT(set->Libraries(), testing::SizeIs(2));
    EXPECT_NE(set->Libraries().front().handler, nullptr);
    EXPECT_NE(set->Libraries().front().handler, set->Libraries().back().handler);
    EXPECT_EQ(recorder.Count("plugin A CreateHandler(A.json)"), 2u);
}

TEST_F(LoaderTest, ChangedConfigFile_StaysInTheEntry) {
    plugins["A"].changedConfigFile = "changed.json";
    RegisterPlugins({"A"});
    EXPECT_TRUE(Init());
    EXPECT_EQ(set->Libraries().front().configFile, "changed.json");
}

TEST_F(LoaderTest, DecliningPlugin_KeepsItsPlaceAndIsNeverAsked) {
    plugins["A"].faults.Refuse("CreateHandler");
    RegisterPlugins({"A", "B"});
    EXPECT_TRUE(Init());
    ASSERT_THAT(set->Libraries(), testing::SizeIs(2));
    EXPECT_EQ(set->Libraries().front().handle, nullptr);
    EXPECT_EQ(set->Libraries().front().handler, nullptr);
    recorder.Clear();
    set->GetUseUrns();
    set->Reload();
    set->GetExtendedProperties();
    set->GetGroupAddressTranslationRange();
    EXPECT_THAT(recorder.LinesWith("plugin A"), IsEmpty());
    EXPECT_THAT(recorder.LinesWith("plugin B"), testing::SizeIs(4));
    set.reset();
    EXPECT_EQ(recorder.Count("plugin A DeleteHandler()"), 0u);
}

TEST_F(LoaderTest, OneBadPlugin_LeavesTheSetEmpty) {
    plugins["B"].faults.Refuse("Initialize");
    RegisterPlugins({"A", "B", "C"});
    EXPECT_FALSE(Init());
    EXPECT_THAT(set->Libraries(), IsEmpty());
    EXPECT_EQ(recorder.Count("library C loaded"), 0u); // never reached
    EXPECT_EQ(recorder.Count("plugin A DeleteHandler()"), 1u);
    EXPECT_EQ(recorder.Count("plugin B DeleteHandler()"), 1u);
}

TEST_F(LoaderTest, LibraryWithoutCreateHandler_FailsAndTakesTheOthersWithIt) {
    RegisterPlugins({"A", "WithoutCreate"});
    EXPECT_FALSE(Init());
    EXPECT_THAT(set->Libraries(), IsEmpty());
    EXPECT_EQ(recorder.Count("library A unloaded"), 1u);
    EXPECT_EQ(recorder.Count("library WithoutCreate unloaded"), 1u);
}

TEST_F(LoaderTest, LibraryWithoutDeleteHandler_IsUnloadedWithItsHandlerLeft) {
    RegisterPlugins({"WithoutDelete"});
    EXPECT_TRUE(Init());
    static Vesk::IKnxAppPrgHandler* s_left = set->Libraries().front().handler; // nobody can destroy it
    EXPECT_NE(s_left, nullptr);
    recorder.Clear();
    set.reset();
    ExpectRecord("host", "library WithoutDelete unloaded");
}

TEST_F(LoaderTest, DeleteHandlerThatThrows_StopsNobody) {
    plugins["A"].faults.Throw("DeleteHandler", "no");
    RegisterPlugins({"A", "B"});
    EXPECT_TRUE(Init());
    static Vesk::IKnxAppPrgHandler* s_left =
        set->Libraries().front().handler; // its own library did not destroy it
    EXPECT_NE(s_left, nullptr);
    recorder.Clear();
    set.reset();
    ExpectRecord("host", R"(
        plugin A DeleteHandler()
        library A unloaded
        plugin B DeleteHandler()
        library B unloaded
    )");
}

TEST_F(LoaderTest, CreateHandlerThatThrows_IsFollowedByDeleteHandlerWithoutAHandler) {
    plugins["B"].faults.Throw("CreateHandler", "no");
    RegisterPlugins({"A", "B"});
    EXPECT_THROW(Init(), std::exception);
    ASSERT_THAT(set->Libraries(), testing::SizeIs(2));
    EXPECT_EQ(set->Libraries().back().handler, nullptr);
    recorder.Clear();
    set.reset();
    ExpectRecord("host", R"(
        plugin A DeleteHandler()
        library A unloaded
        plugin B DeleteHandler()
        library B unloaded
    )");
}

TEST_F(LoaderTest, DirectoryWhoseStatusIsUnknown_ThrowsAndNothingIsLoaded) {
    RegisterPlugins({"A"});
    std::filesystem::create_symlink(files / "loop", files / "loop");
    EXPECT_THROW(set->Init(files / "stack", files / "loop", "dscknxappprg"),
                 boost::filesystem::filesystem_error);
    ASSERT_THAT(set->Libraries(), testing::SizeIs(1)); // what was read before stays listed
    EXPECT_EQ(set->Libraries().front().libraryPath, TestSupport::FakePlugins::Library("A"));
    EXPECT_EQ(set->Libraries().front().handle, nullptr);
    EXPECT_EQ(set->Libraries().front().handler, nullptr);
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(LoaderTest, Loader_WritesNoLog) {
    plugins["B"].faults.Refuse("Initialize");
    RegisterPlugins({"A", "B"});
    EXPECT_FALSE(Init());
    EXPECT_THAT(recorder.LinesWith(" | "), IsEmpty());
}

template <typename Exception>
std::string TextOf(const Exception& thrown) {
    try {
        WithOwnExceptions([&]() -> bool { throw thrown; });
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(WithOwnExceptionsTest, ExceptionOfAPlugin_ComesOutWithItsText) {
    EXPECT_EQ(TextOf(std::logic_error("no such object")), "no such object");
    EXPECT_EQ(TextOf(boost::filesystem::filesystem_error(
                  "status", "/a/b", make_error_code(boost::system::errc::permission_denied))),
              "Permission denied");
}

TEST(WithOwnExceptionsTest, SomethingElseThatIsThrown_ComesOutAsAnUnknownException) {
    EXPECT_EQ(TextOf(7), "unknown exception of a handler plug-in");
}

TEST(WithOwnExceptionsTest, Interruption_PassesThrough) {
    EXPECT_THROW(WithOwnExceptions([]() -> bool { throw boost::thread_interrupted(); }),
                 boost::thread_interrupted);
}

TEST(WithOwnExceptionsTest, Result_IsThatOfTheCall) {
    EXPECT_TRUE(WithOwnExceptions([] { return true; }));
    EXPECT_FALSE(WithOwnExceptions([] { return false; }));
}

} // namespace
