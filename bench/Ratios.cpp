#include "Ratios.h"

#include <cstdio>
#include <map>

namespace Bench {

namespace {

/// The console output, and each benchmark's time: its median where there are repetitions.
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    CollectingReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
            if (median || single)
                times[run.run_name.str()] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    std::map<std::string, double> times;
};

} // namespace

int RunWithRatios(int argc, char** argv, const std::vector<Ratio>& ratios) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    std::printf("\n%-64s %8s %8s\n", "Ratio", "measured", "budget");
    for (const Ratio& ratio : ratios) {
        const auto time = reporter.times.find(ratio.name);
        const auto baseline = reporter.times.find(ratio.baseline);
        if (time == reporter.times.end() || baseline == reporter.times.end())
            continue; // filtered out
        const double measured = time->second / (baseline->second * ratio.factor);
        std::printf("%-64s %8.2f ", ratio.what.c_str(), measured);
        if (ratio.budget > 0)
            std::printf("%8.2f%s\n", ratio.budget, measured <= ratio.budget ? "" : "  exceeded");
        else
            std::printf("%8s\n", "-");
    }
    return 0;
}

} // namespace Bench
