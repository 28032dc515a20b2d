// 17.xxx and 18.xxx: scenes.
#include "Convert.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

TEST(Scene, CountsFromOne) {
    EXPECT_EQ(FromBus("17.001", {0x00}), "1");
    EXPECT_EQ(FromBus("17.001", {0x3F}), "64");
    EXPECT_EQ(FromBus("17.001", {0xC5}), "6");
    EXPECT_EQ(ToBus("17.001", "1"), "00");
    EXPECT_EQ(ToBus("17.001", "64"), "3f");
}

// Bit 7 is learn, bit 6 reserved.
TEST(SceneControl, LearningIsNegative) {
    EXPECT_EQ(FromBus("18.001", {0x00}), "1");
    EXPECT_EQ(FromBus("18.001", {0x3F}), "64");
    EXPECT_EQ(FromBus("18.001", {0x80}), "-1");
    EXPECT_EQ(FromBus("18.001", {0xFF}), "-64");
    EXPECT_EQ(FromBus("18.001", {0x45}), "6");
    EXPECT_EQ(ToBus("18.001", "1"), "00");
    EXPECT_EQ(ToBus("18.001", "64"), "3f");
    EXPECT_EQ(ToBus("18.001", "-1"), "80");
    EXPECT_EQ(ToBus("18.001", "-64"), "bf");
}

TEST(Scene, RefusesWhatIsNoScene) {
    for (const auto* text : {"0", "65", "-1", "1.5", "", "a", "1e3"}) {
        EXPECT_EQ(ToBus("17.001", text), kRefused) << text;
    }
    for (const auto* text : {"0", "-0", "65", "-65", "1.5", "", "a", "{}"}) {
        EXPECT_EQ(ToBus("18.001", text), kRefused) << text;
    }
    EXPECT_EQ(WhyNotToBus("18.001", "0"), "18.001: there is no scene 0");
    EXPECT_EQ(WhyNotToBus("17.001", "65"), "17.001: 65 is above 64");
}

TEST(Scene, EveryOctetSurvivesTheWayToTextAndBackWithoutItsReservedBits) {
    for (unsigned raw = 0; raw < 256; ++raw) {
        const Bytes octets{static_cast<std::uint8_t>(raw)};
        EXPECT_EQ(ToBus("17.001", FromBus("17.001", octets)), Hex({static_cast<std::uint8_t>(raw & 0x3F)}));
        EXPECT_EQ(ToBus("18.001", FromBus("18.001", octets)), Hex({static_cast<std::uint8_t>(raw & 0xBF)}));
        EXPECT_EQ(ToBus("18", FromBus("18", octets)), Hex({static_cast<std::uint8_t>(raw & 0xBF)}));
    }
}
