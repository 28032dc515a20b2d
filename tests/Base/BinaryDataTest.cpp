#include "KnxStack/BinaryData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

namespace {

using KnxStack::BinaryData;

std::vector<int> Numbers(const BinaryData& data) {
    return {data.Bytes().begin(), data.Bytes().end()};
}

TEST(BinaryDataTest, IsEmptyByDefault) {
    const BinaryData data;
    EXPECT_EQ(data.GetSize(), 0U);
    EXPECT_TRUE(data.Bytes().empty());
    EXPECT_EQ(data.ToString(), "");
}

TEST(BinaryDataTest, CopiesTheBytesItIsMadeFrom) {
    std::array<std::uint8_t, 3> bytes = {1, 2, 3};
    const BinaryData data(bytes);
    bytes.fill(9);
    EXPECT_EQ(Numbers(data), (std::vector<int>{1, 2, 3}));
}

TEST(BinaryDataTest, AppendAddsAtTheEndBeyondTheInlineCapacity) {
    BinaryData data{0xFF};
    std::vector<int> expected = {0xFF};
    for (int byte = 0; byte < 300; ++byte) {
        data.Append(static_cast<std::uint8_t>(byte));
        expected.push_back(byte & 0xFF);
    }
    EXPECT_EQ(data.GetSize(), 301U);
    EXPECT_EQ(Numbers(data), expected);
}

TEST(BinaryDataTest, CopiesAreIndependent) {
    const BinaryData original{1, 2};
    auto copy = original;
    copy.Append(3);
    EXPECT_EQ(Numbers(original), (std::vector<int>{1, 2}));
    EXPECT_EQ(Numbers(copy), (std::vector<int>{1, 2, 3}));
}

TEST(BinaryDataTest, ToStringIsLowerCaseHexadecimalWithoutSeparators) {
    EXPECT_EQ((BinaryData{0x00, 0x0A, 0xBC, 0xDE, 0xF9, 0xFF}).ToString(), "000abcdef9ff");
}

TEST(BinaryDataTest, EqualMeansSameBytesInSameOrder) {
    EXPECT_EQ((BinaryData{1, 2}), (BinaryData{1, 2}));
    EXPECT_NE((BinaryData{1, 2}), (BinaryData{2, 1}));
    EXPECT_NE((BinaryData{1, 2}), (BinaryData{1, 2, 0}));
    EXPECT_EQ(BinaryData{}, BinaryData{});
}

} // namespace
