// Counts the heap allocations of a benchmark program.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>

namespace Bench {

/// Calls of operator new on the calling thread since it started. AllocationCount.cpp replaces the operator.
std::uint64_t AllocationCount();

/// The counter "allocations" of a benchmark: those since AllocationCount() was `before`, per iteration.
void ShowAllocations(benchmark::State& state, std::uint64_t before);

} // namespace Bench
