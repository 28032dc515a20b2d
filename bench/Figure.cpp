#include "Figure.h"

#include <algorithm>
#include <cstdio>

namespace Bench {

double Figure::Percentile(int percent) {
    std::sort(m_microseconds.begin(), m_microseconds.end());
    return m_microseconds[m_microseconds.size() * static_cast<std::size_t>(percent) / 100];
}

void Measure(Figure& figure, const std::function<Clock::time_point(int)>& round) {
    for (int warmUp = 0; warmUp < kRoundsOfBlock / 10; ++warmUp)
        round(warmUp);
    for (int number = 0; number < kRoundsOfBlock; ++number) {
        const auto start = Clock::now();
        figure.Add(round(number) - start);
    }
}

void ShowHead() {
    std::printf("%-58s %9s %9s\n", "Microseconds", "p50", "p99");
}

void Show(const char* what, Figure& figure) {
    std::printf("%-58s %9.1f %9.1f\n", what, figure.Percentile(50), figure.Percentile(99));
}

} // namespace Bench
