// A text in the making. Internal to the converter.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

namespace Datapoint {

/// Takes nothing from the heap for texts of up to 512 octets, so that the text of a value takes memory once:
/// where it stays.
class TextBuffer {
public:
    TextBuffer() {} // the characters in place get their values in operator+=
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    TextBuffer& operator+=(char c) {
        *Extend(1) = c;
        return *this;
    }
    TextBuffer& operator+=(std::string_view text) {
        std::copy(text.begin(), text.end(), Extend(text.size()));
        return *this;
    }

    /// The last `digits` decimal digits of the number, with zeros in front.
    void AppendDigits(unsigned number, unsigned digits) {
        char* const first = Extend(digits);
        for (char* at = first + digits; at != first; number /= 10) {
            *--at = static_cast<char>('0' + number % 10);
        }
    }

    std::string_view View() const { return {m_more ? m_more.get() : m_inPlace.data(), m_size}; }

private:
    // Room for `count` more characters, which count from now on.
    char* Extend(std::size_t count) {
        if (m_capacity - m_size < count) {
            Grow(count);
        }
        char* const end = (m_more ? m_more.get() : m_inPlace.data()) + m_size;
        m_size += count;
        return end;
    }

    void Grow(std::size_t count) {
        const std::size_t capacity = std::max(2 * m_capacity, m_size + count);
        auto more = std::make_unique<char[]>(capacity);
        const std::string_view text = View();
        std::copy(text.begin(), text.end(), more.get());
        m_more = std::move(more);
        m_capacity = capacity;
    }

    std::size_t m_size = 0;
    std::size_t m_capacity = 512;
    std::unique_ptr<char[]> m_more;
    std::array<char, 512> m_inPlace;
};

} // namespace Datapoint
