#include "ProjectFile/NameRules.h"

#include <fmt/format.h>

#include <algorithm>

namespace ProjectFile {

namespace {

constexpr std::size_t kMaxNameLength = 200; // in bytes

bool IsAsciiLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

} // namespace

std::string DeviceFault(std::string_view device) {
    const bool clean = std::all_of(device.begin(), device.end(), [](char c) {
        return IsAsciiLetterOrDigit(c) || c == '.' || c == '_' || c == '-';
    });
    if (device.empty() || device.size() > kMaxNameLength || !clean) {
        return fmt::format("a device name has 1 to {} letters (a to z), digits, '.', '_' or '-'",
                           kMaxNameLength);
    }
    return {};
}

std::string NameFault(std::string_view name) {
    const bool clean = std::all_of(name.begin(), name.end(), [](char c) {
        constexpr std::string_view kMarks = "._-/ ";
        return IsAsciiLetterOrDigit(c) || kMarks.find(c) != std::string_view::npos || (c & 0x80) != 0;
    });
    if (name.empty() || name.size() > kMaxNameLength || !clean) {
        return fmt::format("a name has 1 to {} bytes of letters, digits, '.', '_', '-', '/' and spaces",
                           kMaxNameLength);
    }
    if (name.front() == ' ' || name.back() == ' ') {
        return "a name neither begins nor ends with a space";
    }
    if (std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return "a name of digits alone would be taken for an id";
    }
    return {};
}

bool IsIdentity(std::string_view text) {
    int parts = 0;
    for (;;) {
        const std::size_t end = std::min(text.find("::"), text.size());
        if (end == 0 || ++parts > 3) {
            return false;
        }
        if (end == text.size()) {
            return parts == 3;
        }
        text.remove_prefix(end + 2);
    }
}

} // namespace ProjectFile
