#include "KnxFrames/Addresses.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KnxFrames {
namespace {

struct GroupCase {
    const char* text;
    std::uint16_t raw;
};

TEST(GroupAddress, ParsesEveryStyleToTheSameSixteenBits) {
    // 1/2/3 is 00001 010 00000011b; the two-level sub group is the lower eleven bits, 2 * 256 + 3.
    const std::vector<GroupCase> cases = {
        {"1/2/3", 0x0A03},  {"1/515", 0x0A03},    {"2563", 0x0A03},     {"0x0A03", 0x0A03},
        {"0xa03", 0x0A03},  {"0X0a03", 0x0A03},   {"0/0/0", 0},         {"0", 0},
        {"0x0", 0},         {"31/7/255", 0xFFFF}, {"31/2047", 0xFFFF},  {"65535", 0xFFFF},
        {"0xFFFF", 0xFFFF}, {"16/0/0", 0x8000},   {"15/7/255", 0x7FFF}, {"01/02/003", 0x0A03}};
    for (const GroupCase& each : cases) {
        const auto parsed = GroupAddress::Parse(each.text);
        ASSERT_TRUE(parsed) << each.text << ": " << parsed.Error().cause;
        EXPECT_EQ(parsed->raw, each.raw) << each.text;
    }
}

TEST(GroupAddress, PrintsInThreeStyles) {
    const GroupAddress address(1, 2, 3);
    EXPECT_EQ(address.ToString(), "1/2/3");
    EXPECT_EQ(address.ToString(GroupAddressStyle::TwoLevel), "1/515");
    EXPECT_EQ(address.ToString(GroupAddressStyle::Free), "2563");
}

TEST(GroupAddress, CountsBit15AsPartOfTheMainGroup) {
    const GroupAddress address(0xF801);
    EXPECT_EQ(address.Main(), 31U);
    EXPECT_EQ(address.Middle(), 0U);
    EXPECT_EQ(address.Sub(), 1U);
    EXPECT_EQ(address.ToString(), "31/0/1");
}

TEST(GroupAddress, EveryNumberSurvivesEveryStyle) {
    for (unsigned raw = 0; raw <= 0xFFFF; ++raw) {
        const GroupAddress address(static_cast<std::uint16_t>(raw));
        for (const auto style :
             {GroupAddressStyle::ThreeLevel, GroupAddressStyle::TwoLevel, GroupAddressStyle::Free}) {
            const auto parsed = GroupAddress::Parse(address.ToString(style));
            ASSERT_TRUE(parsed && *parsed == address) << raw;
        }
    }
}

struct RefusedCase {
    const char* text;
    const char* cause;
    std::size_t offset;
};

TEST(GroupAddress, RefusedTextNamesCauseAndPlace) {
    const std::vector<RefusedCase> cases = {{"", "a number is missing", 0},
                                            {"/", "a number is missing", 0},
                                            {"1/", "a number is missing", 2},
                                            {"1//3", "a number is missing", 2},
                                            {"1/2/", "a number is missing", 4},
                                            {"1/2/3/", "unexpected character", 5},
                                            {"1/2/3/4", "unexpected character", 5},
                                            {" 1/2/3", "a number is missing", 0},
                                            {"1/2/3 ", "unexpected character", 5},
                                            {"-1/2/3", "a number is missing", 0},
                                            {"+1", "a number is missing", 0},
                                            {"1.2.3", "unexpected character", 1},
                                            {"32/0/0", "the main group is above 31", 0},
                                            {"32/0", "the main group is above 31", 0},
                                            {"1/8/0", "the middle group is above 7", 2},
                                            {"1/2/256", "the sub group is above 255", 4},
                                            {"1/2048", "the sub group is above 2047", 2},
                                            {"65536", "the address is above 65535", 0},
                                            {"99999999999999999999", "the address is above 65535", 0},
                                            {"0x", "hexadecimal digits are missing", 2},
                                            {"0xg", "hexadecimal digits are missing", 2},
                                            {"0x1g", "unexpected character", 3},
                                            {"0x10000", "more than four hexadecimal digits", 6},
                                            {"abc", "a number is missing", 0}};
    for (const RefusedCase& each : cases) {
        const auto parsed = GroupAddress::Parse(each.text);
        ASSERT_FALSE(parsed) << each.text;
        EXPECT_STREQ(parsed.Error().cause, each.cause) << each.text;
        EXPECT_EQ(parsed.Error().offset, each.offset) << each.text;
        EXPECT_EQ(parsed.Error().kind, FrameError::Kind::Malformed) << each.text;
    }
}

TEST(IndividualAddress, ParsesAndPrints) {
    const auto parsed = IndividualAddress::Parse("1.1.4");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->raw, 0x1104);
    EXPECT_EQ(parsed->Area(), 1U);
    EXPECT_EQ(parsed->Line(), 1U);
    EXPECT_EQ(parsed->Device(), 4U);
    EXPECT_EQ(parsed->ToString(), "1.1.4");
    EXPECT_EQ(IndividualAddress::Parse("0x1104")->raw, 0x1104);
    EXPECT_EQ(IndividualAddress::Parse("15.15.255")->raw, 0xFFFF);
    EXPECT_EQ(IndividualAddress::Parse("0.0.0")->raw, 0);
}

TEST(IndividualAddress, RefusedTextNamesCauseAndPlace) {
    const std::vector<RefusedCase> cases = {{"", "a number is missing", 0},
                                            {"1", "a part of the address is missing", 1},
                                            {"1.1", "a part of the address is missing", 3},
                                            {"1.1.", "a number is missing", 4},
                                            {"1/1/4", "unexpected character", 1},
                                            {"16.0.0", "the area is above 15", 0},
                                            {"1.16.0", "the line is above 15", 2},
                                            {"1.1.256", "the device is above 255", 4},
                                            {"1.1.4.5", "unexpected character", 5},
                                            {"0x", "hexadecimal digits are missing", 2}};
    for (const RefusedCase& each : cases) {
        const auto parsed = IndividualAddress::Parse(each.text);
        ASSERT_FALSE(parsed) << each.text;
        EXPECT_STREQ(parsed.Error().cause, each.cause) << each.text;
        EXPECT_EQ(parsed.Error().offset, each.offset) << each.text;
    }
}

TEST(IndividualAddress, EveryNumberSurvivesPrinting) {
    for (unsigned raw = 0; raw <= 0xFFFF; ++raw) {
        const IndividualAddress address(static_cast<std::uint16_t>(raw));
        const auto parsed = IndividualAddress::Parse(address.ToString());
        ASSERT_TRUE(parsed && *parsed == address) << raw;
    }
}

} // namespace
} // namespace KnxFrames
