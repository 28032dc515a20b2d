// Settings of the host and configuration of the device stack.
#include "DscKnxAppPrg.h"

#include <boost/json.hpp>
#include <boost/thread/thread.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <exception>

namespace json = boost::json;

const std::array<DscKnxAppPrg::DeviceType, 7> DscKnxAppPrg::s_deviceTypes{{
    {"QTRMNV01", 1},
    {"PLXWNV01", 2},
    {"HBRQNV02", 3},
    {"ZAXPNVIP", 4},
    {"VELDNV03", 5},
    {"MURTNV03", 6},
    {"", 0},
}};

namespace {

std::string SettingOr(const std::map<std::string, std::string>& settings, const std::string& key,
                      const std::string& absent) {
    const auto setting = settings.find(key);
    return setting == settings.end() ? absent : setting->second;
}

/// Stores the member as text; a member of another kind counts as absent.
bool ReadText(const json::object& object, const char* key, std::string& text) {
    const json::value* const member = object.if_contains(key);
    if (member == nullptr || !member->is_string())
        return false;
    text.assign(member->get_string().begin(), member->get_string().end());
    return true;
}

} // namespace

void DscKnxAppPrg::ApplySettings(const std::map<std::string, std::string>& settings) {
    // Settings that are gone since an earlier Init have their defaults again.
    m_instanceId = SettingOr(settings, "DscInstanceId", "KNX");
    LOG4CPLUS_INFO(m_logger, "Init(): DscInstanceId = " << m_instanceId);
    const std::string targetId = SettingOr(settings, "GroupAddressTranslationTargetId", "");
    m_knxHandler.Translation().SetTargetName(
        targetId.empty() ? std::string()
                         : fmt::format("{}::{}::{}", kApplicationName, kApplicationType, targetId));
    if (!targetId.empty())
        LOG4CPLUS_INFO(m_logger, "Init(): GroupAddressTranslationTargetId = " << targetId);
    m_handlerName = SettingOr(settings, "AppPrgHandlerName", "dscknxappprg");
    LOG4CPLUS_INFO(m_logger, "Init(): AppPrgHandlerName = " << m_handlerName);
}

std::uint32_t DscKnxAppPrg::FindDeviceType(std::string_view identifier) {
    for (const DeviceType& row : s_deviceTypes) {
        if (row.identifier == identifier)
            return row.type;
    }
    return 0;
}

void DscKnxAppPrg::ReadDeviceConfiguration() {
    if (!m_client) {
        LOG4CPLUS_ERROR(m_logger, "No device stack client.");
        return;
    }
    std::string response;
    bool received = false;
    {
        const std::lock_guard lock(m_clientMutex);
        received = m_client->GetConfiguration(1, response);
    }
    if (!received) {
        LOG4CPLUS_ERROR(m_logger, "ReadDeviceConfiguration(): Unable to get the device configuration.");
        return;
    }

    boost::system::error_code error;
    const json::value configuration = json::parse(response, error);
    if (error) {
        LOG4CPLUS_WARN(m_logger, "ReadDeviceConfiguration(): Failed to parse device configuration response: "
                                     << error.message());
        return;
    }
    const json::object* const root = configuration.if_object();
    const json::value* const member = root != nullptr ? root->if_contains("ipc") : nullptr;
    const json::object* const ipc = member != nullptr ? member->if_object() : nullptr;
    if (ipc == nullptr) {
        LOG4CPLUS_WARN(m_logger, "ReadDeviceConfiguration(): Failed to get ipc object.");
        return;
    }

    std::string deviceId;
    if (ReadText(*ipc, "DeviceId", deviceId)) {
        LOG4CPLUS_INFO(m_logger, "ReadDeviceConfiguration(): Device type is " << deviceId);
        m_deviceType = FindDeviceType(deviceId);
    }
    ReadText(*ipc, "DeviceStackConfigPath", m_deviceStackConfigPath);
    ReadText(*ipc, "UserDataPath", m_userDataPath);

    bool loaded = false;
    try {
        loaded = m_handlers.Load(m_deviceStackConfigPath, m_userDataPath, m_handlerName);
    } catch (const std::exception&) {
        // Reported below like any other plug-in or directory that cannot be used.
    }
    if (!loaded)
        LOG4CPLUS_ERROR(m_logger,
                        "ReadDeviceConfiguration(): Error while loading dynamic knx app prg handlers.");
}
