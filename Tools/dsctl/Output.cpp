#include "Output.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace Dsctl {

std::string WithUnit(std::string_view value, std::string_view unit) {
    if (value.empty())
        return "-";
    return unit.empty() ? std::string(value) : fmt::format("{} {}", value, unit);
}

std::string UtcNow() {
    const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now())
                         .time_since_epoch()
                         .count();
    const std::time_t seconds = now / 1000;
    std::tm fields{};
    ::gmtime_r(&seconds, &fields);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &fields);
    return fmt::format("{}.{:03}Z", text.data(), now % 1000);
}

void PrintTable(const std::vector<DataPoint>& points) {
    std::vector<std::vector<std::string>> rows{{"ID", "NAME", "TYPE", "ACCESS", "VALUE"}};
    for (const auto& point : points)
        rows.push_back({std::to_string(point.id), point.name, point.dpt, point.access,
                        WithUnit(point.value, point.unit)});
    for (const auto& line : AlignColumns(rows))
        fmt::print("{}\n", line);
}

} // namespace Dsctl
