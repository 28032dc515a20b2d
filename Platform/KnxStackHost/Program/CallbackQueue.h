// Telegrams on their way to the application program.
#pragma once

#include "KnxFrames/Tpdu.h"
#include "KnxStack/GroupValue.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>

namespace KnxStackHost {

/// One callback of the group value user.
struct Callback {
    std::uint16_t object = 0;
    KnxFrames::GroupServiceKind kind = KnxFrames::GroupServiceKind::Read;
    KnxStack::GroupValue value; ///< of a write or response
};

/// Group telegrams on their way to the application program, one count for each group object that takes one.
/// What came is delivered, replaced, dropped or waiting.
struct ProgramTelegrams {
    std::uint64_t delivered = 0;
    std::uint64_t replaced = 0;  ///< by newer ones of the same group object, as the program did not keep up
    std::uint64_t dropped = 0;   ///< since the group objects had changed before the program got to them
    std::size_t waiting = 0;     ///< now
    std::size_t mostWaiting = 0; ///< at the same time
};

/// A queue in the order of the bus that never loses the last word: up to `bound` callbacks are all kept;
/// beyond that, a new one takes the place of the newest waiting one of the same object and service. So its
/// size is below `bound` plus three times the number of objects. Not synchronised.
class CallbackQueue {
public:
    explicit CallbackQueue(std::size_t bound) : m_bound(bound) {}

    /// False when the callback has replaced an older one.
    bool Push(Callback callback);

    /// The oldest one. Not while empty.
    Callback Pop();

    bool IsEmpty() const { return m_waiting.empty(); }
    std::size_t Size() const { return m_waiting.size(); }
    void Clear();

private:
    using Waiting = std::list<Callback>;

    static std::uint32_t KeyOf(const Callback& callback) {
        return static_cast<std::uint32_t>(callback.kind) << 16 | callback.object;
    }

    std::size_t m_bound;
    Waiting m_waiting;
    std::unordered_map<std::uint32_t, Waiting::iterator> m_newest; // by object and service
};

} // namespace KnxStackHost
