// dsctl types and dsctl convert: the shipped program, without a device stack.
#include "DsctlProcess.h"

#include "ValueConverter/DatapointTypes.h"

#include <boost/json.hpp>
#include <gmock/gmock.h>

#include <sstream>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using ToolTest::Dsctl;

namespace {

struct Result {
    int code;
    std::string output;
    std::string error;
};

/// No device stack can be where it would be looked for.
Result RunAlone(std::vector<std::string> arguments) {
    Dsctl dsctl(std::move(arguments), {"DEVICESTACK_SOCKET=/nonexistent/s"});
    const int code = dsctl.Wait();
    return {code, dsctl.GetOutput(), dsctl.GetError()};
}

void ExpectDone(const std::vector<std::string>& arguments, const std::string& output) {
    const auto result = RunAlone(arguments);
    const auto text = testing::PrintToString(arguments);
    EXPECT_EQ(result.code, 0) << text;
    EXPECT_EQ(result.output, output) << text;
    EXPECT_EQ(result.error, "") << text;
}

void ExpectRefused(int code, const std::vector<std::string>& arguments, const std::string& error) {
    const auto result = RunAlone(arguments);
    const auto text = testing::PrintToString(arguments);
    EXPECT_EQ(result.code, code) << text;
    EXPECT_EQ(result.output, "") << text;
    EXPECT_EQ(result.error, error) << text;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

constexpr const char* kSpellings =
    "9.001, DPT9.001, DPT-9.001 or DPST-9-1, or 9, 9.xxx or DPT-9 for the main number alone\n";

} // namespace

TEST(DsctlTypes, ListsEveryTypeOnePerLine) {
    const auto lines = Lines(RunAlone({"types"}).output);
    const auto types = Datapoint::AllTypes();
    ASSERT_EQ(lines.size(), types.size() + 1);
    EXPECT_THAT(lines.front(), StartsWith("TYPE "));
    for (std::size_t i = 0; i < types.size(); ++i) {
        const auto name = std::string(types[i].name);
        EXPECT_THAT(lines[i + 1],
                    AllOf(StartsWith(ToString(types[i].GetNumber()) + ' '), HasSubstr(' ' + name + ' ')));
    }
}

TEST(DsctlTypes, OfAMainNumberAreATable) {
    const std::string table = "TYPE    NAME             BITS  UNIT  RESOLUTION  RANGE\n"
                              "17.001  DPT_SceneNumber  8     -     -           1..64\n";
    for (const auto* main : {"17", "DPT-17", "DPT17", "17.xxx", "17.*"})
        ExpectDone({"types", main}, table);
    const auto table9 = RunAlone({"types", "9"}).output;
    EXPECT_THAT(table9, HasSubstr("\n9.001  DPT_Value_Temp               16    °C     0.01*2^E    "
                                  "-273..670433.28\n"));
    EXPECT_EQ(Lines(table9).size(), Lines(RunAlone({"--json", "types", "9"}).output).size() + 1);
}

TEST(DsctlTypes, OneTypeInDetailByEverySpelling) {
    const std::string detail = "9.001  DPT_Value_Temp\n"
                               "size        16 bits\n"
                               "unit        °C\n"
                               "range       -273..670433.28\n"
                               "resolution  0.01*2^E\n"
                               "example     0c1a is 21\n";
    for (const auto* spelling : {"9.001", "9.1", "DPT9.001", "DPT 9.001", "DPT-9.001", "dpst-9-1"})
        ExpectDone({"types", spelling}, detail);
}

TEST(DsctlTypes, NamesOfValuesStandOnePerLine) {
    ExpectDone({"types", "20.102"}, "20.102  DPT_HVACMode\n"
                                    "size        8 bits\n"
                                    "range       0..4\n"
                                    "resolution  1\n"
                                    "values      0  Auto\n"
                                    "            1  Comfort\n"
                                    "            2  Standby\n"
                                    "            3  Economy\n"
                                    "            4  Building protection\n"
                                    "example     01 is 1\n");
}

TEST(DsctlTypes, FieldsStandInTelegramOrder) {
    ExpectDone({"types", "235.001"},
               "235.001  DPT_Tariff_ActiveEnergy\n"
               "size        48 bits\n"
               "unit        Wh\n"
               "resolution  1\n"
               "fields      activeEnergy  32 bits  -2147483648..2147483647\n"
               "            tariff        8 bits   0..255\n"
               "            (reserved)    6 bits\n"
               "            e             1 bit    0..1\n"
               "            t             1 bit    0..1\n"
               "example     010101010101 is {\"activeEnergy\":16843009,\"tariff\":1,\"e\":0,\"t\":1}\n");
}

TEST(DsctlTypes, ATypeOfAnySizeSaysSo) {
    ExpectDone({"types", "28.001"}, "28.001  DPT_UTF-8\n"
                                    "size        any number of octets\n"
                                    "example     4b4e5800 is KNX\n");
    EXPECT_THAT(RunAlone({"types", "1.001"}).output, HasSubstr("\nsize        1 bit\n"));
}

TEST(DsctlTypes, AnUnknownSubNumberHasTheRuleOfItsMainNumber) {
    ExpectDone({"types", "9.999"}, "9.999  not in the table; values are converted by the rule of all 9.xxx\n"
                                   "size        16 bits\n"
                                   "range       -671088.64..670433.28\n"
                                   "example     0c1a is 21\n");
    const auto json = boost::json::parse(RunAlone({"types", "9.999", "--json"}).output).as_object();
    EXPECT_EQ(json.at("dpt").as_string(), "9.999");
    EXPECT_EQ(json.at("name").as_string(), "");
}

TEST(DsctlTypes, AsJsonAreOneObjectPerLine) {
    ExpectDone({"--json", "types", "1.001"},
               R"({"dpt":"1.001","name":"DPT_Switch","size":1,"unit":"","range":"0..1","resolution":"",)"
               R"("valueNames":{"0":"Off","1":"On"},"fields":[],"example":{"octets":"01","value":"1"}})"
               "\n");
    ExpectDone({"types", "26.001", "--json"},
               R"({"dpt":"26.001","name":"DPT_SceneInfo","size":8,"unit":"","range":"b 0..1; scene 1..64",)"
               R"("resolution":"","valueNames":{},"fields":[{"name":"","size":1,"range":""},)"
               R"({"name":"b","size":1,"range":"0..1"},{"name":"scene","size":6,"range":"1..64"}],)"
               R"("example":{"octets":"01","value":"{\"b\":0,\"scene\":2}"}})"
               "\n");
    const auto lines = Lines(RunAlone({"types", "--json"}).output);
    const auto types = Datapoint::AllTypes();
    ASSERT_EQ(lines.size(), types.size());
    for (std::size_t i = 0; i < types.size(); ++i) {
        const auto object = boost::json::parse(lines[i]).as_object();
        EXPECT_EQ(object.at("dpt").as_string(), ToString(types[i].GetNumber()));
        EXPECT_EQ(object.at("size").as_int64(), Datapoint::SizeInBits(types[i]));
        EXPECT_EQ(object.at("unit").as_string(), types[i].unit);
        EXPECT_EQ(object.at("range").as_string(), Datapoint::Range(types[i]));
    }
}

TEST(DsctlTypes, WhatIsNoTypeIsRefusedWithTheSpellings) {
    for (const std::string text : {"9,001", "temperature", "", "9.x1", "DPT", "16bit"})
        ExpectRefused(2, {"types", text},
                      "dsctl: '" + text + "' is no datapoint type; write it as " + kSpellings);
    ExpectRefused(1, {"types", "DPST-999-1"},
                  "dsctl: DPST-999-1: no datapoint type has the main number 999; 'dsctl types' lists all of "
                  "them\n");
    EXPECT_EQ(RunAlone({"types", "9", "1"}).code, 2);
}

TEST(DsctlConvert, PrintsTheValueInTheOctets) {
    ExpectDone({"convert", "9.001", "0c1a"}, "21\n");
    ExpectDone({"convert", "DPST-9-1", "0c1a"}, "21\n");
    ExpectDone({"convert", "9", "0c1a"}, "21\n");
    ExpectDone({"convert", "9.999", "0c1a"}, "21\n");
    ExpectDone({"convert", "1.001", "1"}, "1\n");
    ExpectDone({"convert", "3.007", "0b"}, "{\"c\":1,\"stepcode\":3}\n");
    ExpectDone({"convert", "16.001", "4bf6 6c6e 0000 0000 0000 0000 0000"}, "Köln\n");
    ExpectDone({"convert", "16.001", "0000000000000000000000000000"}, "\"\"\n");
}

TEST(DsctlConvert, TakesOctetsAsPeopleHaveThem) {
    for (const auto& octets : std::vector<std::vector<std::string>>{
             {"0C1A"}, {"0c", "1a"}, {"c", "1a"}, {"0x0c1a"}, {"0x0C", "0X1a"}, {"0c:1a"}, {" 0c 1a "}}) {
        std::vector<std::string> arguments{"convert", "9.001"};
        arguments.insert(arguments.end(), octets.begin(), octets.end());
        ExpectDone(arguments, "21\n");
    }
}

TEST(DsctlConvert, OctetsThatAreNoneAreAWrongCommandLine) {
    ExpectRefused(2, {"convert", "9.001", "0c1g"},
                  "dsctl: octets are hexadecimal digits, and '0c1g' is none\n");
    ExpectRefused(2, {"convert", "9.001", "0c", "0x"},
                  "dsctl: octets are hexadecimal digits, and '0x' is none\n");
    ExpectRefused(2, {"convert", "9.001", "0c1"},
                  "dsctl: octets have two hexadecimal digits each, and '0c1' has 3\n");
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"convert"},
                                               {"convert", "9.001"},
                                               {"convert", "9.001", "--to-bus"},
                                               {"convert", "9.001", "0c1a", "--to-bus", "1"}}) {
        const auto result = RunAlone(arguments);
        EXPECT_EQ(result.code, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.error, "");
    }
}

TEST(DsctlConvert, AsJsonHasTypeUnitAndNameToo) {
    ExpectDone({"--json", "convert", "DPT9.1", "0C 1A"},
               R"({"dpt":"9.001","octets":"0c1a","value":"21","unit":"°C","valueName":""})"
               "\n");
    ExpectDone({"convert", "20.102", "01", "--json"},
               R"({"dpt":"20.102","octets":"01","value":"1","unit":"","valueName":"Comfort"})"
               "\n");
    ExpectDone({"convert", "9", "0c1a", "--json"},
               R"({"dpt":"9.xxx","octets":"0c1a","value":"21","unit":"","valueName":""})"
               "\n");
}

TEST(DsctlConvert, AValueToTheBusIsLowerCaseHex) {
    ExpectDone({"convert", "9.001", "--to-bus", "21.5"}, "0c33\n");
    ExpectDone({"convert", "1.001", "--to-bus", "on"}, "01\n");
    ExpectDone({"convert", "16.001", "--to-bus", "Köln"}, "4bf66c6e00000000000000000000\n");
    ExpectDone({"convert", "16.001", "--to-bus", "\"\""}, "0000000000000000000000000000\n");
    ExpectDone({"convert", "3.007", "--to-bus", R"({"c":1,"stepcode":3})"}, "0b\n");
}

// Percent has 255 steps: 50 * 255 / 100 = 127.5 goes to 128, and 128 is 50.2 %.
TEST(DsctlConvert, AValueToTheBusIsReadBackAsJson) {
    ExpectDone({"--json", "convert", "5.001", "--to-bus", "50"},
               R"({"dpt":"5.001","octets":"80","value":"50.2","unit":"%","valueName":""})"
               "\n");
    ExpectDone({"--json", "convert", "1.001", "--to-bus", "on"},
               R"({"dpt":"1.001","octets":"01","value":"1","unit":"","valueName":"On"})"
               "\n");
}

TEST(DsctlConvert, ATextStaysAsItIsGiven) {
    ExpectDone({"convert", "9.001", "--to-bus", "-5"}, "860c\n");
    ExpectDone({"convert", "9.001", "--to-bus=-5"}, "860c\n");
    ExpectDone({"convert", "14.056", "--to-bus", "-inf"}, "ff800000\n");
    ExpectDone({"convert", "16.000", "--to-bus", "--json"}, "2d2d6a736f6e0000000000000000\n");
    ExpectDone({"convert", "16.000", "--to-bus", "{}"}, "7b7d000000000000000000000000\n");
    ExpectDone({"convert", "16.000", "--to-bus", "[1]"}, "5b315d0000000000000000000000\n");
    ExpectDone({"convert", "16.000", "--to-bus", " a b "}, "2061206220000000000000000000\n");
}

TEST(DsctlConvert, WhatTheConverterRefusesIsSaidInItsWords) {
    ExpectRefused(1, {"convert", "9.001", "--to-bus", "700000"},
                  "dsctl: 9.001: 700000 is above 670433.28 °C\n");
    ExpectRefused(1, {"convert", "9.001", "--to-bus", "warm"}, "dsctl: 9.001: 'warm' is not a number\n");
    ExpectRefused(1, {"convert", "9.001", "--to-bus", ""}, "dsctl: 9.001: null has no form on the bus\n");
    ExpectRefused(1, {"convert", "9.001", "0c"}, "dsctl: 9.001: 8 bits is not the size of the type\n");
    ExpectRefused(1, {"convert", "1.001", "0081"}, "dsctl: 1.001: 16 bits is not the size of the type\n");
    ExpectRefused(1, {"convert", "9.001", ""}, "dsctl: 9.001: 0 octets do not hold a value of 0 bits\n");
}

TEST(DsctlConvert, InvalidDataHasNoValue) {
    ExpectRefused(1, {"convert", "9.001", "7fff"}, "dsctl: 9.001: 7fff has no value\n");
    ExpectRefused(1, {"--json", "convert", "8.010", "7FFF"}, "dsctl: 8.010: 7fff has no value\n");
}

TEST(DsctlConvert, AnUnknownTypeIsRefusedWithTheSpellings) {
    ExpectRefused(2, {"convert", "9,001", "0c1a"},
                  std::string("dsctl: '9,001' is no datapoint type; write it as ") + kSpellings);
    ExpectRefused(
        1, {"convert", "999.001", "--to-bus", "1"},
        "dsctl: 999.001: no datapoint type has the main number 999; 'dsctl types' lists all of them\n");
}

TEST(DsctlConvert, BySizeAlone) {
    ExpectDone({"convert", "16bit", "0c1a"}, "3098\n");
    ExpectDone({"convert", "16 bits", "--to-bus", "3098"}, "0c1a\n");
    ExpectDone({"convert", "6bit", "3f"}, "63\n");
    ExpectDone({"--json", "convert", "72bits", "00 01 02 03 04 05 06 07 08"},
               R"({"dpt":"72 bits","octets":"000102030405060708","value":"000102030405060708","unit":"",)"
               R"("valueName":""})"
               "\n");
    ExpectRefused(1, {"convert", "6bit", "--to-bus", "64"}, "dsctl: 6 bits: 64 is above 63\n");
    ExpectRefused(1, {"convert", "24bit", "0c1a"}, "dsctl: 24 bits: 16 bits is not the size of the type\n");
    for (const std::string size : {"0bit", "9bit", "256bit"})
        ExpectRefused(2, {"convert", size, "00"},
                      "dsctl: '" + size +
                          "' is no size of a value: 1 to 7 bits, or a multiple of 8 up to 248\n");
}

TEST(DsctlConvert, TheFlowRateHasTheStandardsResolutionOnRequest) {
    ExpectDone({"convert", "13.002", "00003039"}, "12345\n");
    ExpectDone({"convert", "13.002", "--standard-resolution", "00003039"}, "1.2345\n");
    ExpectDone({"convert", "13.2", "--standard-resolution", "--to-bus", "-1.2345"}, "ffffcfc7\n");
    for (const std::string type : {"13.001", "9.001", "13"}) {
        const auto result = RunAlone({"convert", type, "--standard-resolution", "--to-bus", "1"});
        EXPECT_EQ(result.code, 2);
        EXPECT_THAT(result.error, StartsWith("dsctl: --standard-resolution is for 13.002, and not for "));
    }
}
