// 4.xxx and 16.xxx: characters of one octet each, ISO 8859-1 or its half that is ASCII.
#include "Tav/TAVVALUE.h"
#include "ValueConverter/Layouts.h"

#include <optional>

namespace Datapoint {

namespace {

constexpr char32_t kHighestAscii = 0x7F;
constexpr char32_t kHighestLatin1 = 0xFF;

// The first character of a UTF-8 text, which is taken off it; nothing when its octets are not one.
std::optional<char32_t> TakeCharacter(std::string_view& text) {
    const auto first = static_cast<unsigned char>(text.front());
    const unsigned length = first < 0x80                    ? 1
                            : first >= 0xC2 && first < 0xE0 ? 2
                            : first >= 0xE0 && first < 0xF0 ? 3
                            : first >= 0xF0 && first < 0xF5 ? 4
                                                            : 0;
    if (length == 0 || text.size() < length) {
        return std::nullopt;
    }
    char32_t character = length == 1 ? first : first & (0x7FU >> length);
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

// Above 7Fh also for the ASCII types: whoever sends that means ISO 8859-1.
Status Decode(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason) {
    std::string text;
    for (const std::uint8_t octet : octets) {
        if (octet == 0) {
            break;
        }
        if (octet < 0x80) {
            text += static_cast<char>(octet);
        } else {
            text += static_cast<char>(0xC0U | octet >> 6);
            text += static_cast<char>(0x80U | (octet & 0x3FU));
        }
    }
    value.SetText(text);
    return Status::Done;
}

template <char32_t Highest>
Status Encode(const Type&, std::string_view text, Octets& octets, Reason reason) {
    const std::string_view whole = text;
    std::size_t count = 0;
    while (!text.empty()) {
        const auto character = TakeCharacter(text);
        if (!character) {
            return Refuse(Status::Malformed, reason, "the text is not UTF-8");
        }
        if (*character == 0 || *character > Highest) {
            return Refuse(Status::OutOfRange, reason, "the character U+{:04X} is not one of U+0001..U+{:04X}",
                          static_cast<unsigned>(*character), static_cast<unsigned>(Highest));
        }
        if (count == octets.Size()) {
            return Refuse(Status::OutOfRange, reason, "'{}' has more than {} character{}", Excerpt(whole),
                          octets.Size(), octets.Size() == 1 ? "" : "s");
        }
        octets[count++] = static_cast<std::uint8_t>(*character);
    }
    return Status::Done;
}

} // namespace

constinit const Layout kCharacterAscii{8, Decode, Encode<kHighestAscii>, true, Encode<kHighestLatin1>};
constinit const Layout kCharacterLatin1{8, Decode, Encode<kHighestLatin1>, true};
constinit const Layout kStringAscii{112, Decode, Encode<kHighestAscii>, true, Encode<kHighestLatin1>};
constinit const Layout kStringLatin1{112, Decode, Encode<kHighestLatin1>, true};

} // namespace Datapoint
