// What BenchProgram tells a benchmark: memory that both have mapped.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Bench {

/// When the program was called with a number, in nanoseconds of the steady clock, which all processes of a
/// system share; 0: not yet. A number has the place of its remainder.
struct Report {
    static constexpr std::size_t kPlaces = 4096;

    std::array<std::atomic<std::int64_t>, kPlaces> called;
    std::atomic<bool> isReady; ///< the program has been started

    std::atomic<std::int64_t>& Of(std::uint32_t number) { return called[number % kPlaces]; }
};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

/// Maps the file, which is made when it is missing. For as long as the process lives. Throws
/// std::runtime_error.
Report& MapReport(const std::string& path);

} // namespace Bench
