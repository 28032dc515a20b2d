#include "KnxStackHost/Program/ApiHub.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <utility>

namespace KnxStackHost {

ApiHub::ApiHub(const DeviceServices& services, Settings settings, Report report)
    : m_services(services), m_report(std::move(report)), m_settings(std::move(settings)) {}

void ApiHub::OnApplicationProgramStartupStateChanged(KnxStack::IApplicationProgram::StartupState state) {
    m_report(state);
}

ApiHub::Settings ApiHub::GetApplicationProgramSettings() {
    const std::lock_guard lock(m_settingsMutex);
    return m_settings;
}

void ApiHub::OnApplicationProgramRestarted(unsigned applicationProgram, unsigned error) {
    const auto logger = log4cplus::Logger::getInstance("KnxStack.Host.Program");
    LOG4CPLUS_INFO(logger,
                   fmt::format("application program {} has taken over after the device restart, error {}",
                               applicationProgram, error));
}

void ApiHub::ReplaceSettings(Settings settings) {
    const std::lock_guard lock(m_settingsMutex);
    m_settings = std::move(settings);
}

} // namespace KnxStackHost
