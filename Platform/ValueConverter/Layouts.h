// The layouts of all datapoint types: numbers in NumberLayout.h, composites beside their rows in Table/, each
// other in the file that its comment names. Internal to the converter.
#pragma once

#include "ValueConverter/Composite.h"
#include "ValueConverter/Layout.h"
#include "ValueConverter/NumberLayout.h"

namespace Datapoint {

extern const Layout kBoolean; // Boolean.cpp: 1.xxx

extern const Layout kFloat16; // Float16.cpp: 9.xxx

// Text.cpp
extern const Layout kCharacterAscii, kCharacterLatin1; // 4.xxx
extern const Layout kStringAscii, kStringLatin1;       // 16.xxx
extern const Layout kTwoCharacters;                    // 234.xxx
extern const Layout kVaryingLatin1;                    // 24.xxx
extern const Layout kVaryingUtf8;                      // 28.xxx

extern const Layout kTimeOfDay;                  // TimeOfDay.cpp: 10.xxx
extern const Layout kDate;                       // Date.cpp: 11.xxx
extern const Layout kFloat32;                    // Float32.cpp: 14.xxx
extern const Layout kSceneNumber, kSceneControl; // Scene.cpp: 17.xxx, 18.xxx
extern const Layout kDateTime;                   // DateTime.cpp: 19.xxx

/// Conversion by size alone (BySize.cpp). `sizeInBits` is modulo 256 and not 0.
Status DecodeBySize(unsigned sizeInBits, std::span<const std::uint8_t> octets, TAVVALUE& value);
Status EncodeBySize(unsigned sizeInBits, std::string_view text, Octets& octets, Reason reason);

} // namespace Datapoint
