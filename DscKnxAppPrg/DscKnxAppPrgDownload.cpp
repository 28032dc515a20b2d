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

    Vesk::KnxAppPrg::CoDescriptorDataMap coDescriptors;
    m_knxHandler.FillCoDescriptorData(coDescriptors);
    const Vesk::IKnxDownloadHandler::AppData appData{m_etsConfigurationChanged};
    const KnxStack::BinaryData* data = nullptr;
    {
        const boost::this_thread::disable_interruption hubCall;
        KnxStack::IApiHub* const hub = m_hub;
        if (hub == nullptr)
            return UpdateAppState::NoFile; // the program was exited meanwhile
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
    LOG4CPLUS_INFO(m_logger, "OnConfigurationChanged(): reload KnxAppPrgHandlers");
    try {
        m_handlers.Ask([](const auto& handlers) { return handlers.Reload(); });
    } catch (const std::exception& error) {
        // The change has an end all the same, as it has when a plug-in answers that it could not reload.
        LOG4CPLUS_ERROR(m_logger, "OnConfigurationChanged(): Can't reload: " << error.what());
    }
    m_knxHandler.ClearCoAndIdMap();
    m_etsConfigurationChanged = false;
    if (!StartConfigurationChangeThread())
        m_etsConfigurationChanged = true; // the next change of the project finishes the start
    return true;
}

void DscKnxAppPrg::FinishConfigurationChange(std::uint64_t start) {
    SendEmitEvent("configurationChangeEnd");
    m_knxHandler.UpdateIdUrnMap();
    if (start == CurrentStart()) // else the start that came meanwhile has an end of its own
        DoFinalStartupState(StartupState::Running);
}
