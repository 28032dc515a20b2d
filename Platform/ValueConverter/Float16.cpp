// 9.xxx: the KNX 2-byte float, sign, 4-bit exponent E and mantissa M: M * 2^E hundredths.
#include "Tav/TAVVALUE.h"
#include "ValueConverter/Floats.h"
#include "ValueConverter/Layouts.h"

#include <bit>

namespace Datapoint {

namespace {

constexpr std::int64_t kLowestMantissa = -2048;
constexpr std::int64_t kHighestMantissa = 2047;

// The nearest number with the smallest exponent. `value` is in hundredths and within the range.
unsigned ToFloat16(const Scaled& value) {
    // Two bits behind the hundredths say whether the rest is nothing, below, at or above one half, so that
    // there is one rounding, at the final step.
    const std::uint64_t quarters = value.magnitude * 4 + static_cast<std::uint64_t>(value.remainder);
    const std::int64_t highest = value.negative ? -kLowestMantissa : kHighestMantissa;
    const auto width = static_cast<int>(std::bit_width(value.magnitude));
    unsigned exponent = width > 12 ? static_cast<unsigned>(width) - 12U : 0U;
    std::int64_t magnitude = 0;
    for (;; ++exponent) {
        const unsigned shift = exponent + 2;
        magnitude = static_cast<std::int64_t>((quarters + (std::uint64_t{1} << (shift - 1))) >> shift);
        if (magnitude <= highest) {
            break;
        }
    }
    if (exponent > 0 && magnitude * 2 <= highest) {
        magnitude *= 2; // rounding down brought it back to where the smaller exponent is enough
        --exponent;
    }
    const std::int64_t mantissa = value.negative ? -magnitude : magnitude;
    return (mantissa < 0 ? 0x8000U : 0U) | exponent << 11 | (static_cast<unsigned>(mantissa) & 0x7FFU);
}

Status Decode(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason) {
    const unsigned raw = octets[0] * 256U + octets[1];
    if (raw == kInvalidFloat16) {
        value.SetNull();
    } else {
        value.SetDecimal(DecimalText(Float16Hundredths(raw), 2));
    }
    return Status::Done;
}

Status Encode(const Type& type, std::string_view text, Octets& octets, Reason reason) {
    unsigned raw = 0;
    const Status status = ReadFloat16(text, type, raw, reason);
    octets[0] = static_cast<std::uint8_t>(raw >> 8);
    octets[1] = static_cast<std::uint8_t>(raw);
    return status;
}

Status EncodeReceived(const Type&, std::string_view text, Octets& octets, Reason reason) {
    constexpr Type kLimits = Limits(kFloat16Minimum, kFloat16Maximum, 2);
    return Encode(kLimits, text, octets, reason);
}

} // namespace

std::int64_t Float16Hundredths(unsigned raw) {
    const std::int64_t mantissa = static_cast<std::int64_t>(raw & 0x7FFU) - ((raw & 0x8000U) != 0 ? 2048 : 0);
    const unsigned exponent = raw >> 11 & 0xFU;
    return mantissa * (std::int64_t{1} << exponent);
}

Status ReadFloat16(std::string_view text, const Type& type, unsigned& raw, Reason reason) {
    const auto decimal = Decimal::Read(text);
    if (!decimal) {
        return RefuseNotANumber(text, reason);
    }
    const Scaled value = decimal->InUnits(2);
    if (value.Compare(type.minimum) < 0 || value.Compare(type.maximum) > 0) {
        return RefuseRange(value, text, type, reason);
    }
    raw = ToFloat16(value);
    return Status::Done;
}

constinit const Layout kFloat16{16, Decode, Encode, false, EncodeReceived};

} // namespace Datapoint
