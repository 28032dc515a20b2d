// Counts what a test program takes from the heap.
#pragma once

#include <cstddef>

/// Number of calls of operator new on the calling thread so far.
std::size_t CountAllocations();
