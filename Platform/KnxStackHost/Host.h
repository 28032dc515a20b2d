// The running host: links, device and application program put together.
#pragma once

#include "KnxDevice/DownloadedData.h"
#include "KnxDevice/GroupObjects.h"
#include "KnxDevice/InterfaceObjects.h"
#include "KnxStackHost/Configuration/Configuration.h"
#include "KnxStackHost/Device/DeviceManagement.h"
#include "KnxStackHost/Links/LinkThread.h"
#include "KnxStackHost/Program/ApplicationThread.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>

namespace KnxStackHost {

/// One host, from start to end. The thread that calls Run() is the link thread. The host makes one other
/// that lasts, the application thread.
class Host final : private ReloadSource {
public:
    using ReloadSource::Scope;

    /// Reads the configuration anew, command line included; throws ConfigurationError.
    using ReadConfiguration = std::function<Configuration(Scope)>;

    Host(Configuration configuration, ProgramLibrary library, ReadConfiguration read);

    /// Opens the sockets; nothing runs yet. Throws LinkError.
    void Open();

    /// Serves until the process is told to end. False when the program did not let go: then the process has
    /// to end without destructors, for the program's threads still use everything.
    bool Run();

private:
    bool Read(Scope scope) override;
    bool ChangesGroupObjects() const override;
    void Apply(Scope scope) override;
    void OnRestartFinished() override;
    void OnProgramRunning() override;
    void ConnectManagement();
    void OnDownloaded(LoadedDevice loaded);
    void Unload();
    bool TakeDownload();
    KnxDevice::GroupObjectTable TableOf(const LoadedDevice& loaded) const;
    void ReplaceTable(KnxDevice::GroupObjectTable table);
    void ApplyConfiguration(Scope scope);
    void ApplySettings();
    void Terminate();
    DeviceStatus Status() const;
    void ReportWhatNeedsARestart(const Configuration& next) const;

    Configuration m_configuration; // as started; what is in the next three is not here
    const ReadConfiguration m_read;
    KnxDevice::InterfaceObjects m_interfaceObjects;
    DeviceManagement m_management; // link thread only, once that runs
    KnxDevice::GroupObjects m_objects;
    KnxDevice::DownloadedData m_downloaded;
    LinkThread m_link;
    GroupValueService m_service;
    ApplicationThread m_application;
    std::mutex m_tableMutex; // so that one thread at a time replaces the table of m_objects
    std::mutex m_downloadMutex;
    std::optional<LoadedDevice> m_download; // waits for the application thread; guarded by m_downloadMutex
    std::atomic<bool> m_isUnloaded{false};  // group communication rests until the end of a download

    // Application thread only, once that runs.
    std::optional<LoadedDevice> m_loaded; // in force instead of the configuration's
    std::optional<Configuration> m_next;  // between Read() and Apply(); none for a download by bus
    KnxDevice::GroupObjectTable m_nextTable;
    bool m_readsDue =
        true; // once the program runs: values of other objects, or of a device that has restarted

    const std::chrono::steady_clock::time_point m_started = std::chrono::steady_clock::now();
    bool m_terminating = false; // link thread only, like the next
    bool m_abandoned = false;
};

} // namespace KnxStackHost
