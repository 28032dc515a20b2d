#include "FakeHub.h"

#include "Recorder.h"

namespace TestSupport {

bool FakeHub::Enter(const char* operation) {
    const bool works = faults.Enter(operation);
    InterruptionPoint(m_recorder, "hub", operation);
    return works;
}

void FakeHub::OnApplicationProgramStartupStateChanged(KnxStack::IApplicationProgram::StartupState state) {
    m_recorder.Add("hub OnApplicationProgramStartupStateChanged(" +
                   std::to_string(static_cast<unsigned>(state)) + ")");
    Enter("OnApplicationProgramStartupStateChanged");
}

bool FakeHub::IsDeviceRestartPending() {
    const bool answer = Enter("IsDeviceRestartPending") && restartPending;
    m_recorder.Add(std::string("hub IsDeviceRestartPending() -> ") + (answer ? "true" : "false"));
    return answer;
}

std::map<std::string, std::string> FakeHub::GetApplicationProgramSettings() {
    m_recorder.Add("hub GetApplicationProgramSettings()");
    if (!Enter("GetApplicationProgramSettings"))
        return {};
    return settings;
}

KnxStack::IGroupValueService* FakeHub::GetGroupValueService() {
    m_recorder.Add("hub GetGroupValueService()");
    Enter("GetGroupValueService");
    return groupValueService;
}

KnxStack::IApplicationProgramMemory* FakeHub::GetApplicationProgramMemory() {
    m_recorder.Add("hub GetApplicationProgramMemory()");
    Enter("GetApplicationProgramMemory");
    return applicationProgramMemory;
}

KnxStack::IPropertyService* FakeHub::GetPropertyService() {
    m_recorder.Add("hub GetPropertyService()");
    Enter("GetPropertyService");
    return propertyService;
}

KnxStack::IDownloadService& FakeHub::GetDownloadService() {
    m_recorder.Add("hub GetDownloadService()");
    Enter("GetDownloadService");
    return m_downloadService;
}

void FakeHub::OnApplicationProgramRestarted(unsigned applicationProgram, unsigned error) {
    m_recorder.Add("hub OnApplicationProgramRestarted(" + std::to_string(applicationProgram) + ", " +
                   std::to_string(error) + ")");
    Enter("OnApplicationProgramRestarted");
}

} // namespace TestSupport
