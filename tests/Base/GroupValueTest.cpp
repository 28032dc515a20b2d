#include "KnxStack/GroupValue.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using KnxStack::BinaryData;
using KnxStack::GroupValue;

TEST(GroupValueTest, IsEmptyByDefault) {
    const GroupValue value;
    EXPECT_EQ(value.GetDefinedSize(), 0U);
    EXPECT_EQ(value.GetRawData().GetSize(), 0U);
    EXPECT_FALSE(value.GetAsBoolean());
    EXPECT_EQ(value.GetAsUnsigned8(), 0);
    EXPECT_EQ(value.GetAsFloat16(), 0.0);
}

TEST(GroupValueTest, KeepsDataAndSizeAsGiven) {
    const GroupValue value(BinaryData{0x12, 0x34}, 3);
    EXPECT_EQ(value.GetDefinedSize(), 3U);
    EXPECT_EQ(value.GetRawData().ToString(), "1234");
}

TEST(GroupValueTest, EqualMeansSameBytesAndSameSize) {
    EXPECT_EQ(GroupValue(BinaryData{1}, 1), GroupValue(BinaryData{1}, 1));
    EXPECT_NE(GroupValue(BinaryData{1}, 1), GroupValue(BinaryData{1}, 8));
    EXPECT_NE(GroupValue(BinaryData{1}, 1), GroupValue(BinaryData{0}, 1));
}

TEST(GroupValueTest, BooleanIsBitZeroOfTheFirstByte) {
    for (int byte = 0; byte < 256; ++byte) {
        const GroupValue value(BinaryData{static_cast<std::uint8_t>(byte), 0xFF}, 16);
        EXPECT_EQ(value.GetAsBoolean(), byte % 2 == 1) << byte;
        EXPECT_EQ(value.GetAsUnsigned8(), byte);
    }
}

TEST(GroupValueTest, Float16OfKnownValues) {
    EXPECT_EQ(GroupValue(BinaryData({0x0C, 0x1A}), 16).GetAsFloat16(), 21.0);
    EXPECT_EQ(GroupValue(BinaryData({0x87, 0xFF}), 16).GetAsFloat16(), -0.01);
    EXPECT_EQ(GroupValue(BinaryData({0x8A, 0x24}), 16).GetAsFloat16(), -30.0);
    EXPECT_EQ(GroupValue(BinaryData({0xF8, 0x00}), 16).GetAsFloat16(), -671088.64);
    EXPECT_EQ(GroupValue(BinaryData({0x7F, 0xFE}), 16).GetAsFloat16(), 670433.28);
    EXPECT_EQ(GroupValue(BinaryData({0x7F, 0xFF}), 16).GetAsFloat16(), 670760.96);
    EXPECT_EQ(GroupValue(BinaryData({0x0C}), 8).GetAsFloat16(), 0.0);
}

// Hundredths as an integer, added up bit by bit of the field layout MEEEEMMM MMMMMMMM.
long Hundredths(unsigned raw) {
    long mantissa = (raw & 0x8000) != 0 ? -2048 : 0;
    for (unsigned bit = 0; bit < 11; ++bit) {
        mantissa += (raw >> bit & 1) != 0 ? 1L << bit : 0;
    }
    for (auto exponent = raw / 2048 % 16; exponent > 0; --exponent) {
        mantissa *= 2;
    }
    return mantissa;
}

TEST(GroupValueTest, Float16IsTheDoubleNearestToTheExactValueForAllBytes) {
    for (unsigned raw = 0; raw <= 0xFFFF; ++raw) {
        const auto high = static_cast<std::uint8_t>(raw >> 8);
        const auto value = GroupValue(BinaryData{high, static_cast<std::uint8_t>(raw)}, 16).GetAsFloat16();
        // Exact in the wider type: a neighbour would be at least as far away as half a step of a double.
        const auto exact = [&](double candidate) {
            return std::fabs(static_cast<long double>(candidate) * 100 -
                             static_cast<long double>(Hundredths(raw)));
        };
        const auto distance = exact(value);
        ASSERT_LE(distance, exact(std::nextafter(value, HUGE_VAL))) << std::hex << raw;
        ASSERT_LE(distance, exact(std::nextafter(value, -HUGE_VAL))) << std::hex << raw;
        ASSERT_LT(distance, 1e-6L) << std::hex << raw;
    }
}

} // namespace
