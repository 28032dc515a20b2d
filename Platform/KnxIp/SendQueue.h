// The telegrams that wait for a connection. Internal to this folder.
#pragma once

#include "KnxFrames/Cemi.h"
#include "KnxIp/FrameRing.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace KnxIp {

/// Telegrams in the order in which they were put in, whatever their priority; priority only decides who is
/// dropped. Confirmations are dropped when there is nothing else: their client waits for them alone. One ring
/// for each makes that decision cheap also when a link is down for days.
class SendQueue {
public:
    struct Entry {
        KnxFrames::LData telegram;
        std::uint64_t number = 0;
    };

    explicit SendQueue(std::size_t limit) : m_limit(limit) {}

    bool IsEmpty() const { return m_size == 0; }
    std::size_t Size() const { return m_size; }

    /// Puts a telegram in. When the queue was full, the oldest telegram of the lowest priority, maybe this
    /// one, is dropped.
    struct PushResult {
        bool wasFull = false;
        bool isIn = true;         ///< false: the new telegram itself was the one to go
        bool beginsBurst = false; ///< the first one to be dropped since the last burst ended
    };
    PushResult Push(const KnxFrames::LData& telegram) {
        FrameRing<Entry>& ring = RingOf(telegram);
        const std::uint64_t number = m_nextNumber++;
        ring.PushBack({telegram, number});
        if (++m_size <= m_limit)
            return {};
        FrameRing<Entry>& lowest = LowestRing();
        const bool isIn = lowest.Front().number != number;
        lowest.PopFront();
        --m_size;
        return {true, isIn, !std::exchange(m_isBurst, true)};
    }

    /// Whoever sends has come to the end of the queue: what is dropped next begins a new burst.
    void EndBurst() { m_isBurst = false; }

    /// Throws everything away.
    void Clear() {
        for (FrameRing<Entry>& ring : m_rings)
            ring = {};
        m_size = 0;
        EndBurst();
    }

    /// Puts an entry back that was taken with Pop(), to its old place; the limit may be exceeded by it.
    void PutBack(const Entry& entry) {
        RingOf(entry.telegram).PushFront(entry);
        ++m_size;
    }

    /// Takes the oldest telegram. Not on an empty queue.
    Entry Pop() {
        FrameRing<Entry>* oldest = nullptr;
        for (FrameRing<Entry>& ring : m_rings) {
            if (!ring.IsEmpty() && (oldest == nullptr || ring.Front().number < oldest->Front().number))
                oldest = &ring;
        }
        Entry entry = oldest->Front();
        oldest->PopFront();
        --m_size;
        return entry;
    }

private:
    FrameRing<Entry>& RingOf(const KnxFrames::LData& telegram) {
        if (telegram.code == KnxFrames::MessageCode::LDataCon)
            return m_rings[kConfirmations];
        return m_rings[static_cast<std::size_t>(telegram.GetPriority())];
    }

    FrameRing<Entry>& LowestRing() {
        using KnxFrames::Priority;
        for (const Priority priority :
             {Priority::Low, Priority::Normal, Priority::Urgent, Priority::System}) {
            FrameRing<Entry>& ring = m_rings[static_cast<std::size_t>(priority)];
            if (!ring.IsEmpty())
                return ring;
        }
        return m_rings[kConfirmations];
    }

    static constexpr std::size_t kConfirmations = 4; // behind the priorities

    const std::size_t m_limit;
    std::size_t m_size = 0;
    bool m_isBurst = false; // something was dropped since the last end
    std::uint64_t m_nextNumber = 0;
    std::array<FrameRing<Entry>, kConfirmations + 1> m_rings; // by the bits of the priority
};

} // namespace KnxIp
