#include "RichProject.h"

#include <gtest/gtest.h>

using namespace ProjectFile;

namespace {

/// What the text says, written again, is the same project.
void ExpectComesBack(const Project& project) {
    const std::string text = WriteProject(project);
    const LoadResult again = ParseProject(text, "again.json");
    ASSERT_TRUE(again) << again.Error() << "\n" << text;
    EXPECT_EQ(*again.project, project) << text;
    EXPECT_EQ(WriteProject(*again.project), text);
}

} // namespace

TEST(ProjectWriter, EveryMemberComesBack) {
    ExpectComesBack(*ProjectOf(kRichProject));
}

TEST(ProjectWriter, TheHouseComesBack) {
    const LoadResult house = LoadProject(HOUSE_EXAMPLE "/project.json");
    ASSERT_TRUE(house) << house.Error();
    ExpectComesBack(*house.project);
}

TEST(ProjectWriter, ClockWithABindingOfItsOwnComesBack) {
    ExpectComesBack(*ProjectOf(R"({"version": 1, "device": "d", "dataPoints": [
        {"id": 1005, "knx": {"co": {"write": 7}, "event": false}}]})"));
}

TEST(ProjectWriter, OneDataPointALineAndNoMemberThatHasItsDefault) {
    EXPECT_EQ(
        WriteProject(*ProjectOf(R"({"version": 1, "device": "d", "knx": {"owner": "DscKnxAppPrg::field::KNX"},
        "dataPoints": [
        {"id": 1002, "knx": {"co": 8, "readInternal": true, "event": true}}, {"id": 1003},
        {"id": 1, "name": "A", "dpt": "DPT-1", "access": "rw", "unit": "", "description": "", "persistent": false,
         "owner": "", "initial": "1"},
        {"id": 2, "name": "B", "dpt": "DPST-9-1", "unit": "°C", "owner": "DscKnxAppPrg::field::KNX",
         "knx": {"co": {"read": 7, "write": 7}, "event": true, "readInternal": false}}]})")),
        R"({
"version":1,
"device":"d",
"dataPoints":[
{"id":1002,"knx":{"co":8}},
{"id":1,"name":"A","dpt":"1.xxx","initial":"1"},
{"id":2,"name":"B","dpt":"9.001","knx":{"co":7}}
]
}
)");
}

TEST(ProjectWriter, ProjectsAreEqualWhenTheySayTheSame) {
    const auto project = ProjectOf(kRichProject);
    EXPECT_EQ(*project, *ProjectOf(std::string("// a comment\n") + kRichProject));
    // One change of each member makes another project of it.
    const std::pair<const char*, const char*> kChanges[] = {
        {"rich-1", "rich-2"},
        {"\"urn\"", "\"id\""},
        {"\"Other::field::KNX2\",\n    \"time", "\"Other::field::KNX3\",\n    \"time"},
        {"\"co\": 65534", "\"co\": 1"},
        {"\"10.xxx\"", "\"10.001\""},
        {"900, 910", "900, 911"},
        {": 50001", ": 50003"},
        {"time mode", "time"},
        {"65535}", "3}"},
        {"\"instances\": 3", "\"instances\": 4"},
        {"\"dataType\": 0", "\"dataType\": 1"},
        {"ldest", "lder"},
        {"{\"co\": 44}", "{\"co\": 47}"},
        {"4294967294", "4294967293"},
        {"Bare", "Bear"},
        {"DPST-9-1", "DPST-9-2"},
        {"\"K\"", "\"F\""},
        {"nbreak", "nbrake"},
        {"\"access\": \"r\"", "\"access\": \"w\""},
        {"21.5", "21.6"},
        {"\"persistent\": true", "\"persistent\": false"},
        {"someone::", "somebody::"},
        {"\"read\": 3", "\"read\": 7"},
        {"\"co\": 5, \"readInternal\": true", "\"co\": 5, \"readInternal\": false"},
        {"{\"write\": 4}, \"event\": false", "{\"write\": 4}, \"event\": true"},
    };
    for (const auto& [from, to] : kChanges) {
        std::string text = kRichProject;
        const std::size_t at = text.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        EXPECT_FALSE(*ProjectOf(text.replace(at, std::string_view(from).size(), to)) == *project) << to;
    }
}
