// The hub that the application program is given.
#pragma once

#include "KnxStack/BinaryData.h"
#include "KnxStack/IApiHub.h"
#include "KnxStack/IApplicationProgramMemory.h"
#include "KnxStack/IDownloadService.h"
#include "KnxStack/IPropertyService.h"
#include "KnxStackHost/GroupValueService.h"

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace KnxStackHost {

/// What a device holds for its program that was never loaded by ETS: nothing.
class DownloadedData final : public KnxStack::IApplicationProgramMemory, public KnxStack::IDownloadService {
public:
    const KnxStack::BinaryData& GetData() const override { return m_memory; }
    const KnxStack::BinaryData& GetApplicationData() override { return m_applicationData; }

private:
    KnxStack::BinaryData m_memory;
    KnxStack::BinaryData m_applicationData;
};

/// What the device offers to its program; all of it outlives the hub.
struct DeviceServices {
    GroupValueService& groupValues;
    KnxStack::IPropertyService& properties;
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
    KnxStack::IApplicationProgramMemory* GetApplicationProgramMemory() override { return &m_data; }
    KnxStack::IPropertyService* GetPropertyService() override { return &m_services.properties; }
    KnxStack::IDownloadService& GetDownloadService() override { return m_data; }
    void OnApplicationProgramRestarted(unsigned applicationProgram, unsigned error) override;

    /// Any thread.
    void SetDeviceRestartPending(bool pending) { m_restartPending = pending; }
    void ReplaceSettings(Settings settings);

private:
    const DeviceServices m_services;
    const Report m_report;
    DownloadedData m_data;
    std::atomic<bool> m_restartPending{false};
    std::mutex m_settingsMutex; // guards m_settings
    Settings m_settings;
};

} // namespace KnxStackHost
