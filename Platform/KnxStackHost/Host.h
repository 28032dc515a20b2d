// The running host: links, device and application program put together.
#pragma once

#include "KnxDevice/DownloadedData.h"
#include "KnxDevice/GroupObjects.h"
#include "KnxDevice/InterfaceObjects.h"
#include "KnxStackHost/ApplicationThread.h"
#include "KnxStackHost/Configuration.h"
#include "KnxStackHost/LinkThread.h"

#include <functional>
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
    void ApplySettings();
    void Terminate();
    void ReportWhatNeedsARestart(const Configuration& next) const;

    Configuration m_configuration; // as started; what is in the next three is not here
    const ReadConfiguration m_read;
    KnxDevice::GroupObjects m_objects;
    KnxDevice::InterfaceObjects m_interfaceObjects;
    KnxDevice::DownloadedData m_downloaded;
    LinkThread m_link;
    GroupValueService m_service;
    ApplicationThread m_application;
    std::optional<Configuration> m_next; // application thread only, between Read() and Apply()
    bool m_terminating = false;          // link thread only, like the next
    bool m_abandoned = false;
};

} // namespace KnxStackHost
