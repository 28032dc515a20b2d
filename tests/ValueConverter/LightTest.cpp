// 242 to 246, 248 to 255: colours, transitions, emergency lighting, places.
#include "Convert.h"

#include <gtest/gtest.h>

#include <random>

using namespace ConverterTest;

// x and y are raw / 65535 in five digits: 5000h is 20480 / 65535 = 0.312504, 547Ah is 21626 / 65535 =
// 0.329991. c is bit 1, b bit 0. timePeriod is in milliseconds, 0Ah * 100.
TEST(ColourXyY, HasFiveDigits) {
    ExpectBothWays({{"242.600",
                     {0x50, 0x00, 0x54, 0x7A, 0x80, 0x02},
                     R"({"x":0.3125,"y":0.32999,"brightness":50.2,"c":1,"b":0})"},
                    {"242.600",
                     {0xFF, 0xFF, 0x00, 0x01, 0xFF, 0x01},
                     R"({"x":1,"y":0.00002,"brightness":100,"c":0,"b":1})"}});
    EXPECT_EQ(FromBus("242.600", {0, 0, 0, 0, 0, 0xFD}), R"({"x":0,"y":0,"brightness":0,"c":0,"b":1})");
}

TEST(ColourTransition, HasYBeforeX) {
    ExpectBothWays({{"243.600",
                     {0x00, 0x0A, 0x54, 0x7A, 0x50, 0x00, 0xFF, 0x03},
                     R"({"timePeriod":1000,"y":0.32999,"x":0.3125,"brightness":100,"c":1,"b":1})"}});
    EXPECT_EQ(ToBus("243.600", R"({"timePeriod":1050,"y":0,"x":0,"brightness":0})"), "000b000000000003");
    EXPECT_EQ(ToBus("243.600", R"({"timePeriod":6553501,"y":0,"x":0,"brightness":0})"), kRefused);
}

TEST(ColourXyY, EveryChromaticitySurvives) {
    for (unsigned raw = 0; raw < 0x10000; ++raw) {
        const auto high = static_cast<std::uint8_t>(raw >> 8);
        const auto low = static_cast<std::uint8_t>(raw);
        const Bytes octets{high, low, low, high, 0x00, 0x03};
        ASSERT_EQ(ToBus("242.600", FromBus("242.600", octets)), Hex(octets));
    }
}

// 244: 4, 4, 2, 2, 2, 2 bits: 9 3 2 1 0 2 is 1001 0011 10 01 00 10. 245: 5 4 3 0 | 2 1 0 0 is 54h 30h 90h.
TEST(EmergencyLight, HasSmallFields) {
    ExpectBothWays({{"244.600", {0x93, 0x92}, R"({"cm":9,"hs":3,"fp":2,"dp":1,"pp":0,"cf":2})"},
                    {"245.600",
                     {0x54, 0x30, 0x90, 0x01, 0xFE, 0xFF},
                     R"({"ltrf":5,"ltrd":4,"ltrp":3,"sf":2,"sd":1,"sp":0,"ldtr":510,"lpdtr":255})"},
                    {"246.600", {0x05, 0xFE}, R"({"bs":5,"bcl":254})"},
                    {"248.600",
                     {0x1F, 0x01, 0xFE, 0x3C, 0x80},
                     R"({"infoValid":31,"emMinLevel":1,"emMaxLevel":254,"ratedDur":60,"gearFeat":128})"}});
    EXPECT_EQ(FromBus("245.600", {0x54, 0x3F, 0x93, 0x01, 0xFE, 0xFF}),
              R"({"ltrf":5,"ltrd":4,"ltrp":3,"sf":2,"sd":1,"sp":0,"ldtr":510,"lpdtr":255})");
    EXPECT_EQ(FromBus("246.600", {0xFD, 0xFE}), R"({"bs":5,"bcl":254})");
}

TEST(EmergencyLight, ShowsReservedValuesButSendsNone) {
    const std::string reserved = R"({"cm":10,"hs":4,"fp":3,"dp":3,"pp":3,"cf":3})";
    EXPECT_EQ(FromBus("244.600", {0xA4, 0xFF}), reserved);
    EXPECT_EQ(ToBus("244.600", reserved), kRefused);
    EXPECT_EQ(AsReceived("244.600", reserved), "a4ff");
    EXPECT_EQ(ToBus("244.999", reserved), "a4ff");
    EXPECT_EQ(WhyNotToBus("244.600", reserved), "244.600: \"cm\": 10 is not one of 0..9");
}

// 2700 K is 0A8Ch.
TEST(WhiteTransition, HasThreeValidityBits) {
    ExpectBothWays(
        {{"249.600",
          {0x00, 0x05, 0x0A, 0x8C, 0xFF, 0x05},
          R"({"timePeriod":500,"colourTemperature":2700,"brightness":100,"validTime":1,"validColourTemperature":0,"validBrightness":1})"}});
    EXPECT_EQ(ToBus("249.600", R"({"timePeriod":500,"colourTemperature":2700,"brightness":100})"),
              "00050a8cff07");
}

// A direction and three bits of step in the lower half of an octet each.
TEST(RelativeControl, HasADirectionAndAStepForEach) {
    ExpectBothWays(
        {{"250.600", {0x0B, 0x01, 0x02}, R"({"cCT":1,"stepCT":3,"cB":0,"stepB":1,"validCT":1,"validB":0})"},
         {"252.600",
          {0x0F, 0x00, 0x07, 0x08, 0x0A},
          R"({"cR":1,"stepR":7,"cG":0,"stepG":0,"cB":0,"stepB":7,"cW":1,"stepW":0,"mR":1,"mG":0,"mB":1,"mW":0})"},
         {"253.600",
          {0x0B, 0x00, 0x05, 0x04},
          R"({"cS":1,"stepS":3,"cC":0,"stepC":0,"cB":0,"stepB":5,"mS":1,"mC":0,"mB":0})"},
         {"254.600", {0x09, 0x0A, 0x03}, R"({"cR":1,"stepR":1,"cG":1,"stepG":2,"cB":0,"stepB":3})"}});
    EXPECT_EQ(FromBus("254.600", {0xF9, 0xFA, 0xF3}),
              R"({"cR":1,"stepR":1,"cG":1,"stepG":2,"cB":0,"stepB":3})");
    EXPECT_EQ(ToBus("250.600", R"({"cCT":1,"stepCT":3,"cB":0,"stepB":1})"), "0b0103");
    EXPECT_EQ(ToBus("253.600", R"({"cS":1,"stepS":3,"cC":0,"stepC":0,"cB":0,"stepB":5})"), "0b000507");
}

// mR is bit 3, mW bit 0; an octet and four bits are reserved.
TEST(ColourRgbw, HasAValidityBitForEach) {
    ExpectBothWays({{"251.600",
                     {0xFF, 0x80, 0x00, 0x01, 0x00, 0x0D},
                     R"({"r":255,"g":128,"b":0,"w":1,"mR":1,"mG":1,"mB":0,"mW":1})"}});
    EXPECT_EQ(FromBus("251.600", {0xFF, 0x80, 0x00, 0x01, 0xFF, 0xFD}),
              R"({"r":255,"g":128,"b":0,"w":1,"mR":1,"mG":1,"mB":0,"mW":1})");
    EXPECT_EQ(ToBus("251.600", R"({"r":255,"g":128,"b":0,"w":1})"), "ff800001000f");
    EXPECT_EQ(ToBus("251.600", R"({"r":255,"g":128,"b":0,"w":1,"mW":false})"), "ff800001000e");
    EXPECT_EQ(ToBus("251.600", R"({"r":255,"g":128,"b":0})"), kRefused);
    EXPECT_EQ(ToBus("251.600", R"({"r":256,"g":128,"b":0,"w":1})"), kRefused);
}

// 21.5 is 1.34375 * 2^4: exponent 131, 41ACh 0000h; -0.5 is BF00h 0000h; 7FC0h is a NaN, FF80h minus
// infinity.
TEST(FloatFields, AreShortestDecimals) {
    ExpectBothWays({{"255.001",
                     {0x41, 0xAC, 0x00, 0x00, 0xBF, 0x00, 0x00, 0x00},
                     R"({"longitude":21.5,"latitude":-0.5})"},
                    {"255.001",
                     {0x7F, 0xC0, 0x00, 0x00, 0xFF, 0x80, 0x00, 0x00},
                     R"({"longitude":"nan","latitude":"-inf"})"},
                    {"255.001",
                     {0x80, 0x00, 0x00, 0x00, 0x7F, 0x7F, 0xFF, 0xFF},
                     R"({"longitude":-0,"latitude":3.4028235e+38})"},
                    {"257.1200",
                     {0x3D, 0xCC, 0xCC, 0xCD, 0x00, 0x00, 0x00, 0x01, 0x41, 0xAC, 0x00, 0x00},
                     R"({"phase1":0.1,"phase2":1e-45,"phase3":21.5})"}});
}

TEST(FloatFields, RefuseWhatIsNoNumber) {
    for (const auto* longitude : {"1e39", "-1e39", "\"21.5\"", "\"x\"", "\"\"", "null", "true"}) {
        EXPECT_EQ(ToBus("255.001", With(R"({"longitude":0,"latitude":0})", "longitude", longitude)), kRefused)
            << longitude;
    }
}

TEST(FloatFields, RandomOctetsSurvive) {
    std::mt19937 random(9);
    for (int i = 0; i < 20000; ++i) {
        Bytes octets(8);
        for (auto& octet : octets) {
            octet = static_cast<std::uint8_t>(random());
        }
        octets[0] &= 0xBFU; // an exponent below the highest: no NaN
        octets[4] &= 0xBFU;
        ASSERT_EQ(ToBus("255.001", FromBus("255.001", octets)), Hex(octets));
    }
}
