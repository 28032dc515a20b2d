// The project file, made from the application data of a download.
#pragma once

#include "Settings.h"
#include "Vesk/IKnxDownloadHandler.h"

#include "ProjectFile/Project.h"

#include <log4cplus/logger.h>

#include <string>

/// Replaces the project file that its configuration names when a download brings another project. The
/// renaming is the only step that anybody sees; before it everything is checked that can be. Every refusal is
/// one ERROR line, leaves the old project as it is and no other file. One thread at a time.
class DownloadHandler final : public Vesk::IKnxDownloadHandler {
public:
    /// `configFile` is the configuration; a relative path counts from the directory at this moment.
    explicit DownloadHandler(const std::string& configFile);

    /// Reads the configuration. False with one ERROR line when it is refused.
    bool Initialize() override;

    /// True when the project file was replaced. False also when the download brings the project that is in
    /// force: nothing is announced then, for nothing would follow. Throws nothing, not even what `announce`
    /// throws.
    ///
    /// `announce` is called also when a change is already announced: that one may end before the device stack
    /// has seen this file, and then nobody would wait for this one. A second announcement costs two events.
    bool CreateFileWithKnxData(const Vesk::KnxAppPrg::InterfaceObjectMap& interfaceObjects,
                               const KnxStack::BinaryData& data, std::function<void()> announce,
                               AppData appData,
                               const Vesk::KnxAppPrg::CoDescriptorDataMap& coDescriptors) override;

private:
    void Replace(const ProjectFile::Project& project, const std::function<void()>& announce, AppData appData);
    void LogRefusal(const char* cause) const;

    const std::string m_configFile; // absolute; "" when none is configured
    const log4cplus::Logger m_logger;
    Download::Settings m_settings; // since Initialize()
};
