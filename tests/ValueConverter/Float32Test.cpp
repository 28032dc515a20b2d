// 14.xxx: IEEE 754 single precision.
#include "Convert.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

using namespace ConverterTest;

namespace {

Bytes FourBytes(std::uint32_t raw) {
    return {static_cast<std::uint8_t>(raw >> 24), static_cast<std::uint8_t>(raw >> 16),
            static_cast<std::uint8_t>(raw >> 8), static_cast<std::uint8_t>(raw)};
}

} // namespace

// Bits of IEEE 754: 1.0 is 3F800000h, 21.5 = 1.34375 * 2^4 is 41AC0000h, 0.1 is nearest to 3DCCCCCDh.
TEST(Float32, IsTheShortestTextOfTheFloat) {
    EXPECT_EQ(FromBus("14.068", FourBytes(0x3F800000)), "1");
    EXPECT_EQ(FromBus("14.068", FourBytes(0x41AC0000)), "21.5");
    EXPECT_EQ(FromBus("14.068", FourBytes(0x3DCCCCCD)), "0.1");
    EXPECT_EQ(FromBus("14.068", FourBytes(0x80000000)), "-0");
    EXPECT_EQ(FromBus("14.068", FourBytes(0x7F7FFFFF)), "3.4028235e+38");
    EXPECT_EQ(FromBus("14.068", FourBytes(0x00000001)), "1e-45");
    EXPECT_EQ(ToBus("14.068", "21.5"), "41ac0000");
    EXPECT_EQ(ToBus("14.068", "+21.5"), "41ac0000");
    EXPECT_EQ(ToBus("14.068", " 2.15e1 "), "41ac0000");
    EXPECT_EQ(ToBus("14.068", "-0"), "80000000");
    EXPECT_EQ(ToBus("14.068", "1e-45"), "00000001");
}

// 16777217 + 2^-30 lies just above half way between 16777216 and 16777218. A double cannot hold it: rounded
// to a double first it would be the half and then go down.
TEST(Float32, IsRoundedOnce) {
    EXPECT_EQ(ToBus("14.068", "16777217.000000000931322574615478515625"), "4b800001");
    EXPECT_EQ(ToBus("14.068", "16777217"), "4b800000");
}

TEST(Float32, NumbersThatAreNotFiniteSurvive) {
    EXPECT_EQ(FromBus("14.068", FourBytes(0x7F800000)), "inf");
    EXPECT_EQ(FromBus("14.068", FourBytes(0xFF800000)), "-inf");
    EXPECT_EQ(FromBus("14.068", FourBytes(0x7FC00000)), "nan");
    EXPECT_EQ(ToBus("14.068", "inf"), "7f800000");
    EXPECT_EQ(ToBus("14.068", "-inf"), "ff800000");
    EXPECT_EQ(ToBus("14.068", "nan"), "7fc00000");
}

TEST(Float32, RefusesWhatIsBeyondSinglePrecision) {
    EXPECT_EQ(ToBus("14.068", "3.4028235e38"), "7f7fffff");
    EXPECT_EQ(ToBus("14.068", "3.41e38"), kRefused);
    EXPECT_EQ(ToBus("14.068", "-1e39"), kRefused);
    EXPECT_EQ(ToBus("14.068", "1e5000"), kRefused);
    EXPECT_EQ(ToBus("14.068", "1e-60"), "00000000");
    EXPECT_EQ(ToBus("14.068", "-1e-5000"), "80000000");
    EXPECT_EQ(WhyNotToBus("14.068", "1e39"), "14.068: 1e39 is beyond single precision");
}

TEST(Float32, RefusesTextThatIsNoNumber) {
    for (const auto* text :
         {"", "abc", "21,5", "21.5x", "+-5", "++5", "0x1p3", "{}", "--5", "1e", "12:00:00", "true", "\"\""}) {
        EXPECT_EQ(ToBus("14.068", text), kRefused) << text;
    }
}

TEST(Float32, RandomValuesSurviveTheWayToTextAndBack) {
    std::mt19937 random(14);
    for (int i = 0; i < 200000; ++i) {
        const auto raw = static_cast<std::uint32_t>(random());
        if (std::isnan(std::bit_cast<float>(raw))) {
            continue;
        }
        const std::string text = FromBus("14.068", FourBytes(raw));
        ASSERT_EQ(ToBus("14.068", text), Hex(FourBytes(raw))) << text;
    }
}

TEST(Float32, RefusesWrongSizes) {
    EXPECT_EQ(FromBus("14.068", {0x3F, 0x80, 0x00}, 24), kRefused);
    EXPECT_EQ(FromBus("14.068", Bytes(8, 0), 64), kRefused);
}
