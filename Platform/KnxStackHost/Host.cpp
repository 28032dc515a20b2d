#include "KnxStackHost/Host.h"

#include "DaemonSupport/LogSettings.h"
#include "DaemonSupport/Memory.h"
#include "DaemonSupport/ServiceManager.h"
#include "KnxStackHost/BlockedSignals.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <memory>
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
      m_management(m_configuration, m_interfaceObjects), m_objects(m_configuration.MakeTable()),
      m_downloaded(m_configuration.memory, m_configuration.applicationData), m_link(m_configuration),
      m_service(m_objects, m_link),
      m_application(library, {m_service, m_interfaceObjects, m_downloaded}, m_configuration.program.settings,
                    *this, [this] { m_link.Close(); }) {
    if (m_management.HasImage()) {
        m_loaded = m_management.Loaded();
        m_isUnloaded = !m_loaded->isProgramLoaded;
        m_objects.Replace(TableOf(*m_loaded));
        m_downloaded.Replace(m_loaded->memory, m_loaded->applicationData);
    }
    m_link.SetAddressBook(AddressBook(m_configuration.groupObjects));
    m_configuration.groupObjects = {};
    m_configuration.interfaceObjects = {};
    m_configuration.memory = {};
    m_configuration.applicationData = {};
}

void Host::Open() {
    m_management.Connect(
        {.send = [this](const KnxFrames::LData& telegram) { m_link.SendFromDevice(telegram); },
         .restarted = [this](LoadedDevice loaded) { OnDownloaded(std::move(loaded)); },
         .restartedAsConfigured = [this] { m_application.RequestDeviceRestart(); },
         .unloaded = [this] { Unload(); },
         .changed = [this] { m_link.OnDeviceChanged(); }});
    m_link.Open(m_objects, m_management,
                [this](Callback callback) { m_application.Post(std::move(callback)); },
                {[this] { m_application.RequestReload(); }, [this] { m_application.RequestDeviceRestart(); },
                 [this] { Terminate(); }, [this] { return Status(); }});
}

bool Host::Run() {
    LOG4CPLUS_INFO(Log(),
                   fmt::format("device {} \"{}\" with {} group objects", m_management.Address().ToString(),
                               m_configuration.deviceName, m_objects.Tables()->Count()));
    m_link.Start();
    {
        const BlockedSignals blocked;
        m_application.Start(m_management.IsRestartPending());
    }
    LOG4CPLUS_INFO(Log(), "ready");
    DaemonSupport::NotifyServiceManager("READY=1");
    m_link.Run();
    if (m_abandoned)
        m_application.Abandon();
    m_management.Finish();
    LOG4CPLUS_INFO(Log(), "ended");
    return !m_abandoned;
}

// A download by bus. The device itself stays on the link thread; what the program works with goes over to the
// application thread once the device restarts.

void Host::OnDownloaded(LoadedDevice loaded) {
    if (!loaded.isProgramLoaded) {
        Unload();
        return;
    }
    {
        const std::lock_guard lock(m_downloadMutex);
        m_download = std::move(loaded);
    }
    m_isUnloaded = false;
    m_application.RequestDeviceRestart();
}

void Host::Unload() {
    if (!m_isUnloaded.exchange(true))
        LOG4CPLUS_INFO(Log(), "the device is not loaded: its group objects rest until a download has ended");
    ReplaceTable({});
}

bool Host::TakeDownload() {
    const std::lock_guard lock(m_downloadMutex);
    if (!m_download)
        return false;
    m_loaded = std::exchange(m_download, std::nullopt);
    return true;
}

KnxDevice::GroupObjectTable Host::TableOf(const LoadedDevice& loaded) const {
    if (!loaded.isProgramLoaded)
        return {};
    auto definitions = loaded.groupObjects;
    for (auto& definition : definitions)
        if (m_configuration.translationRange.Contains(definition.number))
            definition.ownTelegrams = false;
    return KnxDevice::GroupObjectTable(definitions);
}

void Host::ReplaceTable(KnxDevice::GroupObjectTable table) {
    const std::lock_guard lock(m_tableMutex);
    m_objects.Replace(m_isUnloaded ? KnxDevice::GroupObjectTable() : std::move(table));
}

void Host::OnProgramRunning() {
    DaemonSupport::ReturnFreeMemory(); // of reading the configuration, here and in the program
    if (std::exchange(m_readsDue, false))
        m_link.Post([this] { m_link.BeginStartupReads(); });
}

void Host::OnRestartFinished() {
    m_link.Post([this] { m_management.OnProgramRestarted(); });
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

DeviceStatus Host::Status() const {
    DeviceStatus status;
    status.address = m_management.Address();
    status.name = m_configuration.deviceName;
    status.serialNumber = m_management.Device().Identity().serialNumber;
    status.programmingMode = m_management.IsInProgrammingMode();
    status.loadStates = m_management.LoadStates();
    status.restartPending = m_management.IsRestartPending();
    status.groupObjects = m_objects.Tables()->Count();
    status.program = m_application.StateText();
    status.programTelegrams = m_application.Telegrams();
    status.image = m_configuration.device.image;
    status.uptime =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - m_started);
    return status;
}

bool Host::Read(Scope scope) {
    if (scope == Scope::Device && TakeDownload()) {
        m_next.reset();
        m_nextTable = TableOf(*m_loaded);
        return true;
    }
    if (scope == Scope::Device)
        LOG4CPLUS_INFO(Log(), "the device restarts; reading its part of the configuration again");
    try {
        m_next = m_read(scope);
    } catch (const ConfigurationError& error) {
        LOG4CPLUS_ERROR(Log(), fmt::format("{}; the former configuration stays in force", error.what()));
        return false;
    }
    m_nextTable = m_loaded ? TableOf(*m_loaded) : m_next->MakeTable();
    if (m_isUnloaded)
        m_nextTable = {};
    return true;
}

bool Host::ChangesGroupObjects() const {
    return m_nextTable != *m_objects.Tables();
}

void Host::Apply(Scope scope) {
    m_readsDue = m_readsDue || scope == Scope::Device || ChangesGroupObjects();
    ReplaceTable(std::move(m_nextTable));
    if (m_loaded)
        m_downloaded.Replace(m_loaded->memory, m_loaded->applicationData);
    if (m_next)
        ApplyConfiguration(scope);
    LOG4CPLUS_INFO(Log(),
                   fmt::format("{} in force, with {} group objects",
                               scope == Scope::Everything ? "the new configuration is" : "the new device is",
                               m_objects.Tables()->Count()));
}

void Host::ApplyConfiguration(Scope scope) {
    ReportWhatNeedsARestart(*m_next);
    m_interfaceObjects.Load(m_next->interfaceObjects);
    m_link.SetAddressBook(AddressBook(m_next->groupObjects));
    if (m_loaded) {
        LOG4CPLUS_WARN(Log(), "group objects, memory and application data stay as tools have loaded them; "
                              "those of the configuration do not count");
    } else {
        auto described = std::make_shared<const LoadedDevice>(
            LoadedDevice{m_next->Definitions(), m_next->memory, m_next->applicationData, true});
        m_link.Post([this, described = std::move(described)] { m_management.Reconfigure(*described); });
        m_downloaded.Replace(std::move(m_next->memory), std::move(m_next->applicationData));
    }
    if (scope == Scope::Everything)
        ApplySettings();
    else if (m_next->program.settings != m_application.Hub().GetApplicationProgramSettings())
        LOG4CPLUS_WARN(Log(), "/applicationProgram/settings has changed; that takes effect with SIGHUP");
    m_next.reset();
}

void Host::ApplySettings() {
    m_application.Hub().ReplaceSettings(std::move(m_next->program.settings));
    DaemonSupport::SetLogLevel(m_next->log.level);
}

void Host::ReportWhatNeedsARestart(const Configuration& next) const {
    const std::pair<const char*, bool> changes[] = {
        {"device", next.individualAddress != m_configuration.individualAddress ||
                       next.deviceName != m_configuration.deviceName ||
                       next.device != m_configuration.device},
        {"server", next.server != m_configuration.server},
        {"interface", next.interface != m_configuration.interface},
        {"routing", next.routing != m_configuration.routing},
        {"applicationProgram/library", next.program.library != m_configuration.program.library},
        {"control", next.control != m_configuration.control},
        {"deviceStackSocket", next.deviceStackSocket != m_configuration.deviceStackSocket},
        {"log/file", next.log.file != m_configuration.log.file}};
    for (const auto& [place, changed] : changes)
        if (changed)
            LOG4CPLUS_WARN(
                Log(),
                fmt::format("/{} has changed; that takes effect at the next start of knxstackd", place));
}

} // namespace KnxStackHost
