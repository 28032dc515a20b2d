#include "KnxStackHost/Program/CallbackQueue.h"

#include <utility>

namespace KnxStackHost {

bool CallbackQueue::Push(Callback callback) {
    const auto key = KeyOf(callback);
    bool kept = true;
    if (m_waiting.size() >= m_bound) {
        if (const auto older = m_newest.find(key); older != m_newest.end()) {
            m_waiting.erase(older->second);
            kept = false;
        }
    }
    m_waiting.push_back(std::move(callback));
    m_newest[key] = std::prev(m_waiting.end());
    return kept;
}

Callback CallbackQueue::Pop() {
    const auto first = m_waiting.begin();
    const auto newest = m_newest.find(KeyOf(*first));
    if (newest != m_newest.end() && newest->second == first)
        m_newest.erase(newest);
    auto callback = std::move(*first);
    m_waiting.erase(first);
    return callback;
}

void CallbackQueue::Clear() {
    m_waiting.clear();
    m_newest.clear();
}

} // namespace KnxStackHost
