// Byte buffer of the KNX stack interface.
#pragma once

#include "Tav/Export.h"

#include <boost/container/small_vector.hpp>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

namespace KnxStack {

/// Bytes in telegram order (the first byte is the first on the bus). A value type: copies are independent.
/// Up to 16 bytes are held without an allocation, so a group value of any standard size costs none.
/// Not synchronised; distinct objects may be used from distinct threads.
class TAV_EXPORT BinaryData {
public:
    /// An empty buffer, to be filled with Append().
    BinaryData() = default;

    /// A copy of `bytes`.
    explicit BinaryData(std::span<const std::uint8_t> bytes);
    BinaryData(std::initializer_list<std::uint8_t> bytes);

    /// All bytes. The view is valid until the object is changed, moved from or destroyed.
    std::span<const std::uint8_t> Bytes() const { return {m_bytes.data(), m_bytes.size()}; }

    /// Adds one byte at the end.
    void Append(std::uint8_t byte);

    /// Number of bytes.
    std::size_t GetSize() const { return m_bytes.size(); }

    /// Two lower-case hexadecimal digits per byte, without separators; "" for an empty buffer.
    std::string ToString() const;

    bool operator==(const BinaryData& other) const;

private:
    boost::container::small_vector<std::uint8_t, 16> m_bytes;
};

} // namespace KnxStack
