// Queue between a fast sender and a receiver that may hang: order up to a bound, the last value beyond it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <optional>
#include <unordered_map>
#include <utility>

namespace DeviceStackClient {

/// First in, first out. Up to `bound` entries everything is kept. Beyond it an entry with a key takes the
/// place of an older one with the same key among those beyond the bound: the older one goes, the newer one
/// stands at the end, so that the entries which remain are in the order in which they were pushed. Entries
/// without a key are kept up to `bound` more. The size is thus at most twice the bound plus the number of
/// different keys.
///
/// Not synchronised.
template <typename Item>
class LastValueQueue {
public:
    using Key = std::uint64_t;
    static constexpr Key kNoKey = 0;

    explicit LastValueQueue(std::size_t bound) : m_bound(bound) {}

    bool IsEmpty() const { return m_front.empty() && m_beyond.empty(); }
    std::size_t GetSize() const { return m_front.size() + m_beyond.size(); }

    /// True when the next push is one beyond the bound.
    bool IsFull() const { return !m_beyond.empty() || m_front.size() >= m_bound; }

    /// Result: the entry that is in the queue no longer: the older one of the same key, or `item` itself when
    /// it has no key and there is no room.
    [[nodiscard]] std::optional<Item> Push(Key key, Item item) {
        if (!IsFull()) {
            m_front.push_back(std::move(item));
            return std::nullopt;
        }
        if (key == kNoKey) {
            if (m_keyless >= m_bound)
                return item;
            ++m_keyless;
            m_beyond.emplace_back(key, std::move(item));
            return std::nullopt;
        }
        std::optional<Item> displaced;
        if (auto older = m_newest.find(key); older != m_newest.end()) {
            displaced = std::move(older->second->second);
            m_beyond.erase(older->second);
        }
        m_beyond.emplace_back(key, std::move(item));
        m_newest[key] = std::prev(m_beyond.end());
        return displaced;
    }

    /// The oldest entry, which stays. The queue must not be empty.
    const Item& Front() const { return m_front.empty() ? m_beyond.front().second : m_front.front(); }

    /// The oldest entry. The queue must not be empty.
    Item Pop() {
        if (!m_front.empty()) {
            Item item = std::move(m_front.front());
            m_front.pop_front();
            return item;
        }
        auto [key, item] = std::move(m_beyond.front());
        m_beyond.pop_front();
        if (key == kNoKey)
            --m_keyless;
        else
            m_newest.erase(key);
        return std::move(item);
    }

    /// Oldest first.
    template <typename Visit>
    void ForEach(const Visit& visit) {
        for (auto& item : m_front)
            visit(item);
        for (auto& [key, item] : m_beyond)
            visit(item);
    }

private:
    using Beyond = std::list<std::pair<Key, Item>>;

    std::size_t m_bound;
    std::deque<Item> m_front; ///< the first `m_bound` entries
    Beyond m_beyond;          ///< what came when m_front was full, emptied before m_front is filled again
    std::unordered_map<Key, typename Beyond::iterator> m_newest; ///< by key, into m_beyond
    std::size_t m_keyless = 0;                                   ///< entries without a key in m_beyond
};

} // namespace DeviceStackClient
