#include "KnxStackHost/Program/ApplicationThread.h"

#include "KnxStackHost/ExceptionText.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <pthread.h>
#include <utility>

namespace KnxStackHost {

namespace {

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Program");
    return logger;
}

const char* NameOf(KnxFrames::GroupServiceKind kind) {
    switch (kind) {
    case KnxFrames::GroupServiceKind::Read: return "OnGroupValueRead";
    case KnxFrames::GroupServiceKind::Response: return "OnGroupValueResponse";
    case KnxFrames::GroupServiceKind::Write: break;
    }
    return "OnGroupValueWrite";
}

} // namespace

ApplicationThread::ApplicationThread(ProgramLibrary library, const DeviceServices& services,
                                     ApiHub::Settings settings, ReloadSource& reload,
                                     std::function<void()> ended)
    : m_library(library), m_service(services.groupValues), m_reloadSource(reload), m_ended(std::move(ended)),
      m_hub(services, std::move(settings), [this](StartupState state) { PostReport(state); }) {}

ApplicationThread::~ApplicationThread() {
    if (!m_thread.joinable())
        return;
    RequestStop();
    m_thread.join();
}

void ApplicationThread::Start(bool restartPending) {
    if (restartPending)
        m_lifecycle.RestartDevice();
    m_thread = std::thread([this] { Run(); });
    pthread_setname_np(m_thread.native_handle(), "application");
}

void ApplicationThread::Abandon() {
    if (m_thread.joinable())
        m_thread.detach();
}

void ApplicationThread::Post(Callback callback) {
    bool overflows = false;
    {
        const std::lock_guard lock(m_mutex);
        const bool replaces = !m_queue.Push(std::move(callback));
        overflows = replaces && m_replaced++ == 0;
        m_telegrams.replaced += replaces ? 1 : 0;
        m_telegrams.mostWaiting = std::max(m_telegrams.mostWaiting, m_queue.Size());
    }
    m_posted.notify_one();
    if (overflows)
        LOG4CPLUS_WARN(Log(),
                       fmt::format("the application program has left {} telegrams waiting; from now on only "
                                   "the last one of each group object is kept",
                                   kQueueBound));
}

ProgramTelegrams ApplicationThread::Telegrams() const {
    const std::lock_guard lock(m_mutex);
    auto telegrams = m_telegrams;
    telegrams.waiting = m_queue.Size();
    return telegrams;
}

void ApplicationThread::PostReport(StartupState state) {
    {
        const std::lock_guard lock(m_mutex);
        m_reports.push_back(state);
    }
    m_posted.notify_one();
}

void ApplicationThread::Request(bool& request) {
    {
        const std::lock_guard lock(m_mutex);
        request = true;
    }
    m_posted.notify_one();
}

void ApplicationThread::RequestReload() {
    Request(m_reloadRequested);
}

void ApplicationThread::RequestDeviceRestart() {
    Request(m_restartRequested);
}

void ApplicationThread::RequestStop() {
    Request(m_stopRequested);
}

void ApplicationThread::Run() {
    for (;;) {
        try {
            const auto work = WaitForWork();
            if (work.stop)
                break;
            for (const auto report : work.reports)
                Take(report);
            if (work.reload)
                Reload();
            if (work.restartDevice)
                RestartDevice();
            Perform(work.step);
            if (work.callback)
                Deliver(*work.callback);
        } catch (...) {
            LOG4CPLUS_ERROR(Log(), fmt::format("application thread: {}", CurrentExceptionText()));
        }
    }
    StopProgram();
    m_ended();
}

ApplicationThread::Work ApplicationThread::WaitForWork() {
    Work work;
    std::size_t replaced = 0;
    {
        std::unique_lock lock(m_mutex);
        while (!TakeRequests(work)) {
            const auto due = m_lifecycle.NextTime();
            if (due)
                m_posted.wait_until(lock, *due);
            else
                m_posted.wait(lock);
        }
        if (m_queue.IsEmpty())
            replaced = std::exchange(m_replaced, 0);
    }
    if (replaced != 0)
        LOG4CPLUS_WARN(Log(),
                       fmt::format("the application program has caught up; {} telegrams had been replaced by "
                                   "newer ones of the same group object",
                                   replaced));
    return work;
}

bool ApplicationThread::TakeRequests(Work& work) {
    work.stop = m_stopRequested;
    work.reload = std::exchange(m_reloadRequested, false);
    work.reports = std::exchange(m_reports, {});
    work.restartDevice = std::exchange(m_restartRequested, false);
    if (work.stop || work.reload || work.restartDevice || !work.reports.empty())
        return true;
    work.step = m_lifecycle.Next(Clock::now());
    if (work.step == Step::None && !m_lifecycle.HoldsCallbacks() && !m_queue.IsEmpty()) {
        work.callback = m_queue.Pop();
        ++m_telegrams.delivered;
    }
    return work.step != Step::None || work.callback;
}

void ApplicationThread::Take(StartupState report) {
    m_lifecycle.OnReport(report, Clock::now());
    TellState();
    if (report == StartupState::Running)
        LOG4CPLUS_INFO(Log(), "the application program is configured and running");
    else if (report == StartupState::Failed)
        LOG4CPLUS_ERROR(Log(), "the application program reports that it has failed");
}

void ApplicationThread::Perform(Step step) {
    switch (step) {
    case Step::None: break;
    case Step::Start: CallInit(); break;
    case Step::RestartDevice: CallDeviceRestart(); break;
    case Step::Stop:
        if (!m_lifecycle.IsReloading())
            LOG4CPLUS_WARN(Log(), fmt::format("the application program is stopped and started again in {} s",
                                              m_lifecycle.RetryDelay().count()));
        StopProgram();
        break;
    case Step::ReleaseCallbacks:
        LOG4CPLUS_WARN(Log(), fmt::format("the application program has been starting for {} s; telegrams are "
                                          "delivered to it from now on",
                                          ProgramLifecycle::kHoldLimit.count()));
        m_lifecycle.OnReleased();
        break;
    }
}

void ApplicationThread::CallInit() {
    LOG4CPLUS_INFO(Log(), "starting the application program");
    TellState();
    m_lifecycle.OnCalling(Step::Start, Clock::now());
    m_stateText = m_lifecycle.StateText(); // for as long as Init takes
    auto state = StartupState::Failed;
    try {
        m_program = m_library.create();
        if (m_program != nullptr)
            state = m_program->Init(m_hub);
        if (state != StartupState::InProgress && state != StartupState::Running)
            LOG4CPLUS_ERROR(Log(), "the application program could not be started");
    } catch (...) {
        LOG4CPLUS_ERROR(Log(), fmt::format("the application program threw from {}: {}",
                                           m_program == nullptr ? "createApplicationProgram" : "Init",
                                           CurrentExceptionText()));
    }
    m_lifecycle.OnReturned(state, Clock::now());
    TellState();
}

void ApplicationThread::CallDeviceRestart() {
    LOG4CPLUS_INFO(Log(), "the device has restarted; the application program starts anew");
    m_lifecycle.OnCalling(Step::RestartDevice, Clock::now());
    TellState();
    auto state = StartupState::Failed;
    try {
        state = m_program->OnDeviceRestart();
        if (state != StartupState::InProgress && state != StartupState::Running)
            LOG4CPLUS_ERROR(Log(), "the application program could not be restarted");
    } catch (...) {
        LOG4CPLUS_ERROR(Log(), fmt::format("the application program threw from OnDeviceRestart: {}",
                                           CurrentExceptionText()));
    }
    m_lifecycle.OnReturned(state, Clock::now());
    TellState();
}

void ApplicationThread::TellState() {
    m_stateText = m_lifecycle.StateText();
    const bool pending = m_lifecycle.IsDeviceRestartPending();
    m_hub.SetDeviceRestartPending(pending);
    if (std::exchange(m_restartPending, pending) && !pending)
        m_reloadSource.OnRestartFinished();
    const bool running = m_lifecycle.IsRunning();
    if (!std::exchange(m_running, running) && running)
        m_reloadSource.OnProgramRunning();
}

void ApplicationThread::StopProgram() {
    if (m_program != nullptr) {
        try {
            if (!m_program->Exit())
                LOG4CPLUS_WARN(Log(), "the application program did not stop cleanly");
        } catch (...) {
            LOG4CPLUS_ERROR(
                Log(), fmt::format("the application program threw from Exit: {}", CurrentExceptionText()));
        }
        // A program that left without signing off must not be called any more.
        m_service.RegisterGroupValueUser(nullptr);
        try {
            m_library.destroy(std::exchange(m_program, nullptr));
        } catch (...) {
            LOG4CPLUS_ERROR(Log(),
                            fmt::format("the application program threw from deleteApplicationProgram: {}",
                                        CurrentExceptionText()));
        }
        LOG4CPLUS_INFO(Log(), "the application program has ended");
    }
    const std::lock_guard lock(m_mutex);
    m_reports.clear(); // they were of the program that is gone
    m_lifecycle.OnStopped(Clock::now());
    m_stateText = m_lifecycle.StateText();
}

void ApplicationThread::Reload() {
    LOG4CPLUS_INFO(Log(), "reading the configuration again");
    if (!m_reloadSource.Read(ReloadSource::Scope::Everything))
        return;
    m_lifecycle.Reload();
    if (m_program != nullptr)
        StopProgram();
    LoadAnew(ReloadSource::Scope::Everything);
}

void ApplicationThread::RestartDevice() {
    if (!m_reloadSource.Read(ReloadSource::Scope::Device))
        return;
    LoadAnew(ReloadSource::Scope::Device);
    // Nothing is delivered between this and the call of OnDeviceRestart, which is due at once.
    m_lifecycle.RestartDevice();
    TellState();
}

void ApplicationThread::LoadAnew(ReloadSource::Scope scope) {
    // Before the new objects are in force: what comes for them is not to be lost.
    if (m_reloadSource.ChangesGroupObjects())
        DropWaiting();
    m_reloadSource.Apply(scope);
}

void ApplicationThread::DropWaiting() {
    std::size_t waiting = 0;
    {
        const std::lock_guard lock(m_mutex);
        waiting = m_queue.Size();
        m_queue.Clear();
        m_replaced = 0;
        m_telegrams.dropped += waiting;
    }
    if (waiting != 0)
        LOG4CPLUS_WARN(Log(),
                       fmt::format("{} waiting telegrams were dropped: the group objects have changed, and "
                                   "their numbers may mean others now",
                                   waiting));
}

void ApplicationThread::Deliver(const Callback& callback) {
    try {
        if (!m_service.Deliver(callback) && m_undelivered++ == 0)
            LOG4CPLUS_WARN(
                Log(), fmt::format("group object {}: a telegram was dropped: the application program takes "
                                   "none (reported once)",
                                   callback.object));
    } catch (...) {
        const auto verdict = m_thrown.Count(callback.object, NameOf(callback.kind));
        if (verdict != Notices::Verdict::Silent)
            LOG4CPLUS_ERROR(Log(), fmt::format("group object {}: the application program threw from {}: {}{}",
                                               callback.object, NameOf(callback.kind), CurrentExceptionText(),
                                               Suffix(verdict)));
    }
}

} // namespace KnxStackHost
