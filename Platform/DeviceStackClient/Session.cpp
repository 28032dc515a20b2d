#include "DeviceStackClient/Session.h"

#include "DeviceStackClient/Logger.h"
#include "DeviceStackProtocol/LineBuffer.h"

#include <algorithm>
#include <unordered_set>

namespace DeviceStackClient {

namespace {

constexpr std::uint32_t kDeviceDataPoint = 1000; ///< exists in every project

/// Key of a data point's values in the queue.
std::uint64_t KeyOf(std::uint32_t dataPoint) {
    return std::uint64_t{dataPoint} + 1;
}

/// Answers have keys of their own, so that the queue takes every one: there are no more of them than
/// questions.
constexpr std::uint64_t kAnswerKeys = std::uint64_t{1} << 63;

std::string Identity(const DeviceStack::Register& identity) {
    return identity.name + "::" + identity.type + "::" + identity.instance;
}

} // namespace

void Call::Finish(DeviceStack::Error failure, std::string json) {
    if (isFinished)
        return;
    isFinished = true;
    error = std::move(failure);
    result = std::move(json);
    finished.notify_all();
}

// Callers.

Session::CallPointer Session::RegisterApplication(DeviceStack::Register identity, DeviceStack::Error& error) {
    if (m_isClosed) {
        error = m_down;
        return nullptr;
    }
    if (m_identity && Identity(*m_identity) != Identity(identity)) {
        error = {kBadArgument, "this client is " + Identity(*m_identity) + " already"};
        return nullptr;
    }
    m_identity = std::move(identity);
    if (!m_registration) {
        m_registration = std::make_shared<Call>();
        m_registration->heard = m_heard;
    }
    auto call = m_registration;
    if (m_state == State::Ready && m_application.empty())
        SendRegistration();
    else if (m_state == State::Ready)
        std::exchange(m_registration, nullptr)->Finish({});
    return call;
}

void Session::SetValueFormat(const std::string& format) {
    m_valueFormat = format;
    if (m_state != State::Ready)
        return;
    const auto id = ++m_lastId;
    SendNow(Kind::Repeat, id, ToLine(std::to_string(id), DeviceStack::SetValueFormat{format}));
}

std::uint64_t Session::SetValue(DeviceStack::SetValue message, DeviceStack::Error& error) {
    if (m_isClosed) {
        error = m_down;
        return 0;
    }
    const auto id = ++m_lastId;
    Request request(id, Kind::Set, ToLine(std::to_string(id), message));
    request.dataPoint = message.dataPoint.id;
    request.value = std::move(message.value);
    return Enqueue(std::move(request), KeyOf(message.dataPoint.id), error) ? id : 0;
}

std::uint64_t Session::RequestValue(const DeviceStack::RequestValue& message, DeviceStack::Error& error) {
    if (m_state == State::Down || m_isClosed) {
        error = m_down;
        return 0;
    }
    const auto id = ++m_lastId;
    Request request(id, Kind::Value, ToLine(std::to_string(id), message));
    request.dataPoint = message.dataPoint.id;
    return Enqueue(std::move(request), Queue::kNoKey, error) ? id : 0;
}

std::uint64_t Session::SetConfiguration(const DeviceStack::SetConfiguration& message,
                                        DeviceStack::Error& error) {
    if (m_isClosed) {
        error = m_down;
        return 0;
    }
    const auto id = ++m_lastId;
    const bool isNtp = message.settings.contains("Ntp");
    if (isNtp)
        m_ntp = message;
    if (isNtp && m_state != State::Ready)
        return id; // said when the connection is there
    Request request(id, Kind::SetConfiguration, ToLine(std::to_string(id), message));
    request.announces = isNtp ? Announces::Ntp : Announces::Nothing;
    return Enqueue(std::move(request), Queue::kNoKey, error) ? id : 0;
}

Session::CallPointer Session::AskLine(std::uint64_t id, std::string line, Announces announces,
                                      DeviceStack::Error& error) {
    if (m_state == State::Down || m_isClosed) {
        error = m_down;
        return nullptr;
    }
    auto call = std::make_shared<Call>();
    call->heard = m_heard;
    if (m_isSilent) {
        error = {kTimeout, "the device stack does not answer"};
        if (announces == Announces::Nothing)
            return nullptr;
        call->isAbandoned = true; // it is said all the same as soon as the device stack listens
    }
    Request request(id, Kind::Call, std::move(line));
    request.announces = announces;
    request.call = call;
    return Enqueue(std::move(request), Queue::kNoKey, error) && !call->isAbandoned ? call : nullptr;
}

Session::CallPointer Session::AskCommand(const DeviceStack::CommandText& message, std::string_view event,
                                         DeviceStack::Error& error) {
    auto announces = Announces::Nothing;
    if (event == "configurationChangeBegin") {
        announces = Announces::ChangeBegin;
        m_loaded.clear();
    } else if (event == "configurationLoaded") {
        announces = Announces::Loaded;
        m_loaded = message.json;
    }
    const auto id = ++m_lastId;
    return AskLine(id, ToLine(std::to_string(id), message), announces, error);
}

void Session::Abandon(Call& call) {
    call.isAbandoned = true;
    if (&call == m_registration.get())
        m_registration = nullptr;
    if (m_state != State::Ready && m_state != State::Registering)
        return;
    if (m_isSilent || call.heard != m_heard)
        return;
    m_isSilent = true;
    LOG4CPLUS_WARN(Logger(), "Abandon(): the device stack does not answer.");
    // Whoever was asked may be the slow one: a question that the device stack answers itself tells them
    // apart.
    if (m_state == State::Ready) {
        const auto id = ++m_lastId;
        SendNow(Kind::Repeat, id, ToLine(std::to_string(id), DeviceStack::GetUrn{kDeviceDataPoint}));
    }
}

void Session::Close(const DeviceStack::Error& error) {
    m_isClosed = true;
    m_down = error;
    const auto end = [&](Request& request) {
        if (!request.call)
            return;
        request.call->isAbandoned = true;
        request.call->Finish(error);
    };
    m_queue.ForEach(end);
    for (auto& [id, request] : m_unanswered)
        end(request);
    if (m_registration)
        m_registration->Finish(error);
}

bool Session::Enqueue(Request request, Queue::Key key, DeviceStack::Error& error) {
    if (request.line.size() > DeviceStack::kMaxRequestLine) {
        error = {kBadArgument, "a message to the device stack has at most " +
                                   std::to_string(DeviceStack::kMaxRequestLine) + " bytes"};
        return false;
    }
    const bool announces = request.announces == Announces::Loaded;
    const auto id = request.id;
    const auto displaced = m_queue.Push(key, std::move(request));
    if (displaced && displaced->id == id) {
        error = {kQueueFull, "too many requests wait for the device stack"};
        return false;
    }
    if (announces)
        ++m_queuedAnnouncements;
    if (displaced && !m_isOverflowing) {
        m_isOverflowing = true;
        LOG4CPLUS_WARN(Logger(), "SetValue(): the device stack does not take its values; "
                                     << kQueueBound
                                     << " wait, and of each data point only the last one is kept.");
    }
    return true;
}

// Connection.

void Session::SendNow(Kind kind, std::uint64_t id, const std::string& line) {
    m_first += line;
    m_unanswered.emplace(id, Request(id, kind, {}));
}

void Session::SendAnswer(std::string line) {
    [[maybe_unused]] const auto none =
        m_queue.Push(kAnswerKeys | ++m_lastAnswer, Request(0, Kind::Answer, std::move(line)));
}

void Session::SendRegistration() {
    m_state = State::Registering;
    auto message = *m_identity;
    message.lastChange = m_lastChange;
    message.server = m_server;
    const auto id = ++m_lastId;
    SendNow(Kind::Registration, id, ToLine(std::to_string(id), message));
}

void Session::OnConnected() {
    ++m_connection;
    m_hasAnswered = false;
    m_application.clear();
    if (m_identity)
        SendRegistration();
    else
        BecomeReady();
}

void Session::BecomeReady() {
    m_state = State::Ready;
    const auto say = [this](const auto& message, Kind kind = Kind::Repeat) {
        const auto id = ++m_lastId;
        SendNow(kind, id, ToLine(std::to_string(id), message));
    };
    if (!m_valueFormat.empty())
        say(DeviceStack::SetValueFormat{m_valueFormat});
    if (m_ntp)
        say(*m_ntp, Kind::SetConfiguration);
    if (!m_loaded.empty() && m_queuedAnnouncements == 0)
        say(DeviceStack::CommandText{m_loaded});
    SendUnansweredAgain();
}

void Session::OnClosed(const std::string& reason, Events& events) {
    const auto before = std::exchange(m_state, State::Down);
    const DeviceStack::Error error{kNotConnected, reason};
    if (!m_isClosed)
        m_down = error;
    if (before == State::Down)
        return;
    if (before == State::Registering) // a refusal was logged once
        LOG4CPLUS_DEBUG(Logger(), "OnClosed(): " << reason);
    else
        LOG4CPLUS_WARN(Logger(), "OnClosed(): " << reason << "; trying again until it is there.");
    m_isSilent = false;
    m_first.clear();
    KeepUnsent(error, events);
    for (auto& [id, request] : m_unanswered) {
        if (request.kind == Kind::Set)
            m_again.push_back(std::move(request));
        else
            Drop(request, error, events);
    }
    m_unanswered.clear();
    for (auto& [text, awaited] : m_awaitedValues)
        events.push_back(ValueAnswer{std::to_string(awaited.first), awaited.second, {}, {}, error});
    m_awaitedValues.clear();
    if (before == State::Ready)
        events.push_back(ConnectionLost{});
}

/// Leaves values and settings in the queue, and ends the rest.
void Session::KeepUnsent(const DeviceStack::Error& error, Events& events) {
    Queue kept(kQueueBound);
    std::swap(kept, m_queue);
    m_queuedAnnouncements = 0;
    while (!kept.IsEmpty()) {
        auto request = kept.Pop();
        const bool isSet = request.kind == Kind::Set;
        const auto key = isSet ? KeyOf(request.dataPoint) : Queue::kNoKey;
        DeviceStack::Error unused;
        if (!isSet && request.kind != Kind::SetConfiguration)
            Drop(request, error, events);
        else if (request.announces == Announces::Nothing) // the others are repeated anyway
            Enqueue(std::move(request), key, unused);
    }
}

/// Of the values that were not answered before the loss, the last one of each data point; none that a waiting
/// one replaces.
void Session::SendUnansweredAgain() {
    std::unordered_set<std::uint32_t> newer;
    m_queue.ForEach([&](const Request& request) {
        if (request.kind == Kind::Set)
            newer.insert(request.dataPoint);
    });
    const auto replaced = [&](const Request& request) { return !newer.insert(request.dataPoint).second; };
    const auto kept = std::remove_if(m_again.rbegin(), m_again.rend(), replaced);
    for (auto request = kept.base(); request != m_again.end(); ++request) {
        m_first += request->line;
        const auto id = request->id;
        m_unanswered.emplace(id, std::move(*request));
    }
    m_again.clear();
}

/// Ends a request that will not be answered.
void Session::Drop(Request& request, const DeviceStack::Error& error, Events& events) {
    switch (request.kind) {
    case Kind::Call: request.call->Finish(error); break;
    case Kind::Set: break; // never dropped
    case Kind::Value:
        events.push_back(ValueAnswer{std::to_string(request.id), request.dataPoint, {}, {}, error});
        break;
    case Kind::SetConfiguration:
        events.push_back(SetConfigurationAnswer{std::to_string(request.id), error});
        break;
    case Kind::Registration:
    case Kind::Repeat: // made anew on the next connection
    case Kind::Answer: // nobody waits for it there
        break;
    }
}

/// True for a call that nobody waits for any more. An announcement is made all the same, but not that of a
/// configuration which is about to change.
bool Session::IsObsolete(const Request& request) const {
    if (!request.call || !request.call->isAbandoned)
        return false;
    return request.announces == Announces::Nothing ||
           (request.announces == Announces::Loaded && m_loaded.empty());
}

void Session::TakeOutput(std::string& bytes, std::size_t chunk) {
    bytes += m_first;
    m_first.clear();
    while (m_state == State::Ready && bytes.size() < chunk && !m_queue.IsEmpty()) {
        if (m_queue.Front().kind != Kind::Answer && m_unanswered.size() >= kMaxUnanswered)
            break;
        auto request = m_queue.Pop();
        if (request.announces == Announces::Loaded)
            --m_queuedAnnouncements;
        if (IsObsolete(request))
            continue;
        bytes += request.line;
        if (request.kind == Kind::Answer)
            continue;
        if (request.kind != Kind::Set)
            request.line.clear();
        m_unanswered.emplace(request.id, std::move(request));
    }
    if (!m_queue.IsFull())
        m_isOverflowing = false;
}

} // namespace DeviceStackClient
