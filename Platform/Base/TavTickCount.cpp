#include "Tav/TavTickCount.h"

#include <algorithm>
#include <chrono>

std::uint64_t TavTickCount::Now() {
    const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
    const auto ticks = std::chrono::duration_cast<std::chrono::nanoseconds>(sinceStart).count();
    return std::max<std::uint64_t>(static_cast<std::uint64_t>(ticks), 1);
}
