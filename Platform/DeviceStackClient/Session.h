// What the client has said to the device stack, is about to say and must say again after a reconnect.
#pragma once

#include "DeviceStackClient/Events.h"
#include "DeviceStackClient/LastValueQueue.h"

#include "DeviceStackProtocol/Messages.h"

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace DeviceStackClient {

/// One caller that waits for an answer. Guarded by the client's mutex.
struct Call {
    std::condition_variable finished;
    bool isFinished = false;
    bool isAbandoned = false; ///< nobody waits any more
    std::uint64_t heard = 0;  ///< Session::m_heard when the call was made
    DeviceStack::Error error; ///< code 0 = success
    std::string result;       ///< JSON text

    void Finish(DeviceStack::Error failure, std::string json = {});
};

/// The client's side of the conversation: bytes and calls in, bytes and events out. It opens no socket, reads
/// no clock and starts no thread. Not synchronised: everything is done under the client's mutex.
///
/// On each connection it says first who it is, then, once that is accepted, in this order: the value format,
/// the last "Ntp" setting, the last "configurationLoaded" unless a change of the configuration has begun
/// since, the values that were sent and not answered (the last of each data point), and what waits in its
/// queue. A value whose place a newer one has taken is not answered. What the application is asked is
/// answered in the order of its calls: behind the values that it set before.
class Session {
public:
    using Events = std::vector<Event>;
    using CallPointer = std::shared_ptr<Call>;

    static constexpr std::size_t kQueueBound = 10'000;
    static constexpr std::size_t kMaxUnanswered = 10'000;

    // What callers want. Each operation that may fail gives its reason in `error`.

    /// The call ends with the registration's success or refusal, and outlives failing attempts to connect.
    CallPointer RegisterApplication(DeviceStack::Register identity, DeviceStack::Error& error);

    void SetValueFormat(const std::string& format);
    /// Result: the request's number, 0 on failure.
    std::uint64_t SetValue(DeviceStack::SetValue message, DeviceStack::Error& error);
    std::uint64_t RequestValue(const DeviceStack::RequestValue& message, DeviceStack::Error& error);
    std::uint64_t SetConfiguration(const DeviceStack::SetConfiguration& message, DeviceStack::Error& error);

    /// Queues a request whose answer is waited for; null when it cannot be answered now.
    template <typename Message>
    CallPointer Ask(const Message& message, DeviceStack::Error& error) {
        const auto id = ++m_lastId;
        return AskLine(id, ToLine(std::to_string(id), message), Announces::Nothing, error);
    }
    /// `event`: the event type when it is an EmitEvent to everybody, else "".
    CallPointer AskCommand(const DeviceStack::CommandText& message, std::string_view event,
                           DeviceStack::Error& error);

    /// The caller waits no longer. Afterwards calls fail at once when nothing at all was heard meanwhile.
    void Abandon(Call& call);

    /// Ends every call with `error` and makes new ones fail with it.
    void Close(const DeviceStack::Error& error);

    // What the link tells.

    void OnConnected();
    /// False when the connection is of no use.
    bool OnMessage(DeviceStack::FromDeviceStack message, Events& events);
    void OnClosed(const std::string& reason, Events& events);
    /// Appends what is to be sent, about `chunk` bytes of it.
    void TakeOutput(std::string& bytes, std::size_t chunk);

    void Answer(const FieldRequest& request, bool handled);

    /// Number of the connection, for FieldRequest::connection.
    std::uint64_t GetConnection() const { return m_connection; }
    bool IsConnected() const { return m_state == State::Registering || m_state == State::Ready; }
    /// True when the device stack has shown that it takes this client.
    bool IsPeerSound() const { return m_state == State::Ready && m_hasAnswered; }
    /// Why there is no connection.
    const DeviceStack::Error& GetDownError() const { return m_down; }

private:
    enum class State {
        Trying,      ///< the first attempt to connect has not ended
        Down,        ///< not connected; calls fail at once
        Registering, ///< connected, not yet known to the device stack
        Ready,
    };
    enum class Kind {
        Call,
        Set,
        Value,
        SetConfiguration,
        Registration,
        Repeat,
        Answer, ///< to a question of the device stack, which answers nothing to it
    };
    enum class Announces { Nothing, Ntp, ChangeBegin, Loaded };

    /// One request, from the call that makes it until its answer.
    struct Request {
        Request(std::uint64_t number, Kind what, std::string text)
            : id(number), kind(what), line(std::move(text)) {}

        std::uint64_t id;
        Kind kind;
        Announces announces = Announces::Nothing;
        std::uint32_t dataPoint = 0; ///< Set, Value
        std::string value;           ///< Set
        CallPointer call;            ///< Call
        std::string line;            ///< to be sent; kept behind that for a Set, which may be sent again
    };

    using Queue = LastValueQueue<Request>;

    CallPointer AskLine(std::uint64_t id, std::string line, Announces announces, DeviceStack::Error& error);
    bool Enqueue(Request request, Queue::Key key, DeviceStack::Error& error);
    void SendNow(Kind kind, std::uint64_t id, const std::string& line);
    void SendAnswer(std::string line);
    void SendRegistration();
    void BecomeReady();

    bool OnReply(std::string_view id, DeviceStack::Reply reply, Events& events);
    bool OnRegistered(std::uint64_t id, DeviceStack::Reply reply, Events& events);
    void OnSetAnswered(const Request& request, const DeviceStack::Reply& reply, Events& events);
    void OnValueRequested(const Request& request, const DeviceStack::Reply& reply, Events& events);
    void OnValueAnswered(DeviceStack::ValueAnswered answer, Events& events);
    void OnValueChanged(DeviceStack::ValueChanged change, Events& events);
    void Drop(Request& request, const DeviceStack::Error& error, Events& events);
    void KeepUnsent(const DeviceStack::Error& error, Events& events);
    void SendUnansweredAgain();
    bool IsObsolete(const Request& request) const;

    State m_state = State::Trying;
    DeviceStack::Error m_down; ///< why calls fail at once in State::Down
    bool m_isClosed = false;
    bool m_hasAnswered = false; ///< on this connection
    bool m_isSilent = false;    ///< a call timed out and nothing was heard since
    std::uint64_t m_heard = 0;  ///< messages
    std::uint64_t m_connection = 0;
    std::uint64_t m_lastId = 0;

    // To be said again.
    std::optional<DeviceStack::Register> m_identity;
    CallPointer m_registration; ///< who waits for its outcome
    std::string m_application;  ///< the identity that was accepted
    std::string m_valueFormat;
    std::optional<DeviceStack::SetConfiguration> m_ntp;
    std::string m_loaded; ///< the "configurationLoaded" command

    // On its way.
    std::string m_first; ///< what a new connection says first, and questions about the connection itself
    Queue m_queue{kQueueBound};
    std::map<std::uint64_t, Request> m_unanswered; ///< in the order in which they were sent
    std::vector<Request> m_again; ///< values that were sent and not answered when the connection was lost
    std::unordered_map<std::string, std::pair<std::uint64_t, std::uint32_t>>
        m_awaitedValues;                ///< requestValue's text to our request and data point
    unsigned m_queuedAnnouncements = 0; ///< of "configurationLoaded" in m_queue
    std::uint64_t m_lastAnswer = 0;     ///< counts answers
    bool m_isOverflowing = false;

    // What was seen, so that a reconnect brings nothing twice.
    std::string m_server;
    std::optional<std::uint64_t> m_lastChange;
    std::unordered_map<std::uint32_t, std::uint64_t> m_lastChanges; ///< by data point

    std::set<std::pair<std::uint32_t, int>> m_warned; ///< data points and causes of failed SetValues
    bool m_refusalWarned = false;
};

} // namespace DeviceStackClient
