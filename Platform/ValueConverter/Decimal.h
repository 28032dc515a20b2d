// Decimal numbers read and written exactly, without binary fractions. Internal to the converter.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Datapoint {

/// What lies behind the last digit that was kept.
enum class Remainder : std::uint8_t { None, BelowHalf, Half, AboveHalf };

/// A decimal number as a whole number of units: sign, magnitude, and what is left below one unit.
struct Scaled {
    bool negative = false;
    bool overflow = false; ///< the magnitude is beyond 64 bits
    Remainder remainder = Remainder::None;
    std::uint64_t magnitude = 0;

    /// To the nearest whole number of units, halves away from zero.
    std::uint64_t Rounded() const { return magnitude + (remainder >= Remainder::Half ? 1U : 0U); }

    /// -1, 0 or 1: less than, equal to, greater than `units`.
    int Compare(std::int64_t units) const;
};

/// A number as it was written.
class Decimal {
public:
    /// Reads "21.5", "-3", "+7", ".5", "5.", "2.15e1". Nothing unless the whole text is such a number.
    static std::optional<Decimal> Read(std::string_view text);

    /// The number in units of 10^-decimals. Exact up to 19 significant digits; more only count as "more than
    /// nothing" behind the last one.
    Scaled InUnits(int decimals) const;

private:
    std::uint64_t m_digits = 0; // value = digits * 10^exponent, and a little more when m_cut
    int m_exponent = 0;
    bool m_negative = false;
    bool m_cut = false;  // digits were dropped that are not all zero
    bool m_full = false; // digits were dropped, zero or not: one more digit is beyond 64 bits
};

/// Text of a decimal number in a buffer of its own. Inline, because `decimals` is a constant where it
/// matters.
class DecimalText {
public:
    /// `units` * 10^-decimals without zeros at its end: 215, 2 gives "2.15"; 210, 1 gives "21".
    DecimalText(std::int64_t units, unsigned decimals) {
        const bool negative = units < 0;
        std::uint64_t rest = negative ? std::uint64_t{0} - static_cast<std::uint64_t>(units)
                                      : static_cast<std::uint64_t>(units);
        if (decimals > 0) {
            for (unsigned digit = 0; digit < decimals; ++digit) {
                m_buffer[--m_begin] = static_cast<char>('0' + rest % 10);
                rest /= 10;
            }
            while (m_end > m_begin && m_buffer[m_end - 1] == '0') {
                --m_end;
            }
            if (m_end > m_begin) {
                m_buffer[--m_begin] = '.';
            } else {
                m_begin = m_end = kSize;
            }
        }
        do {
            m_buffer[--m_begin] = static_cast<char>('0' + rest % 10);
            rest /= 10;
        } while (rest != 0);
        if (negative) {
            m_buffer[--m_begin] = '-';
        }
    }

    std::string_view View() const { return {m_buffer.data() + m_begin, m_end - m_begin}; }
    operator std::string_view() const { return View(); }

private:
    static constexpr std::size_t kSize = 24; // 19 digits, sign, point
    std::array<char, kSize> m_buffer;
    std::size_t m_begin = kSize;
    std::size_t m_end = kSize;
};

} // namespace Datapoint
