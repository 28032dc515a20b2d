#include "Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace Dsctl {

namespace {

/// Characters of a UTF-8 text.
std::size_t Width(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

} // namespace

std::string WithUnit(std::string_view value, std::string_view unit) {
    if (value.empty())
        return "-";
    return unit.empty() ? std::string(value) : fmt::format("{} {}", value, unit);
}

std::string LocalTime(const std::string& utc) {
    std::tm fields{};
    const char* rest = ::strptime(utc.c_str(), "%Y-%m-%dT%H:%M:%S", &fields);
    if (rest == nullptr)
        return utc;
    std::string fraction(rest);
    if (!fraction.empty() && fraction.back() == 'Z')
        fraction.pop_back();
    const std::time_t seconds = ::timegm(&fields);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return text.data() + fraction;
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

std::vector<std::string> AlignColumns(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], Width(row[i]));
    }
    std::vector<std::string> lines;
    for (const auto& row : rows) {
        auto& line = lines.emplace_back();
        for (std::size_t i = 0; i < row.size(); ++i)
            line += row[i] + std::string(widths[i] - Width(row[i]) + 2, ' ');
        line.erase(line.find_last_not_of(' ') + 1);
    }
    return lines;
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
