// Times of benchmarks that wait for others: no loop of a benchmark library fits them.
#pragma once

#include <chrono>
#include <functional>
#include <vector>

namespace Bench {

using Clock = std::chrono::steady_clock;

/// Times of one thing, in microseconds.
class Figure {
public:
    void Add(double microseconds) { m_microseconds.push_back(microseconds); }
    void Add(Clock::duration duration) { Add(std::chrono::duration<double, std::micro>(duration).count()); }
    /// Smaller than this are `percent` % of them. Not without any.
    double Percentile(int percent);

private:
    std::vector<double> m_microseconds;
};

/// Benchmarks measure one thing after the other, block by block, so that whatever else the machine does meets
/// all of them.
inline constexpr int kBlocks = 10;
inline constexpr int kRoundsOfBlock = 300;

/// One block: times `round` often, after some that do not count; it gets a number, returns when what is timed
/// was over, and may tidy up after that.
void Measure(Figure& figure, const std::function<Clock::time_point(int)>& round);

/// A line with the median and the 99th percentile, below a head.
void ShowHead();
void Show(const char* what, Figure& figure);

} // namespace Bench
