// Main number 0: values of which only the size is known.
#include "Convert.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

TEST(BySize, IsAnUnsignedNumberUpTo64Bits) {
    EXPECT_EQ(FromBus("1 bit", {0x01}), "1");
    EXPECT_EQ(FromBus("4 bits", {0x0F}), "15");
    EXPECT_EQ(FromBus("8 bits", {0xFF}), "255");
    EXPECT_EQ(FromBus("16 bits", {0x0C, 0x1A}), "3098");
    EXPECT_EQ(FromBus("64 bits", Bytes(8, 0xFF)), "18446744073709551615");
    EXPECT_EQ(ToBus("1 bit", "1"), "01");
    EXPECT_EQ(ToBus("4 bits", "15"), "0f");
    EXPECT_EQ(ToBus("16 bits", "3098"), "0c1a");
    EXPECT_EQ(ToBus("24 bits", "1"), "000001");
    EXPECT_EQ(ToBus("64 bits", "18446744073709551615"), "ffffffffffffffff");
}

TEST(BySize, MasksTheBitsAboveASmallValue) {
    EXPECT_EQ(FromBus("1 bit", {0xFE}), "0");
    EXPECT_EQ(FromBus("4 bits", {0xF5}), "5");
}

TEST(BySize, IsHexadecimalAbove64Bits) {
    EXPECT_EQ(FromBus("72 bits", {0x00, 1, 2, 3, 4, 5, 6, 7, 0xAB}), "0001020304050607ab");
    EXPECT_EQ(ToBus("72 bits", "0001020304050607ab"), "0001020304050607ab");
    EXPECT_EQ(ToBus("72 bits", "0001020304050607AB"), "0001020304050607ab");
    EXPECT_EQ(ToBus("72 bits", "000000000000000001"), "000000000000000001");
    EXPECT_EQ(ToBus("112 bits", "0000000000000000000000001e10"), "0000000000000000000000001e10");
}

TEST(BySize, RefusesDigitsOfAnotherNumber) {
    EXPECT_EQ(ToBus("72 bits", "0001020304050607a"), kRefused);
    EXPECT_EQ(ToBus("72 bits", "0001020304050607abcd"), kRefused);
    EXPECT_EQ(ToBus("72 bits", "5"), kRefused);
    EXPECT_EQ(ToBus("72 bits", "0001020304050607ag"), kRefused);
    EXPECT_EQ(WhyNotToBus("72 bits", "5"),
              "72 bits: '5' does not have the 18 hexadecimal digits of this size");
}

// 33 octets are 264 bits, which the record holds as 8.
TEST(BySize, KnowsTheTrueSizeOfValuesAbove255Bits) {
    const Bytes octets(33, 0x5A);
    EXPECT_EQ(FromBus(Dpt("8 bits"), octets, 264), Hex(octets));
    EXPECT_EQ(FromBus(Dpt("8 bits"), octets, 272), kRefused);
    TAVVALUE value;
    value.SetText(Hex(octets));
    KnxStack::GroupValue groupValue;
    ASSERT_TRUE(Datapoint::Encode(Dpt("8 bits"), value, groupValue));
    EXPECT_EQ(groupValue.GetDefinedSize(), 264U);
    EXPECT_EQ(groupValue.GetRawData().ToString(), Hex(octets));
}

TEST(BySize, RefusesWhatDoesNotFit) {
    EXPECT_EQ(ToBus("1 bit", "2"), kRefused);
    EXPECT_EQ(ToBus("4 bits", "16"), kRefused);
    EXPECT_EQ(ToBus("8 bits", "256"), kRefused);
    EXPECT_EQ(ToBus("8 bits", "-1"), kRefused);
    EXPECT_EQ(ToBus("8 bits", "1.5"), kRefused);
    EXPECT_EQ(ToBus("8 bits", "on"), kRefused);
    EXPECT_EQ(ToBus("8 bits", ""), kRefused);
    EXPECT_EQ(ToBus("64 bits", "18446744073709551616"), kRefused);
    EXPECT_EQ(WhyNotToBus("8 bits", "300"), "8 bits: 300 is above 255");
}

TEST(BySize, RefusesSizesThatNoGroupValueHas) {
    EXPECT_EQ(ToBus("0 bits", "1"), kRefused);
    EXPECT_EQ(ToBus("12 bits", "1"), kRefused);
    EXPECT_EQ(FromBus(Dpt("0 bits"), {0x01}, 8), kRefused);
    EXPECT_EQ(FromBus("0 bits", {}), kRefused);
    EXPECT_EQ(FromBus(Dpt("8 bits"), {0x01}, 4), kRefused);
    EXPECT_EQ(FromBus(Dpt("16 bits"), {0x01}, 16), kRefused);
    EXPECT_EQ(WhyNotToBus("0 bits", "1"), "0 bits: a group value cannot have this size");
}
