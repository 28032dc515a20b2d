// Group addresses and individual addresses, and how people write them.
#pragma once

#include "KnxFrames/Outcome.h"

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace KnxFrames {

/// How a group address is printed. The 16 bits are the same in every style.
enum class GroupAddressStyle : std::uint8_t {
    ThreeLevel, ///< main/middle/sub, 5 + 3 + 8 bits: 1/2/3
    TwoLevel,   ///< main/sub, 5 + 11 bits: 1/515
    Free,       ///< the number: 2563
};

/// Destination of group communication: 16 bits, of which all count (main group 0 to 31). Raw 0 is not a group
/// but the broadcast address of the transport layer.
struct GroupAddress {
    std::uint16_t raw = 0;

    constexpr GroupAddress() = default;
    constexpr explicit GroupAddress(std::uint16_t number) : raw(number) {}
    /// Three-level parts: `main` 0 to 31, `middle` 0 to 7, `sub` 0 to 255; higher bits are ignored.
    constexpr GroupAddress(unsigned main, unsigned middle, unsigned sub)
        : raw(static_cast<std::uint16_t>((main & 0x1F) << 11 | (middle & 0x07) << 8 | (sub & 0xFF))) {}

    constexpr unsigned Main() const { return raw >> 11; }
    constexpr unsigned Middle() const { return raw >> 8 & 0x07; }
    constexpr unsigned Sub() const { return raw & 0xFF; }

    /// Reads `1/2/3` (parts up to 31/7/255), `1/515` (up to 31/2047), a decimal number up to 65535, or `0x`
    /// and one to four hexadecimal digits. No blanks and no signs. Refused text names what is wrong with it;
    /// the error's offset counts characters.
    static Outcome<GroupAddress> Parse(std::string_view text);

    std::string ToString(GroupAddressStyle style = GroupAddressStyle::ThreeLevel) const;

    constexpr auto operator<=>(const GroupAddress& other) const = default;
};

/// Address of one device: area 0 to 15, line 0 to 15, device 0 to 255. Raw 0 (0.0.0) stands for "not known":
/// a client that sends with it leaves the source to its interface.
struct IndividualAddress {
    std::uint16_t raw = 0;

    constexpr IndividualAddress() = default;
    constexpr explicit IndividualAddress(std::uint16_t number) : raw(number) {}
    /// Higher bits of the parts are ignored.
    constexpr IndividualAddress(unsigned area, unsigned line, unsigned device)
        : raw(static_cast<std::uint16_t>((area & 0x0F) << 12 | (line & 0x0F) << 8 | (device & 0xFF))) {}

    constexpr unsigned Area() const { return raw >> 12; }
    constexpr unsigned Line() const { return raw >> 8 & 0x0F; }
    constexpr unsigned Device() const { return raw & 0xFF; }

    /// Reads `1.1.4` or `0x` and one to four hexadecimal digits.
    static Outcome<IndividualAddress> Parse(std::string_view text);

    std::string ToString() const;

    constexpr auto operator<=>(const IndividualAddress& other) const = default;
};

} // namespace KnxFrames
