#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

// In a file of its own: where the compiler sees both sides, it takes malloc and free here for a mistake.

static thread_local std::size_t s_allocations = 0;

std::size_t CountAllocations() {
    return s_allocations;
}

void* operator new(std::size_t size) {
    ++s_allocations;
    if (auto* const memory = std::malloc(size == 0 ? 1 : size); memory != nullptr) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
