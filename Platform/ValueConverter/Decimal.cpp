#include "ValueConverter/Decimal.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace Datapoint {

namespace {

constexpr int kMaxPower = 19; // 10^19 is the last power of ten within 64 bits
constexpr int kExponentLimit = 100000;

constexpr std::array<std::uint64_t, kMaxPower + 1> MakePowersOfTen() {
    std::array<std::uint64_t, kMaxPower + 1> powers{};
    std::uint64_t power = 1;
    for (auto& entry : powers) {
        entry = power;
        power *= 10;
    }
    return powers;
}
constexpr auto s_powersOfTen = MakePowersOfTen();

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// The "e-3" at the end of a number; nothing when it is not well-formed. Far exponents stay far.
std::optional<int> ReadExponent(std::string_view text) {
    const bool negative = !text.empty() && text.front() == '-';
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        text.remove_prefix(1);
    }
    if (text.empty() || !std::all_of(text.begin(), text.end(), IsDigit)) {
        return std::nullopt;
    }
    int exponent = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), exponent);
    if (result.ec != std::errc() || exponent > kExponentLimit) {
        exponent = kExponentLimit;
    }
    return negative ? -exponent : exponent;
}

Remainder RemainderOf(std::uint64_t rest, std::uint64_t whole, bool more) {
    if (rest == 0) {
        return more ? Remainder::BelowHalf : Remainder::None;
    }
    const std::uint64_t half = whole / 2;
    if (rest != half) {
        return rest < half ? Remainder::BelowHalf : Remainder::AboveHalf;
    }
    return more ? Remainder::AboveHalf : Remainder::Half;
}

} // namespace

int Scaled::Compare(std::int64_t units) const {
    if (overflow) {
        return negative ? -1 : 1;
    }
    const bool unitsNegative = units < 0;
    const std::uint64_t unitsMagnitude = unitsNegative ? std::uint64_t{0} - static_cast<std::uint64_t>(units)
                                                       : static_cast<std::uint64_t>(units);
    const bool zero = magnitude == 0 && remainder == Remainder::None;
    if (zero && units == 0) {
        return 0;
    }
    if (!zero && negative != unitsNegative) {
        return negative ? -1 : 1;
    }
    int distance = magnitude == unitsMagnitude ? (remainder == Remainder::None ? 0 : 1)
                                               : (magnitude < unitsMagnitude ? -1 : 1);
    return unitsNegative ? -distance : distance;
}

std::optional<Decimal> Decimal::Read(std::string_view text) {
    constexpr std::uint64_t kSafe = std::numeric_limits<std::uint64_t>::max() / 10;
    Decimal number;
    const char* at = text.data();
    const char* const end = at + text.size();
    if (at != end && (*at == '-' || *at == '+')) {
        number.m_negative = *at++ == '-';
    }
    bool anyDigit = false;
    bool behindPoint = false;
    for (; at != end; ++at) {
        if (*at == '.' && !behindPoint) {
            behindPoint = true;
            continue;
        }
        if (!IsDigit(*at)) {
            break;
        }
        anyDigit = true;
        const unsigned digit = static_cast<unsigned>(*at - '0');
        const bool fits = number.m_digits < kSafe || (number.m_digits == kSafe && digit <= 5);
        if (fits && !number.m_full) {
            number.m_digits = number.m_digits * 10 + digit;
            number.m_exponent -= behindPoint ? 1 : 0;
        } else {
            number.m_full = true;
            number.m_cut = number.m_cut || digit != 0;
            number.m_exponent += behindPoint ? 0 : 1;
        }
    }
    if (!anyDigit) {
        return std::nullopt;
    }
    if (at != end) {
        if (*at != 'e' && *at != 'E') {
            return std::nullopt;
        }
        const auto exponent = ReadExponent({at + 1, static_cast<std::size_t>(end - at - 1)});
        if (!exponent) {
            return std::nullopt;
        }
        number.m_exponent += *exponent;
    }
    return number;
}

Scaled Decimal::InUnits(int decimals) const {
    Scaled scaled;
    scaled.negative = m_negative;
    scaled.magnitude = m_digits;
    const int shift = m_exponent + decimals;
    if (m_digits == 0) {
        return scaled;
    }
    if (shift == 0) {
        scaled.remainder = m_cut ? Remainder::BelowHalf : Remainder::None;
    } else if (shift > 0) {
        scaled.overflow = m_full || shift > kMaxPower ||
                          __builtin_mul_overflow(m_digits, s_powersOfTen[shift], &scaled.magnitude);
    } else if (shift >= -kMaxPower) {
        const std::uint64_t unit = s_powersOfTen[-shift];
        scaled.magnitude = m_digits / unit;
        scaled.remainder = RemainderOf(m_digits % unit, unit, m_cut);
    } else {
        scaled.magnitude = 0; // 64 bits of digits are less than half of 10^20
        scaled.remainder = Remainder::BelowHalf;
    }
    return scaled;
}

} // namespace Datapoint
