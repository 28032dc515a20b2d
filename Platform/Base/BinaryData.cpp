#include "KnxStack/BinaryData.h"

#include <algorithm>

namespace KnxStack {

BinaryData::BinaryData(std::span<const std::uint8_t> bytes) : m_bytes(bytes.begin(), bytes.end()) {}

BinaryData::BinaryData(std::initializer_list<std::uint8_t> bytes) : m_bytes(bytes.begin(), bytes.end()) {}

void BinaryData::Append(std::uint8_t byte) {
    m_bytes.push_back(byte);
}

std::string BinaryData::ToString() const {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text(m_bytes.size() * 2, '\0');
    auto* out = text.data();
    for (const auto byte : m_bytes) {
        *out++ = kDigits[byte >> 4];
        *out++ = kDigits[byte & 0x0F];
    }
    return text;
}

bool BinaryData::operator==(const BinaryData& other) const {
    return std::ranges::equal(m_bytes, other.m_bytes);
}

} // namespace KnxStack
