// Tick counter of the base platform.
#pragma once

#include "Tav/Export.h"

#include <cstdint>

/// Counts ticks of one nanosecond on the monotonic clock, from a start in the past that is the same for all
/// threads of the process. Never 0, never goes back.
struct TAV_EXPORT TavTickCount {
    static std::uint64_t Now();
};
