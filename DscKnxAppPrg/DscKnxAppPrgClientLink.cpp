// The link to the device stack: the client's life, its callbacks, the commands sent to it.
#include "DeviceDataPoints.h"
#include "DscKnxAppPrg.h"

#include "Tav/TAVVALUE.h"

#include <boost/thread/thread.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <chrono>

namespace {

constexpr const char* kRestartCommand = "{\"command\":\"Restart\", \"type\":\"Device\"}";
constexpr std::uint8_t kLimitedTimeMode = 1;

} // namespace

bool DscKnxAppPrg::Connect() {
    LOG4CPLUS_DEBUG(m_logger, "Connect(): starting...");
    const std::lock_guard lock(m_clientMutex);
    if (m_client) {
        LOG4CPLUS_DEBUG(m_logger, "Connect(): allready connected.");
        return true;
    }

    LOG4CPLUS_DEBUG(m_logger, "Connect(): calling CreateDeviceStackClient...");
    m_client = Vesk::CreateDeviceStackClient();
    LOG4CPLUS_DEBUG(m_logger, "Connect(): end CreateDeviceStackClient.");
    if (!m_client)
        return false;
    m_connected = true;
    m_knxHandler.Translation().ReplaceClient(m_client.get());

    m_client->SetClientMode(1);
    m_client->InstallEventHandler(this, this);
    m_client->InstallResponseHandler(this, this);
    m_client->InstallFieldHandler(this, this);

    LOG4CPLUS_DEBUG(m_logger, "Connect(): calling RegisterApplication DscKnxAppPrg...");
    const bool registered = m_client->RegisterApplication(kApplicationName, kApplicationType, m_instanceId);
    LOG4CPLUS_DEBUG(m_logger, "Connect(): end RegisterApplication DscKnxAppPrg.");

    m_client->SetValueFormat("Native");
    LOG4CPLUS_DEBUG(m_logger, "Connect(): end.");
    return registered;
}

void DscKnxAppPrg::Disconnect() {
    LOG4CPLUS_DEBUG(m_logger, "Disconnect(): starting...");
    const std::lock_guard lock(m_clientMutex);
    const auto start = std::chrono::steady_clock::now();
    m_connected = false;
    m_knxHandler.Translation().ReplaceClient(nullptr);
    // Destroyed first, cleared after: until its callback thread is joined, a callback may still use the
    // pointer, and the dying client refuses what it asks.
    delete m_client.get();
    static_cast<void>(m_client.release());
    const auto duration = std::chrono::steady_clock::now() - start;
    LOG4CPLUS_DEBUG(m_logger, "Disconnect(): duration: "
                                  << std::chrono::duration_cast<std::chrono::milliseconds>(duration).count()
                                  << " ms");
    LOG4CPLUS_DEBUG(m_logger, "Disconnect(): end.");
}

void DscKnxAppPrg::SendEmitEvent(const std::string& eventType) {
    const boost::this_thread::disable_interruption clientCall;
    const std::lock_guard lock(m_clientMutex);
    if (!m_client)
        return;
    const std::string command = fmt::format("{{\"command\":\"EmitEvent\",\"eventType\":\"{}\"}}", eventType);
    if (m_client->Command(command).empty())
        LOG4CPLUS_ERROR(m_logger, "Emit event failed: " << eventType);
}

void DscKnxAppPrg::RestartDevice(std::unique_ptr<Vesk::IDeviceStackClient>& client) {
    if (client)
        client->Command(kRestartCommand);
}

void DscKnxAppPrg::SetNtpState(std::unique_ptr<Vesk::IDeviceStackClient>& client, bool enable) {
    const boost::this_thread::disable_interruption clientCall;
    if (client)
        client->SetConfiguration({{"Ntp", enable ? "true" : "false"}});
}

void DscKnxAppPrg::SetNullValue(TAVOBJECTID id) {
    if (!m_client)
        return;
    std::string text;
    TAVVALUE().Serialize(text, true);
    m_client->SetValue(id, text, true, true);
}

bool DscKnxAppPrg::OnValueChanged(void*, TAVOBJECTID id, const std::string& urn, const std::string& value,
                                  const std::string&) {
    if (m_startupState != StartupState::Running)
        return true;
    if (IsTimeDataPoint(id) && m_knxHandler.TimeMode() == kLimitedTimeMode) {
        if (!m_knxHandler.IsTimeTransferDue())
            return true;
        if (!m_knxHandler.WriteValue(id, urn, value, true))
            return false;
        m_knxHandler.NoteTimeTransfer();
        return true;
    }
    if (!m_knxHandler.IsKnxEventDataPoint(id, urn))
        return true;
    return m_knxHandler.WriteValue(id, urn, value, true);
}

void DscKnxAppPrg::OnGetValue(void*, const std::string&, TAVOBJECTID id, const std::string& urn,
                              const std::string& value, const IError&) {
    if (id != kReadyDataPoint && id != kStateDataPoint)
        return;
    if (m_startupState == StartupState::Running)
        m_knxHandler.WriteValue(id, urn, value, true);
}

bool DscKnxAppPrg::OnReadValue(void*, TAVOBJECTID id, const std::string& urn) {
    if (m_knxHandler.ReadValue(id, urn))
        return true;
    LOG4CPLUS_ERROR(m_logger,
                    "OnReadValue(): m_knxHandler.ReadValue failed, so set NULL value. Object ID = " << id);
    SetNullValue(id);
    return false;
}

bool DscKnxAppPrg::OnWriteValue(void*, TAVOBJECTID id, const std::string& value, const std::string& urn) {
    if (m_knxHandler.WriteValue(id, urn, value, false))
        return true;
    LOG4CPLUS_ERROR(m_logger,
                    "OnWriteValue(): m_knxHandler.WriteValue failed, so set NULL value. Object ID = "
                        << id << " Urn = " << urn);
    SetNullValue(id);
    return false;
}

bool DscKnxAppPrg::OnDeviceDiscovery(void*, TAVOBJECTID, const std::string&, const std::string&) {
    return true;
}

void DscKnxAppPrg::OnConnectionLost() {}

bool DscKnxAppPrg::OnApplicationEvent(void*, const std::string& sender, const std::string& message) {
    GroupAddressTranslationHandler& translation = m_knxHandler.Translation();
    if (!translation.IsEnabled() || sender != kApplicationName)
        return true;
    return translation.OnMessageReceived(message);
}

void DscKnxAppPrg::OnResponse(void*, const std::string&, const std::string&, const IError&) {}

void DscKnxAppPrg::OnRegisterApplication(void*, const std::string&, const IError&) {}

void DscKnxAppPrg::OnGetConfiguration(void*, const std::string&, const std::string&, const IError&) {}

void DscKnxAppPrg::OnSetConfiguration(void*, const std::string&, const IError&) {}

void DscKnxAppPrg::OnSetValue(void*, const std::string&, TAVOBJECTID, const std::string&, const std::string&,
                              const IError&) {}
