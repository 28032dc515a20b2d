// Named event sources with a timed wait.
#pragma once

#include "Tav/Export.h"

#include <memory>
#include <string>

/// A set of events that one thread waits on. Names are labels inside the process, for people who read logs;
/// two sets may bear the same name. All operations may be called from any thread.
class TAV_EXPORT TavEvents {
public:
    /// Identifies an event within its set, counted from 1; 0 is none.
    using Id = unsigned;

    /// Named "<unnamed events>", not open.
    TavEvents();
    ~TavEvents();
    TavEvents(const TavEvents&) = delete;
    TavEvents& operator=(const TavEvents&) = delete;

    /// Opens the set under the name. False when it was open already; the name then stays.
    bool Create(const std::string& name);
    bool IsOpen() const;

    /// Ends every wait, takes all signals back and closes the set. Events stay registered; setting them has
    /// no effect before a new Create().
    void Close();

    std::string GetName() const;

    /// Takes the signal of event `id` back. False when the set has no such event.
    bool Reset(Id id);

    /// Waits until an event of the set is signalled, at most `timeoutMs` milliseconds. True with `id` set to
    /// the signalled event, the lowest when there are several; an event without manual reset is taken back by
    /// that. False on time-out, on Close() and when the set is not open; `id` is then untouched. Counted on
    /// the monotonic clock. An interruption point of the thread library.
    bool Wait(unsigned timeoutMs, Id& id);

private:
    friend class TavEvent;
    struct State;
    std::shared_ptr<State> m_state;
};

/// One event of a set. It belongs to the set it was made with and may outlive it (it then signals nobody).
/// Its destruction takes a pending signal along.
class TAV_EXPORT TavEvent {
public:
    /// `manualReset` 1: stays signalled until TavEvents::Reset(). 0: one wait takes the signal.
    TavEvent(TavEvents& events, int manualReset);
    ~TavEvent();
    TavEvent(const TavEvent&) = delete;
    TavEvent& operator=(const TavEvent&) = delete;

    TavEvents::Id GetId() const { return m_id; }

    /// Signals the event, unless its set is closed. Any thread.
    void Set();

private:
    std::shared_ptr<TavEvents::State> m_state;
    TavEvents::Id m_id;
};
