// The layouts of all datapoint types, each in the file that its comment names. Internal to the converter.
#pragma once

#include "ValueConverter/Composite.h"
#include "ValueConverter/Layout.h"
#include "ValueConverter/NumberForm.h"

namespace Datapoint {

extern const Layout kBoolean; // Boolean.cpp: 1.xxx

// Number.cpp: whole numbers and numbers of a fixed scale.
inline constexpr NumberForm kFormU8{8};
inline constexpr NumberForm kFormPercent{8, false, 100, 255, 1};
inline constexpr NumberForm kFormAngle{8, false, 360, 255, 1};
inline constexpr NumberForm kFormV8{8, true};
inline constexpr NumberForm kFormU16{16};
inline constexpr NumberForm kFormU16Times10{16, false, 10};
inline constexpr NumberForm kFormU16Times100{16, false, 100};
inline constexpr NumberForm kFormV16{16, true};
inline constexpr NumberForm kFormV16Times10{16, true, 10};
inline constexpr NumberForm kFormV16Times100{16, true, 100};
inline constexpr NumberForm kFormV16Hundredths{16, true, 1, 100, 2, true};
inline constexpr NumberForm kFormU32{32};
inline constexpr NumberForm kFormV32{32, true};
inline constexpr NumberForm kFormV32TenThousandths{32, true, 1, 10000, 4};
extern const Layout kU8, kPercent, kAngle, kV8, kU16, kU16Times10, kU16Times100, kV16, kV16Times10,
    kV16Times100, kV16Hundredths, kU32, kV32, kV32TenThousandths;

extern const Layout kFloat16;                              // Float16.cpp: 9.xxx
inline constexpr std::int64_t kFloat16Minimum = -67108864; // -2048 * 2^15 hundredths
inline constexpr std::int64_t kFloat16Maximum = 67043328;  // 2046 * 2^15; 2047 * 2^15 is 7FFFh, invalid data

// Composite.cpp: JSON objects.
extern const CompositeLayout kControl;     // 2.xxx
extern const CompositeLayout kStepControl; // 3.xxx
extern const CompositeLayout kStatusMode;  // 6.020
extern const CompositeLayout kAccessData;  // 15.xxx

// Text.cpp: characters of one octet each.
extern const Layout kCharacterAscii, kCharacterLatin1; // 4.xxx
extern const Layout kStringAscii, kStringLatin1;       // 16.xxx

extern const Layout kTimeOfDay;                  // TimeOfDay.cpp: 10.xxx
extern const Layout kDate;                       // Date.cpp: 11.xxx
extern const Layout kFloat32;                    // Float32.cpp: 14.xxx
extern const Layout kSceneNumber, kSceneControl; // Scene.cpp: 17.xxx, 18.xxx
extern const Layout kDateTime;                   // DateTime.cpp: 19.xxx

/// Conversion by size alone (BySize.cpp). `sizeInBits` is modulo 256 and not 0.
Status DecodeBySize(unsigned sizeInBits, std::span<const std::uint8_t> octets, TAVVALUE& value);
Status EncodeBySize(unsigned sizeInBits, std::string_view text, Octets& octets, Reason reason);

} // namespace Datapoint
