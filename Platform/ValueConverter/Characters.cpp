#include "ValueConverter/Characters.h"

namespace Datapoint {

std::optional<char32_t> TakeCharacter(std::string_view& text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) {
        text.remove_prefix(1);
        return first;
    }
    const unsigned length = first >= 0xC2 && first < 0xE0   ? 2
                            : first >= 0xE0 && first < 0xF0 ? 3
                            : first >= 0xF0 && first < 0xF5 ? 4
                                                            : 0;
    if (length == 0 || text.size() < length) {
        return std::nullopt;
    }
    char32_t character = first & (0x7FU >> length);
    for (unsigned i = 1; i < length; ++i) {
        const auto octet = static_cast<unsigned char>(text[i]);
        if ((octet & 0xC0U) != 0x80U) {
            return std::nullopt;
        }
        character = character << 6 | (octet & 0x3FU);
    }
    const bool overlong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    if (overlong || surrogate || character > 0x10FFFF) {
        return std::nullopt;
    }
    text.remove_prefix(length);
    return character;
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        if (!TakeCharacter(text)) {
            return false;
        }
    }
    return true;
}

Status RefuseNotUtf8(Reason reason) {
    return Refuse(Status::Malformed, reason, "the text is not UTF-8");
}

Status CheckUtf8(std::string_view text, Reason reason) {
    if (!IsUtf8(text)) {
        return RefuseNotUtf8(reason);
    }
    return text.find('\0') == std::string_view::npos
               ? Status::Done
               : Refuse(Status::OutOfRange, reason, "the character U+0000 would end the text");
}

void AppendLatin1(std::string_view octets, TextBuffer& text) {
    for (const char c : octets) {
        const auto octet = static_cast<unsigned char>(c);
        if (octet < 0x80) {
            text += c;
        } else {
            text += static_cast<char>(0xC0U | octet >> 6);
            text += static_cast<char>(0x80U | (octet & 0x3FU));
        }
    }
}

Status ToLatin1(std::string_view text, char32_t highest, TextBuffer& octets, Reason reason) {
    while (!text.empty()) {
        const auto character = TakeCharacter(text);
        if (!character) {
            return RefuseNotUtf8(reason);
        }
        if (*character == 0 || *character > highest) {
            return Refuse(Status::OutOfRange, reason, "the character U+{:04X} is not one of U+0001..U+{:04X}",
                          static_cast<unsigned>(*character), static_cast<unsigned>(highest));
        }
        octets += static_cast<char>(*character);
    }
    return Status::Done;
}

} // namespace Datapoint
