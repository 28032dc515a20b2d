// Reads what a Downloader plays from a file.
#include "Downloader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>

namespace TestSupport {

namespace {

using Bytes = std::vector<std::uint8_t>;

std::optional<Bytes> BytesOf(const std::string& digits) {
    if (digits.size() % 2 != 0)
        return std::nullopt;
    Bytes bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        std::uint8_t byte = 0;
        const auto* const end = digits.data() + at + 2;
        if (std::from_chars(digits.data() + at, end, byte, 16).ptr != end)
            return std::nullopt;
        bytes.push_back(byte);
    }
    return bytes;
}

} // namespace

std::vector<DownloadStep> LoadDescription(const std::string& path) {
    std::vector<DownloadStep> steps;
    std::ifstream file(path);
    EXPECT_TRUE(file.is_open()) << path;
    for (std::string line; std::getline(file, line);) {
        line.erase(std::find(line.begin(), line.end(), '#'), line.end());
        std::istringstream words(line);
        std::string kind;
        std::string digits;
        unsigned object = 0;
        unsigned property = 0;
        if (!(words >> kind))
            continue;
        words >> object;
        if (kind == "property")
            words >> property;
        words >> digits;
        const auto octets = BytesOf(digits);
        EXPECT_TRUE((kind == "load" || kind == "property") && octets && !octets->empty())
            << path << ": " << line;
        steps.push_back({kind == "load" ? DownloadStep::Kind::Load : DownloadStep::Kind::Property,
                         static_cast<std::uint8_t>(object), static_cast<std::uint8_t>(property),
                         octets.value_or(Bytes())});
    }
    return steps;
}

} // namespace TestSupport
