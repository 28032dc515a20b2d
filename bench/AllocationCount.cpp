#include "AllocationCount.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::uint64_t allocations = 0;
}

std::uint64_t Bench::AllocationCount() {
    return allocations;
}

void Bench::ShowAllocations(benchmark::State& state, std::uint64_t before) {
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(allocations - before), benchmark::Counter::kAvgIterations);
}

void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
