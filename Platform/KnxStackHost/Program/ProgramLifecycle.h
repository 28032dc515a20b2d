// When an application program is started, stopped and started anew.
#pragma once

#include "KnxStack/IApplicationProgram.h"

#include <chrono>
#include <optional>

namespace KnxStackHost {

/// The state of one application program as its host sees it, without clock and thread: told of what happened,
/// it says what is due. One program object at a time; a failed one is stopped and replaced.
class ProgramLifecycle {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using StartupState = KnxStack::IApplicationProgram::StartupState;

    static constexpr std::chrono::seconds kHoldLimit{30};
    static constexpr std::chrono::seconds kFirstRetry{1};
    static constexpr std::chrono::seconds kLongestRetry{60};
    static constexpr std::chrono::seconds kStableRun{60}; ///< so long, and the next failure is a first one

    enum class Step {
        None,
        Start,            ///< create the program and call Init
        RestartDevice,    ///< call OnDeviceRestart
        Stop,             ///< call Exit and delete the program
        ReleaseCallbacks, ///< the program takes too long: say so, and deliver
    };

    /// What is due now.
    Step Next(TimePoint now) const;

    /// When the answer of Next() changes by time alone; empty when never.
    std::optional<TimePoint> NextTime() const;

    /// Group value callbacks wait while this is true: from the call of Init or OnDeviceRestart until the
    /// program reports a final state, and while there is no program.
    bool HoldsCallbacks() const { return m_holds; }

    /// "stopped", "starting", "running" or "failed".
    const char* StateText() const;

    /// True while the program is to be stopped for a new configuration, not for a failure.
    bool IsReloading() const { return m_reload; }

    /// True between a report that the program runs and its end or restart.
    bool IsRunning() const { return m_state == State::Running; }

    /// True from a download's restart until a final state follows OnDeviceRestart.
    bool IsDeviceRestartPending() const { return m_restartPending; }

    /// Init or OnDeviceRestart is about to be called.
    void OnCalling(Step step, TimePoint now);
    /// It has returned; Failed also when it threw or the program could not be created.
    void OnReturned(StartupState state, TimePoint now);
    /// The program has reported to the hub.
    void OnReport(StartupState state, TimePoint now);
    /// Callbacks are delivered from now on although the program has not reported.
    void OnReleased() { m_holds = false; }
    /// Exit and deletion are done.
    void OnStopped(TimePoint now);

    /// The program is to be stopped and started again at once, without counting as a failure.
    void Reload();
    /// The device has restarted after a download.
    void RestartDevice();

    /// How long the pause before the next start is, once a failed program has been stopped.
    std::chrono::seconds RetryDelay() const { return m_retryDelay; }

private:
    void EndRun(TimePoint now);

    enum class State { Absent, Starting, Running, Failed };

    State m_state = State::Absent;
    bool m_holds = true;
    bool m_reload = false;
    bool m_initSucceeded = false;  // Init has returned InProgress
    bool m_restartPending = false; // part of the device, not of the program
    bool m_restartCalled = false;  // OnDeviceRestart was called for the pending restart
    TimePoint m_startAt{};         // while Absent
    TimePoint m_heldSince{};
    TimePoint m_runningSince{}; // while Running
    std::chrono::seconds m_retryDelay = kFirstRetry;
};

} // namespace KnxStackHost
