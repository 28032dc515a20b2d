#include "KnxDevice/PropertyDataTypes.h"

#include <gtest/gtest.h>

#include <map>

namespace KnxDevice {
namespace {

TEST(PropertyDataTypes, EveryNumberHasItsSizeOrNone) {
    std::map<unsigned, unsigned> bytes = {{0, 1},    {1, 1},    {2, 1},    {3, 2},    {4, 2},    {5, 2},
                                          {6, 3},    {7, 3},    {8, 4},    {9, 4},    {10, 4},   {11, 8},
                                          {12, 10},  {13, 3},   {14, 5},   {15, 8},   {0x30, 2}, {0x31, 6},
                                          {0x32, 1}, {0x33, 1}, {0x34, 2}, {0x35, 1}, {0x36, 1}};
    for (unsigned generic = 1; generic <= 20; ++generic)
        bytes[0x10 + generic] = generic;
    for (unsigned dataType = 0; dataType <= 255; ++dataType) {
        if (dataType == 0x10 || dataType == 0x2F)
            continue; // of variable length
        const auto size = SizeOfPropertyElement(static_cast<std::uint8_t>(dataType));
        const auto known = bytes.find(dataType);
        EXPECT_EQ(known != bytes.end(), size.IsUsable()) << dataType;
        EXPECT_EQ(known == bytes.end() ? 0 : known->second, size.least) << dataType;
        EXPECT_EQ(size.least, size.most) << dataType;
    }
}

TEST(PropertyDataTypes, AFixedLengthFitsExactly) {
    const auto three = SizeOfPropertyElement(0x13);
    EXPECT_FALSE(three.IsVariable());
    EXPECT_FALSE(three.Fits(0, 2));
    EXPECT_FALSE(three.Fits(5, 2));
    EXPECT_TRUE(three.Fits(6, 2));
    EXPECT_FALSE(three.Fits(7, 2));
    EXPECT_TRUE(three.Fits(3u * 65535, 65535));
}

TEST(PropertyDataTypes, AVariableLengthHasARange) {
    for (const std::uint8_t dataType : {0x10, 0x2F}) {
        const auto size = SizeOfPropertyElement(dataType);
        EXPECT_TRUE(size.IsUsable());
        EXPECT_TRUE(size.IsVariable());
        EXPECT_FALSE(size.Fits(0, 1));
        EXPECT_TRUE(size.Fits(1, 1));
        EXPECT_TRUE(size.Fits(254, 1));
        EXPECT_FALSE(size.Fits(255, 1));
        EXPECT_TRUE(size.Fits(508, 2));
    }
}

} // namespace
} // namespace KnxDevice
