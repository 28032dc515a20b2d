// Main number 0: values of which only the size is known.
#include "Tav/TAVVALUE.h"
#include "ValueConverter/Decimal.h"
#include "ValueConverter/Layouts.h"
#include "ValueConverter/TextBuffer.h"

#include <array>
#include <limits>

namespace Datapoint {

namespace {

constexpr unsigned kDecimalBits = 64; // longer values are hexadecimal digits

std::uint64_t Highest(unsigned bits) {
    return std::numeric_limits<std::uint64_t>::max() >> (64 - bits);
}

int DigitValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

Status EncodeDigits(std::string_view text, Octets& octets, Reason reason) {
    octets.Resize(text.size() / 2);
    for (std::size_t i = 0; i < octets.Size(); ++i) {
        const int high = DigitValue(text[2 * i]);
        const int low = DigitValue(text[2 * i + 1]);
        if (high < 0 || low < 0) {
            return Refuse(Status::Malformed, reason, "'{}' holds more than hexadecimal digits",
                          Excerpt(text));
        }
        octets[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return Status::Done;
}

Status EncodeNumber(unsigned sizeInBits, std::string_view text, Octets& octets, Reason reason) {
    const auto decimal = Decimal::Read(text);
    if (!decimal) {
        return RefuseNotANumber(text, reason);
    }
    const Scaled value = decimal->InUnits(0);
    const bool zero = value.magnitude == 0 && value.remainder == Remainder::None;
    if (value.negative && !zero) {
        return Refuse(Status::OutOfRange, reason, "{} is below 0", Excerpt(text));
    }
    if (value.overflow || value.magnitude > Highest(sizeInBits)) {
        return Refuse(Status::OutOfRange, reason, "{} is above {}", Excerpt(text), Highest(sizeInBits));
    }
    if (value.remainder != Remainder::None) {
        return RefuseNotWhole(text, reason);
    }
    octets.Resize((sizeInBits + 7) / 8);
    std::uint64_t rest = value.magnitude;
    for (std::size_t at = octets.Size(); at-- > 0; rest >>= 8) {
        octets[at] = static_cast<std::uint8_t>(rest);
    }
    return Status::Done;
}

} // namespace

Status DecodeBySize(unsigned sizeInBits, std::span<const std::uint8_t> octets, TAVVALUE& value) {
    if (sizeInBits <= kDecimalBits) {
        std::uint64_t number = 0;
        for (const std::uint8_t octet : octets) {
            number = number << 8 | octet;
        }
        value.SetUnsigned(number & Highest(sizeInBits));
        return Status::Done;
    }
    constexpr std::string_view kDigits = "0123456789abcdef";
    TextBuffer text;
    for (const std::uint8_t octet : octets) {
        text += kDigits[octet >> 4];
        text += kDigits[octet & 0xFU];
    }
    value.SetText(text.View());
    return Status::Done;
}

Status EncodeBySize(unsigned sizeInBits, std::string_view text, Octets& octets, Reason reason) {
    // The size wraps at 256 bits, but the digits of a longer value tell its true one.
    const std::size_t digitBits = text.size() * 4;
    if (digitBits > kDecimalBits && digitBits % 8 == 0 && digitBits % 256 == sizeInBits) {
        return EncodeDigits(text, octets, reason);
    }
    if (sizeInBits > kDecimalBits) {
        return Refuse(Status::Malformed, reason, "'{}' does not have the {} hexadecimal digits of this size",
                      Excerpt(text), sizeInBits / 4);
    }
    return EncodeNumber(sizeInBits, text, octets, reason);
}

} // namespace Datapoint
