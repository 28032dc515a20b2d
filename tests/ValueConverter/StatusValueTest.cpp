// 25 to 27, 200 to 205: two fields of an octet or two; a value and its status.
#include "Convert.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

// busy is the upper half of the octet. Values above 3 are reserved.
TEST(DoubleNibble, HasTwoNumbersUpToThree) {
    ExpectBothWays(
        {{"25.1000", {0x31}, R"({"busy":3,"nak":1})"}, {"25.xxx", {0xFF}, R"({"busy":15,"nak":15})"}});
    EXPECT_EQ(FromBus("25.1000", {0xF0}), R"({"busy":15,"nak":0})");
    EXPECT_EQ(ToBus("25.1000", R"({"busy":4,"nak":0})"), kRefused);
    EXPECT_EQ(AsReceived("25.1000", R"({"busy":15,"nak":4})"), "f4");
}

// b is bit 6, and the scene of 0 to 63 on the bus counts from 1: 3Fh is scene 64.
TEST(SceneInfo, CountsScenesFromOne) {
    ExpectBothWays({{"26.001", {0x00}, R"({"b":0,"scene":1})"},
                    {"26.001", {0x45}, R"({"b":1,"scene":6})"},
                    {"26.001", {0x3F}, R"({"b":0,"scene":64})"}});
    EXPECT_EQ(FromBus("26.001", {0x85}), R"({"b":0,"scene":6})");
    EXPECT_EQ(ToBus("26.001", R"({"b":0,"scene":0})"), kRefused);
    EXPECT_EQ(ToBus("26.001", R"({"b":0,"scene":65})"), kRefused);
    EXPECT_EQ(WhyNotToBus("26.001", R"({"b":0,"scene":65})"), "26.001: \"scene\": 65 is above 64");
}

// The upper two octets are the mask: outputs 0 and 1 are valid, output 0 is on.
TEST(CombinedOnOff, HasAMaskAndStates) {
    ExpectBothWays({{"27.001", {0x00, 0x03, 0x00, 0x01}, R"({"mask":3,"state":1})"},
                    {"27.001", {0xFF, 0xFF, 0x80, 0x00}, R"({"mask":65535,"state":32768})"}});
    EXPECT_EQ(ToBus("27.001", R"({"state":1})"), "ffff0001");
    EXPECT_EQ(ToBus("27.001", R"({"mask":1})"), kRefused);
}

// The status is the last octet. 203.003: 2 * 10 ms. 203.015: 20000 / 20. 205.100: 1075 / 50 = 21.5, and FFFFh
// is -1 / 50. 203.011: 255 / 100.
TEST(StatusValue, HasTheScaleOfItsType) {
    ExpectBothWays({{"200.100", {0x01, 0x02}, R"({"value":1,"status":2})"},
                    {"201.100", {0x04, 0x00}, R"({"mode":4,"status":0})"},
                    {"202.001", {0xFF, 0x80}, R"({"value":255,"status":128})"},
                    {"203.002", {0xFF, 0xFF, 0x01}, R"({"value":65535,"status":1})"},
                    {"203.003", {0x00, 0x02, 0x00}, R"({"value":20,"status":0})"},
                    {"203.004", {0x00, 0x02, 0x00}, R"({"value":200,"status":0})"},
                    {"203.011", {0x00, 0xFF, 0x00}, R"({"value":2.55,"status":0})"},
                    {"203.015", {0x4E, 0x20, 0x00}, R"({"value":1000,"status":0})"},
                    {"203.102", {0x00, 0x01, 0x00}, R"({"value":0.05,"status":0})"},
                    {"204.001", {0x9C, 0x00}, R"({"value":-100,"status":0})"},
                    {"205.002", {0x80, 0x00, 0xFF}, R"({"value":-32768,"status":255})"},
                    {"205.003", {0xFF, 0xFF, 0x00}, R"({"value":-10,"status":0})"},
                    {"205.017", {0x00, 0x01, 0x00}, R"({"value":0.01,"status":0})"},
                    {"205.100", {0x04, 0x33, 0x00}, R"({"value":21.5,"status":0})"},
                    {"205.101", {0xFF, 0xFF, 0x00}, R"({"value":-0.02,"status":0})"}});
}

TEST(StatusValue, MayLeaveOutTheStatusOnly) {
    EXPECT_EQ(ToBus("205.100", R"({"value":21.5})"), "043300");
    EXPECT_EQ(ToBus("200.101", R"({"value":true})"), "0100");
    EXPECT_EQ(ToBus("205.100", R"({"status":1})"), kRefused);
}

// 21.51 * 50 is 1075.5 and goes up, 21.509 * 50 is 1075.45; 15 ms is one and a half steps of 10 ms.
TEST(StatusValue, GoesToTheNearest) {
    EXPECT_EQ(ToBus("205.100", R"({"value":21.51})"), "043400");
    EXPECT_EQ(ToBus("205.100", R"({"value":21.509})"), "043300");
    EXPECT_EQ(ToBus("203.003", R"({"value":15})"), "000200");
}

TEST(StatusValue, ShowsWhatIsBeyondTheRangeButDoesNotSendIt) {
    EXPECT_EQ(FromBus("204.001", {0x80, 0x00}), R"({"value":-128,"status":0})");
    EXPECT_EQ(ToBus("204.001", R"({"value":-101})"), kRefused);
    EXPECT_EQ(ToBus("204.001", R"({"value":101})"), kRefused);
    EXPECT_EQ(AsReceived("204.001", R"({"value":-128,"status":0})"), "8000");
    EXPECT_EQ(ToBus("204.999", R"({"value":-128,"status":0})"), "8000");
    EXPECT_EQ(WhyNotToBus("205.100", R"({"value":655.35})"), "205.100: \"value\": 655.35 is above 655.34");
}
