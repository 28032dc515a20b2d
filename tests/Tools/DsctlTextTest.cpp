#include "Tools/dsctl/DataPoints.h"
#include "Tools/dsctl/Output.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace Dsctl;

namespace {

bool MatchesName(const std::vector<std::string>& patterns, const std::string& name) {
    return Matches(patterns, 2001, "urn:oxn:dp:house:" + name, name);
}

} // namespace

TEST(DsctlText, APatternWithWildcardsCoversTheWholeName) {
    EXPECT_TRUE(MatchesName({"Kitchen.*"}, "Kitchen.Light"));
    EXPECT_TRUE(MatchesName({"kitchen.l?ght"}, "Kitchen.Light"));
    EXPECT_TRUE(MatchesName({"[kl]*"}, "Living"));
    EXPECT_FALSE(MatchesName({"itchen.*"}, "Kitchen.Light"));
    EXPECT_FALSE(MatchesName({"Kitchen.?"}, "Kitchen.Light"));
}

TEST(DsctlText, APatternWithoutWildcardsIsFoundAnywhere) {
    EXPECT_TRUE(MatchesName({"LIGHT"}, "Kitchen.Light"));
    EXPECT_TRUE(MatchesName({""}, "Kitchen.Light"));
    EXPECT_FALSE(MatchesName({"Kitchen.Lights"}, "Kitchen.Light"));
}

TEST(DsctlText, OneOfSeveralPatternsIsEnoughAndNoneMatchesAll) {
    EXPECT_TRUE(MatchesName({}, "Kitchen.Light"));
    EXPECT_TRUE(MatchesName({"Living", "Light"}, "Kitchen.Light"));
    EXPECT_FALSE(MatchesName({"Living", "Door"}, "Kitchen.Light"));
}

TEST(DsctlText, DigitsAsAPatternAreTheIdAlone) {
    EXPECT_TRUE(Matches({"2001"}, 2001, "urn:oxn:dp:house:Kitchen.Light", "Kitchen.Light"));
    EXPECT_FALSE(Matches({"200"}, 2001, "urn:oxn:dp:house:Room.200", "Room.200"));
}

TEST(DsctlText, AUrnAsAPatternIsTheWholeUrn) {
    const std::string urn = "urn:oxn:dp:house:Kitchen.Light";
    EXPECT_TRUE(Matches({urn}, 2001, urn, "Kitchen.Light"));
    EXPECT_TRUE(Matches({"urn:oxn:dp:house:Kitchen.*"}, 2001, urn, "Kitchen.Light"));
    EXPECT_FALSE(Matches({"urn:oxn:dp:house"}, 2001, urn, "Kitchen.Light"));
    EXPECT_TRUE(Matches({"urn:oxn:dp:house"}, 1000, "urn:oxn:dp:house", "device"));
}

TEST(DsctlText, DigitsAreAnIdAndUrnsAreUrns) {
    using DeviceStack::DataPointName;
    EXPECT_EQ(ParseName("2001"), DataPointName::OfId(2001));
    EXPECT_EQ(ParseName("4294967296"), DataPointName::OfName("4294967296"));
    EXPECT_EQ(ParseName("2001a"), DataPointName::OfName("2001a"));
    EXPECT_EQ(ParseName("urn:oxn:dp:house:a"), DataPointName::OfUrn("urn:oxn:dp:house:a"));
    EXPECT_EQ(ParseName("Kitchen.Light"), DataPointName::OfName("Kitchen.Light"));
}

TEST(DsctlText, TheNameIsWhatStandsBehindTheDevice) {
    EXPECT_EQ(NameOfUrn("urn:oxn:dp:house:Kitchen.Light"), "Kitchen.Light");
    EXPECT_EQ(NameOfUrn("urn:oxn:dp:house"), "urn:oxn:dp:house");
    EXPECT_EQ(NameOfUrn("something"), "something");
}

TEST(DsctlText, TimesAreShownInLocalTimeAlsoOverADaylightSavingSwitch) {
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    EXPECT_EQ(LocalTime("2024-03-31T00:59:59.999Z"), "2024-03-31 01:59:59.999");
    EXPECT_EQ(LocalTime("2024-03-31T01:00:00.000Z"), "2024-03-31 03:00:00.000");
    EXPECT_EQ(LocalTime("2024-12-31T23:30:00.5Z"), "2025-01-01 00:30:00.5");
    EXPECT_EQ(LocalTime(""), "");
    EXPECT_EQ(LocalTime("yesterday"), "yesterday");
}

TEST(DsctlText, AnAnswerThatIsNoProcessViewIsNone) {
    for (const auto* json : {"", "{}", R"({"response":{"processView":{}}})",
                             R"({"response":{"processView":{"datapoints":[1]}}})",
                             R"({"response":{"processView":{"datapoints":[{"id":"x"}]}}})",
                             R"({"response":{"processView":{"datapoints":[{"id":-1}]}}})"})
        EXPECT_FALSE(ReadProcessView(json)) << json;
    const auto points =
        ReadProcessView(R"({"response":{"processView":{"datapoints":[{"id":7,"name":"a"}]}}})");
    ASSERT_TRUE(points);
    ASSERT_EQ(points->size(), 1u);
    EXPECT_EQ(points->front().name, "a");
    EXPECT_EQ(points->front().json, R"({"id":7,"name":"a"})");
}
