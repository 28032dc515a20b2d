// 9.xxx: the KNX 2-byte float.
#include "Convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>

using namespace ConverterTest;

namespace {

struct Parts {
    unsigned exponent;
    int mantissa;
};

Parts Split(unsigned raw) {
    const int low = static_cast<int>(raw & 0x7FF);
    return {raw >> 11 & 0xF, (raw & 0x8000) != 0 ? low - 2048 : low};
}

long Hundredths(unsigned raw) {
    const auto [exponent, mantissa] = Split(raw);
    return static_cast<long>(mantissa) * (1L << exponent);
}

Bytes TwoBytes(unsigned raw) {
    return {static_cast<std::uint8_t>(raw >> 8), static_cast<std::uint8_t>(raw)};
}

} // namespace

// 0C1Ah: exponent 1, mantissa 1050: 1050 * 2 hundredths. 8A24h: sign, exponent 1, 548: (548 - 2048) * 2.
TEST(Float16, WorkedValues) {
    EXPECT_EQ(FromBus("9.001", {0x0C, 0x1A}), "21");
    EXPECT_EQ(FromBus("9.001", {0x0C, 0x33}), "21.5");
    EXPECT_EQ(FromBus("9.001", {0x8A, 0x24}), "-30");
    EXPECT_EQ(FromBus("9.001", {0x00, 0x01}), "0.01");
    EXPECT_EQ(FromBus("9.001", {0x87, 0xFF}), "-0.01");
    EXPECT_EQ(FromBus("9.002", {0xF8, 0x00}), "-671088.64"); // -2048 * 2^15
    EXPECT_EQ(FromBus("9.002", {0x7F, 0xFE}), "670433.28");  // 2046 * 2^15
    EXPECT_EQ(ToBus("9.001", "21"), "0c1a");
    EXPECT_EQ(ToBus("9.001", "21.5"), "0c33");
    EXPECT_EQ(ToBus("9.001", "2.15e1"), "0c33");
    EXPECT_EQ(ToBus("9.001", " +21.5 "), "0c33");
    EXPECT_EQ(ToBus("9.001", "-30"), "8a24");
    EXPECT_EQ(ToBus("9.001", "-0"), "0000");
    EXPECT_EQ(ToBus("9.002", "-671088.64"), "f800");
    EXPECT_EQ(ToBus("9.002", "670433.28"), "7ffe");
}

TEST(Float16, InvalidDataIsNull) {
    EXPECT_EQ(FromBus("9.001", {0x7F, 0xFF}), "");
    EXPECT_EQ(FromBus("9.999", {0x7F, 0xFF}), "");
    EXPECT_EQ(ToBus("9.001", ""), kRefused);
    EXPECT_EQ(WhyNotToBus("9.001", ""), "9.001: null has no form on the bus");
}

// 20.475 lies half way between 20.47 and 20.48; 20.49 half way between 20.48 and 20.5, both with step 0.02.
TEST(Float16, GoesToTheNearestHalvesAwayFromZero) {
    EXPECT_EQ(ToBus("9.001", "20.474999"), "07ff");
    EXPECT_EQ(ToBus("9.001", "20.475"), "0c00");
    EXPECT_EQ(ToBus("9.001", "20.489999"), "0c00");
    EXPECT_EQ(ToBus("9.001", "20.49"), "0c01");
    EXPECT_EQ(ToBus("9.001", "-20.489999"), "8000");
    EXPECT_EQ(ToBus("9.001", "0.0049999999999999999999999999"), "0000");
    EXPECT_EQ(ToBus("9.001", "0.005"), "0001");
    EXPECT_EQ(ToBus("9.001", "-0.005"), "87ff");
}

// -20.485 is next to -20.48, which needs no exponent, and not to the -20.5 of the next step.
TEST(Float16, TakesTheSmallestExponentOfTheRoundedValue) {
    EXPECT_EQ(ToBus("9.001", "-20.48"), "8000");
    EXPECT_EQ(ToBus("9.001", "-20.485"), "8000");
    EXPECT_EQ(ToBus("9.001", "-40.96"), "8800");
    EXPECT_EQ(ToBus("9.001", "-40.97"), "8800");
}

TEST(Float16, RefusesWhatIsBeyondTheRange) {
    EXPECT_EQ(ToBus("9.001", "-273"), "a156"); // -27300 / 2^4 = -1706.25: -1706 is 342 with the sign
    EXPECT_EQ(ToBus("9.001", "-273.0001"), kRefused);
    EXPECT_EQ(ToBus("9.001", "670433.29"), kRefused);
    EXPECT_EQ(ToBus("9.002", "-671088.65"), kRefused);
    EXPECT_EQ(ToBus("9.004", "-0.01"), kRefused);
    EXPECT_EQ(ToBus("9.027", "-459.6"), "aa64"); // -45960 / 2^5 = -1436.25: -1436 is 612 with the sign
    EXPECT_EQ(ToBus("9.027", "-459.61"), kRefused);
    EXPECT_EQ(ToBus("9.031", "670760"), kRefused);
    EXPECT_EQ(ToBus("9.777", "-671088.64"), "f800");
    EXPECT_EQ(WhyNotToBus("9.001", "700000"), "9.001: 700000 is above 670433.28 °C");
    EXPECT_EQ(WhyNotToBus("9.001", "-300"), "9.001: -300 is below -273 °C");
}

TEST(Float16, DecodesWhatADeviceSentBelowTheRange) {
    EXPECT_EQ(FromBus("9.001", {0xF8, 0x00}), "-671088.64");
}

TEST(Float16, RefusesTextThatIsNoNumber) {
    for (const auto* text :
         {"abc", "21,5", "21.5 °C", "21.5x", "nan", "inf", "0x15", "{}", "12:00:00", "true"}) {
        EXPECT_EQ(ToBus("9.001", text), kRefused) << text;
    }
}

TEST(Float16, RefusesWrongSizes) {
    EXPECT_EQ(FromBus("9.001", {0x0C}, 8), kRefused);
    EXPECT_EQ(FromBus("9.001", {0x0C, 0x1A, 0x00}, 24), kRefused);
    EXPECT_EQ(FromBus("9.001", {0x0C}, 16), kRefused);
}

// Whole input space: the same octets come back, or, where the device did not use the smallest exponent, other
// octets of the same value with a smaller one.
TEST(Float16, EveryValueSurvivesTheWayToTextAndBack) {
    unsigned minimal = 0;
    for (unsigned raw = 0; raw < 0x10000; ++raw) {
        if (raw == 0x7FFF) {
            continue;
        }
        const std::string text = FromBus("9.002", TwoBytes(raw));
        const std::string back = ToBus("9.002", text);
        ASSERT_NE(back, kRefused) << text;
        const auto rawBack = static_cast<unsigned>(std::stoul(back, nullptr, 16));
        ASSERT_EQ(Hundredths(rawBack), Hundredths(raw)) << text;
        const auto [exponent, mantissa] = Split(raw);
        const bool couldBeSmaller = exponent > 0 && mantissa * 2 >= -2048 && mantissa * 2 <= 2047;
        if (!couldBeSmaller) {
            ASSERT_EQ(rawBack, raw) << text;
            ++minimal;
        } else {
            ASSERT_LT(Split(rawBack).exponent, exponent) << text;
        }
    }
    // 4096 without exponent, then 2048 mantissas for each of 15 that need it, less the invalid one.
    EXPECT_EQ(minimal, 4096U + 15 * 2048 - 1);
}

TEST(Float16, NoOtherValueIsNearer) {
    std::set<long> values;
    for (unsigned raw = 0; raw < 0x10000; ++raw) {
        values.insert(Hundredths(raw));
    }
    for (long hundredths = -300000; hundredths <= 300000; hundredths += 7) {
        const std::string text = std::to_string(hundredths) + "e-2";
        const long value = Hundredths(static_cast<unsigned>(std::stoul(ToBus("9.002", text), nullptr, 16)));
        const long above = *values.lower_bound(hundredths);
        const long below = *std::prev(values.upper_bound(hundredths));
        ASSERT_EQ(std::abs(value - hundredths), std::min(above - hundredths, hundredths - below)) << text;
    }
}
