#include "Tav/TavTickCount.h"

#include <gtest/gtest.h>

#include <ctime>
#include <thread>

namespace {

std::uint64_t Monotonic() {
    std::timespec now{};
    EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &now), 0);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(now.tv_nsec);
}

TEST(TavTickCountTest, CountsNanosecondsOfTheMonotonicClock) {
    const auto before = Monotonic();
    const auto ticks = TavTickCount::Now();
    const auto after = Monotonic();
    EXPECT_GE(ticks, before);
    EXPECT_LE(ticks, after);
    EXPECT_GT(ticks, 0U);
}

TEST(TavTickCountTest, NeverGoesBack) {
    auto last = TavTickCount::Now();
    for (int i = 0; i < 100000; ++i) {
        const auto now = TavTickCount::Now();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(TavTickCountTest, AllThreadsCountFromTheSameStart) {
    const auto before = TavTickCount::Now();
    std::uint64_t other = 0;
    std::thread([&other] { other = TavTickCount::Now(); }).join();
    EXPECT_GE(other, before);
    EXPECT_LE(other, TavTickCount::Now());
}

} // namespace
