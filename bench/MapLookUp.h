// The figure that costs in the library are held against: a look-up in an ordered map.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Bench {

/// CO numbers 1 to `count`, each once, in random order.
std::vector<std::uint16_t> ShuffledCos(unsigned count);

/// CO numbers out of 1 to `count`, as telegrams come: a sequence too long for the branch predictor to learn.
class Telegrams {
public:
    explicit Telegrams(unsigned count);
    std::uint16_t Next() { return m_cos[m_next++ & (m_cos.size() - 1)]; }

private:
    std::vector<std::uint16_t> m_cos;
    std::size_t m_next = 0;
};

/// One look-up in a std::map<uint16_t, …> with as many entries as the benchmark's argument says.
void MapLookUp(benchmark::State& state);

} // namespace Bench
