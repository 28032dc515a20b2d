// The worker threads: the rest of a start, and the waiting for read responses.
#include "DscKnxAppPrg.h"

#include "KnxStack/IApiHub.h"

#include <boost/chrono/duration.hpp>
#include <boost/chrono/system_clocks.hpp>
#include <boost/thread/thread.hpp>
#include <log4cplus/loggingmacros.h>

#include <chrono>
#include <exception>

namespace {

constexpr unsigned kResponseWaitMs = 250;

long long MillisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
        .count();
}

} // namespace

void DscKnxAppPrg::WorkerCount::Enter() {
    const std::lock_guard lock(mutex);
    ++count;
}

void DscKnxAppPrg::WorkerCount::Leave() {
    const std::lock_guard lock(mutex);
    --count;
    left.notify_all();
}

bool DscKnxAppPrg::WaitForWorkers(unsigned timeoutMs) const {
    std::unique_lock lock(m_workers->mutex);
    return m_workers->left.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                    [this] { return m_workers->count == 0; });
}

/// Body of the init thread. Everything that may end it early goes through Running(), which is also where an
/// interruption takes effect; calls into the hub and the client run to their own end.
class DscKnxAppPrg::InitCaller {
public:
    InitCaller(DscKnxAppPrg& appPrg, KnxStack::IApiHub& hub, std::shared_ptr<ThreadControl> control)
        : m_appPrg(appPrg), m_hub(hub), m_control(std::move(control)), m_workers(appPrg.m_workers) {}

    void operator()() const {
        const std::unique_ptr<WorkerCount, void (*)(WorkerCount*)> leave(
            m_workers.get(), [](WorkerCount* workers) { workers->Leave(); });
        const log4cplus::Logger& logger = m_appPrg.m_logger;
        LOG4CPLUS_DEBUG(logger, "operator()(): Init thread started.");
        if (!m_control) {
            LOG4CPLUS_ERROR(logger, "operator()(): Thread control not exists.");
            return;
        }
        try {
            Start();
            LOG4CPLUS_DEBUG(logger, "operator()(): Init thread finished.");
        } catch (const boost::thread_interrupted&) {
            LOG4CPLUS_ERROR(logger, "operator()(): Init thread has been interrupted.");
        } catch (const std::exception& error) {
            LOG4CPLUS_ERROR(logger, "operator()(): Init thread ended by an exception: " << error.what());
        } catch (...) {
            LOG4CPLUS_ERROR(logger, "operator()(): Init thread ended by an unknown exception.");
        }
    }

private:
    bool Running() const {
        boost::this_thread::interruption_point();
        return m_control->running;
    }

    void Start() const {
        const log4cplus::Logger& logger = m_appPrg.m_logger;
        boost::this_thread::sleep_for(boost::chrono::seconds(1));
        if (!Running())
            return;
        ApplyNtpPolicy();
        if (Running())
            m_appPrg.m_knxHandler.InitFromDynamicHandlers();
        if (!Running())
            return;
        if (m_appPrg.m_callerEntryPoint == CallerEntryPoint::DeviceRestart) {
            const boost::this_thread::disable_interruption hubCall;
            m_hub.OnApplicationProgramRestarted(1, 0);
        }
        if (!Running())
            return;
        if (!m_appPrg.m_downloadHandlerFlag)
            LOG4CPLUS_DEBUG(logger, "operator()(): do not start download handler.");
        if (Running() && m_appPrg.m_knxHandler.UsesUrns())
            m_appPrg.m_knxHandler.UpdateIdUrnMap();
        if (!Running())
            return;
        LOG4CPLUS_DEBUG(logger, "operator()(): DoFinalStartupState with state: "
                                    << static_cast<std::uint32_t>(StartupState::Running));
        m_appPrg.DoFinalStartupState(StartupState::Running);
    }

    void ApplyNtpPolicy() const {
        const log4cplus::Logger& logger = m_appPrg.m_logger;
        const boost::this_thread::disable_interruption hubAndClientCalls;
        const auto settings = m_hub.GetApplicationProgramSettings();
        const auto setting = settings.find("ImplicitNtpDisableOnClientMode");
        if (setting == settings.end())
            return;
        if (setting->second != "true") {
            LOG4CPLUS_DEBUG(logger, "operator()(): Implicit NTP disable on client mode is NOT active.");
            return;
        }
        LOG4CPLUS_DEBUG(logger, "operator()(): Implicit NTP disable on client mode is active.");
        SetNtpState(m_appPrg.m_client, true);
        LOG4CPLUS_INFO(logger, "operator()(): Enable NTP.");
    }

    DscKnxAppPrg& m_appPrg;
    KnxStack::IApiHub& m_hub;
    std::shared_ptr<ThreadControl> m_control;
    std::shared_ptr<WorkerCount> m_workers;
};

/// Body of the response queue thread.
class DscKnxAppPrg::ResponseQueueCaller {
public:
    ResponseQueueCaller(DscKnxAppPrg& appPrg, std::shared_ptr<ThreadControl> control)
        : m_appPrg(appPrg), m_control(std::move(control)), m_workers(appPrg.m_workers) {}

    void operator()() const {
        const std::unique_ptr<WorkerCount, void (*)(WorkerCount*)> leave(
            m_workers.get(), [](WorkerCount* workers) { workers->Leave(); });
        const log4cplus::Logger& logger = m_appPrg.m_logger;
        LOG4CPLUS_DEBUG(logger, "operator()(): Response Queue thread started.");
        try {
            TavEvents::Id signalled = 0;
            while (m_control->running && !m_appPrg.m_events.Wait(kResponseWaitMs, signalled))
                boost::this_thread::interruption_point();
            LOG4CPLUS_DEBUG(logger, "operator()(): Response Queue thread finished.");
        } catch (const boost::thread_interrupted&) {
            LOG4CPLUS_ERROR(logger, "operator()(): Response Queue thread has been interrupted.");
        } catch (const std::exception& error) {
            LOG4CPLUS_ERROR(logger,
                            "operator()(): Response Queue thread ended by an exception: " << error.what());
        }
    }

private:
    DscKnxAppPrg& m_appPrg;
    std::shared_ptr<ThreadControl> m_control;
    std::shared_ptr<WorkerCount> m_workers;
};

template <typename Caller>
std::shared_ptr<DscKnxAppPrg::ThreadControl> DscKnxAppPrg::StartWorker(std::shared_ptr<ThreadControl> control,
                                                                       const Caller& caller) {
    m_workers->Enter();
    try {
        control->thread = boost::thread(caller);
    } catch (...) {
        m_workers->Leave();
        throw;
    }
    return control;
}

bool DscKnxAppPrg::StartInitThread(KnxStack::IApiHub& hub) {
    LOG4CPLUS_DEBUG(m_logger, "StartInitThread(): starting...");
    if (m_initThread) {
        LOG4CPLUS_ERROR(m_logger, "Cannot create Thread. Thread already running.");
        return false;
    }
    auto control = std::make_shared<ThreadControl>();
    m_initThread = StartWorker(control, InitCaller(*this, hub, control));
    LOG4CPLUS_DEBUG(m_logger, "StartInitThread(): started a new thread for updating enabled objects.");
    LOG4CPLUS_DEBUG(m_logger, "StartInitThread(): end.");
    return true;
}

bool DscKnxAppPrg::StopInitThread(unsigned int timeoutMs) {
    LOG4CPLUS_DEBUG(m_logger, "StopInitThread(): starting...");
    bool joined = true;
    if (m_initThread) {
        const auto start = std::chrono::steady_clock::now();
        m_initThread->running = false;
        joined = JoinWithin(m_initThread->thread, timeoutMs);
        if (!joined) {
            LOG4CPLUS_ERROR(m_logger, "StopInitThread(): Thread join timeout. Interrupting thread...");
            InterruptAndDetach(m_initThread->thread);
        }
        LOG4CPLUS_DEBUG(m_logger, "StopInitThread(): duration: " << MillisecondsSince(start) << " ms");
        m_initThread.reset();
    }
    LOG4CPLUS_DEBUG(m_logger, "StopInitThread(): end.");
    return joined;
}

bool DscKnxAppPrg::StartResponseQueueThread() {
    LOG4CPLUS_DEBUG(m_logger, "StartResponseQueueThread(): starting...");
    auto control = std::make_shared<ThreadControl>();
    m_responseQueueThread = StartWorker(control, ResponseQueueCaller(*this, control));
    LOG4CPLUS_DEBUG(m_logger, "StartResponseQueueThread(): started a new thread for read responses.");
    LOG4CPLUS_DEBUG(m_logger, "StartResponseQueueThread(): end.");
    return true;
}

bool DscKnxAppPrg::StopResponseQueueThread(unsigned int timeoutMs) {
    LOG4CPLUS_DEBUG(m_logger, "StopResponseQueueThread(): starting...");
    bool joined = true;
    if (m_responseQueueThread) {
        const auto start = std::chrono::steady_clock::now();
        m_responseQueueThread->running = false;
        joined = JoinWithin(m_responseQueueThread->thread, timeoutMs);
        if (!joined) {
            LOG4CPLUS_ERROR(m_logger,
                            "StopResponseQueueThread(): Thread join timeout. Interrupting thread...");
            InterruptAndDetach(m_responseQueueThread->thread);
        }
        LOG4CPLUS_DEBUG(m_logger,
                        "StopResponseQueueThread(): duration: " << MillisecondsSince(start) << " ms");
        m_responseQueueThread.reset();
    }
    LOG4CPLUS_DEBUG(m_logger, "StopResponseQueueThread(): end.");
    return joined;
}

bool DscKnxAppPrg::JoinWithin(boost::thread& thread, unsigned int timeoutMs) {
    return thread.try_join_until(boost::chrono::steady_clock::now() + boost::chrono::milliseconds(timeoutMs));
}

void DscKnxAppPrg::InterruptAndDetach(boost::thread& thread) {
    thread.interrupt();
    thread.detach();
}
