#include "KnxStackHost/Links/DropBurst.h"

#include <gtest/gtest.h>

namespace KnxStackHost {
namespace {

TEST(DropBurst, IsToldOnceWhenNothingWaitsAnyMore) {
    DropBurst burst;
    EXPECT_EQ(std::nullopt, burst.TakeEnd(0, 0)) << "there was none";
    burst.Begin();
    EXPECT_EQ(std::nullopt, burst.TakeEnd(1, 3)) << "still waiting";
    EXPECT_EQ(5u, burst.TakeEnd(0, 5));
    EXPECT_EQ(std::nullopt, burst.TakeEnd(0, 5)) << "told";
    burst.Begin();
    EXPECT_EQ(2u, burst.TakeEnd(0, 7)) << "of this burst alone";
}

} // namespace
} // namespace KnxStackHost
