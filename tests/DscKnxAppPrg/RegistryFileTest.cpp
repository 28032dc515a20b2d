// What may stand in a registry file, and in which form.
#include "DynamicHandlers.h"
#include "ParameterNames.h"
#include "World.h"

#include <filesystem>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kUtf8Mark = "\xEF\xBB\xBF";

class RegistryFileTest : public World {
protected:
    std::vector<std::string> Listed(const std::string& content, const std::string& name = "wanted") {
        files.Write("stack/knxappprghandlers.xml", content);
        std::vector<std::string> libraries;
        for (const RegisteredHandler& handler : ReadHandlerRegistry(files / "stack", name))
            libraries.push_back(handler.libraryPath + ":" + handler.configFile);
        return libraries;
    }

    /// A registry file with these handlers.
    static std::string Registry(const std::string& handlers) {
        return R"(<KnxApplicationPrograms><KnxApplicationProgram Name="wanted"><DynamicHandlers>)" +
               handlers + "</DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>";
    }

    /// The characters, all of them below 128, as UTF-16 with a byte order mark.
    static std::string Utf16(const std::string& text, bool bigEndian) {
        std::string bytes = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
        for (const char character : text) {
            if (bigEndian)
                bytes += '\0';
            bytes += character;
            if (!bigEndian)
                bytes += '\0';
        }
        return bytes;
    }
};

TEST_F(RegistryFileTest, Encoding_IsDetected) {
    const std::string registry = Registry(R"(<DynamicHandler Library="a.so" ConfigFile="a.json"/>)");
    EXPECT_THAT(Listed(kUtf8Mark + registry), ElementsAre("a.so:a.json"));
    EXPECT_THAT(Listed(Utf16(registry, false)), ElementsAre("a.so:a.json"));
    EXPECT_THAT(Listed(Utf16(registry, true)), ElementsAre("a.so:a.json"));
}

TEST_F(RegistryFileTest, DeclaredLatin1_IsTaken) {
    EXPECT_THAT(Listed("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" +
                       Registry("<DynamicHandler Library=\"k\xFC\x63he.so\"/>")),
                ElementsAre("k\xC3\xBC\x63he.so:"));
}

TEST_F(RegistryFileTest, OtherThingsOfXml_ArePassedOver) {
    EXPECT_THAT(Listed(R"(<?xml version="1.0"?>
            <!DOCTYPE KnxApplicationPrograms [<!ELEMENT KnxApplicationPrograms ANY><!ENTITY lib "x.so">]>
            <?editor tab=4?>
            <!-- <KnxApplicationPrograms/> -->
            <KnxApplicationPrograms>
              <![CDATA[<KnxApplicationProgram Name="wanted"><DynamicHandlers><DynamicHandler Library="cdata.so"/>]]>
              text
              <KnxApplicationProgram Name="wanted"><!-- <DynamicHandlers/> -->
                <DynamicHandlers>text<![CDATA[text]]><DynamicHandler Library="a.so">text</DynamicHandler><!-- x -->
                  <DynamicHandler Library="b.so"><DynamicHandler Library="inside.so"/></DynamicHandler>
                </DynamicHandlers>
              </KnxApplicationProgram>
            </KnxApplicationPrograms>
            <!-- the end -->)"),
                ElementsAre("a.so:", "b.so:"));
}

TEST_F(RegistryFileTest, References_AreExpandedInEveryAttribute) {
    EXPECT_THAT(
        Listed(R"(<KnxApplicationPrograms><KnxApplicationProgram Name="w&#97;nt&#x65;d"><DynamicHandlers>)"
               R"(<DynamicHandler Library="&lt;a&gt;&amp;&quot;&apos;" ConfigFile="&#65;&#x42;&unknown;"/>)"
               R"(</DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>)"),
        ElementsAre("<a>&\"':AB&unknown;"));
}

TEST_F(RegistryFileTest, WhitespaceInAnAttribute_BecomesBlanks) {
    EXPECT_THAT(Listed(Registry("<DynamicHandler Library=\" a\tb\nc\r\nd.so \"/>")),
                ElementsAre(" a b c d.so :"));
}

TEST_F(RegistryFileTest, Quotes_MayBeSingle) {
    EXPECT_THAT(Listed(Registry("<DynamicHandler Library='a\"b.so' ConfigFile=''/>")),
                ElementsAre("a\"b.so:"));
}

TEST_F(RegistryFileTest, Name_IsTakenWithItsBlanks) {
    const std::string file =
        R"(<KnxApplicationPrograms><KnxApplicationProgram Name=" wanted"><DynamicHandlers>)"
        R"(<DynamicHandler Library="a.so"/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>)";
    EXPECT_THAT(Listed(file), IsEmpty());
    EXPECT_THAT(Listed(file, " wanted"), ElementsAre("a.so:"));
}

TEST_F(RegistryFileTest, EmptyNameInTheFile_IsSelectedByTheEmptyNameOnly) {
    const std::string file =
        R"(<KnxApplicationPrograms><KnxApplicationProgram Name=""><DynamicHandlers>)"
        R"(<DynamicHandler Library="a.so"/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>)";
    EXPECT_THAT(Listed(file), IsEmpty());
    EXPECT_THAT(Listed(file, ""), ElementsAre("a.so:"));
}

TEST_F(RegistryFileTest, FirstEmptyList_HidesTheSecond) {
    EXPECT_THAT(Listed(R"(<KnxApplicationPrograms><KnxApplicationProgram Name="wanted"><DynamicHandlers/>)"
                       R"(<DynamicHandlers><DynamicHandler Library="a.so"/></DynamicHandlers>)"
                       R"(</KnxApplicationProgram></KnxApplicationPrograms>)"),
                IsEmpty());
}

class OtherNames : public RegistryFileTest, public testing::WithParamInterface<const char*> {};

TEST_P(OtherNames, ListNothing) {
    EXPECT_THAT(Listed(GetParam()), IsEmpty());
}
INSTANTIATE_TEST_SUITE_P(
    RegistryFileTest, OtherNames,
    testing::Values(
        R"(<knxapplicationprograms><KnxApplicationProgram Name="wanted"><DynamicHandlers><DynamicHandler Library="a"/></DynamicHandlers></KnxApplicationProgram></knxapplicationprograms>)",
        R"(<KnxApplicationPrograms><Knxapplicationprogram Name="wanted"><DynamicHandlers><DynamicHandler Library="a"/></DynamicHandlers></Knxapplicationprogram></KnxApplicationPrograms>)",
        R"(<KnxApplicationPrograms><KnxApplicationProgram name="wanted"><DynamicHandlers><DynamicHandler Library="a"/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>)",
        R"(<KnxApplicationPrograms><KnxApplicationProgram Name="wanted"><dynamicHandlers><DynamicHandler Library="a"/></dynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>)",
        R"(<KnxApplicationPrograms><KnxApplicationProgram Name="wanted"><DynamicHandlers><dynamichandler Library="a"/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>)",
        R"(<KnxApplicationPrograms><KnxApplicationProgram Name="wanted"><DynamicHandlers><DynamicHandler library="a"/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>)",
        R"(<x:KnxApplicationPrograms xmlns:x="u"><KnxApplicationProgram Name="wanted"><DynamicHandlers><DynamicHandler Library="a"/></DynamicHandlers></KnxApplicationProgram></x:KnxApplicationPrograms>)",
        R"(<Root><KnxApplicationPrograms><KnxApplicationProgram Name="wanted"><DynamicHandlers><DynamicHandler Library="a"/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms></Root>)",
        R"(<KnxApplicationPrograms><Group><KnxApplicationProgram Name="wanted"><DynamicHandlers><DynamicHandler Library="a"/></DynamicHandlers></KnxApplicationProgram></Group></KnxApplicationPrograms>)"),
    TestSupport::NamesInOrder({"Container", "Program", "Name", "List", "Handler", "Library", "Prefix",
                               "Depth", "ProgramInAGroup"}));

TEST_F(RegistryFileTest, PathThatLeadsThroughAFile_IsAMissingDirectory) {
    EXPECT_THAT(ReadHandlerRegistry(files / "user/readme.txt/deeper", ""), IsEmpty());
}

TEST_F(RegistryFileTest, DirectoryInTheFilesPlace_ListsNothing) {
    std::filesystem::create_directory(files / "stack/knxappprghandlers.xml");
    EXPECT_THAT(ReadHandlerRegistry(files / "stack", ""), IsEmpty());
}

TEST_F(RegistryFileTest, LinkToADirectory_IsTheDirectory) {
    RegisterPlugins({"A"});
    std::filesystem::create_directory_symlink(files / "stack", files / "link");
    EXPECT_THAT(ReadHandlerRegistry(files / "link", "dscknxappprg"), testing::SizeIs(1));
    std::filesystem::create_directory_symlink(files / "nowhere", files / "dangling");
    EXPECT_THAT(ReadHandlerRegistry(files / "dangling", ""), IsEmpty());
}

TEST_F(RegistryFileTest, NameOfTheFile_IsInLowerCase) {
    files.Write("stack/KnxAppPrgHandlers.xml", Registry(R"(<DynamicHandler Library="a.so"/>)"));
    EXPECT_THAT(ReadHandlerRegistry(files / "stack", ""), IsEmpty());
}

} // namespace
