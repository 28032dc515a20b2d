// 1.xxx: one bit.
#include "Convert.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

TEST(Boolean, IsTheLowestBit) {
    EXPECT_EQ(FromBus("1.001", {0x00}), "0");
    EXPECT_EQ(FromBus("1.001", {0x01}), "1");
    EXPECT_EQ(ToBus("1.001", "0"), "00");
    EXPECT_EQ(ToBus("1.001", "1"), "01");
}

TEST(Boolean, MasksTheBitsAboveIt) {
    EXPECT_EQ(FromBus("1.001", {0xFE}), "0");
    EXPECT_EQ(FromBus("1.001", {0x81}), "1");
}

TEST(Boolean, ReadsWords) {
    for (const auto* text : {"true", "on", "True", "ON", " on ", "1.0", "+1"}) {
        EXPECT_EQ(ToBus("1.001", text), "01") << text;
    }
    for (const auto* text : {"false", "off", "FALSE", "Off", "\toff\n", "0.0", "-0"}) {
        EXPECT_EQ(ToBus("1.001", text), "00") << text;
    }
}

TEST(Boolean, RefusesEverythingElse) {
    for (const auto* text :
         {"", "2", "-1", "0.5", "yes", "onn", "o", "truefalse", "{}", "00:00:00", "\"\""}) {
        EXPECT_EQ(ToBus("1.001", text), kRefused) << text;
    }
    EXPECT_EQ(WhyNotToBus("1.001", "2"), "1.001: 2 is above 1");
    EXPECT_EQ(WhyNotToBus("1.001", "yes"), "1.001: 'yes' is not a number");
}

TEST(Boolean, RefusesWrongSizes) {
    for (const unsigned bits : {2U, 4U, 7U, 8U}) {
        EXPECT_EQ(FromBus("1.001", {0x01}, bits), kRefused) << bits;
    }
    EXPECT_EQ(FromBus("1.001", {0x00, 0x01}, 16), kRefused);
    EXPECT_EQ(FromBus("1.001", {}, 1), kRefused);
    EXPECT_EQ(FromBus("1.001", {0x00, 0x01}, 1), kRefused);
    EXPECT_EQ(WhyNotFromBus("1.001", {0x01}, 8), "1.001: 8 bits is not the size of the type");
    EXPECT_EQ(WhyNotFromBus("1.001", {}, 1), "1.001: 0 octets do not hold a value of 1 bits");
}

TEST(Boolean, ConvertsAlikeForEverySubNumber) {
    for (const auto* dpt : {"1.002", "1.024", "1.100", "1.1200", "1.020", "1.999", "1"}) {
        EXPECT_EQ(FromBus(dpt, {0x01}), "1") << dpt;
        EXPECT_EQ(ToBus(dpt, "off"), "00") << dpt;
    }
}
