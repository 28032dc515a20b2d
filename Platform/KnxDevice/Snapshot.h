// One immutable object that many threads read while one replaces it.
#pragma once

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

namespace KnxDevice {

/// Holds the current `T`. A reader pins it with Read() and sees one unchanging object for as long as it keeps
/// the pin; it never waits. Replace() never waits either: a former object dies at the first replacement that
/// finds nobody reading, or with the holder. Pins are for the length of one look-up, not for keeping.
///
/// Read(): any thread. Replace(): one thread at a time. No pin may outlive the holder.
template <class T>
class Snapshot {
public:
    class Pin {
    public:
        explicit Pin(const Snapshot& holder) : m_holder(holder) {
            m_holder.m_readers.fetch_add(1);
            m_object = m_holder.m_current.load();
        }
        ~Pin() { m_holder.m_readers.fetch_sub(1); }
        Pin(const Pin&) = delete;
        Pin& operator=(const Pin&) = delete;

        const T& operator*() const { return *m_object; }
        const T* operator->() const { return m_object; }

    private:
        const Snapshot& m_holder;
        const T* m_object;
    };

    explicit Snapshot(T initial) { Replace(std::move(initial)); }

    Pin Read() const { return Pin(*this); }

    void Replace(T next) {
        m_kept.push_back(std::make_unique<const T>(std::move(next)));
        m_current.store(m_kept.back().get());
        // Who pins from here on sees the new object; without a reader now, nobody can hold an older one.
        if (m_readers.load() == 0)
            m_kept.erase(m_kept.begin(), m_kept.end() - 1);
    }

private:
    std::atomic<const T*> m_current{nullptr};
    mutable std::atomic<unsigned> m_readers{0};
    std::vector<std::unique_ptr<const T>> m_kept; // the current object last
};

} // namespace KnxDevice
