#include "KnxStack/GroupValue.h"

namespace KnxStack {

GroupValue::GroupValue(const BinaryData& data, unsigned sizeInBits)
    : m_data(data), m_sizeInBits(sizeInBits) {}

bool GroupValue::GetAsBoolean() const {
    return (GetAsUnsigned8() & 0x01) != 0;
}

std::uint8_t GroupValue::GetAsUnsigned8() const {
    const auto bytes = m_data.Bytes();
    return bytes.empty() ? std::uint8_t{0} : bytes[0];
}

double GroupValue::GetAsFloat16() const {
    const auto bytes = m_data.Bytes();
    if (bytes.size() < 2) {
        return 0.0;
    }
    // Sign and mantissa together are a 12-bit two's complement number. Mantissa times power of two is an
    // exact integer of hundredths, so the one division is the only rounding.
    const int unsignedMantissa = (bytes[0] & 0x07) << 8 | bytes[1];
    const int mantissa = (bytes[0] & 0x80) != 0 ? unsignedMantissa - 2048 : unsignedMantissa;
    const int exponent = bytes[0] >> 3 & 0x0F;
    return mantissa * (1 << exponent) / 100.0;
}

} // namespace KnxStack
