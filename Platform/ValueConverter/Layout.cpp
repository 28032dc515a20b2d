#include "ValueConverter/Layout.h"

namespace Datapoint {

namespace {

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

} // namespace

std::string_view Excerpt(std::string_view text) {
    constexpr std::size_t kLongest = 40;
    if (text.size() <= kLongest) {
        return text;
    }
    std::size_t end = kLongest;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return text.substr(0, end);
}

std::string_view Trim(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace Datapoint
