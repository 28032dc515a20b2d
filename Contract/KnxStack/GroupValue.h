// Value of a group telegram.
#pragma once

#include "KnxStack/BinaryData.h"
#include "Tav/Export.h"

#include <cstdint>

namespace KnxStack {

/// The value that a group telegram carries: raw bytes in telegram order and a defined size in bits.
/// A value of 1 to 7 bits is one byte, right-aligned, whatever its place in the telegram was.
/// A value type; not synchronised.
class TAV_EXPORT GroupValue {
public:
    /// No value: size 0, no bytes.
    GroupValue() = default;

    /// `data` holds (sizeInBits + 7) / 8 bytes; neither is checked against the other.
    GroupValue(const BinaryData& data, unsigned sizeInBits);

    /// Size in bits as given at construction: 1 to 7, or a multiple of 8.
    unsigned GetDefinedSize() const { return m_sizeInBits; }

    const BinaryData& GetRawData() const { return m_data; }

    /// Bit 0 of the first byte; false without bytes.
    bool GetAsBoolean() const;

    /// The first byte; 0 without bytes.
    std::uint8_t GetAsUnsigned8() const;

    /// The first two bytes read as the KNX 2-byte float (sign, 4-bit exponent, 11-bit mantissa in units of
    /// 0.01; KNX Standard 3/7/2, F16), as the double nearest to the exact value; 0.0 with fewer than two
    /// bytes. 7FFFh, "invalid data", is not treated specially here.
    double GetAsFloat16() const;

    bool operator==(const GroupValue& other) const = default;

private:
    BinaryData m_data;
    unsigned m_sizeInBits = 0;
};

} // namespace KnxStack
