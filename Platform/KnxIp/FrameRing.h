// A queue that keeps its memory. Internal to this folder.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace KnxIp {

/// First in, first out, in one block that grows by doubling and is given back when the queue has run empty
/// after a burst. In normal traffic nothing is allocated.
template <class T>
class FrameRing {
public:
    bool IsEmpty() const { return m_size == 0; }
    std::size_t Size() const { return m_size; }

    /// Not to be called on an empty queue.
    T& Front() { return m_slots[m_first]; }
    const T& Front() const { return m_slots[m_first]; }

    T& PushBack(const T& element) {
        Grow();
        T& slot = m_slots[Index(m_size++)];
        slot = element;
        return slot;
    }

    void PushFront(const T& element) {
        Grow();
        m_first = Index(m_slots.size() - 1);
        m_slots[m_first] = element;
        ++m_size;
    }

    /// Not to be called on an empty queue.
    void PopFront() {
        m_first = Index(1);
        if (--m_size == 0 && m_slots.size() > kKeptSlots) {
            m_slots = std::vector<T>();
            m_first = 0;
        }
    }

private:
    static constexpr std::size_t kFirstSlots = 8;
    static constexpr std::size_t kKeptSlots = 64;

    /// The slot `distance` places behind the first.
    std::size_t Index(std::size_t distance) const { return (m_first + distance) & (m_slots.size() - 1); }

    void Grow() {
        if (m_size < m_slots.size())
            return;
        std::vector<T> larger(m_slots.empty() ? kFirstSlots : 2 * m_slots.size()); // a power of two
        for (std::size_t index = 0; index < m_size; ++index)
            larger[index] = m_slots[Index(index)];
        m_slots = std::move(larger);
        m_first = 0;
    }

    std::vector<T> m_slots;
    std::size_t m_first = 0;
    std::size_t m_size = 0;
};

} // namespace KnxIp
