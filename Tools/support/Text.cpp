#include "Tools/support/Text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <ctime>
#include <string_view>

namespace Tools {

namespace {

/// Characters of a UTF-8 text.
std::size_t Width(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

} // namespace

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

} // namespace Tools
