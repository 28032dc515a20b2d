// The hub that the application program is given.
#pragma once

#include "KnxDevice/DownloadedData.h"
#include "KnxStack/IApiHub.h"
#include "KnxStack/IPropertyService.h"
#include "KnxStackHost/Program/GroupValueService.h"

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace KnxStackHost {

/// What the device offers to its program; all of it outlives the hub.
struct DeviceServices {
    GroupValueService& groupValues;
    KnxStack::IPropertyService& properties;
    KnxDevice::DownloadedData& downloaded;
};

/// Hands out the services, and passes on what the program reports. One hub serves all program objects that
/// the daemon makes one after the other.
class ApiHub final : public KnxStack::IApiHub {
public:
    using Settings = std::map<std::string, std::string>;
    using Report = std::function<void(KnxStack::IApplicationProgram::StartupState)>;

    /// `report` takes a state on any thread and waits for nothing.
    ApiHub(const DeviceServices& services, Settings settings, Report report);

    void OnApplicationProgramStartupStateChanged(KnxStack::IApplicationProgram::StartupState state) override;
    bool IsDeviceRestartPending() override { return m_restartPending; }
    Settings GetApplicationProgramSettings() override;
    KnxStack::IGroupValueService* GetGroupValueService() override { return &m_services.groupValues; }
    KnxStack::IApplicationProgramMemory* GetApplicationProgramMemory() override {
        return &m_services.downloaded;
    }
    KnxStack::IPropertyService* GetPropertyService() override { return &m_services.properties; }
    KnxStack::IDownloadService& GetDownloadService() override { return m_services.downloaded; }
    void OnApplicationProgramRestarted(unsigned applicationProgram, unsigned error) override;

    /// Any thread.
    void SetDeviceRestartPending(bool pending) { m_restartPending = pending; }
    void ReplaceSettings(Settings settings);

private:
    const DeviceServices m_services;
    const Report m_report;
    std::atomic<bool> m_restartPending{false};
    std::mutex m_settingsMutex; // guards m_settings
    Settings m_settings;
};

} // namespace KnxStackHost
