// The worker threads: the rest of a start, and the waiting for read responses.
#include "DscKnxAppPrgThreads.h"

#include "KnxStack/IApiHub.h"

#include <boost/chrono/duration.hpp>
#include <boost/chrono/system_clocks.hpp>
#include <boost/thread/thread.hpp>
#include <log4cplus/loggingmacros.h>

#include <chrono>
#include <exception>
#include <map>
#include <string>
#include <utility>

namespace {

constexpr unsigned kResponseWaitMs = 250;
constexpr std::uint8_t kNtpClientMode = 2;

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

DscKnxAppPrg::InitCaller::InitCaller(DscKnxAppPrg& appPrg, KnxStack::IApiHub& hub,
                                     std::shared_ptr<ThreadControl> control)
    : m_appPrg(appPrg), m_hub(hub), m_control(std::move(control)), m_start(appPrg.CurrentStart()) {}

void DscKnxAppPrg::InitCaller::operator()() const {
    const log4cplus::Logger& logger = m_appPrg.m_logger;
    LOG4CPLUS_DEBUG(logger, "operator()(): Init thread started.");
    if (!m_control) {
        LOG4CPLUS_ERROR(logger, "operator()(): Thread control not exists.");
        return;
    }
    try {
        Start();
        boost::this_thread::interruption_point(); // the last step may have taken longer than a stop waits
        LOG4CPLUS_DEBUG(logger, "operator()(): Init thread finished.");
    } catch (const boost::thread_interrupted&) {
        LOG4CPLUS_ERROR(logger, "operator()(): Init thread has been interrupted.");
    } catch (...) {
        // The host gets to know that this start has no end, so that it can make another one. A program that
        // runs already lacks only the values of its status objects.
        if (m_control->running && m_appPrg.m_startupState != StartupState::Running)
            m_appPrg.DoFinalStartupState(StartupState::Failed, m_start);
        throw;
    }
}

bool DscKnxAppPrg::InitCaller::Running() const {
    boost::this_thread::interruption_point();
    return m_control->running;
}

void DscKnxAppPrg::InitCaller::Start() const {
    const log4cplus::Logger& logger = m_appPrg.m_logger;
    boost::this_thread::sleep_for(boost::chrono::seconds(1));
    if (!Running())
        return;
    m_appPrg.m_knxHandler.InitKnxPropertiesFromKnxStack();
    if (Running())
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
    if (!RunDownloadHandler())
        return;
    if (Running() && m_appPrg.m_knxHandler.UsesUrns())
        m_appPrg.m_knxHandler.UpdateIdUrnMap();
    if (!Running())
        return;
    LOG4CPLUS_DEBUG(logger, "operator()(): DoFinalStartupState with state: "
                                << static_cast<std::uint32_t>(StartupState::Running));
    m_appPrg.DoFinalStartupState(StartupState::Running, m_start);
}

void DscKnxAppPrg::InitCaller::ApplyNtpPolicy() const {
    const log4cplus::Logger& logger = m_appPrg.m_logger;
    std::map<std::string, std::string> settings;
    {
        const boost::this_thread::disable_interruption hubCall;
        settings = m_hub.GetApplicationProgramSettings();
    }
    const auto setting = settings.find("ImplicitNtpDisableOnClientMode");
    if (setting == settings.end())
        return;
    if (setting->second != "true") {
        LOG4CPLUS_DEBUG(logger, "operator()(): Implicit NTP disable on client mode is NOT active.");
        return;
    }
    LOG4CPLUS_DEBUG(logger, "operator()(): Implicit NTP disable on client mode is active.");
    // The client is used without its mutex: it must still be there after a hub call that took long.
    boost::this_thread::interruption_point();
    if (m_appPrg.m_knxHandler.TimeMode() == kNtpClientMode) {
        SetNtpState(m_appPrg.m_client, false);
        LOG4CPLUS_INFO(logger, "operator()(): Disable NTP.");
    } else {
        SetNtpState(m_appPrg.m_client, true);
        LOG4CPLUS_INFO(logger, "operator()(): Enable NTP.");
    }
}

bool DscKnxAppPrg::InitCaller::RunDownloadHandler() const {
    const log4cplus::Logger& logger = m_appPrg.m_logger;
    if (!m_appPrg.m_downloadHandlerFlag) {
        LOG4CPLUS_DEBUG(logger, "operator()(): do not start download handler.");
        return true;
    }
    if (m_appPrg.m_callerEntryPoint == CallerEntryPoint::DeviceRestart) {
        LOG4CPLUS_DEBUG(
            logger,
            "operator()(): Waiting 1 second before executing download handler to finish writing config.");
        boost::this_thread::sleep_for(boost::chrono::seconds(1));
    }
    LOG4CPLUS_DEBUG(logger, "operator()(): execute download handler.");
    const UpdateAppState result = ExecuteDownloadHandler();
    LOG4CPLUS_DEBUG(logger, "operator()(): download handler result: " << static_cast<std::uint32_t>(result));
    if (result == UpdateAppState::NoFile)
        return true;
    const bool changed = m_appPrg.m_etsConfigurationChanged;
    if (!changed) {
        LOG4CPLUS_DEBUG(logger, "operator()(): ETS Configuration Changed Raised not set, so change uas.");
        return true;
    }
    if (Running())
        LOG4CPLUS_DEBUG(logger, "operator()(): start up state is waiting for ETS project created. Flag is "
                                    << changed);
    return false;
}

DscKnxAppPrg::UpdateAppState DscKnxAppPrg::InitCaller::ExecuteDownloadHandler() const {
    try {
        return m_appPrg.ExecuteDownloadHandler();
    } catch (const std::exception& error) {
        // The device goes on with the project that it has.
        LOG4CPLUS_ERROR(m_appPrg.m_logger, "operator()(): download handler failed: " << error.what());
        return UpdateAppState::NoFile;
    }
}

DscKnxAppPrg::ResponseQueueCaller::ResponseQueueCaller(DscKnxAppPrg& appPrg,
                                                       std::shared_ptr<ThreadControl> control)
    : m_appPrg(appPrg), m_control(std::move(control)) {}

void DscKnxAppPrg::ResponseQueueCaller::operator()() const {
    const log4cplus::Logger& logger = m_appPrg.m_logger;
    LOG4CPLUS_DEBUG(logger, "operator()(): Response Queue thread started.");
    try {
        TavEvents::Id signalled = 0;
        do
            boost::this_thread::interruption_point();
        while (m_control->running && !m_appPrg.m_events.Wait(kResponseWaitMs, signalled));
        LOG4CPLUS_DEBUG(logger, "operator()(): Response Queue thread finished.");
    } catch (const boost::thread_interrupted&) {
        LOG4CPLUS_ERROR(logger, "operator()(): Response Queue thread has been interrupted.");
    }
}

template <typename Caller>
std::shared_ptr<DscKnxAppPrg::ThreadControl> DscKnxAppPrg::StartWorker(std::shared_ptr<ThreadControl> control,
                                                                       const Caller& caller) {
    m_workers->Enter();
    try {
        control->thread = boost::thread([workers = m_workers, logger = m_logger, caller] {
            try {
                caller();
            } catch (const std::exception& error) {
                LOG4CPLUS_ERROR(logger, "operator()(): Thread ended by an exception: " << error.what());
            } catch (...) {
                LOG4CPLUS_ERROR(logger, "operator()(): Thread ended by an unknown exception.");
            }
            workers->Leave();
        });
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
    try {
        m_initThread = StartWorker(control, InitCaller(*this, hub, control));
    } catch (const boost::thread_resource_error& error) {
        LOG4CPLUS_ERROR(m_logger, "Cannot create Thread. " << error.code().message());
        return false;
    }
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

bool DscKnxAppPrg::StartConfigurationChangeThread(std::uint64_t start) {
    auto control = std::make_shared<ThreadControl>();
    try {
        StartWorker(control, ConfigurationChangeCaller(*this, start));
    } catch (const boost::thread_resource_error& error) {
        LOG4CPLUS_ERROR(m_logger, "Cannot create Thread. " << error.code().message());
        return false;
    }
    control->thread.detach();
    return true;
}

bool DscKnxAppPrg::StartResponseQueueThread() {
    LOG4CPLUS_DEBUG(m_logger, "StartResponseQueueThread(): starting...");
    auto control = std::make_shared<ThreadControl>();
    auto started = StartWorker(control, ResponseQueueCaller(*this, control));
    // Kept: nobody asks whether there is a thread already. That one goes on by itself, with its control
    // block.
    if (m_responseQueueThread)
        m_responseQueueThread->thread.detach();
    m_responseQueueThread = std::move(started);
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
