// A KNX stack host that records.
#pragma once

#include "Faults.h"
#include "KnxStack/BinaryData.h"
#include "KnxStack/IApiHub.h"
#include "KnxStack/IApplicationProgramMemory.h"
#include "KnxStack/IDownloadService.h"

#include <map>
#include <string>

namespace TestSupport {

class Recorder;

/// The hub as an application program sees it. The public fields are what it answers; they are to be set while
/// no program is using it. Recorded as "hub <operation>(<arguments>)", a query with " -> <answer>".
///
/// Every operation is an interruption point, as a call that waits would be. Faults by operation name; only
/// IsDeviceRestartPending and GetApplicationProgramSettings can refuse (false, no settings).
class FakeHub : public KnxStack::IApiHub {
public:
    explicit FakeHub(Recorder& recorder) : m_recorder(recorder) {}

    bool restartPending = false;
    std::map<std::string, std::string> settings;
    KnxStack::IGroupValueService* groupValueService = nullptr;
    KnxStack::IApplicationProgramMemory* applicationProgramMemory = nullptr;
    KnxStack::IPropertyService* propertyService = nullptr;
    KnxStack::BinaryData applicationData; ///< of the download service
    Faults faults;

    void OnApplicationProgramStartupStateChanged(KnxStack::IApplicationProgram::StartupState state) override;
    bool IsDeviceRestartPending() override;
    std::map<std::string, std::string> GetApplicationProgramSettings() override;
    KnxStack::IGroupValueService* GetGroupValueService() override;
    KnxStack::IApplicationProgramMemory* GetApplicationProgramMemory() override;
    KnxStack::IPropertyService* GetPropertyService() override;
    KnxStack::IDownloadService& GetDownloadService() override;
    void OnApplicationProgramRestarted(unsigned applicationProgram, unsigned error) override;

private:
    class DownloadService : public KnxStack::IDownloadService {
    public:
        explicit DownloadService(const KnxStack::BinaryData& data) : m_data(data) {}
        const KnxStack::BinaryData& GetApplicationData() override { return m_data; }

    private:
        const KnxStack::BinaryData& m_data;
    };

    bool Enter(const char* operation);

    Recorder& m_recorder;
    DownloadService m_downloadService{applicationData};
};

/// The memory block of application program 1 with fixed content.
class FakeApplicationProgramMemory : public KnxStack::IApplicationProgramMemory {
public:
    KnxStack::BinaryData data;
    const KnxStack::BinaryData& GetData() const override { return data; }
};

} // namespace TestSupport
