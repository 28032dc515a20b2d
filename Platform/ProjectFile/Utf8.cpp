#include "ProjectFile/Utf8.h"

#include <cstdint>

namespace ProjectFile {

namespace {

/// Length of the UTF-8 sequence at the front of the text; 0 when there is none.
std::size_t SequenceLength(std::string_view text) {
    const auto octet = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t lead = octet(0);
    if (lead < 0x80) {
        return 1;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((octet(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    // Neither longer than needed, nor a surrogate, nor above U+10FFFF.
    const bool allowed = (lead != 0xE0 || octet(1) >= 0xA0) && (lead != 0xED || octet(1) < 0xA0) &&
                         (lead != 0xF0 || octet(1) >= 0x90) && (lead != 0xF4 || octet(1) < 0x90);
    return allowed ? length : 0;
}

} // namespace

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = SequenceLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

} // namespace ProjectFile
