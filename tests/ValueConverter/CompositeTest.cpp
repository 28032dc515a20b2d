// 2, 3, 6.020 and 15: values of several fields.
#include "Convert.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

// c is bit 1, v bit 0.
TEST(Control, IsAnObjectOfTwoBits) {
    EXPECT_EQ(FromBus("2.001", {0x00}), R"({"c":0,"v":0})");
    EXPECT_EQ(FromBus("2.001", {0x01}), R"({"c":0,"v":1})");
    EXPECT_EQ(FromBus("2.001", {0x02}), R"({"c":1,"v":0})");
    EXPECT_EQ(FromBus("2.012", {0x03}), R"({"c":1,"v":1})");
    EXPECT_EQ(FromBus("2.001", {0xFE}), R"({"c":1,"v":0})");
}

// c is bit 3, the step code bits 2 to 0.
TEST(StepControl, KeepsTheDirectionOfABreak) {
    EXPECT_EQ(FromBus("3.007", {0x08}), R"({"c":1,"stepcode":0})");
    EXPECT_EQ(FromBus("3.007", {0x00}), R"({"c":0,"stepcode":0})");
    EXPECT_EQ(FromBus("3.008", {0x0B}), R"({"c":1,"stepcode":3})");
    EXPECT_EQ(FromBus("3.007", {0xF9}), R"({"c":1,"stepcode":1})");
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":3})"), "0b");
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":0})"), "08");
}

// a to e are bits 7 to 3, f bits 2 to 0.
TEST(StatusMode, HasFiveFlagsAndAMode) {
    EXPECT_EQ(FromBus("6.020", {0x81}), R"({"a":1,"b":0,"c":0,"d":0,"e":0,"f":1})");
    EXPECT_EQ(FromBus("6.020", {0x0C}), R"({"a":0,"b":0,"c":0,"d":0,"e":1,"f":4})");
    EXPECT_EQ(FromBus("6.020", {0x07}), R"({"a":0,"b":0,"c":0,"d":0,"e":0,"f":7})");
}

TEST(StatusMode, EncodesOneModeOnly) {
    for (const auto* mode : {"1", "2", "4"}) {
        const std::string text = R"({"a":0,"b":0,"c":0,"d":0,"e":0,"f":)" + std::string(mode) + "}";
        EXPECT_EQ(ToBus("6.020", text), "0" + std::string(mode));
    }
    for (const auto* mode : {"0", "3", "5", "6", "7", "8"}) {
        const std::string text = R"({"a":0,"b":0,"c":0,"d":0,"e":0,"f":)" + std::string(mode) + "}";
        EXPECT_EQ(ToBus("6.020", text), kRefused);
    }
}

TEST(Composite, EveryValueSurvivesTheWayToTextAndBack) {
    for (unsigned raw = 0; raw < 4; ++raw) {
        const Bytes octets{static_cast<std::uint8_t>(raw)};
        EXPECT_EQ(ToBus("2.001", FromBus("2.001", octets)), Hex(octets));
    }
    for (unsigned raw = 0; raw < 16; ++raw) {
        const Bytes octets{static_cast<std::uint8_t>(raw)};
        EXPECT_EQ(ToBus("3.007", FromBus("3.007", octets)), Hex(octets));
    }
    for (unsigned raw = 0; raw < 256; ++raw) {
        const unsigned mode = raw & 7;
        if (mode == 1 || mode == 2 || mode == 4) {
            const Bytes octets{static_cast<std::uint8_t>(raw)};
            EXPECT_EQ(ToBus("6.020", FromBus("6.020", octets)), Hex(octets));
        }
    }
}

// Octets 0 to 2: six digits; octet 3: e p d c and the index. 1 0 1 1 is Bh.
TEST(AccessData, KeepsLeadingZerosOfTheCode) {
    EXPECT_EQ(FromBus("15.000", {0x00, 0x12, 0x34, 0xB5}),
              R"({"code":"001234","e":1,"p":0,"d":1,"c":1,"index":5})");
    EXPECT_EQ(ToBus("15.000", R"({"code":"001234","e":1,"p":0,"d":1,"c":1,"index":5})"), "001234b5");
}

TEST(AccessData, FlagsAndIndexMayBeLeftOut) {
    EXPECT_EQ(ToBus("15.000", R"({"code":"987654"})"), "98765400");
    EXPECT_EQ(ToBus("15.000", R"({"index":15,"code":"987654","p":1})"), "9876544f");
}

TEST(AccessData, ShowsANibbleThatIsNoDigitButSendsNone) {
    EXPECT_EQ(FromBus("15.000", {0xAF, 0x00, 0x00, 0x00}),
              R"({"code":"af0000","e":0,"p":0,"d":0,"c":0,"index":0})");
    for (const auto* code :
         {R"("af0000")", R"("12345")", R"("1234567")", R"("")", R"("12345x")", "123456", "true"}) {
        EXPECT_EQ(ToBus("15.000", R"({"code":)" + std::string(code) + "}"), kRefused) << code;
    }
    EXPECT_EQ(WhyNotToBus("15.000", R"({"code":123456})"),
              "15.000: \"code\": a text of 6 digits is expected");
}

TEST(AccessData, RefusesFieldsBeyondTheirBits) {
    EXPECT_EQ(ToBus("15.000", R"({"code":"000000","index":16})"), kRefused);
    EXPECT_EQ(ToBus("15.000", R"({"code":"000000","e":2})"), kRefused);
}

TEST(Composite, TakesMembersInAnyOrderAndTruthForABit) {
    EXPECT_EQ(ToBus("2.001", R"({"v":1,"c":0})"), "01");
    EXPECT_EQ(ToBus("2.001", R"( { "v" : true , "c" : false } )"), "01");
    EXPECT_EQ(ToBus("3.007", R"({"stepcode":5.0,"c":true})"), "0d");
    EXPECT_EQ(ToBus("3.007", R"({"stepcode":0.5e1,"\u0063":1})"), "0d");
}

TEST(Composite, RefusesWhatIsLeftOutUnknownOrGivenTwice) {
    EXPECT_EQ(ToBus("3.007", R"({"c":1})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":1,"x":1})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"c":1,"stepcode":1})"), kRefused);
    EXPECT_EQ(WhyNotToBus("3.007", R"({"c":1})"), "3.007: \"stepcode\" is left out");
    EXPECT_EQ(WhyNotToBus("3.007", R"({"c":1,"stepcode":1,"x":1})"), "3.007: \"x\" is too many");
}

TEST(Composite, RefusesFieldsThatDoNotFit) {
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":8})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":-1})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":1.5})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({"c":2,"stepcode":1})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":true})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":"1"})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":null})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":99999999999999999999999999})"), kRefused);
    EXPECT_EQ(ToBus("3.007", R"({"c":1,"stepcode":1e400})"), kRefused);
    EXPECT_EQ(WhyNotToBus("3.007", R"({"c":1,"stepcode":8})"), "3.007: \"stepcode\": 8 is above 7");
    EXPECT_EQ(WhyNotToBus("6.020", R"({"a":0,"b":0,"c":0,"d":0,"e":0,"f":3})"),
              "6.020: \"f\": 3 is not one of 1,2,4");
}

TEST(Composite, RefusesTextThatIsNoFlatObject) {
    for (const auto* text :
         {"", "1", "[]", "[1,2]", "{", "}", R"({"c":1,"v":0)", R"({"c":1,"v":0}})", R"({"c":1,"v":0} x)",
          R"({"c":[1],"v":0})", R"({"c":{},"v":0})", R"({c:1,v:0})", R"("c")", "null", "{}{}"}) {
        EXPECT_EQ(ToBus("2.001", text), kRefused) << text;
    }
}

TEST(Composite, RefusesWrongSizes) {
    EXPECT_EQ(FromBus("2.001", {0x01}, 1), kRefused);
    EXPECT_EQ(FromBus("2.001", {0x01}, 8), kRefused);
    EXPECT_EQ(FromBus("3.007", {0x01}, 3), kRefused);
    EXPECT_EQ(FromBus("15.000", {0x00, 0x12, 0x34}, 24), kRefused);
}
