// The thread that the application program lives on.
#pragma once

#include "KnxStackHost/Notices.h"
#include "KnxStackHost/Program/ApiHub.h"
#include "KnxStackHost/Program/CallbackQueue.h"
#include "KnxStackHost/Program/GroupValueService.h"
#include "KnxStackHost/Program/ProgramLibrary.h"
#include "KnxStackHost/Program/ProgramLifecycle.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace KnxStackHost {

/// A new configuration, on its way into the host. Called on the application thread.
class ReloadSource {
public:
    /// What of the configuration is to change.
    enum class Scope {
        Everything, ///< and the program stops for it
        Device,     ///< what a download brings; the program is told of it
    };

    virtual ~ReloadSource() = default;

    /// Reads the configuration. False when it cannot be used, which was logged: everything stays as it is.
    virtual bool Read(Scope scope) = 0;

    /// True when what was read has other group objects than those in force.
    virtual bool ChangesGroupObjects() const = 0;

    /// Puts what was read into force: everything while there is no program, the device while it may run.
    virtual void Apply(Scope scope) = 0;

    /// The program has come to a final state after the device's restart.
    virtual void OnRestartFinished() = 0;

    /// The program runs: at first, or again.
    virtual void OnProgramRunning() = 0;
};

/// Makes all lifecycle calls and all group value callbacks of the program, one at a time and in order. Others
/// reach it only by posting. Between bus and program stands a queue, so that a program that hangs holds up
/// nobody: beyond its bound the newest callback of each object and service is kept.
class ApplicationThread {
public:
    static constexpr std::size_t kQueueBound = 1024;

    /// What `services` names and `reload` outlive this object. `ended` is called on the thread once the
    /// program is gone for good after RequestStop().
    ApplicationThread(ProgramLibrary library, const DeviceServices& services, ApiHub::Settings settings,
                      ReloadSource& reload, std::function<void()> ended);
    /// Stops the program and waits for the thread.
    ~ApplicationThread();
    ApplicationThread(const ApplicationThread&) = delete;
    ApplicationThread& operator=(const ApplicationThread&) = delete;

    /// Begins with the first start of the program; with `restartPending` the device's restart follows it, as
    /// it was pending when the daemon ended.
    void Start(bool restartPending);

    /// Any thread; none of these waits for the program.
    void Post(Callback callback);
    void RequestReload();
    /// A download has ended: the device is loaded anew, and the program told of it.
    void RequestDeviceRestart();
    void RequestStop();

    /// The thread is never joined again: for a process that ends although the program hangs.
    void Abandon();

    ApiHub& Hub() { return m_hub; }

    /// "stopped", "starting", "running" or "failed". Any thread.
    const char* StateText() const { return m_stateText; }

    /// What came for the program since the daemon's start. Any thread.
    ProgramTelegrams Telegrams() const;

private:
    using Clock = std::chrono::steady_clock;
    using Step = ProgramLifecycle::Step;
    using StartupState = KnxStack::IApplicationProgram::StartupState;

    /// What the thread does next.
    struct Work {
        bool stop = false;
        bool reload = false;
        bool restartDevice = false;
        Step step = Step::None;
        std::vector<StartupState> reports;
        std::optional<Callback> callback;
    };

    void Run();
    Work WaitForWork();
    bool TakeRequests(Work& work);
    void Perform(Step step);
    void CallInit();
    void CallDeviceRestart();
    void StopProgram();
    void Reload();
    void RestartDevice();
    void LoadAnew(ReloadSource::Scope scope);
    void DropWaiting();
    void Take(StartupState report);
    void Deliver(const Callback& callback);
    void PostReport(StartupState state);
    void Request(bool& request); // one of those under the mutex
    void TellState();

    const ProgramLibrary m_library;
    GroupValueService& m_service;
    ReloadSource& m_reloadSource;
    const std::function<void()> m_ended;
    ApiHub m_hub;

    // Application thread only.
    ProgramLifecycle m_lifecycle;
    KnxStack::IApplicationProgram* m_program = nullptr;
    bool m_restartPending = false; // as it was told last
    bool m_running = false;        // likewise
    Notices m_thrown;
    std::uint64_t m_undelivered = 0;

    std::atomic<const char*> m_stateText{"stopped"};

    mutable std::mutex
        m_mutex; // guards what follows, up to the thread; held for moments, never while calling out
    std::condition_variable m_posted;
    CallbackQueue m_queue{kQueueBound};
    std::size_t m_replaced = 0; // callbacks replaced since the queue was last empty
    ProgramTelegrams m_telegrams;
    std::vector<StartupState> m_reports;
    bool m_reloadRequested = false;
    bool m_restartRequested = false;
    bool m_stopRequested = false;

    std::thread m_thread;
};

} // namespace KnxStackHost
