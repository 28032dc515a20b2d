#include "KnxStackHost/Configuration/ProjectCheck.h"

#include "../../support/TemporaryDirectory.h"
#include "ProjectFile/Project.h"

#include <gmock/gmock.h>

namespace KnxStackHost {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Objects 1 (1.001), 2 (9.001), 3 (8 bits without a type), 4 (19.001) and whatever `more` says.
Configuration Objects(const std::string& more = "") {
    return ParseConfiguration(R"({"device": {"individualAddress": "1.1.1"}, "server": {"tunnels": ["1.1.2"]},
        "groupObjects": [
            {"number": 1, "name": "light", "dpt": "1.001", "flags": "CRWTU"},
            {"number": 2, "name": "warmth", "dpt": "9.001", "flags": "CRWTU"},
            {"number": 3, "name": "level", "size": 8, "flags": "CRWTU"},
            {"number": 4, "name": "time", "dpt": "10.001", "flags": "CRWTU"})" +
                                  more + R"(],
        "applicationProgram": {"library": "libp.so"}})",
                              "/etc/knxstackd.json");
}

ProjectFindings FindingsOf(const Configuration& configuration, const std::string& dataPoints,
                           const std::string& knx = R"("timeCos": [{"co": 4, "dpt": "10.001"}])") {
    const auto loaded = ProjectFile::ParseProject(R"({"version": 1, "device": "house", "knx": {)" + knx +
                                                      R"(}, "dataPoints": [)" + dataPoints + "]}",
                                                  "project");
    EXPECT_TRUE(loaded) << loaded.Error();
    return loaded ? CompareWithProject(configuration, *loaded.project) : ProjectFindings{};
}

const std::string kFitting = R"(
    {"id": 2001, "name": "Light", "dpt": "1.002", "knx": {"co": 1}},
    {"id": 2002, "name": "Warmth", "dpt": "9.001", "knx": {"co": 2}},
    {"id": 2003, "name": "Level", "dpt": "5.001", "knx": {"co": 3}})";

TEST(ProjectCheck, HasNothingAgainstFilesThatFit) {
    const auto findings = FindingsOf(Objects(), kFitting);
    EXPECT_THAT(findings.faults, IsEmpty());
    EXPECT_THAT(findings.notes, IsEmpty());
}

TEST(ProjectCheck, FindsAnOwnerThatIsNotTheApplicationProgram) {
    auto configuration = Objects();
    const auto timeCos = std::string(R"("timeCos": [{"co": 4, "dpt": "10.001"}])");
    configuration.program.settings["DscInstanceId"] = "KNX2";
    EXPECT_THAT(
        FindingsOf(configuration, kFitting).faults,
        ElementsAre("/knx/owner: is DscKnxAppPrg::field::KNX, but the application program registers as "
                    "DscKnxAppPrg::field::KNX2; its setting \"DscInstanceId\" and the owner must agree"));
    EXPECT_THAT(
        FindingsOf(configuration, kFitting, timeCos + R"(, "owner": "DscKnxAppPrg::field::KNX2")").faults,
        IsEmpty());
    configuration.program.settings["DscInstanceId"] = "KNX";
    EXPECT_THAT(FindingsOf(configuration, kFitting).faults, IsEmpty());
}

TEST(ProjectCheck, FindsAnUnknownCo) {
    EXPECT_THAT(
        FindingsOf(Objects(),
                   R"({"id": 2001, "name": "Light", "dpt": "1.001", "knx": {"co": {"read": 1, "write": 9}}})")
            .faults,
        ElementsAre("data point 2001 \"Light\": CO 9: there is no such group object"));
}

TEST(ProjectCheck, FindsAnotherType) {
    EXPECT_THAT(
        FindingsOf(Objects(), R"({"id": 2001, "name": "Light", "dpt": "5.001", "knx": {"co": 1}})").faults,
        ElementsAre("data point 2001 \"Light\": CO 1: the group object is a 1.001, the data point a 5.001"));
}

TEST(ProjectCheck, FindsAnotherSize) {
    EXPECT_THAT(
        FindingsOf(Objects(), R"({"id": 2003, "name": "Level", "dpt": "9.001", "knx": {"co": 3}})").faults,
        ElementsAre("data point 2003 \"Level\": CO 3: the group object has 8 bits, a value of 9.001 has 16"));
}

TEST(ProjectCheck, FindsAClockOfAnotherType) {
    EXPECT_THAT(FindingsOf(Objects(), kFitting, R"("timeCos": [{"co": 4, "dpt": "11.001"}])").faults,
                ElementsAre("the clock: CO 4: the group object is a 10.001, the data point a 11.001"));
}

TEST(ProjectCheck, FindsAnObjectThatDoesNotCommunicate) {
    const auto configuration = Objects(R"(, {"number": 5, "dpt": "1.001", "flags": "RWT"})");
    EXPECT_THAT(
        FindingsOf(configuration,
                   kFitting + R"(, {"id": 2005, "name": "Mute", "dpt": "1.001", "knx": {"co": 5}})")
            .faults,
        ElementsAre(
            "data point 2005 \"Mute\": CO 5: the group object lacks flag C, so that it neither sends nor "
            "receives"));
}

TEST(ProjectCheck, FindsAnInterfaceObjectThatTheDeviceHasNot) {
    const auto knx = std::string(R"("timeCos": [{"co": 4, "dpt": "10.001"}], "interfaceObject": 50001)");
    auto configuration = Objects();
    configuration.interfaceObjects = {{50002, 1, {}}};
    EXPECT_THAT(FindingsOf(configuration, kFitting, knx).faults,
                ElementsAre("/knx/interfaceObject: the device has no interface object 50001; name it in "
                            "/interfaceObjects"));
    configuration.interfaceObjects.push_back({50001, 1, {}});
    EXPECT_THAT(FindingsOf(configuration, kFitting, knx).faults, IsEmpty());
}

TEST(ProjectCheck, FindsAPropertyOfAnotherShape) {
    auto configuration = Objects();
    configuration.interfaceObjects = {{50001, 1, {{201, 17, 1, {}}, {202, 18, 2, {}}}},
                                      {50002, 1, {{51, 17, 1, {}}}},
                                      {50002, 2, {{51, 17, 3, {}}}},
                                      {50002, 3, {{51, 18, 1, {}}}}};
    const auto knx = std::string(R"("timeCos": [{"co": 4, "dpt": "10.001"}], "interfaceObject": 50001,
        "extendedProperties": [{"id": 51, "name": "x", "dataType": 17, "objectType": 50002, "instances": 2},
                               {"id": 201, "name": "y", "dataType": 19, "objectType": 50003}],
        "properties": [{"id": 201, "name": "a", "dataType": 17}, {"id": 203, "name": "c", "dataType": 17},
                       {"id": 202, "name": "b", "dataType": 18, "elements": )");
    EXPECT_THAT(FindingsOf(configuration, kFitting, knx + "1}]").faults,
                ElementsAre("interface object 50001: property 202: the device has data type 18 with 2 "
                            "elements, the project 18 with 1",
                            "interface object 115538: property 51: the device has data type 17 with 3 "
                            "elements, the project 17 with 1"));
    configuration.interfaceObjects.erase(configuration.interfaceObjects.begin() + 2);
    EXPECT_THAT(FindingsOf(configuration, kFitting, knx + "2}]").faults, IsEmpty());
}

/// Numbers of the objects that take the device's own telegrams.
std::vector<unsigned> TakersOfOwnTelegrams(const Configuration& configuration) {
    std::vector<unsigned> numbers;
    for (const auto& object : configuration.groupObjects)
        if (object.definition.ownTelegrams)
            numbers.push_back(object.definition.number);
    return numbers;
}

TEST(ProjectCheck, KeepsTheDevicesOwnTelegramsFromTheTranslationRange) {
    const TestSupport::TemporaryDirectory directory;
    directory.Write("project.json", R"({"version": 1, "device": "house", "dataPoints": [],
                                        "knx": {"translationRange": [900, 910]}})");
    auto configuration =
        Objects(R"(, {"number": 899, "size": 8, "flags": "C"}, {"number": 900, "size": 8, "flags": "C"},
                     {"number": 910, "size": 8, "flags": "C", "ownTelegrams": true},
                     {"number": 911, "size": 8, "flags": "C"})");
    CheckProjectFile(configuration); // there is none
    EXPECT_THAT(TakersOfOwnTelegrams(configuration), ElementsAre(1, 2, 3, 4, 899, 900, 910, 911));
    configuration.project = directory / "project.json";
    CheckProjectFile(configuration);
    EXPECT_THAT(TakersOfOwnTelegrams(configuration), ElementsAre(1, 2, 3, 4, 899, 911));
}

TEST(ProjectCheck, LeavesTheObjectsOfAProjectWithoutTranslationAsTheyAre) {
    const TestSupport::TemporaryDirectory directory;
    directory.Write("project.json", R"({"version": 1, "device": "house", "dataPoints": []})");
    auto configuration = Objects(R"(, {"number": 5, "size": 8, "flags": "C", "ownTelegrams": false})");
    configuration.project = directory / "project.json";
    CheckProjectFile(configuration);
    EXPECT_THAT(TakersOfOwnTelegrams(configuration), ElementsAre(1, 2, 3, 4));
}

TEST(ProjectCheck, NotesWhatIsBoundToNothing) {
    const auto configuration = Objects(R"(, {"number": 6, "name": "spare", "size": 8, "flags": "C"},
                                          {"number": 901, "name": "passed on", "size": 8, "flags": "C"})");
    const auto findings =
        FindingsOf(configuration, kFitting,
                   R"("timeCos": [{"co": 4, "dpt": "10.001"}], "translationRange": [900, 910])");
    EXPECT_THAT(findings.faults, IsEmpty());
    EXPECT_THAT(findings.notes, ElementsAre("group object 6 \"spare\" is bound to no data point"));
}

} // namespace
} // namespace KnxStackHost
