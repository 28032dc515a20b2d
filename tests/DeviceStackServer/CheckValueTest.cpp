#include "DeviceStackServer/CheckValue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace DeviceStackServer {
namespace {

/// The text as it is stored, or "refused: " and the reason.
std::string Checked(KNXDPT dpt, std::string text) {
    const auto reason = CheckValue(dpt, text);
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

} // namespace
} // namespace DeviceStackServer
