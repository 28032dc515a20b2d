#include "KnxFrames/FixedOctets.h"

#include <gtest/gtest.h>

#include <vector>

namespace KnxFrames {
namespace {

TEST(FixedOctets, AppendsNumbersMostSignificantOctetFirst) {
    FixedOctets<4> octets;
    EXPECT_TRUE(octets.IsEmpty());
    octets.Append(0x01);
    octets.Append16(0x2345);
    EXPECT_EQ(octets, (FixedOctets<4>{0x01, 0x23, 0x45}));
    EXPECT_EQ(octets.Size(), 3U);
}

TEST(FixedOctets, ComparesContentAndSizeOnly) {
    FixedOctets<4> first{1, 2, 3};
    first.Clear();
    first.Append(1);
    EXPECT_EQ(first, (FixedOctets<4>{1}));
    EXPECT_NE(first, (FixedOctets<4>{1, 2}));
    EXPECT_NE(first, (FixedOctets<4>{2}));
}

TEST(FixedOctets, CopiesAreIndependent) {
    FixedOctets<4> first{1, 2};
    FixedOctets<4> second(first);
    second[0] = 9;
    EXPECT_EQ(first[0], 1);
    first = second;
    EXPECT_EQ(first, (FixedOctets<4>{9, 2}));
}

TEST(FixedOctets, HoldsItsWholeCapacity) {
    const std::vector<std::uint8_t> source(255, 0x5A);
    const FixedOctets<255> octets{Octets(source)};
    EXPECT_EQ(octets.Size(), 255U);
    EXPECT_EQ(octets[254], 0x5A);
}

} // namespace
} // namespace KnxFrames
