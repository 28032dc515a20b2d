// Numbers that stand in their octets as a whole number with a fixed scale. Internal to the converter.
#pragma once

#include "ValueConverter/Decimal.h"
#include "ValueConverter/Layout.h"

#include <cassert>
#include <cstdint>
#include <limits>
#include <string_view>

namespace Datapoint {

/// value = raw * factor / divisor + offset, printed with at most `decimals` digits behind the point. Up to 63
/// bits without a sign, 64 with one.
struct NumberForm {
    unsigned bits = 8;
    bool isSigned = false;
    std::int64_t factor = 1;
    std::int64_t divisor = 1;
    unsigned decimals = 0;
    bool highestIsInvalid = false; ///< the highest raw number says that there is no valid value
    std::int64_t offset = 0;       ///< only where the value is a plain whole number

    constexpr std::int64_t UnitsPerOne() const {
        std::int64_t units = 1;
        for (unsigned i = 0; i < decimals; ++i) {
            units *= 10;
        }
        return units;
    }

    /// The raw number is the value without its decimal point.
    constexpr bool IsPlain() const { return factor == 1 && divisor == UnitsPerOne(); }

    /// The range of what the octets can hold, in units of 10^-decimals.
    constexpr std::int64_t Minimum() const { return ToUnits(isSigned ? -HighestRaw() - 1 : 0); }
    constexpr std::int64_t Maximum() const { return ToUnits(HighestRaw() - (highestIsInvalid ? 1 : 0)); }
    constexpr std::int64_t HighestRaw() const {
        return static_cast<std::int64_t>((std::uint64_t{1} << (isSigned ? bits - 1 : bits)) - 1);
    }

    /// The value of a raw number in units of 10^-decimals, to the nearest.
    constexpr std::int64_t ToUnits(std::int64_t raw) const {
        if (IsPlain()) {
            return raw + offset;
        }
        const std::int64_t product = raw * factor * UnitsPerOne();
        const std::int64_t half = divisor / 2;
        return (product + (product < 0 ? -half : half)) / divisor;
    }
};

/// A row that only limits a number, in units of 10^-decimals.
constexpr Type Limits(std::int64_t minimum, std::int64_t maximum, unsigned decimals) {
    Type limits{};
    limits.minimum = minimum;
    limits.maximum = maximum;
    limits.decimals = static_cast<std::uint8_t>(decimals);
    return limits;
}

/// The raw number in the octets, whose size is the form's.
inline std::int64_t ReadRaw(const NumberForm& form, const std::uint8_t* octets) {
    assert(form.bits > 0);
    std::uint64_t raw = 0;
    for (unsigned bit = 0; bit < form.bits; bit += 8) {
        raw = raw << 8 | *octets++;
    }
    const unsigned unused = 64 - form.bits;
    return form.isSigned ? static_cast<std::int64_t>(raw << unused) >> unused
                         : static_cast<std::int64_t>(raw << unused >> unused);
}

inline void WriteRaw(const NumberForm& form, std::int64_t raw, std::uint8_t* octets) {
    const std::uint64_t mask = std::numeric_limits<std::uint64_t>::max() >> (64 - form.bits);
    std::uint64_t rest = static_cast<std::uint64_t>(raw) & mask;
    for (unsigned at = (form.bits + 7) / 8; at-- > 0; rest >>= 8) {
        octets[at] = static_cast<std::uint8_t>(rest);
    }
}

/// True when a list as "0..17,20" has the value.
bool IsMember(std::string_view members, std::int64_t value);

Status RefuseNotANumber(std::string_view text, Reason reason);
Status RefuseRange(const Scaled& value, std::string_view text, const Type& type, Reason reason);
Status RefuseNotWhole(std::string_view text, Reason reason);

/// The raw number nearest to value * divisor / factor, for a value that is no multiple of its own.
inline std::int64_t NearestRaw(const NumberForm& form, const Decimal& decimal) {
    // Twelve decimals reach beyond every border between two raw numbers, and the largest product, 100 times a
    // 16-bit number, stays within 63 bits.
    constexpr int kDecimals = 12;
    constexpr std::uint64_t kUnitsPerOne = 1'000'000'000'000U;
    const Scaled value = decimal.InUnits(kDecimals);
    const std::uint64_t product = value.magnitude * static_cast<std::uint64_t>(form.divisor);
    const std::uint64_t step = static_cast<std::uint64_t>(form.factor) * kUnitsPerOne;
    const auto magnitude = static_cast<std::int64_t>((product + step / 2) / step);
    return value.negative ? -magnitude : magnitude;
}

/// Reads a text within the type's range to a raw number. A plain number without decimals must be whole; every
/// other goes to the nearest raw number, halves away from zero.
inline Status ToRaw(const NumberForm& form, const Type& type, std::string_view text, std::int64_t& raw,
                    Reason reason) {
    const auto decimal = Decimal::Read(text);
    if (!decimal) {
        return RefuseNotANumber(text, reason);
    }
    const Scaled value = decimal->InUnits(static_cast<int>(form.decimals));
    if (value.Compare(type.minimum) < 0 || value.Compare(type.maximum) > 0) {
        return RefuseRange(value, text, type, reason);
    }
    if (!form.IsPlain()) {
        raw = NearestRaw(form, *decimal);
        return Status::Done;
    }
    if (form.decimals == 0 && value.remainder != Remainder::None) {
        return RefuseNotWhole(text, reason);
    }
    const std::uint64_t magnitude = value.Rounded();
    raw = static_cast<std::int64_t>(value.negative ? std::uint64_t{0} - magnitude : magnitude) - form.offset;
    return Status::Done;
}

} // namespace Datapoint
