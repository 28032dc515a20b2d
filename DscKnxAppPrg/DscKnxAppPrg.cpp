#include "DscKnxAppPrg.h"
#include "DeviceDataPoints.h"

#include "KnxStack/IApiHub.h"

#include <boost/chrono/duration.hpp>
#include <boost/thread/thread.hpp>
#include <log4cplus/loggingmacros.h>

#include <exception>

namespace {

constexpr const char* kLoggerName = "KnxStack.DscKnxAppPrg";
constexpr unsigned kStopTimeoutMs = 5000;   // for a start that is still running
constexpr unsigned kDeleteTimeoutMs = 3000; // for a thread that Exit had to leave behind

} // namespace

KnxStack::IApplicationProgram* createApplicationProgram() {
    LOG4CPLUS_DEBUG(log4cplus::Logger::getInstance(kLoggerName), "createApplicationProgram(): ...");
    return new DscKnxAppPrg;
}

void deleteApplicationProgram(KnxStack::IApplicationProgram* applicationProgram) {
    const log4cplus::Logger logger = log4cplus::Logger::getInstance(kLoggerName);
    LOG4CPLUS_DEBUG(logger, "deleteApplicationProgram(): ...");
    const auto* program = dynamic_cast<DscKnxAppPrg*>(applicationProgram); // only this one has threads
    if (program != nullptr && !program->WaitForWorkers(kDeleteTimeoutMs)) {
        LOG4CPLUS_ERROR(
            logger,
            "deleteApplicationProgram(): A worker thread does not end, the object is left in memory.");
        return;
    }
    delete applicationProgram;
}

unsigned getKnxStackApiVersion() {
    return KnxStack::IApplicationProgram::kApiVersion;
}

DscKnxAppPrg::DscKnxAppPrg() : m_knxHandler(*this), m_logger(log4cplus::Logger::getInstance(kLoggerName)) {
    m_events.Create("DscKnxAppPrgEvents");
    m_events.Reset(m_event.GetId());
}

DscKnxAppPrg::~DscKnxAppPrg() {
    // A thread that nobody joined has ended, but its control block and its body still hold each other.
    for (const auto& control : {m_initThread, m_responseQueueThread}) {
        if (control)
            control->thread.detach();
    }
    try {
        EndStart();
        m_knxHandler.StopClock(); // it uses the client
        m_handlers.Clear();
        m_knxHandler.Translation().ReplaceClient(nullptr);
        {
            // Before any other member: until its callback thread is joined, a callback may use all of them.
            const std::lock_guard lock(m_clientMutex);
            delete m_client.get();
            static_cast<void>(m_client.release());
        }
        WaitForWorkers(kDeleteTimeoutMs); // the last callback may have been the end of a configuration change
    } catch (const std::exception& error) {
        LOG4CPLUS_ERROR(m_logger, "~DscKnxAppPrg(): " << error.what());
    }
}

DscKnxAppPrg::StartupState DscKnxAppPrg::Init(KnxStack::IApiHub& hub) {
    LOG4CPLUS_DEBUG(m_logger, "Init(): starting...");
    hub.OnApplicationProgramStartupStateChanged(StartupState::InProgress);
    BeginStart();
    m_hub = &hub;
    m_callerEntryPoint = CallerEntryPoint::Init;

    m_startUpFlag = !hub.IsDeviceRestartPending();
    LOG4CPLUS_DEBUG(m_logger, "Init(): start up state is " << (m_startUpFlag ? 1 : 0));

    ApplySettings(hub.GetApplicationProgramSettings());
    if (!Connect()) {
        LOG4CPLUS_ERROR(m_logger, "Init(): Connect failed.");
        return StartupState::Failed;
    }
    ReadDeviceConfiguration();

    bool started = m_knxHandler.Init(hub, CallerEntryPoint::Init);
    if (started) {
        m_downloadHandlerFlag = false;
        started = StartInitThread(hub);
        if (!started)
            LOG4CPLUS_ERROR(m_logger, "Init(): StartInitThread() failed.");
        // Kept on the failing path too: log filters wait for this line to know that the set-up is through.
        LOG4CPLUS_INFO(m_logger, "Init(): Init succeeded.");
    } else {
        LOG4CPLUS_ERROR(m_logger, "Init(): knxHandler init failed.");
    }

    if (!started)
        LOG4CPLUS_ERROR(m_logger, "Init(): got error.");
    LOG4CPLUS_DEBUG(m_logger, "Init(): end.");
    return started ? StartupState::InProgress : StartupState::Failed;
}

DscKnxAppPrg::StartupState DscKnxAppPrg::OnDeviceRestart() {
    LOG4CPLUS_DEBUG(m_logger, "OnDeviceRestart(): starting...");
    SetStartupState(CurrentStart(), StartupState::InProgress);
    m_callerEntryPoint = CallerEntryPoint::DeviceRestart;

    KnxStack::IApiHub* const hub = m_hub;
    if (hub == nullptr) {
        LOG4CPLUS_ERROR(m_logger, "OnDeviceRestart(): IApiHub is NULL!");
        return StartupState::Failed;
    }
    hub->OnApplicationProgramStartupStateChanged(StartupState::InProgress);

    if (!m_client) {
        if (!Connect()) {
            // Kept: the text names Init, as log filters for a failed connection know it.
            LOG4CPLUS_ERROR(m_logger, "Init(): Connect failed.");
            return StartupState::Failed;
        }
        if (!m_client) {
            LOG4CPLUS_ERROR(m_logger, "OnDeviceRestart(): OXN Client is NULL!");
            return StartupState::Failed;
        }
        ReadDeviceConfiguration();
    }

    StopInitThread(kStopTimeoutMs);
    // The former start may have reached its end while it was being stopped.
    BeginStart();

    if (m_knxHandler.Init(*hub, CallerEntryPoint::DeviceRestart)) {
        m_downloadHandlerFlag = true;
        if (StartInitThread(*hub)) {
            LOG4CPLUS_DEBUG(m_logger, "OnDeviceRestart(): end.");
            return StartupState::InProgress;
        }
    }
    LOG4CPLUS_ERROR(m_logger, "OnDeviceRestart(): got error.");
    LOG4CPLUS_DEBUG(m_logger, "OnDeviceRestart(): end.");
    return StartupState::Failed;
}

bool DscKnxAppPrg::Exit() {
    LOG4CPLUS_DEBUG(m_logger, "Exit(): starting...");
    StopInitThread(kStopTimeoutMs);
    EndStart();
    m_handlers.Clear();

    const bool exited = m_knxHandler.Exit();
    if (exited) {
        Disconnect();
        m_hub = nullptr;
    } else {
        m_hub = nullptr;
        LOG4CPLUS_DEBUG(m_logger, "Exit(): failed.");
    }
    LOG4CPLUS_DEBUG(m_logger, "Exit(): end.");
    return exited;
}

void DscKnxAppPrg::BeginStart() {
    const std::lock_guard lock(m_startMutex);
    ++m_start;
    m_startupState = StartupState::InProgress;
}

void DscKnxAppPrg::EndStart() {
    const std::lock_guard lock(m_startMutex);
    ++m_start;
    m_startupState = StartupState::Failed;
}

std::uint64_t DscKnxAppPrg::CurrentStart() const {
    const std::lock_guard lock(m_startMutex);
    return m_start;
}

bool DscKnxAppPrg::IsUnderway(std::uint64_t start) const {
    const std::lock_guard lock(m_startMutex);
    return start == m_start && m_startupState != StartupState::Failed;
}

bool DscKnxAppPrg::SetStartupState(std::uint64_t start, StartupState state) {
    const std::lock_guard lock(m_startMutex);
    if (start != m_start)
        return false;
    m_startupState = state;
    return true;
}

void DscKnxAppPrg::DoFinalStartupState(StartupState state, std::uint64_t start) {
    {
        const boost::this_thread::disable_interruption hubCall;
        KnxStack::IApiHub* const hub = m_hub;
        if (hub == nullptr || !IsUnderway(start))
            return; // the program was exited, or the start that came meanwhile has an end of its own
        hub->OnApplicationProgramStartupStateChanged(state);
    }
    LOG4CPLUS_DEBUG(m_logger, "DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: "
                                  << static_cast<std::uint32_t>(state));
    if (state != StartupState::Running)
        return;
    boost::this_thread::interruption_point(); // the hub may have taken longer than the stop of this start

    LOG4CPLUS_DEBUG(m_logger, "DoFinalStartupState: start up state is " << (m_startUpFlag ? 1 : 0));
    if (m_callerEntryPoint != CallerEntryPoint::DeviceRestart && !m_startUpFlag) {
        // The hub sees a final state, but a device restart follows: nothing is announced before it.
        SetStartupState(start, StartupState::InProgress);
        return;
    }

    SendEmitEvent("configurationLoaded");
    boost::this_thread::sleep_for(boost::chrono::seconds(1));
    if (SetStartupState(start, StartupState::Running))
        WriteState();
}

bool DscKnxAppPrg::WriteState() {
    if (!m_connected) {
        LOG4CPLUS_ERROR(m_logger, "WriteState(): client not connected.");
        return false;
    }
    std::string error;
    if (IsCommunicationEnabled(kReadyDataPoint, KnxHandler::OpMode::Writing) &&
        !RequestValue(kReadyDataPoint, error))
        LOG4CPLUS_ERROR(m_logger, "WriteState(): Get ready data point value failed. Error = " << error);
    if (IsCommunicationEnabled(kStateDataPoint, KnxHandler::OpMode::Writing) &&
        !RequestValue(kStateDataPoint, error))
        LOG4CPLUS_ERROR(m_logger, "WriteState(): Get state data point value failed. Error = " << error);
    return true;
}

bool DscKnxAppPrg::RequestValue(TAVOBJECTID id, std::string& error) {
    const boost::this_thread::disable_interruption clientCall;
    const std::lock_guard lock(m_clientMutex);
    if (!m_client || !m_client->GetValueRequest(id, 1).empty())
        return true;
    error = m_client->GetLastError();
    return false;
}

bool DscKnxAppPrg::IsCommunicationEnabled(std::uint32_t id, KnxHandler::OpMode mode) {
    if (!m_connected) {
        LOG4CPLUS_ERROR(m_logger, "IsCommunicationEnabled(): client not connected.");
        return false;
    }
    KNXDPT dpt;
    const std::uint16_t co = m_knxHandler.GetCOFromID(id, {}, dpt, mode);
    if (co == KnxHandler::kNoCo) {
        LOG4CPLUS_ERROR(m_logger, "IsCommunicationEnabled(): data point has no CO. ID = " << id);
        return false;
    }
    return m_knxHandler.GetCoDescriptorData(co).communicationEnabled != 0;
}
