#include "DeviceStackServer/CheckValue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace DeviceStackServer {
namespace {

/// The text as it is stored, or "refused: " and the reason.
std::string Checked(KNXDPT dpt, std::string text, ValueSource source = ValueSource::Writer) {
    const auto reason = CheckValue(dpt, source, text);
    return reason.empty() ? text : "refused: " + reason;
}

TEST(CheckValue, AValueOfTheTypeStaysAsItIs) {
    EXPECT_EQ(Checked({0, 0, 9, 1}, "21.53"), "21.53");
    EXPECT_EQ(Checked({0, 0, 5, 1}, "50"), "50");
    EXPECT_EQ(Checked({0, 0, 16, 1}, "12:00:00"), "12:00:00");
    EXPECT_EQ(Checked({0, 0, 3, 7}, R"({"c":1,"stepcode":3})"), R"({"c":1,"stepcode":3})");
}

TEST(CheckValue, SpellingsOfOneValueBecomeTheSame) {
    EXPECT_EQ(Checked({0, 0, 1, 1}, "on"), "1");
    EXPECT_EQ(Checked({0, 0, 1, 1}, "false"), "0");
    EXPECT_EQ(Checked({0, 0, 19, 1}, "2024-05-01T12:00"), "2024-05-01T12:00:00");
}

TEST(CheckValue, AValueThatDoesNotFitIsRefusedWithTypeAndReason) {
    EXPECT_THAT(Checked({0, 0, 5, 10}, "256"), testing::StartsWith("refused: 5.010: "));
    EXPECT_THAT(Checked({0, 0, 9, 1}, "warm"), testing::StartsWith("refused: 9.001: "));
    EXPECT_THAT(Checked({0, 0, 1, 1}, "2"), testing::StartsWith("refused: 1.001: "));
}

TEST(CheckValue, WhatADeviceSentIsTakenThoughNobodyMaySendIt) {
    const std::pair<KNXDPT, std::string> sent[] = {
        {{0, 0, 20, 102}, "7"},
        {{0, 0, 16, 0}, "gr\u00fcn"},
        {{0, 0, 9, 4}, "-1"},
        {{0, 0, 6, 20}, R"({"a":0,"b":0,"c":0,"d":0,"e":0,"f":0})"},
        {{0, 0, 15, 0}, R"({"code":"12345f","e":0,"p":0,"d":0,"c":0,"index":0})"},
    };
    for (const auto& [dpt, text] : sent) {
        EXPECT_EQ(Checked(dpt, text, ValueSource::Device), text);
        EXPECT_THAT(Checked(dpt, text), testing::StartsWith("refused: ")) << text;
    }
    EXPECT_EQ(Checked({0, 0, 1, 1}, "on", ValueSource::Device), "1");
}

TEST(CheckValue, WhatNoDeviceCanSendIsRefusedWhereverItComesFrom) {
    const std::pair<KNXDPT, std::string> impossible[] = {
        {{0, 0, 20, 102}, "256"}, {{0, 0, 16, 0}, "\u20ac"},
        {{0, 0, 9, 4}, "warm"},   {{0, 0, 15, 0}, R"({"code":"12345g"})"},
        {{0, 0, 1, 1}, "2"},      {{0, 0, 6, 20}, R"({"a":0,"b":0,"c":0,"d":0,"e":0,"f":8})"},
    };
    for (const auto& [dpt, text] : impossible)
        EXPECT_THAT(Checked(dpt, text, ValueSource::Device), testing::StartsWith("refused: ")) << text;
}

} // namespace
} // namespace DeviceStackServer
