// What every fuzz target needs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Fuzz {

/// A property that holds for every input. Ends the process when it does not, which is how a fuzzer learns of
/// it.
inline void Check(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace Fuzz
