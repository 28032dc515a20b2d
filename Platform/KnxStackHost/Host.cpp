#include "KnxStackHost/Host.h"

#include "DaemonSupport/LogSettings.h"
#include "DaemonSupport/ServiceManager.h"
#include "KnxStackHost/BlockedSignals.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <utility>

namespace KnxStackHost {

namespace {

constexpr std::chrono::seconds kPatience{10}; // with a program that does not end

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host");
    return logger;
}

} // namespace

Host::Host(Configuration configuration, ProgramLibrary library, ReadConfiguration read)
    : m_configuration(std::move(configuration)), m_read(std::move(read)),
      m_objects(m_configuration.MakeTable()), m_interfaceObjects(m_configuration.interfaceObjects),
      m_downloaded(m_configuration.memory, m_configuration.applicationData), m_link(m_configuration),
      m_service(m_objects, m_link),
      m_application(library, {m_service, m_interfaceObjects, m_downloaded}, m_configuration.program.settings,
                    *this, [this] { m_link.Close(); }) {
    m_configuration.groupObjects = {};
    m_configuration.interfaceObjects = {};
    m_configuration.memory = {};
    m_configuration.applicationData = {};
}

void Host::Open() {
    m_link.Open(m_objects, [this](Callback callback) { m_application.Post(std::move(callback)); },
                {[this] { m_application.RequestReload(); }, [this] { m_application.RequestDeviceRestart(); },
                 [this] { Terminate(); }});
}

bool Host::Run() {
    LOG4CPLUS_INFO(Log(), fmt::format("device {} \"{}\" with {} group objects",
                                      m_configuration.individualAddress.ToString(),
                                      m_configuration.deviceName, m_objects.Tables()->Count()));
    m_link.Start();
    {
        const BlockedSignals blocked;
        m_application.Start();
    }
    LOG4CPLUS_INFO(Log(), "ready");
    DaemonSupport::NotifyServiceManager("READY=1");
    m_link.Run();
    if (m_abandoned)
        m_application.Abandon();
    LOG4CPLUS_INFO(Log(), "ended");
    return !m_abandoned;
}

void Host::Terminate() {
    if (std::exchange(m_terminating, true))
        return;
    DaemonSupport::NotifyServiceManager("STOPPING=1");
    m_application.RequestStop();
    m_link.After(kPatience, [this] {
        LOG4CPLUS_ERROR(Log(),
                        fmt::format("the application program has not ended within {} s; ending without it",
                                    kPatience.count()));
        m_abandoned = true;
        m_link.Close();
    });
}

bool Host::Read(Scope scope) {
    try {
        m_next = m_read(scope);
        return true;
    } catch (const ConfigurationError& error) {
        LOG4CPLUS_ERROR(Log(), fmt::format("{}; the former configuration stays in force", error.what()));
        return false;
    }
}

bool Host::ChangesGroupObjects() const {
    return m_next->MakeTable() != *m_objects.Tables();
}

void Host::Apply(Scope scope) {
    ReportWhatNeedsARestart(*m_next);
    m_objects.Replace(m_next->MakeTable());
    m_interfaceObjects.Load(m_next->interfaceObjects);
    m_downloaded.Replace(std::move(m_next->memory), std::move(m_next->applicationData));
    if (scope == Scope::Everything)
        ApplySettings();
    else if (m_next->program.settings != m_application.Hub().GetApplicationProgramSettings())
        LOG4CPLUS_WARN(Log(), "/applicationProgram/settings has changed; that takes effect with SIGHUP");
    m_next.reset();
    LOG4CPLUS_INFO(Log(),
                   fmt::format("{} in force, with {} group objects",
                               scope == Scope::Everything ? "the new configuration is" : "the new device is",
                               m_objects.Tables()->Count()));
}

void Host::ApplySettings() {
    m_application.Hub().ReplaceSettings(std::move(m_next->program.settings));
    DaemonSupport::SetLogLevel(m_next->log.level);
}

void Host::ReportWhatNeedsARestart(const Configuration& next) const {
    const std::pair<const char*, bool> changes[] = {
        {"device", next.individualAddress != m_configuration.individualAddress ||
                       next.deviceName != m_configuration.deviceName},
        {"server", next.server != m_configuration.server},
        {"interface", next.interface != m_configuration.interface},
        {"applicationProgram/library", next.program.library != m_configuration.program.library},
        {"deviceStackSocket", next.deviceStackSocket != m_configuration.deviceStackSocket},
        {"log/file", next.log.file != m_configuration.log.file}};
    for (const auto& [place, changed] : changes)
        if (changed)
            LOG4CPLUS_WARN(
                Log(),
                fmt::format("/{} has changed; that takes effect at the next start of knxstackd", place));
}

} // namespace KnxStackHost
