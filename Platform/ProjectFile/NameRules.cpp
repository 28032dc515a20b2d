#include "ProjectFile/NameRules.h"

#include <fmt/format.h>

#include <algorithm>

namespace ProjectFile {

namespace {

constexpr std::size_t kMaxNameLength = 200; // in bytes

constexpr std::size_t kMaxPartLength = 64;

bool IsAsciiLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// Letters, digits, '.', '_' and '-' alone.
bool IsPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return IsAsciiLetterOrDigit(c) || c == '.' || c == '_' || c == '-'; });
}

} // namespace

std::string DeviceFault(std::string_view device) {
    if (device.empty() || device.size() > kMaxNameLength || !IsPlain(device)) {
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

std::string IdentityPartFault(std::string_view part) {
    if (part.empty() || part.size() > kMaxPartLength || !IsPlain(part)) {
        return fmt::format("must have 1 to {} letters (a to z), digits, '.', '_' or '-'", kMaxPartLength);
    }
    return {};
}

bool IsIdentity(std::string_view text) {
    int parts = 0;
    for (;;) {
        const std::size_t end = std::min(text.find("::"), text.size());
        if (++parts > 3 || !IdentityPartFault(text.substr(0, end)).empty()) {
            return false;
        }
        if (end == text.size()) {
            return parts == 3;
        }
        text.remove_prefix(end + 2);
    }
}

} // namespace ProjectFile
