// Octets with a fixed capacity, without allocation.
#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

namespace KnxFrames {

using Octets = std::span<const std::uint8_t>;

/// Up to `Capacity` octets, held in the object itself; a copy touches only the octets in use. Multi-octet
/// numbers are written with the most significant octet first, as everywhere in KNX. Appending beyond the
/// capacity is a programming error: caught by an assertion, and cut off in builds without assertions.
template <std::size_t Capacity>
class FixedOctets {
public:
    static constexpr std::size_t kCapacity = Capacity;

    // Octets beyond m_size are never read, so they stay uninitialised on purpose.
    FixedOctets() {}
    FixedOctets(std::initializer_list<std::uint8_t> octets) { Append(Octets{octets.begin(), octets.size()}); }
    explicit FixedOctets(Octets octets) { Append(octets); }
    FixedOctets(const FixedOctets& other) { Append(other.View()); }
    FixedOctets& operator=(const FixedOctets& other) {
        if (this != &other) {
            Clear();
            Append(other.View());
        }
        return *this;
    }

    void Clear() { m_size = 0; }

    void Append(std::uint8_t octet) {
        assert(m_size < Capacity);
        if (m_size < Capacity)
            m_octets[m_size++] = octet;
    }
    void Append16(std::uint16_t number) {
        Append(static_cast<std::uint8_t>(number >> 8));
        Append(static_cast<std::uint8_t>(number & 0xFF));
    }
    void Append(Octets octets) {
        assert(octets.size() <= Capacity - m_size);
        const std::size_t count = std::min(octets.size(), Capacity - m_size);
        std::copy_n(octets.data(), count, m_octets.data() + m_size);
        m_size += count;
    }

    std::size_t Size() const { return m_size; }
    bool IsEmpty() const { return m_size == 0; }
    const std::uint8_t* Data() const { return m_octets.data(); }

    /// `index` below Size().
    std::uint8_t operator[](std::size_t index) const { return m_octets[index]; }
    std::uint8_t& operator[](std::size_t index) { return m_octets[index]; }

    /// Valid until the object is changed or destroyed.
    Octets View() const { return {m_octets.data(), m_size}; }
    operator Octets() const { return View(); }

    bool operator==(const FixedOctets& other) const {
        return std::equal(Data(), Data() + Size(), other.Data(), other.Data() + other.Size());
    }

private:
    std::size_t m_size = 0;
    std::array<std::uint8_t, Capacity> m_octets;
};

} // namespace KnxFrames
