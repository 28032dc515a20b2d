// Counts the heap allocations of a benchmark program.
#pragma once

#include <cstdint>

namespace Bench {

/// Calls of operator new on the calling thread since it started. AllocationCount.cpp replaces the operator.
std::uint64_t AllocationCount();

} // namespace Bench
