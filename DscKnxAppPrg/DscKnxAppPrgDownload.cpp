// After a download: the download handlers, and the change of the configuration that they lead to.
#include "DscKnxAppPrg.h"
#include "DynamicKnxDownloadHandlers.h"

#include "KnxStack/IApiHub.h"
#include "KnxStack/IDownloadService.h"

#include <boost/thread/thread.hpp>
#include <log4cplus/loggingmacros.h>

#include <exception>

namespace {

constexpr const char* kDownloadHandlers = "dscknxdownload";
constexpr const char* kProjectKey = "Project";

} // namespace

DscKnxAppPrg::UpdateAppState DscKnxAppPrg::ExecuteDownloadHandler() {
    DynamicKnxDownloadHandlers handlers;
    const bool loaded = WithOwnExceptions(
        [&] { return handlers.Init(m_deviceStackConfigPath, m_userDataPath, kDownloadHandlers); });
    if (!loaded) {
        LOG4CPLUS_DEBUG(m_logger,
                        "ExecuteDownloadHandler(): Error while loading dynamic knx download handlers.");
        return UpdateAppState::NoFile;
    }

    boost::this_thread::interruption_point(); // loading may have taken longer than the stop of this start

    Vesk::KnxAppPrg::CoDescriptorDataMap coDescriptors;
    Vesk::IKnxDownloadHandler::AppData appData;
    const KnxStack::BinaryData* data = nullptr;
    {
        const boost::this_thread::disable_interruption stackCalls;
        KnxStack::IApiHub* const hub = m_hub;
        if (hub == nullptr)
            return UpdateAppState::NoFile; // the program was exited meanwhile
        m_knxHandler.FillCoDescriptorData(coDescriptors);
        appData.configurationChangeRaised = m_etsConfigurationChanged;
        data = &hub->GetDownloadService().GetApplicationData();
    }
    const bool created = WithOwnExceptions([&] {
        return handlers.CreateFileWithKnxData(
            m_knxHandler.InterfaceObjects(), *data, [this] { AnnounceConfigurationChange(); }, appData,
            coDescriptors);
    });
    return created ? UpdateAppState::FileCreated : UpdateAppState::NoFile;
}

void DscKnxAppPrg::AnnounceConfigurationChange() {
    m_etsConfigurationChanged = true;
    SendEmitEvent("configurationChangeBegin");
    SendEmitEvent("etsConfigChanged");
}

bool DscKnxAppPrg::OnConfigurationChanged(void*, TAVOBJECTID, const std::string& key, const std::string&) {
    if (!m_etsConfigurationChanged || key != kProjectKey)
        return true;
    // Of now: a restart or an exit while the plug-ins read their configuration has nothing to do with it.
    const std::uint64_t start = CurrentStart();
    LOG4CPLUS_INFO(m_logger, "OnConfigurationChanged(): reload KnxAppPrgHandlers");
    try {
        m_handlers.Ask([](const auto& handlers) { return handlers.Reload(); });
    } catch (const std::exception& error) {
        // The change has an end all the same, as it has when a plug-in answers that it could not reload.
        LOG4CPLUS_ERROR(m_logger, "OnConfigurationChanged(): Can't reload: " << error.what());
    }
    m_knxHandler.ClearCoAndIdMap();
    m_etsConfigurationChanged = false;
    if (!StartConfigurationChangeThread(start))
        m_etsConfigurationChanged = true; // the next change of the project finishes the start
    return true;
}

void DscKnxAppPrg::FinishConfigurationChange(std::uint64_t start) {
    try {
        SendEmitEvent("configurationChangeEnd");
        m_knxHandler.UpdateIdUrnMap();
        DoFinalStartupState(StartupState::Running, start);
    } catch (...) {
        // As on the init thread: the host gets to know that this start has no end.
        if (m_startupState != StartupState::Running)
            DoFinalStartupState(StartupState::Failed, start);
        throw;
    }
}
