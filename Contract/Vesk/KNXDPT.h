// Datapoint type record of the value converter.
#pragma once

#include <cstdint>

/// A KNX datapoint type, or only a size. Main number 0: values are converted by their size alone.
struct KNXDPT {
    std::uint8_t sizeInBits = 0; ///< size of the value in bits, modulo 256; 0 = not known
    std::uint8_t reserved =
        0;                  ///< 1 with 13.002: values in m³/h with four decimals instead of integers; else 0
    std::uint16_t main = 0; ///< main number, the 9 of 9.001
    std::uint16_t sub = 0;  ///< sub number, the 1 of 9.001

    bool operator==(const KNXDPT& other) const = default;
};
