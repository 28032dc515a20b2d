#include "DeviceStackClient/Client.h"

#include "DeviceStackClient/Logger.h"
#include "DeviceStackClient/ReadCommand.h"

#include <algorithm>
#include <utility>

namespace DeviceStackClient {

namespace {

using namespace std::chrono_literals;

constexpr auto kRegisterTimeout = 3s;
constexpr auto kCommandTimeout = 2s;
constexpr auto kValueTimeout = 1s;

bool Fail(const LastError& lastError, std::string text) {
    LOG4CPLUS_DEBUG(Logger(), "Fail(): " << text);
    lastError.Set(std::move(text));
    return false;
}

} // namespace

Client::Client(std::string socketPath)
    : m_callbacks([this](const FieldRequest& request, bool handled) {
          {
              const std::lock_guard lock(m_mutex);
              m_session.Answer(request, handled);
          }
          m_link.Send();
      }),
      m_link(std::move(socketPath), *this) {
    m_link.Start();
}

Client::~Client() {
    {
        const std::lock_guard lock(m_mutex);
        m_session.Close({kClosing, "the client is going down"});
    }
    m_callbacks.Stop();
    m_link.Stop();
    std::unique_lock lock(m_mutex);
    m_nobodyWaits.wait(lock, [this] { return m_waiting == 0; });
}

// Configuration of the client.

void Client::SetClientMode(int mode) {
    m_lastError.Clear();
    if (mode != 1)
        Fail(m_lastError, "client mode " + std::to_string(mode) + " is not offered, only 1");
}

void Client::InstallEventHandler(IEventHandler* handler, void* ctx) {
    m_callbacks.Install(handler, ctx);
}
void Client::InstallResponseHandler(IResponseHandler* handler, void* ctx) {
    m_callbacks.Install(handler, ctx);
}
void Client::InstallFieldHandler(IFieldHandlerWithUrn* handler, void* ctx) {
    m_callbacks.Install(handler, ctx);
}

bool Client::RegisterApplication(const std::string& name, const std::string& type,
                                 const std::string& instance) {
    DeviceStack::Register identity;
    identity.name = name;
    identity.type = type;
    identity.instance = instance;
    identity.events = m_callbacks.HasEventHandler();
    identity.field = m_callbacks.HasFieldHandler();
    std::string ignored;
    return Wait(
        kRegisterTimeout,
        [&](auto& error) { return m_session.RegisterApplication(std::move(identity), error); }, ignored);
}

void Client::SetValueFormat(const std::string& format) {
    m_lastError.Clear();
    if (format != "Native") {
        Fail(m_lastError, "value format \"" + format + "\" is not offered, only \"Native\"");
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        m_session.SetValueFormat(format);
    }
    m_link.Send();
}

// Calls that wait.

/// Makes a call and waits for its answer. On false `result` is untouched. Afterwards the client may be gone:
/// who calls does without it.
template <typename MakeCall>
bool Client::Wait(std::chrono::milliseconds timeout, const MakeCall& makeCall, std::string& result) {
    const LastError lastError = m_lastError;
    lastError.Clear();
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    DeviceStack::Error error;
    {
        std::unique_lock lock(m_mutex);
        const Session::CallPointer call = makeCall(error);
        ++m_waiting; // keeps the client
        lock.unlock();
        m_link.Send();
        lock.lock();
        if (call) {
            call->finished.wait_until(lock, deadline, [&] { return call->isFinished; });
            if (!call->isFinished) {
                m_session.Abandon(*call);
                m_link.Wake();
                call->error = m_session.IsConnected()
                                  ? DeviceStack::Error{kTimeout, "the device stack gave no answer within " +
                                                                     std::to_string(timeout.count()) + " ms"}
                                  : m_session.GetDownError();
            }
            error = call->error;
            if (error.code == 0)
                result = std::move(call->result);
        }
        if (--m_waiting == 0)
            m_nobodyWaits.notify_all();
    }
    return error.code == 0 || Fail(lastError, std::move(error.message));
}

template <typename Message>
bool Client::Ask(std::chrono::milliseconds timeout, const Message& message, std::string& result) {
    return Wait(
        timeout, [&](auto& error) { return m_session.Ask(message, error); }, result);
}

template <typename Message, typename Result>
bool Client::AskFor(std::chrono::milliseconds timeout, const Message& message, Result& result) {
    const LastError lastError = m_lastError;
    std::string json;
    if (!Ask(timeout, message, json))
        return false;
    return ReadResult(json, result) ||
           Fail(lastError, "the device stack's answer is not understood: " + json);
}

bool Client::SendCommand(const std::string& json, std::chrono::milliseconds timeout, std::string& response) {
    CommandText command;
    std::string error;
    if (!ReadCommand(json, command, error))
        return Fail(m_lastError, std::move(error));
    return Wait(
        timeout, [&](auto& e) { return m_session.AskCommand({command.json}, command.broadcast, e); },
        response);
}

std::string Client::Command(const std::string& json) {
    std::string response;
    SendCommand(json, kCommandTimeout, response);
    return response;
}

bool Client::Command(const std::string& json, std::string& response, int timeoutSeconds) {
    return SendCommand(json, std::chrono::seconds(std::max(timeoutSeconds, 1)), response);
}

bool Client::GetConfiguration(int scope, std::string& json) {
    return Ask(kCommandTimeout, DeviceStack::GetConfiguration{scope}, json);
}

bool Client::GetValue(TAVOBJECTID id, std::string& text, bool readInternal) {
    const LastError lastError = m_lastError;
    DeviceStack::DataPointValue value;
    if (!AskFor(kValueTimeout, DeviceStack::GetValue{DeviceStack::DataPointName::OfId(id), readInternal},
                value))
        return false;
    if (value.value.empty())
        return Fail(lastError, "the data point has no value");
    text = std::move(value.value);
    return true;
}

std::string Client::GetUrn(TAVOBJECTID id, int) {
    DeviceStack::GetUrnResult result;
    AskFor(kValueTimeout, DeviceStack::GetUrn{id}, result);
    return result.urn;
}

Client::TAVOBJECTID Client::GetId(const std::string& urn) {
    DeviceStack::GetIdResult result;
    AskFor(kValueTimeout, DeviceStack::GetId{urn}, result);
    return result.id;
}

// Calls that do not wait.

/// `send` queues a request and gives its number, 0 on failure.
template <typename Send>
std::string Client::SendWithoutWaiting(const Send& send) {
    m_lastError.Clear();
    DeviceStack::Error error;
    std::uint64_t id = 0;
    {
        const std::lock_guard lock(m_mutex);
        id = send(error);
    }
    if (id == 0) {
        Fail(m_lastError, std::move(error.message));
        return {};
    }
    m_link.Send();
    return std::to_string(id);
}

void Client::SetConfiguration(const std::map<std::string, std::string>& settings) {
    SendWithoutWaiting([&](auto& error) {
        return m_session.SetConfiguration(DeviceStack::SetConfiguration{settings}, error);
    });
}

std::string Client::SetValue(TAVOBJECTID id, const std::string& text, bool readInternal, bool response) {
    return SendWithoutWaiting([&](auto& error) {
        return m_session.SetValue({DeviceStack::DataPointName::OfId(id), text, readInternal, response},
                                  error);
    });
}

std::string Client::GetValueRequest(TAVOBJECTID id, int readInternal) {
    return SendWithoutWaiting([&](auto& error) {
        return m_session.RequestValue({DeviceStack::DataPointName::OfId(id), readInternal != 0}, error);
    });
}

// The link's thread.

void Client::Deliver(Session::Events& events) {
    for (auto& event : events)
        m_callbacks.Push(std::move(event));
    events.clear();
}

void Client::OnConnected() {
    m_lines.emplace(DeviceStack::kMaxReplyLine);
    const std::lock_guard lock(m_mutex);
    m_session.OnConnected();
    m_callbacks.SetConnection(m_session.GetConnection());
}

bool Client::OnReceived(std::string_view bytes) {
    m_lines->Append(bytes);
    Session::Events events;
    bool isOfUse = true;
    while (isOfUse) {
        const auto line = m_lines->Next();
        if (!line)
            break;
        auto message = DeviceStack::ReadDeviceStackLine(*line);
        {
            const std::lock_guard lock(m_mutex);
            isOfUse = m_session.OnMessage(std::move(message), events);
            if (m_session.IsPeerSound())
                m_link.OnPeerSound();
        }
        Deliver(events);
    }
    if (m_lines->IsTooLong())
        LOG4CPLUS_ERROR(Logger(), "OnReceived(): a message of the device stack is too long.");
    return isOfUse && !m_lines->IsTooLong();
}

void Client::OnClosed(const std::string& reason) {
    m_callbacks.SetConnection(0);
    Session::Events events;
    {
        const std::lock_guard lock(m_mutex);
        m_session.OnClosed(reason, events);
    }
    Deliver(events);
}

void Client::TakeOutput(std::string& bytes) {
    const std::lock_guard lock(m_mutex);
    m_session.TakeOutput(bytes, Link::kChunk);
}

} // namespace DeviceStackClient
