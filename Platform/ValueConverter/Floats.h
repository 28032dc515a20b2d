// The numbers of 9.xxx and 14.xxx, which are also fields of composites. Internal to the converter.
#pragma once

#include "ValueConverter/Layout.h"

#include <cstdint>
#include <string_view>

namespace Datapoint {

inline constexpr unsigned kInvalidFloat16 = 0x7FFF;
inline constexpr std::int64_t kFloat16Minimum = -67108864; // -2048 * 2^15 hundredths
inline constexpr std::int64_t kFloat16Maximum = 67043328;  // 2046 * 2^15; 2047 * 2^15 is kInvalidFloat16

/// The value of the 16 bits in hundredths.
std::int64_t Float16Hundredths(unsigned raw);

/// The 16 bits nearest to the number, with the smallest exponent. Refuses what is beyond the type's range.
Status ReadFloat16(std::string_view text, const Type& type, unsigned& raw, Reason reason);

/// The nearest number in single precision. Nothing but "inf" and "nan" becomes one that is not finite.
Status ReadFloat32(std::string_view text, float& number, Reason reason);

} // namespace Datapoint
