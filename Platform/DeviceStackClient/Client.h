// Vesk::IDeviceStackClient over the device stack's socket.
#pragma once

#include "DeviceStackClient/Callbacks.h"
#include "DeviceStackClient/LastError.h"
#include "DeviceStackClient/Link.h"
#include "DeviceStackClient/Session.h"

#include "DeviceStackProtocol/LineBuffer.h"
#include "Vesk/IDeviceStackClient.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

namespace DeviceStackClient {

/// Three kinds of threads: callers, which queue a request, send it and wait for its answer; the link's
/// thread, which reads and completes calls; the callback thread. Handlers are called without a lock, so that
/// a caller inside a callback gets its answer.
///
/// Lock order: the link's writing mutex before m_mutex; Callbacks has a mutex of its own that is never held
/// together with either.
class Client final : public Vesk::IDeviceStackClient, private Link::User {
public:
    /// Begins to connect. Throws std::system_error when the process lacks descriptors or threads.
    explicit Client(std::string socketPath);
    ~Client() override;

    void SetClientMode(int mode) override;
    void InstallEventHandler(IEventHandler* handler, void* ctx) override;
    void InstallResponseHandler(IResponseHandler* handler, void* ctx) override;
    void InstallFieldHandler(IFieldHandlerWithUrn* handler, void* ctx) override;
    bool RegisterApplication(const std::string& name, const std::string& type,
                             const std::string& instance) override;
    void SetValueFormat(const std::string& format) override;
    std::string Command(const std::string& json) override;
    bool Command(const std::string& json, std::string& response, int timeoutSeconds) override;
    bool GetConfiguration(int scope, std::string& json) override;
    void SetConfiguration(const std::map<std::string, std::string>& settings) override;
    std::string SetValue(TAVOBJECTID id, const std::string& text, bool readInternal, bool response) override;
    bool GetValue(TAVOBJECTID id, std::string& text, bool readInternal) override;
    std::string GetValueRequest(TAVOBJECTID id, int readInternal) override;
    std::string GetUrn(TAVOBJECTID id, int flags) override;
    TAVOBJECTID GetId(const std::string& urn) override;
    std::string GetLastError() override { return m_lastError.Get(); }

private:
    void OnConnected() override;
    bool OnReceived(std::string_view bytes) override;
    void OnClosed(const std::string& reason) override;
    void TakeOutput(std::string& bytes) override;

    template <typename MakeCall>
    bool Wait(std::chrono::milliseconds timeout, const MakeCall& makeCall, std::string& result);
    template <typename Message>
    bool Ask(std::chrono::milliseconds timeout, const Message& message, std::string& result);
    template <typename Message, typename Result>
    bool AskFor(std::chrono::milliseconds timeout, const Message& message, Result& result);
    template <typename Send>
    std::string SendWithoutWaiting(const Send& send);
    bool SendCommand(const std::string& json, std::chrono::milliseconds timeout, std::string& response);
    void Deliver(Session::Events& events);

    const LastError m_lastError;

    // Under m_mutex.
    std::mutex m_mutex;
    Session m_session;
    unsigned m_waiting = 0; ///< callers inside Wait()
    std::condition_variable m_nobodyWaits;

    std::optional<DeviceStack::LineBuffer> m_lines; ///< of this connection; the link's thread only

    Callbacks m_callbacks;
    Link m_link;
};

} // namespace DeviceStackClient
