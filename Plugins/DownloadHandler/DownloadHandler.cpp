#include "DownloadHandler.h"

#include "Consistency.h"
#include "Replacement.h"

#include "KnxStack/BinaryData.h"
#include "ProjectFile/ApplicationData.h"
#include "ProjectFile/KnownIds.h"

#include <log4cplus/loggingmacros.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <system_error>
#include <unistd.h>

using Download::Refusal;
using ProjectFile::Project;

namespace {

constexpr const char* kData = "application data"; // in messages

std::string AbsolutePath(const std::string& path) {
    return path.empty() ? path : std::filesystem::absolute(path).string();
}

void RefuseUnlessEmpty(const std::string& fault) {
    if (!fault.empty()) {
        throw Refusal(fault);
    }
}

/// The device stack refuses a project that gives an id to another data point, and would not start with it.
void CheckIds(const Project& project, const std::string& stateDirectory) {
    const std::string file = stateDirectory + '/' + ProjectFile::kIdsFile;
    if (::access(file.c_str(), R_OK) != 0 && errno != ENOENT) {
        throw Refusal(file + ": cannot be read: " + std::generic_category().message(errno));
    }
    RefuseUnlessEmpty(ProjectFile::IdFaultOnDisk(stateDirectory, kData, project));
}

} // namespace

DownloadHandler::DownloadHandler(const std::string& configFile)
    : m_configFile(AbsolutePath(configFile)),
      m_logger(log4cplus::Logger::getInstance("KnxStack.DownloadHandler")) {}

bool DownloadHandler::Initialize() {
    try {
        if (m_configFile.empty()) {
            LOG4CPLUS_ERROR(m_logger, "Initialize(): No configuration file; name one in the attribute "
                                      "\"ConfigFile\" of \"knxappprghandlers.xml\".");
            return false;
        }
        const std::string fault = Download::ReadSettings(m_configFile, m_settings);
        if (!fault.empty()) {
            LOG4CPLUS_ERROR(m_logger, "Initialize(): Configuration refused: " << fault);
        }
        return fault.empty();
    } catch (const std::exception& error) {
        LOG4CPLUS_ERROR(m_logger,
                        "Initialize(): Configuration refused: " << m_configFile << ": " << error.what());
        return false;
    }
}

bool DownloadHandler::CreateFileWithKnxData(const Vesk::KnxAppPrg::InterfaceObjectMap& interfaceObjects,
                                            const KnxStack::BinaryData& data, std::function<void()> announce,
                                            AppData appData,
                                            const Vesk::KnxAppPrg::CoDescriptorDataMap& coDescriptors) {
    try {
        const auto downloaded = ProjectFile::DecodeApplicationData(data.Bytes(), kData);
        RefuseUnlessEmpty(downloaded.Error());
        const Project& project = *downloaded.project;
        const auto current = ProjectFile::LoadProject(m_settings.project);
        if (current && *current.project == project) {
            LOG4CPLUS_INFO(m_logger, "CreateFileWithKnxData(): The download brings the project that "
                                         << m_settings.project << " has already.");
            return false;
        }
        RefuseUnlessEmpty(Download::CoFault(project, coDescriptors));
        RefuseUnlessEmpty(Download::InterfaceObjectFault(project, current.project.get(), interfaceObjects));
        if (!m_settings.stateDirectory.empty()) {
            CheckIds(project, m_settings.stateDirectory);
        }
        Replace(project, announce, appData);
        return true;
    } catch (const std::exception& error) {
        LogRefusal(error.what());
    } catch (...) { // an interruption of the thread among them; its owner looks whether it is to end
        LogRefusal("the announcement was broken off");
    }
    return false;
}

void DownloadHandler::Replace(const Project& project, const std::function<void()>& announce,
                              AppData appData) {
    Download::Replacement replacement(m_settings.project);
    replacement.Write(ProjectFile::WriteProject(project));
    // What the device stack will read, as it will read it.
    const auto written = ProjectFile::LoadProject(replacement.TemporaryPath());
    RefuseUnlessEmpty(written.Error());
    if (!(*written.project == project)) {
        throw Refusal(replacement.TemporaryPath() + ": is not what was written");
    }
    if (announce) {
        announce();
    } else if (!appData.configurationChangeRaised) {
        LOG4CPLUS_WARN(
            m_logger,
            "CreateFileWithKnxData(): The change is announced to nobody, for another plug-in stands "
            "before this one; the application program learns of it at its next start.");
    }
    const std::string fault = replacement.Commit();
    LOG4CPLUS_INFO(m_logger, "CreateFileWithKnxData(): Project "
                                 << m_settings.project << " comes from the download; it has "
                                 << project.dataPoints.size() << " data points.");
    if (!fault.empty()) {
        LOG4CPLUS_WARN(
            m_logger, "CreateFileWithKnxData(): The former project may return at a power failure: " << fault);
    }
}

void DownloadHandler::LogRefusal(const char* cause) const {
    LOG4CPLUS_ERROR(m_logger, "CreateFileWithKnxData(): Download refused, " << m_settings.project
                                                                            << " stays as it was: " << cause);
}
