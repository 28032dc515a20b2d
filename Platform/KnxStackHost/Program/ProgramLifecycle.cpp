#include "KnxStackHost/Program/ProgramLifecycle.h"

#include <algorithm>
#include <utility>

namespace KnxStackHost {

ProgramLifecycle::Step ProgramLifecycle::Next(TimePoint now) const {
    if (m_state == State::Absent)
        return now >= m_startAt ? Step::Start : Step::None;
    if (m_state == State::Failed || m_reload)
        return Step::Stop;
    if (m_restartPending && !m_restartCalled && m_initSucceeded)
        return Step::RestartDevice;
    if (m_holds && now >= m_heldSince + kHoldLimit)
        return Step::ReleaseCallbacks;
    return Step::None;
}

std::optional<ProgramLifecycle::TimePoint> ProgramLifecycle::NextTime() const {
    if (m_state == State::Absent)
        return m_startAt;
    if (m_holds)
        return m_heldSince + kHoldLimit;
    return std::nullopt;
}

const char* ProgramLifecycle::StateText() const {
    switch (m_state) {
    case State::Absent: return "stopped";
    case State::Starting: return "starting";
    case State::Running: return "running";
    case State::Failed: break;
    }
    return "failed";
}

void ProgramLifecycle::OnCalling(Step step, TimePoint now) {
    EndRun(now);
    m_state = State::Starting;
    m_holds = true;
    m_heldSince = now;
    m_restartCalled = step == Step::RestartDevice;
    if (step == Step::Start)
        m_initSucceeded = false;
}

void ProgramLifecycle::OnReturned(StartupState state, TimePoint now) {
    m_initSucceeded = m_initSucceeded || state == StartupState::InProgress;
    if (state != StartupState::InProgress)
        OnReport(state, now);
}

void ProgramLifecycle::OnReport(StartupState state, TimePoint now) {
    const bool ended =
        m_state == State::Absent || m_state == State::Failed; // a failed program is not used again
    if (ended || state == StartupState::InProgress)
        return;
    m_holds = false;
    if (state != StartupState::Running) {
        EndRun(now);
        m_state = State::Failed;
        return;
    }
    if (std::exchange(m_state, State::Running) != State::Running)
        m_runningSince = now;
    if (m_restartCalled)
        m_restartPending = false;
}

void ProgramLifecycle::EndRun(TimePoint now) {
    if (m_state == State::Running && now >= m_runningSince + kStableRun)
        m_retryDelay = kFirstRetry;
}

void ProgramLifecycle::OnStopped(TimePoint now) {
    m_holds = true;
    m_restartCalled = false;
    m_state = State::Absent;
    if (std::exchange(m_reload, false)) {
        m_retryDelay = kFirstRetry;
        m_startAt = now;
        return;
    }
    m_startAt = now + m_retryDelay;
    m_retryDelay = std::min(m_retryDelay * 2, kLongestRetry);
}

void ProgramLifecycle::Reload() {
    if (m_state == State::Absent) {
        m_startAt = {};
        m_retryDelay = kFirstRetry;
    } else {
        m_reload = true;
    }
}

void ProgramLifecycle::RestartDevice() {
    m_restartPending = true;
    m_restartCalled = false;
}

} // namespace KnxStackHost
