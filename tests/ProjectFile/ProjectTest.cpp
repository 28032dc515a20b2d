#include "ProjectFile/Project.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

using namespace ProjectFile;

namespace {

/// A project with the given data points and members of "knx".
std::string ProjectText(const std::string& dataPoints, const std::string& knx = "") {
    return "{\"version\": 1, \"device\": \"house\", \"knx\": {" + knx + "},\n \"dataPoints\": [" +
           dataPoints + "]}";
}

std::string Point(int id, const std::string& name, const std::string& more = "") {
    return "{\"id\": " + std::to_string(id) + ", \"name\": \"" + name + "\", \"dpt\": \"1.001\"" +
           (more.empty() ? "" : ", " + more) + "}";
}

std::shared_ptr<const Project> Accepted(const std::string& text) {
    const LoadResult result = ParseProject(text, "p.json");
    if (!result) {
        throw std::runtime_error(result.Error());
    }
    return result.project;
}

/// The errors of a text that must be refused.
std::vector<std::string> Errors(const std::string& text) {
    const LoadResult result = ParseProject(text, "p.json");
    EXPECT_EQ(result.project, nullptr);
    return result.errors;
}

using Texts = std::vector<std::string>;

} // namespace

TEST(ProjectFile, FixedDataPointsExistWithoutBeingListed) {
    const auto project = Accepted(ProjectText(""));
    ASSERT_EQ(project->dataPoints.size(), 8u);
    EXPECT_EQ(project->FindById(1000)->urn, "urn:oxn:dp:house");
    EXPECT_EQ(project->FindById(1000)->name, "device");
    EXPECT_EQ(project->FindById(1001)->urn, "urn:oxn:dp:house:version");
    EXPECT_EQ(project->FindById(1002)->name, "ready");
    EXPECT_EQ(project->FindById(1003)->name, "state");
    EXPECT_EQ(project->FindById(1004)->name, "restart");
    EXPECT_EQ(project->FindById(1004)->access, Access::Write);
    EXPECT_EQ(project->FindById(1005)->name, "clock");
    EXPECT_EQ(project->FindById(1005)->dpt.main, 19);
    EXPECT_EQ(project->FindById(1005)->access, Access::ReadWrite);
    EXPECT_EQ(project->FindById(1006)->name, "clock.date");
    EXPECT_EQ(project->FindById(1007)->name, "clock.time");
    EXPECT_EQ(project->FindById(1007)->dpt.main, 10);
    EXPECT_EQ(project->FindById(1008), nullptr);
}

TEST(ProjectFile, DataPointHasItsMembersAndDefaults) {
    const auto project = Accepted(
        ProjectText(Point(2001, "A/b c",
                          "\"access\": \"r\", \"initial\": \"1\", \"persistent\": true, \"unit\": \"u\", "
                          "\"description\": \"d\", \"owner\": \"a::b::c\"") +
                    "," + Point(2002, "B")));
    const DataPoint* first = project->FindById(2001);
    EXPECT_EQ(first->urn, "urn:oxn:dp:house:A/b c");
    EXPECT_EQ(first->access, Access::Read);
    EXPECT_EQ(first->initial, "1");
    EXPECT_TRUE(first->persistent);
    EXPECT_EQ(first->unit, "u");
    EXPECT_EQ(first->description, "d");
    EXPECT_EQ(first->owner, "a::b::c");
    EXPECT_FALSE(first->knx);
    const DataPoint* second = project->FindById(2002);
    EXPECT_EQ(second->access, Access::ReadWrite);
    EXPECT_FALSE(second->initial);
    EXPECT_FALSE(second->persistent);
    EXPECT_EQ(second->owner, "");
}

TEST(ProjectFile, TypeIsReadInEverySpellingThatPeopleUse) {
    const auto dptText = [](const std::string& spelling) {
        return Accepted(ProjectText(R"({"id": 1, "name": "A", "dpt": ")" + spelling + "\"}"))
            ->FindById(1)
            ->dptText;
    };
    for (const auto* spelling :
         {"9.001", "9.1", "DPT9.001", "DPT 9.001", "DPT-9.001", "DPST-9-1", "dpt9.001"})
        EXPECT_EQ(dptText(spelling), "9.001") << spelling;
    for (const auto* spelling : {"9", "9.xxx", "9.*", "DPT9", "DPT-9"})
        EXPECT_EQ(dptText(spelling), "9.xxx") << spelling;
    EXPECT_EQ(dptText("DPST-9-999"), "9.999"); // converts by the rule of its main number
}

TEST(ProjectFile, ATimeCoHasItsTypeInEverySpellingToo) {
    for (const auto* spelling : {"10.001", "10.1", "DPT10.001", "DPT 10.001", "DPT-10.001", "DPST-10-1"}) {
        const auto project =
            Accepted(ProjectText("", R"("timeCos": [{"co": 41, "dpt": ")" + std::string(spelling) + "\"}]"));
        EXPECT_EQ(project->timeCos.at(0).dpt, (KNXDPT{24, 0, 10, 1})) << spelling;
    }
    for (const auto* spelling : {"10", "10.xxx", "10.*", "DPT-10"}) {
        const auto project =
            Accepted(ProjectText("", R"("timeCos": [{"co": 41, "dpt": ")" + std::string(spelling) + "\"}]"));
        EXPECT_EQ(project->timeCos.at(0).dpt.main, 10) << spelling;
    }
}

TEST(ProjectFile, WhatIsNoTypeIsRefusedWithOneSentence) {
    const auto refusal = [](const std::string& text) {
        return "p.json: /dataPoints/0/dpt: \"" + text + "\" is no datapoint type; write it like 9.001";
    };
    for (const std::string text :
         {"", "9,001", "DPT", "9.", "9.001x", "-9", "0.001", "9.65535", "temperature"})
        EXPECT_EQ(Errors(ProjectText(R"({"id": 1, "name": "A", "dpt": ")" + text + "\"}")),
                  Texts{refusal(text)});
}

TEST(ProjectFile, TypeIsReadInEverySpellingAndGivesSizeAndUnit) {
    const auto project = Accepted(ProjectText(R"({"id": 1, "name": "A", "dpt": "DPST-9-1"},
        {"id": 2, "name": "B", "dpt": "DPT-9"}, {"id": 3, "name": "C", "dpt": "DPT9.005", "unit": "bft"})"));
    EXPECT_EQ(project->FindById(1)->dpt, (KNXDPT{16, 0, 9, 1}));
    EXPECT_EQ(project->FindById(1)->dptText, "9.001");
    EXPECT_EQ(project->FindById(1)->unit, "°C");
    EXPECT_EQ(project->FindById(2)->dpt.main, 9);
    EXPECT_EQ(project->FindById(2)->dptText, "9.xxx");
    EXPECT_EQ(project->FindById(3)->dpt, (KNXDPT{16, 0, 9, 5}));
    EXPECT_EQ(project->FindById(3)->unit, "bft");
}

TEST(ProjectFile, BindingNamesOneCoOrOneForEachDirection) {
    const auto project =
        Accepted(ProjectText(Point(2001, "A", R"("knx": {"co": 1})") + "," +
                             Point(2002, "B", R"("knx": {"co": {"read": 2, "write": 3}})") + "," +
                             Point(2003, "C", R"("knx": {"co": {"read": 4}, "event": false})")));
    EXPECT_EQ(project->FindById(2001)->knx, (KnxBinding{1, 1, true, false}));
    EXPECT_EQ(project->FindById(2002)->knx, (KnxBinding{2, 3, true, false}));
    EXPECT_EQ(project->FindById(2003)->knx, (KnxBinding{4, 0, false, false}));
    EXPECT_EQ(project->FindByCo(2)->id, 2002u);
    EXPECT_EQ(project->FindByCo(3)->id, 2002u);
    EXPECT_EQ(project->FindByCo(5), nullptr);
    EXPECT_EQ(project->FindByCo(0), nullptr);
    EXPECT_EQ(project->FindByCo(0xFFFF), nullptr);
}

TEST(ProjectFile, OwnerOfABoundDataPointIsTheApplicationProgramUnlessTheDeviceStackHoldsTheValue) {
    const std::string points = Point(2001, "A", R"("knx": {"co": 1})") + "," +
                               Point(2002, "B", R"("knx": {"co": 2, "readInternal": true})") + "," +
                               Point(2003, "C", R"("knx": {"co": 3}, "owner": "")");
    const auto project = Accepted(ProjectText(points));
    EXPECT_EQ(project->FindById(2001)->owner, "DscKnxAppPrg::field::KNX");
    EXPECT_EQ(project->FindById(2002)->owner, "");
    EXPECT_EQ(project->FindById(2003)->owner, "");
    EXPECT_EQ(project->knxOwner, "DscKnxAppPrg::field::KNX");
    EXPECT_EQ(Accepted(ProjectText(points, R"("owner": "DscKnxAppPrg::field::2")"))->knxOwner,
              "DscKnxAppPrg::field::2");
    EXPECT_EQ(Accepted(ProjectText(points, R"("owner": "DscKnxAppPrg::field::2")"))->FindById(2001)->owner,
              "DscKnxAppPrg::field::2");
}

TEST(ProjectFile, DataPointsAreFoundByUrnAndName) {
    const auto project = Accepted(ProjectText(Point(2001, "A")));
    EXPECT_EQ(project->FindByUrn("urn:oxn:dp:house:A")->id, 2001u);
    EXPECT_EQ(project->FindByUrn("urn:oxn:dp:house")->id, 1000u);
    EXPECT_EQ(project->FindByName("device")->id, 1000u);
    EXPECT_EQ(project->FindByName("clock.time")->id, 1007u);
    for (const char* unknown : {"urn:oxn:dp:house:device", "urn:oxn:dp:house:", "urn:oxn:dp:housE:A", "A", "",
                                "urn:oxn:dp:houses:A", "urn:oxn:dp:house:B"}) {
        EXPECT_EQ(project->FindByUrn(unknown), nullptr) << unknown;
    }
}

TEST(ProjectFile, ClockWithoutOwnCoAnswersWithTheFirstTimeCo) {
    const auto project =
        Accepted(ProjectText("", R"("timeCos": [{"co": 41, "dpt": "10.001"}, {"co": 42, "dpt": "11.001"}])"));
    EXPECT_EQ(project->FindById(1005)->knx, (KnxBinding{41, 41, true, true}));
    EXPECT_EQ(project->FindByCo(41)->id, 1005u);
    EXPECT_EQ(project->FindByCo(42)->id, 1005u);
    EXPECT_EQ(project->timeCos.size(), 2u);
}

TEST(ProjectFile, CoOfTheClockIsATimeCo) {
    const auto project = Accepted(ProjectText(R"({"id": 1005, "knx": {"co": 40}})"));
    ASSERT_EQ(project->timeCos.size(), 1u);
    EXPECT_EQ(project->timeCos[0].co, 40);
    EXPECT_EQ(project->timeCos[0].dpt.main, 19);
    const auto both = Accepted(ProjectText(R"({"id": 1005, "knx": {"co": 40, "event": false}})",
                                           R"("timeCos": [{"co": 40, "dpt": "19.001"}])"));
    EXPECT_EQ(both->timeCos.size(), 1u);
    EXPECT_EQ(both->FindById(1005)->knx, (KnxBinding{40, 40, false, true}));
    const auto flagOnly = Accepted(ProjectText(R"({"id": 1005, "knx": {"event": false}})",
                                               R"("timeCos": [{"co": 40, "dpt": "19.001"}])"));
    EXPECT_EQ(flagOnly->FindById(1005)->knx, (KnxBinding{40, 40, false, true}));
}

TEST(ProjectFile, RestartTriggerIsNeverSentToTheBusByDefault) {
    const auto project = Accepted(ProjectText(R"({"id": 1004, "knx": {"co": 7}})"));
    EXPECT_EQ(project->FindById(1004)->knx, (KnxBinding{7, 7, false, true}));
}

TEST(ProjectFile, PropertiesAndTranslationRangeAreRead) {
    const auto project = Accepted(ProjectText("", R"("identification": "urn", "translationRange": [900, 910],
        "interfaceObject": 50001, "properties": [{"id": 201, "name": "time mode", "dataType": 17}],
        "extendedProperties": [{"id": 51, "name": "x", "dataType": 18, "elements": 4, "objectType": 50002, "instances": 3}])"));
    EXPECT_EQ(project->identification, Identification::Urn);
    EXPECT_EQ(project->translationRange.first, 900);
    EXPECT_EQ(project->translationRange.last, 910);
    EXPECT_EQ(project->interfaceObject, 50001);
    ASSERT_EQ(project->properties.size(), 1u);
    EXPECT_EQ(project->properties[0].id, 201);
    EXPECT_EQ(project->properties[0].elements, 1);
    ASSERT_EQ(project->extendedProperties.size(), 1u);
    EXPECT_EQ(project->extendedProperties[0].property.elements, 4);
    EXPECT_EQ(project->extendedProperties[0].objectType, 50002);
    EXPECT_EQ(project->extendedProperties[0].instances, 3);
}

TEST(ProjectFile, CommentsTrailingCommasAndByteOrderMarkAreAllowed) {
    EXPECT_EQ(
        Accepted(
            "\xEF\xBB\xBF// first line\n{\"version\": 1, /* x */ \"device\": \"d\", \"dataPoints\": [],}\n")
            ->device,
        "d");
}

TEST(ProjectFile, SyntaxErrorNamesLineAndColumn) {
    EXPECT_EQ(Errors("{\n  \"version\": 1,\n  \"device\" \"d\"\n}"),
              Texts{"p.json: 3:12: not JSON: syntax error"});
    EXPECT_EQ(Errors(""), Texts{"p.json: 1:1: not JSON: incomplete JSON"});
    EXPECT_EQ(Errors("{} x"), Texts{"p.json: 1:4: more text behind the end of the JSON value"});
}

TEST(ProjectFile, MemberThatStandsTwiceIsRefused) {
    EXPECT_EQ(Errors("{\"version\": 1,\n \"version\": 1}"),
              Texts{"p.json: 2:10: member \"version\" stands twice in one object"});
}

TEST(ProjectFile, UnreadableFileSaysWhy) {
    EXPECT_EQ(LoadProject("/nonexistent/p.json").Error(),
              "/nonexistent/p.json: cannot be read: No such file or directory");
    EXPECT_EQ(LoadProject("/").Error(), "/: cannot be read: Is a directory");
}

TEST(ProjectFile, AllErrorsAreListedInOrder) {
    const LoadResult result = ParseProject(
        ProjectText("{\"id\": 0}, {\"name\": \"x\"}, 5, " + Point(1, "A", "\"acess\": \"r\"")), "p.json");
    EXPECT_EQ(result.errors,
              (Texts{"p.json: /dataPoints/0/id: must be a whole number from 1 to 4294967294, not 0",
                     "p.json: /dataPoints/1: \"id\" is missing",
                     "p.json: /dataPoints/2: must be an object with \"id\", \"name\" and \"dpt\"",
                     "p.json: /dataPoints/3/acess: unknown member \"acess\"; did you mean \"access\"?"}));
    EXPECT_EQ(result.Error(), result.errors[0] + " (and 3 more)");
}

namespace {

struct Refusal {
    const char* name;
    std::string text;
    std::string error; // without "p.json: "
};

class RefusedProject : public testing::TestWithParam<Refusal> {};

const Refusal kRefusals[] = {
    {"RootIsNoObject", "[]", "/: must be an object with \"version\", \"device\" and \"dataPoints\""},
    {"OtherVersion", R"({"version": 2, "device": "d", "dataPoints": []})",
     "/version: 2 is a version that this program does not know; it reads version 1"},
    {"NoVersion", R"({"device": "d", "dataPoints": []})", "/: \"version\" is missing"},
    {"DeviceWithColon", R"({"version": 1, "device": "a:b", "dataPoints": []})",
     "/device: a device name has 1 to 200 letters (a to z), digits, '.', '_' or '-'"},
    {"UnknownMemberFarFromAnyKnown", ProjectText("", R"("colour": 1)"),
     "/knx/colour: unknown member \"colour\"; known are: identification, owner, timeCos, translationRange, "
     "interfaceObject, properties, extendedProperties"},
    {"UnknownIdentification", ProjectText("", R"("identification": "urns")"),
     "/knx/identification: must be \"id\" or \"urn\""},
    {"OwnerIsNoIdentity", ProjectText(Point(1, "A", R"("owner": "a::b")")),
     "/dataPoints/0/owner: must be an identity \"name::type::instance\" of letters (a to z), digits, '.', "
     "'_' and '-', "
     "or \"\" for nobody"},
    {"OwnerWithAPartThatNobodyCanRegister", ProjectText(Point(1, "A", R"("owner": "my app::b::c")")),
     "/dataPoints/0/owner: must be an identity \"name::type::instance\" of letters (a to z), digits, '.', "
     "'_' and '-', or "
     "\"\" for nobody"},
    {"OwnerWithAnEmptyPart", ProjectText(Point(1, "A", R"("owner": "a::::c")")),
     "/dataPoints/0/owner: must be an identity \"name::type::instance\" of letters (a to z), digits, '.', "
     "'_' and '-', or "
     "\"\" for nobody"},
    {"KnxOwnerWithAPartThatNobodyCanRegister", ProjectText(Point(1, "A"), R"("owner": "a::b y::c")"),
     "/knx/owner: must be an identity \"name::type::instance\" of letters (a to z), digits, '.', '_' and "
     "'-'"},
    {"NumberInsteadOfText", ProjectText(Point(1, "A", R"("initial": 1)")),
     "/dataPoints/0/initial: must be a text in quotation marks: \"1\""},
    {"TextInsteadOfBoolean", ProjectText(Point(1, "A", R"("persistent": "yes")")),
     "/dataPoints/0/persistent: must be true or false, not a text"},
    {"UnknownAccess", ProjectText(Point(1, "A", R"("access": "x")")),
     "/dataPoints/0/access: must be \"r\", \"w\" or \"rw\""},
    {"UnknownType", ProjectText(R"({"id": 1, "name": "A", "dpt": "x"})"),
     "/dataPoints/0/dpt: \"x\" is no datapoint type; write it like 9.001"},
    {"TypeOfAnUnknownMainNumber", ProjectText(R"({"id": 1, "name": "A", "dpt": "99.001"})"),
     "/dataPoints/0/dpt: datapoint type 99.001 is not known; 'dsctl types' lists all"},
    {"InitialOfAnotherType", ProjectText(R"({"id": 1, "name": "A", "dpt": "9.001", "initial": "warm"})"),
     "/dataPoints/0/initial: 9.001: 'warm' is not a number"},
    {"InitialOutOfRange", ProjectText(R"({"id": 1, "name": "A", "dpt": "9.001", "initial": "-300"})"),
     "/dataPoints/0/initial: 9.001: -300 is below -273 °C"},
    {"NameOfDigits", ProjectText(Point(1, "17")),
     "/dataPoints/0/name: a name of digits alone would be taken for an id"},
    {"NameWithColon", ProjectText(Point(1, "a:b")),
     "/dataPoints/0/name: a name has 1 to 200 bytes of letters, digits, '.', '_', '-', '/' and spaces"},
    {"NameThatEndsWithSpace", ProjectText(Point(1, "a ")),
     "/dataPoints/0/name: a name neither begins nor ends with a space"},
    {"IdTwice", ProjectText(Point(7, "A") + "," + Point(7, "B")),
     "/dataPoints/1/id: id 7 is already taken by /dataPoints/0"},
    {"NameTwice", ProjectText(Point(1, "A") + "," + Point(2, "A")),
     "/dataPoints/1/name: name \"A\" is already taken by /dataPoints/0"},
    {"NameOfAFixedDataPoint", ProjectText(Point(1, "clock.date")),
     "/dataPoints/0/name: name \"clock.date\" is already taken by the fixed data point 1006"},
    {"CoTwice",
     ProjectText(Point(1, "A", R"("knx": {"co": 5})") + "," +
                 Point(2, "B", R"("knx": {"co": {"write": 5}})")),
     "/dataPoints/1/knx/co: CO 5 is already taken by /dataPoints/0 (\"A\")"},
    {"CoOfATimeCo",
     ProjectText(Point(1, "A", R"("knx": {"co": 5})"), R"("timeCos": [{"co": 5, "dpt": "10.001"}])"),
     "/dataPoints/0/knx/co: CO 5 is already taken by /knx/timeCos/0/co"},
    {"CoInTheTranslationRange",
     ProjectText(Point(1, "A", R"("knx": {"co": 5})"), R"("translationRange": [5, 6])"),
     "/dataPoints/0/knx/co: CO 5 is in the translation range 5 to 6; its telegrams would never reach the "
     "data point"},
    {"CoTooLarge", ProjectText(Point(1, "A", R"("knx": {"co": 65535})")),
     "/dataPoints/0/knx/co: must be a whole number from 1 to 65534, not 65535"},
    {"BindingWithoutCo", ProjectText(Point(1, "A", R"("knx": {})")), "/dataPoints/0/knx: \"co\" is missing"},
    {"BindingWithoutDirection", ProjectText(Point(1, "A", R"("knx": {"co": {}})")),
     "/dataPoints/0/knx/co: must name a CO to \"read\", to \"write\", or both"},
    {"FixedDataPointWithName", ProjectText(R"({"id": 1005, "name": "time"})"),
     "/dataPoints/0/name: data point 1005 (\"clock\") is fixed; only \"knx\" and \"description\" may be "
     "given"},
    {"BoundVersion", ProjectText(R"({"id": 1001, "knx": {"co": 1}})"),
     "/dataPoints/0/knx: data point 1001 (\"version\") is a text of any length; it cannot be bound"},
    {"TimeCoOfAnotherType", ProjectText("", R"("timeCos": [{"co": 5, "dpt": "9.001"}])"),
     "/knx/timeCos/0/dpt: a time CO carries 10.001 (time), 11.001 (date) or 19.001 (both)"},
    {"RangeReversed", ProjectText("", R"("translationRange": [6, 5])"),
     "/knx/translationRange: the first CO, 6, is behind the last, 5"},
    {"RangeOfThree", ProjectText("", R"("translationRange": [1, 2, 3])"),
     "/knx/translationRange: must be two numbers, the first and the last CO: [900, 910]"},
    {"PropertiesWithoutObject", ProjectText("", R"("properties": [{"id": 201, "dataType": 17}])"),
     "/knx/properties: properties need the \"interfaceObject\" that they belong to"},
    {"PropertyWithoutDataType", ProjectText("", R"("interfaceObject": 9, "properties": [{"id": 201}])"),
     "/knx/properties/0: \"dataType\" is missing"},
};

} // namespace

TEST_P(RefusedProject, NamesPlaceAndCause) {
    EXPECT_EQ(Errors(GetParam().text), Texts{"p.json: " + GetParam().error});
}

INSTANTIATE_TEST_SUITE_P(ProjectFile, RefusedProject, testing::ValuesIn(kRefusals),
                         [](const auto& refusal) { return std::string(refusal.param.name); });
