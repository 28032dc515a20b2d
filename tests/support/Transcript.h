// Comparison of recorded lines with the expected ones.
#pragma once

#include "Recorder.h"

#include <gmock/gmock.h>

#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

/// The lines of a text block: without indentation, without empty lines.
inline std::vector<std::string> LinesOfText(std::string_view block) {
    std::vector<std::string> lines;
    while (!block.empty()) {
        const std::size_t end = block.find('\n');
        std::string_view line = block.substr(0, end);
        block.remove_prefix(end == std::string_view::npos ? block.size() : end + 1);
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        if (!line.empty())
            lines.emplace_back(line);
    }
    return lines;
}

/// Succeeds when `actual` is line for line what `expected` lists. On failure the first difference and the
/// whole record are shown, ready to be read or taken over.
inline testing::AssertionResult IsTranscript(const std::vector<std::string>& actual,
                                             std::string_view expected) {
    const std::vector<std::string> wanted = LinesOfText(expected);
    if (actual == wanted)
        return testing::AssertionSuccess();
    const auto [seen, due] = std::mismatch(actual.begin(), actual.end(), wanted.begin(), wanted.end());
    testing::AssertionResult failure = testing::AssertionFailure();
    failure << "line " << seen - actual.begin() + 1
            << "\n  expected: " << (due == wanted.end() ? "nothing more" : *due)
            << "\n  recorded: " << (seen == actual.end() ? "nothing more" : *seen) << "\nwhole record:\n";
    for (const std::string& line : actual)
        failure << "        " << line << "\n";
    return failure;
}

} // namespace TestSupport
