#include "MapLookUp.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <random>

namespace Bench {

std::vector<std::uint16_t> ShuffledCos(unsigned count) {
    std::vector<std::uint16_t> cos(count);
    std::iota(cos.begin(), cos.end(), std::uint16_t{1});
    std::shuffle(cos.begin(), cos.end(), std::mt19937(1));
    return cos;
}

Telegrams::Telegrams(unsigned count) : m_cos(std::size_t{1} << 18) {
    std::mt19937 random(2);
    std::uniform_int_distribution<unsigned> co(1, count);
    std::generate(m_cos.begin(), m_cos.end(), [&] { return static_cast<std::uint16_t>(co(random)); });
}

void MapLookUp(benchmark::State& state) {
    const auto count = static_cast<unsigned>(state.range(0));
    std::map<std::uint16_t, std::uint32_t> map;
    for (const std::uint16_t co : ShuffledCos(count))
        map.emplace(co, co);
    Telegrams telegrams(count);
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(map.find(telegrams.Next()));
}

} // namespace Bench
