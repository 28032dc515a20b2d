#include "DeviceStackProtocol/LineBuffer.h"

#include <gtest/gtest.h>

namespace {

using DeviceStack::LineBuffer;

TEST(LineBuffer, CutsLinesWhateverTheChunksAre) {
    LineBuffer buffer(100);
    buffer.Append("ab");
    EXPECT_FALSE(buffer.Next());
    buffer.Append("c\nde\n\nf");
    EXPECT_EQ(buffer.Next(), "abc");
    EXPECT_EQ(buffer.Next(), "de");
    EXPECT_EQ(buffer.Next(), "");
    EXPECT_FALSE(buffer.Next());
    EXPECT_EQ(buffer.Pending(), 1u);
    buffer.Append("\n");
    EXPECT_EQ(buffer.Next(), "f");
    EXPECT_EQ(buffer.Pending(), 0u);
}

TEST(LineBuffer, TakesALineOfExactlyTheLimit) {
    LineBuffer buffer(4);
    buffer.Append("1234\n");
    EXPECT_EQ(buffer.Next(), "1234");
    EXPECT_FALSE(buffer.IsTooLong());
}

TEST(LineBuffer, RefusesALongerLineEvenBeforeItEnds) {
    LineBuffer buffer(4);
    buffer.Append("ok\n12345");
    EXPECT_EQ(buffer.Next(), "ok");
    EXPECT_FALSE(buffer.Next());
    EXPECT_TRUE(buffer.IsTooLong());
    buffer.Append("\nlater\n");
    EXPECT_FALSE(buffer.Next());
}

TEST(LineBuffer, RefusesALongerLineThatComesWhole) {
    LineBuffer buffer(4);
    buffer.Append("12345\nok\n");
    EXPECT_FALSE(buffer.Next());
    EXPECT_TRUE(buffer.IsTooLong());
}

} // namespace
