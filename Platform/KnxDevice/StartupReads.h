// Which values the device reads from the bus when it starts, and at what pace.
#pragma once

#include "KnxDevice/GroupObjectTable.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace KnxDevice {

using TimePoint = std::chrono::steady_clock::time_point;

/// The read requests of all objects with flag I, a few at a time, so that a start is no storm. What comes to
/// be known by itself before its turn is not asked for, and what nobody answers is asked for once. No clock
/// and no thread of its own.
class StartupReads {
public:
    static constexpr std::size_t kMostOutstanding = 2;
    static constexpr std::chrono::seconds kPatience{2};    ///< with whoever should answer
    static constexpr std::chrono::milliseconds kPause{20}; ///< from one request to the next, at least

    /// Begins with the objects of the table that have flags C and I and an address; whatever was not asked
    /// for yet is forgotten.
    void Begin(const GroupObjectTable& table);

    /// The object has a value: it was received, or the device has sent it.
    void OnValue(std::uint16_t object);

    /// The object to be asked for now, which counts as asked; nothing when none is due.
    std::optional<std::uint16_t> Next(TimePoint now);

    /// When Next() is worth a call: now or later; nothing at the end.
    std::optional<TimePoint> NextTime(TimePoint now) const;

    bool IsIdle() const { return m_waiting.empty() && m_outstanding.empty(); }

    /// Since Begin().
    struct Counts {
        std::size_t wanted = 0;
        std::size_t known = 0;      ///< answered, or known before they were asked for
        std::size_t unanswered = 0; ///< within kPatience
    };
    const Counts& Result() const { return m_counts; }

private:
    struct Outstanding {
        std::uint16_t object;
        TimePoint until;
    };

    void DropLate(TimePoint now);
    bool IsWanted(std::uint16_t object) const { return object < m_wanted.size() && m_wanted[object]; }

    std::vector<bool> m_wanted; // by object: no value yet, and asked for or waiting
    std::deque<std::uint16_t> m_waiting;
    std::vector<Outstanding> m_outstanding;
    TimePoint m_notBefore{};
    Counts m_counts;
};

} // namespace KnxDevice
