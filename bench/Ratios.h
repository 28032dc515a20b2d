// Ratios between benchmarks of one run.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace Bench {

/// One figure that counts: the time per iteration of `name` against `factor` times that of `baseline`.
struct Ratio {
    std::string what;     ///< for people
    std::string name;     ///< benchmark, as it is printed
    std::string baseline; ///< benchmark, as it is printed
    double factor = 1;    ///< multiple of the baseline
    double budget = 0;    ///< the ratio is to stay at or below it; 0 = only shown
};

/// Runs all registered benchmarks and prints the ratios below them; for main().
int RunWithRatios(int argc, char** argv, const std::vector<Ratio>& ratios);

} // namespace Bench
