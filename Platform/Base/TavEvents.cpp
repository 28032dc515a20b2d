#include "Tav/TavEvents.h"

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

#include <algorithm>
#include <cstdint>
#include <vector>

// What the set, its events and everybody who waits share; the last of them ends it.
struct TavEvents::State {
    struct Event {
        Id id;
        bool manualReset;
        bool signalled;
    };

    boost::mutex mutex;
    boost::condition_variable changed;

    // Under the mutex.
    std::string name = "<unnamed events>";
    bool open = false;
    std::uint64_t closed = 0; // how often: tells a wait of a Close() also when the set is open again by then
    Id lastId = 0;
    std::vector<Event> events; // by ascending id

    Event* Find(Id id) {
        const auto event = std::ranges::find(events, id, &Event::id);
        return event == events.end() ? nullptr : &*event;
    }

    // The lowest signalled event; 0 when there is none.
    Id Take() {
        const auto event = std::ranges::find(events, true, &Event::signalled);
        if (event == events.end()) {
            return 0;
        }
        event->signalled = event->manualReset;
        return event->id;
    }
};

TavEvents::TavEvents() : m_state(std::make_shared<State>()) {}

TavEvents::~TavEvents() {
    Close();
}

bool TavEvents::Create(const std::string& name) {
    const boost::lock_guard lock(m_state->mutex);
    if (m_state->open) {
        return false;
    }
    m_state->name = name;
    m_state->open = true;
    return true;
}

bool TavEvents::IsOpen() const {
    const boost::lock_guard lock(m_state->mutex);
    return m_state->open;
}

void TavEvents::Close() {
    const boost::lock_guard lock(m_state->mutex);
    m_state->open = false;
    ++m_state->closed;
    for (auto& event : m_state->events) {
        event.signalled = false;
    }
    m_state->changed.notify_all();
}

std::string TavEvents::GetName() const {
    const boost::lock_guard lock(m_state->mutex);
    return m_state->name;
}

bool TavEvents::Reset(Id id) {
    const boost::lock_guard lock(m_state->mutex);
    auto* const event = m_state->Find(id);
    if (event == nullptr) {
        return false;
    }
    event->signalled = false;
    return true;
}

bool TavEvents::Wait(unsigned timeoutMs, Id& id) {
    const auto state = m_state;
    const auto end = boost::chrono::steady_clock::now() + boost::chrono::milliseconds(timeoutMs);
    boost::unique_lock<boost::mutex> lock(state->mutex);
    const auto closed = state->closed;
    boost::this_thread::interruption_point(); // also for a wait that has nothing to wait for
    for (bool late = false; state->open && state->closed == closed;) {
        if (const auto signalled = state->Take(); signalled != 0) {
            id = signalled;
            return true;
        }
        if (late) {
            return false;
        }
        late = state->changed.wait_until(lock, end) == boost::cv_status::timeout;
    }
    return false;
}

TavEvent::TavEvent(TavEvents& events, int manualReset) : m_state(events.m_state) {
    const boost::lock_guard lock(m_state->mutex);
    m_id = ++m_state->lastId;
    m_state->events.push_back({.id = m_id, .manualReset = manualReset != 0, .signalled = false});
}

TavEvent::~TavEvent() {
    const boost::lock_guard lock(m_state->mutex);
    std::erase_if(m_state->events, [this](const auto& event) { return event.id == m_id; });
}

void TavEvent::Set() {
    const boost::lock_guard lock(m_state->mutex);
    if (!m_state->open) {
        return;
    }
    m_state->Find(m_id)->signalled = true;
    m_state->changed.notify_all();
}
