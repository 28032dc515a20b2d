// 21, 22, 23, 30, 31: sets of bits and small enumerations; 29: 64-bit counters.
#include "Convert.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

// 15h is bits 4, 2 and 0: 16 + 4 + 1. 4001h is bits 14 and 0: 16384 + 1. 800001h is 8388608 + 1.
TEST(BitSet, IsTheSumOfItsBits) {
    ExpectBothWays({{"21.001", {0x15}, "21"},
                    {"21.100", {0xFF}, "255"},
                    {"22.101", {0x40, 0x01}, "16385"},
                    {"22.1010", {0xFF, 0xFF}, "65535"},
                    {"30.1010", {0x80, 0x00, 0x01}, "8388609"},
                    {"30.1010", {0xFF, 0xFF, 0xFF}, "16777215"}});
}

// 21.001 has five bits, 22.1000 bits 1, 2, 4 and 5.
TEST(BitSet, ShowsBitsWithoutAMeaningButSendsNone) {
    EXPECT_EQ(FromBus("21.001", {0x20}), "32");
    EXPECT_EQ(ToBus("21.001", "32"), kRefused);
    EXPECT_EQ(AsReceived("21.001", "32"), "20");
    EXPECT_EQ(WhyNotToBus("21.001", "32"), "21.001: 32 is above 31");
    EXPECT_EQ(ToBus("22.1000", "54"), "0036");
    EXPECT_EQ(FromBus("22.1000", {0x00, 0x08}), "8");
    for (const auto* text : {"1", "8", "55", "64"}) {
        EXPECT_EQ(ToBus("22.1000", text), kRefused) << text;
    }
}

TEST(BitSet, AnUnknownSubNumberHasAllBits) {
    ExpectBothWays(
        {{"21.999", {0xFF}, "255"}, {"22.999", {0xFF, 0xFF}, "65535"}, {"30.xxx", {0, 0, 1}, "1"}});
}

TEST(BitSet, RefusesWhatIsNoSumOfItsBits) {
    EXPECT_EQ(ToBus("21.100", "256"), kRefused);
    EXPECT_EQ(ToBus("22.1010", "65536"), kRefused);
    EXPECT_EQ(ToBus("30.1010", "16777216"), kRefused);
    for (const auto* text : {"-1", "1.5", "0x10", "{}", "true", ""}) {
        EXPECT_EQ(ToBus("21.100", text), kRefused) << text;
        EXPECT_EQ(ToBus("30.1010", text), kRefused) << text;
    }
}

TEST(SmallEnumeration, IsTheNumberOfItsValue) {
    ExpectBothWays({{"23.001", {0x00}, "0"},
                    {"23.003", {0x03}, "3"},
                    {"23.102", {0x02}, "2"},
                    {"31.101", {0x07}, "7"},
                    {"23.xxx", {0x03}, "3"},
                    {"31.xxx", {0x05}, "5"}});
    EXPECT_EQ(FromBus("23.001", {0xFD}), "1"); // the preceding bits are not the value's
    EXPECT_EQ(FromBus("31.101", {0xFD}), "5");
    EXPECT_EQ(ToBus("23.001", "4"), kRefused);
    EXPECT_EQ(ToBus("31.101", "8"), kRefused);
    EXPECT_EQ(ToBus("31.101", "-1"), kRefused);
}

// 23.002 has no meaning for 3.
TEST(SmallEnumeration, DecodesReservedValuesAndEncodesNone) {
    EXPECT_EQ(FromBus("23.002", {0x03}), "3");
    EXPECT_EQ(ToBus("23.002", "3"), kRefused);
    EXPECT_EQ(ToBus("23.002", "2"), "02");
}

TEST(Counter64, HasTheFullRange) {
    ExpectBothWays({{"29.010", {0x80, 0, 0, 0, 0, 0, 0, 0}, "-9223372036854775808"},
                    {"29.011", {0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, "9223372036854775807"},
                    {"29.012", {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, "-1"},
                    {"29.010", {0, 0, 0, 0, 0, 0, 0x30, 0x39}, "12345"}, // 3 * 4096 + 3 * 16 + 9
                    {"29.xxx", {0, 0, 0, 1, 0, 0, 0, 0}, "4294967296"}});
    EXPECT_EQ(ToBus("29.010", "9223372036854775808"), kRefused);
    EXPECT_EQ(ToBus("29.010", "-9223372036854775809"), kRefused);
    EXPECT_EQ(ToBus("29.010", "1.5"), kRefused);
    EXPECT_EQ(ToBus("29.010", "9.223372036854775807e18"), "7fffffffffffffff");
}
