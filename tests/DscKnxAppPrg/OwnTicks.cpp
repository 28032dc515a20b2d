#include "OwnTicks.h"

#include "Tav/TavTickCount.h"

#include <atomic>
#include <chrono>

namespace {
std::atomic<std::uint64_t> s_now = 0; // 0 = not in the hands of a test
}

void OwnTicks::Set(std::uint64_t now) {
    s_now = now;
}

std::uint64_t TavTickCount::Now() {
    if (const std::uint64_t now = s_now)
        return now;
    const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::nanoseconds(sinceStart).count());
}
