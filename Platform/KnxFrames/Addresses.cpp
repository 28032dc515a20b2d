#include "KnxFrames/Addresses.h"

#include <array>
#include <charconv>
#include <span>

namespace KnxFrames {
namespace {

/// A numeric part of an address: its highest value and what to say when it is above.
struct Part {
    unsigned highest;
    const char* tooHigh;
};

constexpr std::array kThreeLevel = {Part{31, "the main group is above 31"},
                                    Part{7, "the middle group is above 7"},
                                    Part{255, "the sub group is above 255"}};
constexpr std::array kTwoLevel = {Part{31, "the main group is above 31"},
                                  Part{2047, "the sub group is above 2047"}};
constexpr std::array kFree = {Part{65535, "the address is above 65535"}};
constexpr std::array kIndividual = {Part{15, "the area is above 15"}, Part{15, "the line is above 15"},
                                    Part{255, "the device is above 255"}};

/// Reads digits of the base from `offset` on; moves `offset` behind them. A number too large for `unsigned`
/// is above every highest value, so it becomes the highest unsigned.
bool ReadNumber(std::string_view text, std::size_t& offset, int base, unsigned& number) {
    const char* first = text.data() + offset;
    const auto [last, error] = std::from_chars(first, text.data() + text.size(), number, base);
    if (last == first)
        return false;
    if (error != std::errc())
        number = ~0U;
    offset += static_cast<std::size_t>(last - first);
    return true;
}

Outcome<std::uint16_t> ReadHexadecimal(std::string_view text) {
    std::size_t offset = 2;
    unsigned number = 0;
    if (!ReadNumber(text, offset, 16, number))
        return FrameError::Malformed("hexadecimal digits are missing", offset);
    if (offset != text.size())
        return FrameError::Malformed("unexpected character", offset);
    if (text.size() > 6)
        return FrameError::Malformed("more than four hexadecimal digits", 6);
    return static_cast<std::uint16_t>(number);
}

bool IsHexadecimal(std::string_view text) {
    return text.starts_with("0x") || text.starts_with("0X");
}

/// Reads one number per part, with `separator` between them, into `numbers`.
Outcome<bool> ReadParts(std::string_view text, char separator, std::span<const Part> parts,
                        std::span<unsigned> numbers) {
    std::size_t offset = 0;
    for (std::size_t index = 0; index < parts.size(); ++index) {
        if (index > 0) {
            if (offset == text.size())
                return FrameError::Malformed("a part of the address is missing", offset);
            if (text[offset] != separator)
                return FrameError::Malformed("unexpected character", offset);
            ++offset;
        }
        const std::size_t start = offset;
        if (!ReadNumber(text, offset, 10, numbers[index]))
            return FrameError::Malformed("a number is missing", offset);
        if (numbers[index] > parts[index].highest)
            return FrameError::Malformed(parts[index].tooHigh, start);
    }
    if (offset != text.size())
        return FrameError::Malformed("unexpected character", offset);
    return true;
}

std::size_t Count(std::string_view text, char character) {
    std::size_t count = 0;
    for (const char each : text)
        count += each == character ? 1 : 0;
    return count;
}

std::string Join(std::initializer_list<unsigned> numbers, char separator) {
    std::string text;
    for (const unsigned number : numbers) {
        if (!text.empty())
            text += separator;
        text += std::to_string(number);
    }
    return text;
}

} // namespace

Outcome<GroupAddress> GroupAddress::Parse(std::string_view text) {
    if (IsHexadecimal(text)) {
        const auto number = ReadHexadecimal(text);
        return number ? Outcome(GroupAddress(*number)) : number.Error();
    }
    std::array<unsigned, 3> numbers{};
    const std::size_t separators = Count(text, '/');
    const std::span<const Part> parts = separators == 0   ? std::span<const Part>(kFree)
                                        : separators == 1 ? std::span<const Part>(kTwoLevel)
                                                          : std::span<const Part>(kThreeLevel);
    if (const auto read = ReadParts(text, '/', parts, numbers); !read)
        return read.Error();
    if (separators == 0)
        return GroupAddress(static_cast<std::uint16_t>(numbers[0]));
    if (separators == 1)
        return GroupAddress(static_cast<std::uint16_t>(numbers[0] << 11 | numbers[1]));
    return GroupAddress(numbers[0], numbers[1], numbers[2]);
}

std::string GroupAddress::ToString(GroupAddressStyle style) const {
    switch (style) {
    case GroupAddressStyle::TwoLevel: return Join({Main(), raw & 0x7FFU}, '/');
    case GroupAddressStyle::Free: return std::to_string(raw);
    case GroupAddressStyle::ThreeLevel: break;
    }
    return Join({Main(), Middle(), Sub()}, '/');
}

Outcome<IndividualAddress> IndividualAddress::Parse(std::string_view text) {
    if (IsHexadecimal(text)) {
        const auto number = ReadHexadecimal(text);
        return number ? Outcome(IndividualAddress(*number)) : number.Error();
    }
    std::array<unsigned, 3> numbers{};
    if (const auto read = ReadParts(text, '.', kIndividual, numbers); !read)
        return read.Error();
    return IndividualAddress(numbers[0], numbers[1], numbers[2]);
}

std::string IndividualAddress::ToString() const {
    return Join({Area(), Line(), Device()}, '.');
}

} // namespace KnxFrames
