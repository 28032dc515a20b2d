// What is left of received octets once their text went back to octets: all bits, but for those that say
// nothing. Told from the layout of the fields and from the KNX Standard's figures, not from the conversion.
#pragma once

#include "ValueConverter/Composite.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace Fuzz {

using Bytes = std::vector<std::uint8_t>;

/// A 2-byte float with the smallest exponent that has the same value.
inline unsigned Smallest16(unsigned raw) {
    if (raw == 0x7FFF)
        return raw;
    int mantissa = static_cast<int>(raw & 0x7FFU) - ((raw & 0x8000U) != 0 ? 2048 : 0);
    unsigned exponent = raw >> 11 & 0xFU;
    for (; exponent > 0 && mantissa * 2 >= -2048 && mantissa * 2 <= 2047; --exponent)
        mantissa *= 2;
    return (mantissa < 0 ? 0x8000U : 0U) | exponent << 11 | (static_cast<unsigned>(mantissa) & 0x7FFU);
}

/// The one NaN that "nan" reads back as; every other number as it is.
inline std::uint32_t SameNan32(std::uint32_t raw) {
    const bool nan = (raw & 0x7F800000U) == 0x7F800000U && (raw & 0x7FFFFFU) != 0;
    return nan ? (raw & 0x80000000U) | 0x7FC00000U : raw;
}

/// A text ends at its first NUL; what stands behind it is nothing.
inline void ClearBehindNul(std::span<std::uint8_t> octets) {
    std::fill(std::find(octets.begin(), octets.end(), std::uint8_t{0}), octets.end(), std::uint8_t{0});
}

/// Bits `at` to `at + count` of octets in telegram order.
inline std::uint64_t BitsAt(const Bytes& octets, unsigned at, unsigned count) {
    std::uint64_t bits = 0;
    for (const unsigned end = at + count; at < end; ++at)
        bits = bits << 1 | (octets[at / 8] >> (7 - at % 8) & 1U);
    return bits;
}

inline void PutBits(Bytes& octets, unsigned at, unsigned count, std::uint64_t bits) {
    for (; count-- > 0; ++at) {
        const auto mask = static_cast<std::uint8_t>(0x80U >> at % 8);
        octets[at / 8] =
            static_cast<std::uint8_t>((octets[at / 8] & ~mask) | ((bits >> count & 1U) != 0 ? mask : 0));
    }
}

inline void ReduceFields(const Datapoint::CompositeLayout& layout, Bytes& octets) {
    using Datapoint::FieldKind;
    unsigned at = layout.fixedBits < 8 ? 8 - layout.fixedBits : 0;
    PutBits(octets, 0, at, 0);
    for (const auto& field : layout.fields) {
        const unsigned bits = field.form.bits;
        const auto rest = std::span(octets).subspan(at / 8);
        switch (field.kind) {
        case FieldKind::Reserved: PutBits(octets, at, bits, 0); break;
        case FieldKind::Float16:
            PutBits(octets, at, bits, Smallest16(static_cast<unsigned>(BitsAt(octets, at, bits))));
            break;
        case FieldKind::Float32:
            PutBits(octets, at, bits, SameNan32(static_cast<std::uint32_t>(BitsAt(octets, at, bits))));
            break;
        case FieldKind::Ascii:
        case FieldKind::Utf8: ClearBehindNul(rest.first(bits / 8)); break;
        case FieldKind::Utf8ToTheEnd:
            octets.push_back(0);
            octets.erase(std::find(octets.begin() + at / 8, octets.end(), std::uint8_t{0}) + 1, octets.end());
            break;
        default: break;
        }
        at += bits;
    }
}

inline Bytes MaskedScalar(unsigned main, unsigned sizeInBits, Bytes octets) {
    static const std::map<unsigned, Bytes> s_masks{
        {10, {0xFF, 0x3F, 0x3F}},
        {11, {0x1F, 0x0F, 0x7F}},
        {17, {0x3F}},
        {18, {0xBF}},
        {19, {0xFF, 0x0F, 0x1F, 0xFF, 0x3F, 0x3F, 0xFF, 0xC0}},
    };
    if (const auto mask = s_masks.find(main); mask != s_masks.end()) {
        for (std::size_t at = 0; at < octets.size(); ++at)
            octets[at] &= mask->second.at(at);
    }
    if (sizeInBits < 8)
        octets[0] &= static_cast<std::uint8_t>(0xFFU >> (8 - sizeInBits));
    return octets;
}

/// The octets of a value, without what no text keeps: reserved bits, what stands behind a text's end, which
/// of several forms of one number was sent.
inline Bytes Reduced(const Datapoint::Type* type, bool composite, unsigned sizeInBits, Bytes octets) {
    if (type == nullptr)
        return MaskedScalar(0, sizeInBits, std::move(octets));
    if (composite) {
        ReduceFields(static_cast<const Datapoint::CompositeLayout&>(*type->layout), octets);
        return octets;
    }
    switch (type->main) {
    case 9: PutBits(octets, 0, 16, Smallest16(static_cast<unsigned>(BitsAt(octets, 0, 16)))); break;
    case 14: PutBits(octets, 0, 32, SameNan32(static_cast<std::uint32_t>(BitsAt(octets, 0, 32)))); break;
    case 4:
    case 16:
    case 234: ClearBehindNul(octets); break;
    case 24:
    case 28:
        octets.push_back(0);
        octets.erase(std::find(octets.begin(), octets.end(), std::uint8_t{0}) + 1, octets.end());
        break;
    default: octets = MaskedScalar(type->main, sizeInBits, std::move(octets)); break;
    }
    return octets;
}

} // namespace Fuzz
