#include "ProjectFile/DatapointType.h"

#include <fmt/format.h>

#include <charconv>

namespace ProjectFile {

std::optional<KNXDPT> ParseDatapointType(std::string_view text) {
    for (const std::string_view prefix : {"DPST", "DPT"}) {
        if (text.starts_with(prefix)) {
            text.remove_prefix(prefix.size());
            break;
        }
    }
    if (text.starts_with('-')) {
        text.remove_prefix(1);
    }
    KNXDPT dpt;
    const char* const end = text.data() + text.size();
    const auto [mainEnd, mainError] = std::from_chars(text.data(), end, dpt.main);
    if (mainError != std::errc() || dpt.main == 0) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(mainEnd - text.data()));
    if (text.empty() || text == ".xxx") {
        return dpt;
    }
    if (text.front() != '.' && text.front() != '-') {
        return std::nullopt;
    }
    const auto [subEnd, subError] = std::from_chars(text.data() + 1, end, dpt.sub);
    return subError == std::errc() && subEnd == end ? std::optional(dpt) : std::nullopt;
}

std::string DatapointTypeText(const KNXDPT& dpt) {
    return dpt.sub == 0 ? fmt::format("{}", dpt.main) : fmt::format("{}.{:03}", dpt.main, dpt.sub);
}

std::string DatapointTypeUnit(const KNXDPT&) {
    return {};
}

bool FitsDatapointType(const KNXDPT&, const std::string&) {
    return true;
}

} // namespace ProjectFile
