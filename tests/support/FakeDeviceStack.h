// A device stack in the test's process, reached through Vesk::CreateDeviceStackClient.
#pragma once

#include "Faults.h"
#include "Vesk/IDeviceStackClient.h"

#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace TestSupport {

class Recorder;

/// The device stack and the clients that Vesk::CreateDeviceStackClient gives out while it lives (one at a
/// time; a client must not outlive it). This test library defines that function, and as it is linked into the
/// program itself, it wins over the one of libDeviceStackClient.so.
///
/// The public fields are what it answers; they are to be set while nobody asks. Recorded as
/// "client <operation>(<arguments>)". Calls are answered on the calling thread, whatever callbacks are
/// running; every operation but GetLastError is an interruption point, as a call that waits for its answer
/// would be. Faults by operation name; a refusing operation has the failure result that the interface
/// describes, and GetLastError() answers "refused by the test". "CreateDeviceStackClient" refuses with null.
///
/// A client that is being destroyed refuses every call, which is recorded as "client <operation> refused".
class FakeDeviceStack {
public:
    using Id = Vesk::IDeviceStackClient::TAVOBJECTID;

    explicit FakeDeviceStack(Recorder& recorder);
    ~FakeDeviceStack();
    FakeDeviceStack(const FakeDeviceStack&) = delete;
    FakeDeviceStack& operator=(const FakeDeviceStack&) = delete;

    std::optional<std::string> configuration;     ///< JSON; none = GetConfiguration fails
    std::map<std::string, std::string> responses; ///< to commands; other commands are answered "{}"
    std::map<Id, std::string> values;             ///< for GetValue
    std::map<Id, std::string> urns;               ///< full URNs, for GetUrn and GetId
    Faults faults;

    // Callbacks into the registered application, made on the client's callback thread, one after the other.
    // The future has the handler's answer, or the exception that came out of it.
    std::future<bool> ValueChanged(Id id, std::string urn, std::string value);
    std::future<bool> ReadValue(Id id, std::string urn);
    std::future<bool> WriteValue(Id id, std::string value, std::string urn);
    std::future<bool> AnswerGetValue(Id id, std::string urn, std::string value, int errorCode = 0);
    std::future<bool> ConfigurationChanged(std::string key, std::string value);
    std::future<bool> ApplicationEvent(std::string sender, std::string message);
    std::future<bool> EveryOtherCallback();

    /// What the application gave as `ctx` of its three handlers; null before it has registered.
    void* EventContext() const;
    void* ResponseContext() const;
    void* FieldContext() const;

    /// For Vesk::CreateDeviceStackClient.
    static std::unique_ptr<Vesk::IDeviceStackClient> MakeClient();

private:
    class Client;

    template <typename Call>
    std::future<bool> Post(Call call);

    Recorder& m_recorder;
    mutable std::mutex m_mutex;
    Client* m_client = nullptr; // under m_mutex; the registered one
};

} // namespace TestSupport
