#include "KnxIp/TunnelClient.h"

#include "KnxIp/BackOff.h"
#include "KnxIp/SendQueue.h"
#include "KnxIp/TunnelLink.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace KnxIp {
namespace {

using KnxFrames::FrameError;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using KnxFrames::MessageCode;
using std::chrono::milliseconds;

/// A confirmation is that of `sent` when it says the same to the same destination. The source is not
/// compared: interfaces put in their own.
bool Confirms(const LData& confirmation, const LData& sent) {
    return confirmation.destination == sent.destination && confirmation.IsToGroup() == sent.IsToGroup() &&
           confirmation.tpdu == sent.tpdu;
}

} // namespace

class TunnelClient::Implementation {
public:
    Implementation(TunnelClientConfig config, TunnelClientListener& listener)
        : m_config(std::move(config)), m_listener(listener), m_queue(m_config.queueLimit),
          m_backOff(kFirstRetry, kLongestRetry, m_config.jitter) {
        if (!m_config.server.IsSpecified())
            throw std::invalid_argument("address or port of the KNXnet/IP server is missing");
        if (m_config.queueLimit == 0)
            throw std::invalid_argument("the queue limit of the KNXnet/IP client is 0");
    }

    void Start(TimePoint now) {
        if (m_state != State::Stopped)
            return;
        m_backOff.Reset();
        Connect(now);
    }

    void Stop() {
        if (std::exchange(m_state, State::Stopped) != State::Connected)
            return;
        SendTo(m_config.server, WriteFrame(DisconnectRequest{m_channel, m_ownHpai}));
        GiveUpCurrent(!m_heardSinceSend);
    }

    void OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
        if (from.address != m_config.server.address && from.address != m_data.address) {
            m_listener.OnRefusedDatagram(
                from, FrameError::Unsupported("the sender is not the KNXnet/IP server", 0));
            return;
        }
        auto frame = ReadFrame(datagram);
        if (!frame) {
            m_listener.OnRefusedDatagram(from, frame.Error());
            return;
        }
        std::visit([&](const auto& content) { On(now, from, content); }, *frame);
    }

    void OnTime(TimePoint now) {
        switch (m_state) {
        case State::Stopped: return;
        case State::Waiting:
            if (now >= m_deadline)
                Connect(now);
            return;
        case State::Connecting:
            if (now >= m_deadline)
                ConnectFailed(now, LinkFailure::ConnectTimeout, Status::NoError);
            return;
        case State::Connected: break;
        }
        if (m_pending.IsActive() && now >= m_pending.Deadline())
            RepeatOrGiveUp(now);
        else if (IsAwaitingConfirmation() && now >= m_confirmDeadline)
            ConfirmationMissing(now);
        if (m_state == State::Connected && now >= m_heartbeatTime)
            Heartbeat(now);
    }

    std::optional<TimePoint> NextTime() const {
        switch (m_state) {
        case State::Stopped: return std::nullopt;
        case State::Waiting:
        case State::Connecting: return m_deadline;
        case State::Connected: break;
        }
        TimePoint next = m_heartbeatTime;
        if (m_pending.IsActive())
            next = std::min(next, m_pending.Deadline());
        else if (IsAwaitingConfirmation())
            next = std::min(next, m_confirmDeadline);
        return next;
    }

    bool Send(TimePoint now, const LData& telegram) {
        const SendQueue::PushResult pushed = m_queue.Push(telegram);
        if (pushed.wasFull) {
            ++m_counters.dropped;
            if (!std::exchange(m_overflowReported, true))
                m_listener.OnQueueOverflow();
        }
        SendNext(now);
        return pushed.isIn;
    }

    bool IsConnected() const { return m_state == State::Connected; }
    IndividualAddress Address() const { return IsConnected() ? m_address : IndividualAddress(); }
    std::size_t Waiting() const { return m_queue.Size(); }
    const TunnelClientCounters& Counters() const { return m_counters; }

private:
    enum class State : std::uint8_t { Stopped, Waiting, Connecting, Connected };

    // Connecting.

    void Connect(TimePoint now) {
        const Endpoint own = m_config.nat ? Endpoint{} : m_listener.LocalEndpoint();
        m_ownHpai = Hpai{own.IsSpecified() ? own : Endpoint{}};
        m_data = {};
        m_state = State::Connecting;
        m_deadline = now + kConnectTimeout;
        SendTo(m_config.server, WriteFrame(ConnectRequest{m_ownHpai, m_ownHpai}));
    }

    void On(TimePoint now, const Endpoint& from, const ConnectResponse& response) {
        if (m_state != State::Connecting) {
            // Late or double: the server holds a tunnel that nobody uses.
            const bool isOurs = m_state == State::Connected && response.channel == m_channel;
            if (response.status == Status::NoError && !isOurs)
                SendTo(m_config.server, WriteFrame(DisconnectRequest{response.channel, m_ownHpai}));
            return;
        }
        if (response.status != Status::NoError) {
            ConnectFailed(now, LinkFailure::ConnectRefused, response.status);
            return;
        }
        const Endpoint& data = response.data.endpoint;
        m_data = m_config.nat || !data.IsSpecified() ? from : data;
        m_channel = response.channel;
        m_address = response.address;
        m_received.Reset();
        m_pending.Reset();
        m_isCurrent = false;
        m_connectedAt = now;
        m_heartbeatTime = now + kHeartbeatInterval;
        m_heartbeatTries = 0;
        m_state = State::Connected;
        ++m_counters.connections;
        m_listener.OnConnected(m_address);
        SendNext(now);
    }

    void ConnectFailed(TimePoint now, LinkFailure failure, Status status) {
        const milliseconds delay = m_backOff.Next();
        m_state = State::Waiting;
        m_deadline = now + delay;
        m_listener.OnConnectFailed(failure, status, delay);
    }

    /// `silent`: the server has said nothing at all that could mean that it took the telegram under way.
    void ConnectionLost(TimePoint now, LinkFailure failure, bool silent) {
        milliseconds delay{0};
        if (now - m_connectedAt >= kStableTime)
            m_backOff.Reset();
        else
            delay = m_backOff.Next();
        m_state = State::Waiting;
        m_deadline = now + delay;
        GiveUpCurrent(silent);
        m_listener.OnDisconnected(failure, delay);
        OnTime(now);
    }

    void CloseConnection(TimePoint now, LinkFailure failure, bool silent) {
        SendTo(m_config.server, WriteFrame(DisconnectRequest{m_channel, m_ownHpai}));
        ConnectionLost(now, failure, silent);
    }

    void On(TimePoint now, const Endpoint& from, const DisconnectRequest& request) {
        const bool isOurs = m_state == State::Connected && request.channel == m_channel;
        const Hpai& control = request.control;
        SendTo(
            control.endpoint.IsSpecified() && !m_config.nat ? control.endpoint : from,
            WriteFrame(DisconnectResponse{request.channel, isOurs ? Status::NoError : Status::ConnectionId}));
        if (isOurs)
            ConnectionLost(now, LinkFailure::ServerClosed, !m_heardSinceSend);
    }

    /// The answer to our own request; the connection is given up with the request.
    void On(TimePoint, const Endpoint&, const DisconnectResponse&) {}

    // Heartbeat.

    void Heartbeat(TimePoint now) {
        if (m_heartbeatTries == kHeartbeatTries) {
            CloseConnection(now, LinkFailure::Heartbeat, !m_heardSinceSend);
            return;
        }
        ++m_heartbeatTries;
        m_heartbeatTime = now + kHeartbeatTimeout;
        SendTo(m_config.server, WriteFrame(ConnectionStateRequest{m_channel, m_ownHpai}));
    }

    void On(TimePoint now, const Endpoint&, const ConnectionStateResponse& response) {
        if (m_state != State::Connected || response.channel != m_channel || m_heartbeatTries == 0)
            return;
        if (response.status == Status::ConnectionId) {
            ConnectionLost(now, LinkFailure::Forgotten, !m_pending.WasRepeated() || !m_heardSinceSend);
            return;
        }
        m_heardSinceSend = true;
        if (response.status != Status::NoError)
            return; // as if there had been no answer: asked again when its time is over
        m_heartbeatTries = 0;
        m_heartbeatTime = now + kHeartbeatInterval;
    }

    // Telegrams from the server.

    void On(TimePoint now, const Endpoint& from, const TunnellingRequest& request) {
        if (m_state != State::Connected || request.channel != m_channel)
            return;
        m_heardSinceSend = true;
        const auto verdict = m_received.Judge(request.sequence);
        if (verdict == ReceiveCounter::Verdict::Discard) {
            ++m_counters.outOfOrder;
            return;
        }
        SendTo(m_data, WriteFrame(TunnellingAck{m_channel, request.sequence, Status::NoError}));
        if (verdict == ReceiveCounter::Verdict::Again) {
            ++m_counters.duplicates;
            return;
        }
        const auto telegram = KnxFrames::ParseLData(request.cemi);
        if (!telegram) {
            m_listener.OnRefusedDatagram(from, telegram.Error());
        } else if (telegram->code == MessageCode::LDataInd) {
            ++m_counters.received;
            m_listener.OnTelegram(*telegram);
        } else if (telegram->code == MessageCode::LDataCon) {
            TakeConfirmation(now, *telegram);
        } else {
            m_listener.OnRefusedDatagram(from, FrameError::Unsupported("a server sent an L_Data.req", 0));
        }
    }

    // Telegrams to the server.

    void SendNext(TimePoint now) {
        if (m_state != State::Connected || m_isCurrent)
            return;
        if (m_queue.IsEmpty()) {
            m_overflowReported = false;
            return;
        }
        m_current = m_queue.Pop();
        m_current.telegram.code = MessageCode::LDataReq;
        m_isCurrent = true;
        m_isConfirmed = false;
        m_heardSinceSend = false;
        SendTo(m_data, m_pending.Begin(now + kAckTimeout, m_channel, m_current.telegram));
    }

    bool IsAwaitingConfirmation() const { return m_isCurrent && !m_pending.IsActive(); }

    void On(TimePoint now, const Endpoint&, const TunnellingAck& ack) {
        if (m_state != State::Connected || ack.channel != m_channel)
            return;
        switch (m_pending.OnAck(ack)) {
        case PendingRequest::AckVerdict::Stale: m_heardSinceSend = true; return;
        case PendingRequest::AckVerdict::Refused:
            if (ack.status == Status::ConnectionId) {
                ConnectionLost(now, LinkFailure::Forgotten, !m_pending.WasRepeated() || !m_heardSinceSend);
                return;
            }
            m_heardSinceSend = true;
            RepeatOrGiveUp(now);
            return;
        case PendingRequest::AckVerdict::Done: break;
        }
        ++m_counters.sent;
        m_confirmDeadline = now + kConfirmTimeout;
        if (m_isConfirmed)
            Finish(now);
    }

    void TakeConfirmation(TimePoint now, const LData& confirmation) {
        if (!m_isCurrent || m_isConfirmed || !Confirms(confirmation, m_current.telegram))
            return;
        m_isConfirmed = true;
        if (confirmation.HasConfirmError()) {
            ++m_counters.negativeConfirm;
            m_listener.OnSendFailed(m_current.telegram, SendFailure::NegativeConfirm);
        }
        // It may overtake the acknowledgement, which is then still awaited: the sequence number goes with it.
        if (m_isCurrent && !m_pending.IsActive())
            Finish(now);
    }

    void ConfirmationMissing(TimePoint now) {
        ++m_counters.noConfirmation;
        m_listener.OnSendFailed(m_current.telegram, SendFailure::NoConfirmation);
        Finish(now);
    }

    void Finish(TimePoint now) {
        m_isCurrent = false;
        SendNext(now);
    }

    void RepeatOrGiveUp(TimePoint now) {
        if (m_pending.WasRepeated()) {
            CloseConnection(now, LinkFailure::NoAck, !m_heardSinceSend);
            return;
        }
        ++m_counters.repeated;
        SendTo(m_data, m_pending.Repeat(now + kAckTimeout));
    }

    /// The connection of the telegram under way is over.
    void GiveUpCurrent(bool silent) {
        const bool isUnacknowledged = m_pending.IsActive();
        m_pending.Reset();
        if (!std::exchange(m_isCurrent, false) || !isUnacknowledged)
            return;
        if (silent) {
            ++m_counters.resent;
            m_queue.PutBack(m_current);
            return;
        }
        ++m_counters.noAck;
        m_listener.OnSendFailed(m_current.telegram, SendFailure::NoAck);
    }

    /// What only clients send has no business here.
    template <class T>
    void On(TimePoint, const Endpoint& from, const T&) {
        m_listener.OnRefusedDatagram(
            from, FrameError::Unsupported(
                      "a request of a client, or an answer to a search, was sent to a client", 2));
    }

    void SendTo(const Endpoint& to, const Datagram& datagram) { m_listener.SendDatagram(to, datagram); }

    const TunnelClientConfig m_config;
    TunnelClientListener& m_listener;
    SendQueue m_queue;
    bool m_overflowReported = false;
    TunnelClientCounters m_counters;

    State m_state = State::Stopped;
    TimePoint m_deadline{}; // of the state Waiting or Connecting
    BackOff m_backOff;
    Hpai m_ownHpai; // as told to the server

    // While connected:
    Endpoint m_data; // of the server
    std::uint8_t m_channel = 0;
    IndividualAddress m_address;
    TimePoint m_connectedAt{};
    TimePoint m_heartbeatTime{};   // when the next request is due, or the answer to the last one late
    unsigned m_heartbeatTries = 0; // requests without a good answer
    ReceiveCounter m_received;

    // The telegram under way:
    bool m_isCurrent = false;
    SendQueue::Entry m_current;
    PendingRequest m_pending;
    bool m_isConfirmed = false;
    bool m_heardSinceSend = false;
    TimePoint m_confirmDeadline{};
};

TunnelClient::TunnelClient(TunnelClientConfig config, TunnelClientListener& listener)
    : m_implementation(std::make_unique<Implementation>(std::move(config), listener)) {}

TunnelClient::~TunnelClient() = default;

void TunnelClient::Start(TimePoint now) {
    m_implementation->Start(now);
}

void TunnelClient::Stop() {
    m_implementation->Stop();
}

void TunnelClient::OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
    m_implementation->OnDatagram(now, from, datagram);
}

void TunnelClient::OnTime(TimePoint now) {
    m_implementation->OnTime(now);
}

std::optional<TimePoint> TunnelClient::NextTime() const {
    return m_implementation->NextTime();
}

bool TunnelClient::Send(TimePoint now, const LData& telegram) {
    return m_implementation->Send(now, telegram);
}

bool TunnelClient::IsConnected() const {
    return m_implementation->IsConnected();
}

IndividualAddress TunnelClient::Address() const {
    return m_implementation->Address();
}

std::size_t TunnelClient::Waiting() const {
    return m_implementation->Waiting();
}

const TunnelClientCounters& TunnelClient::Counters() const {
    return m_implementation->Counters();
}

} // namespace KnxIp
