// What the session does with the device stack's messages.
#include "DeviceStackClient/Session.h"

#include "DeviceStackClient/Logger.h"

#include <algorithm>
#include <charconv>

namespace DeviceStackClient {

namespace {

constexpr std::size_t kMaxWarned = 10'000;

DeviceStack::Error ErrorOf(const DeviceStack::Reply& reply) {
    return reply.error.value_or(DeviceStack::Error{});
}

} // namespace

bool Session::OnMessage(DeviceStack::FromDeviceStack message, Events& events) {
    ++m_heard;
    m_hasAnswered = true;
    m_isSilent = false;
    const auto field = [&]<typename What>(What what) {
        events.push_back(FieldRequest{m_connection, message.id, std::move(what)});
    };

    if (auto* reply = std::get_if<DeviceStack::Reply>(&message.message))
        return OnReply(message.id, std::move(*reply), events);
    if (auto* change = std::get_if<DeviceStack::ValueChanged>(&message.message))
        OnValueChanged(std::move(*change), events);
    else if (auto* answer = std::get_if<DeviceStack::ValueAnswered>(&message.message))
        OnValueAnswered(std::move(*answer), events);
    else if (auto* configuration = std::get_if<DeviceStack::ConfigurationChanged>(&message.message))
        events.push_back(std::move(*configuration));
    else if (auto* event = std::get_if<DeviceStack::ApplicationEvent>(&message.message)) {
        if (!event->message.empty()) // a bare announcement has nothing that a handler could tell it by
            events.push_back(std::move(*event));
    } else if (auto* read = std::get_if<DeviceStack::ReadValue>(&message.message))
        field(std::move(*read));
    else if (auto* write = std::get_if<DeviceStack::WriteValue>(&message.message))
        field(std::move(*write));
    else if (const auto* error = std::get_if<DeviceStack::Error>(&message.message)) {
        LOG4CPLUS_DEBUG(Logger(), "OnMessage(): passed over a message: " << error->message);
        if (!message.id.empty())
            SendAnswer(DeviceStack::ErrorLine(message.id, *error));
    }
    return true;
}

bool Session::OnReply(std::string_view id, DeviceStack::Reply reply, Events& events) {
    std::uint64_t number = 0;
    if (std::from_chars(id.data(), id.data() + id.size(), number).ec != std::errc{}) {
        LOG4CPLUS_ERROR(Logger(),
                        "OnReply(): the device stack could not read a message: " << ErrorOf(reply).message);
        return true;
    }
    const auto found = m_unanswered.find(number);
    if (found == m_unanswered.end())
        return true;
    const Request request = std::move(found->second);
    m_unanswered.erase(found);

    switch (request.kind) {
    case Kind::Registration: return OnRegistered(number, std::move(reply), events);
    case Kind::Call: request.call->Finish(ErrorOf(reply), std::move(reply.result)); break;
    case Kind::Set: OnSetAnswered(request, reply, events); break;
    case Kind::Value: OnValueRequested(request, reply, events); break;
    case Kind::SetConfiguration:
        if (reply.error)
            LOG4CPLUS_WARN(Logger(), "SetConfiguration(): refused: " << reply.error->message);
        events.push_back(SetConfigurationAnswer{std::to_string(number), ErrorOf(reply)});
        break;
    case Kind::Answer: break; // never kept
    case Kind::Repeat:
        if (reply.error)
            LOG4CPLUS_WARN(Logger(), "OnReply(): the device stack refused what it was told before: "
                                         << reply.error->message);
        break;
    }
    return true;
}

bool Session::OnRegistered(std::uint64_t id, DeviceStack::Reply reply, Events& events) {
    DeviceStack::RegisterResult result;
    if (!reply.error && !ReadResult(reply.result, result))
        reply.error =
            DeviceStack::Error{DeviceStack::kInvalidRequest, "the answer to \"register\" is not understood"};
    const auto waiting = std::exchange(m_registration, nullptr);
    if (waiting)
        waiting->Finish(ErrorOf(reply));
    else
        events.push_back(RegistrationAnswer{std::to_string(id), ErrorOf(reply)});

    if (reply.error) {
        if (!std::exchange(m_refusalWarned, true))
            LOG4CPLUS_WARN(Logger(), "RegisterApplication(): refused: " << reply.error->message);
        if (!waiting)
            return false; // who held the identity may be gone at the next attempt
        m_identity.reset();
        BecomeReady();
        return true;
    }
    if (result.server != m_server) {
        // In a run of the device stack that was not seen from its beginning everything written is news,
        // except at the very first registration.
        m_lastChange = m_server.empty() ? result.change : 0;
        m_lastChanges.clear();
        m_server = result.server;
    }
    m_application = result.application;
    m_refusalWarned = false;
    LOG4CPLUS_INFO(Logger(), "RegisterApplication(): registered as " << m_application);
    BecomeReady();
    return true;
}

void Session::OnSetAnswered(const Request& request, const DeviceStack::Reply& reply, Events& events) {
    if (reply.error && m_warned.size() < kMaxWarned &&
        m_warned.emplace(request.dataPoint, reply.error->code).second)
        LOG4CPLUS_WARN(Logger(), "SetValue(): the device stack refused a value. Object ID = "
                                     << request.dataPoint << ": " << reply.error->message);
    events.push_back(SetAnswer{std::to_string(request.id), request.dataPoint, request.value, ErrorOf(reply)});
}

void Session::OnValueRequested(const Request& request, const DeviceStack::Reply& reply, Events& events) {
    DeviceStack::RequestValueResult result;
    if (!reply.error && ReadResult(reply.result, result)) {
        m_awaitedValues[result.request] = {request.id, request.dataPoint};
        return;
    }
    events.push_back(ValueAnswer{std::to_string(request.id),
                                 request.dataPoint,
                                 {},
                                 {},
                                 reply.error.value_or(DeviceStack::Error{DeviceStack::kInvalidRequest,
                                                                         "the answer is not understood"})});
}

void Session::OnValueAnswered(DeviceStack::ValueAnswered answer, Events& events) {
    const auto found = m_awaitedValues.find(answer.request);
    if (found == m_awaitedValues.end())
        return;
    events.push_back(ValueAnswer{std::to_string(found->second.first), answer.id, std::move(answer.urn),
                                 std::move(answer.value), answer.error.value_or(DeviceStack::Error{})});
    m_awaitedValues.erase(found);
}

void Session::OnValueChanged(DeviceStack::ValueChanged change, Events& events) {
    if (change.origin == m_application)
        return; // nobody is told of what he did himself
    if (change.change != 0) {
        auto& last = m_lastChanges[change.id];
        if (change.change <= last)
            return; // told before the connection was lost
        last = change.change;
        m_lastChange = std::max(m_lastChange.value_or(0), change.change);
    }
    events.push_back(std::move(change));
}

void Session::Answer(const FieldRequest& request, bool handled) {
    if (request.connection == m_connection && m_state == State::Ready)
        SendAnswer(DeviceStack::ReplyLine(request.id, DeviceStack::HandledResult{handled}));
}

} // namespace DeviceStackClient
