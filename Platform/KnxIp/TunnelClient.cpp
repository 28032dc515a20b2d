#include "KnxIp/TunnelClient.h"

#include "KnxIp/BackOff.h"
#include "KnxIp/TelegramUnderWay.h"

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

} // namespace

class TunnelClient::Implementation {
public:
    Implementation(TunnelClientConfig config, TunnelClientListener& listener)
        : m_config(std::move(config)), m_listener(listener), m_queue(m_config.queueLimit),
          m_backOff(kFirstRetry, kLongestRetry, m_config.jitter), m_nextServer(m_config.server) {
        if (m_nextServer != Endpoint())
            CheckServer(m_nextServer);
        if (m_config.queueLimit == 0)
            throw std::invalid_argument("the queue limit of the KNXnet/IP client is 0");
    }

    void Start(TimePoint now) {
        if (m_state != State::Stopped)
            return;
        m_backOff.Reset();
        if (m_nextServer.IsSpecified())
            Connect(now);
        else
            m_state = State::WithoutServer;
    }

    void SetServer(TimePoint now, const Endpoint& server) {
        CheckServer(server);
        m_nextServer = server;
        if (m_state == State::WithoutServer)
            Connect(now);
    }

    void Stop() {
        if (std::exchange(m_state, State::Stopped) != State::Connected)
            return;
        SendTo(m_server, WriteFrame(DisconnectRequest{m_channel, m_ownHpai}));
        GiveUpTelegram(false);
    }

    void OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
        if (from.address != m_server.address && from.address != m_data.address) {
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
        case State::Stopped:
        case State::WithoutServer: return;
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
        if (m_underWay.AwaitsAcknowledgement() && now >= m_underWay.AckDeadline())
            RepeatOrGiveUp(now);
        else if (m_underWay.AwaitsConfirmation() && now >= m_confirmDeadline)
            ConfirmationMissing(now);
        if (m_state == State::Connected && now >= m_heartbeatTime)
            Heartbeat(now);
    }

    std::optional<TimePoint> NextTime() const {
        switch (m_state) {
        case State::Stopped:
        case State::WithoutServer: return std::nullopt;
        case State::Waiting:
        case State::Connecting: return m_deadline;
        case State::Connected: break;
        }
        TimePoint next = m_heartbeatTime;
        if (m_underWay.AwaitsAcknowledgement())
            next = std::min(next, m_underWay.AckDeadline());
        else if (m_underWay.AwaitsConfirmation())
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
    enum class State : std::uint8_t { Stopped, WithoutServer, Waiting, Connecting, Connected };

    static void CheckServer(const Endpoint& server) {
        if (!server.IsSpecified())
            throw std::invalid_argument("address or port of the KNXnet/IP server is missing");
    }

    // Connecting.

    void Connect(TimePoint now) {
        m_server = m_nextServer;
        const Endpoint own = m_config.nat ? Endpoint{} : m_listener.LocalEndpoint();
        m_ownHpai = Hpai{own.IsSpecified() ? own : Endpoint{}};
        m_data = {};
        m_state = State::Connecting;
        m_deadline = now + kConnectTimeout;
        SendTo(m_server, WriteFrame(ConnectRequest{m_ownHpai, m_ownHpai}));
    }

    void On(TimePoint now, const Endpoint& from, const ConnectResponse& response) {
        if (m_state != State::Connecting) {
            // Late or double: the server holds a tunnel that nobody uses.
            const bool isOurs = m_state == State::Connected && response.channel == m_channel;
            if (response.status == Status::NoError && !isOurs)
                SendTo(m_server, WriteFrame(DisconnectRequest{response.channel, m_ownHpai}));
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
        m_underWay.Reset();
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

    void ConnectionLost(TimePoint now, LinkFailure failure) {
        milliseconds delay{0};
        if (now - m_connectedAt >= kStableTime)
            m_backOff.Reset();
        else
            delay = m_backOff.Next();
        m_state = State::Waiting;
        m_deadline = now + delay;
        GiveUpTelegram(failure == LinkFailure::Forgotten);
        m_listener.OnDisconnected(failure, delay);
        OnTime(now);
    }

    void CloseConnection(TimePoint now, LinkFailure failure) {
        SendTo(m_server, WriteFrame(DisconnectRequest{m_channel, m_ownHpai}));
        ConnectionLost(now, failure);
    }

    void On(TimePoint now, const Endpoint& from, const DisconnectRequest& request) {
        const bool isOurs = m_state == State::Connected && request.channel == m_channel;
        const Hpai& control = request.control;
        SendTo(
            control.endpoint.IsSpecified() && !m_config.nat ? control.endpoint : from,
            WriteFrame(DisconnectResponse{request.channel, isOurs ? Status::NoError : Status::ConnectionId}));
        if (isOurs)
            ConnectionLost(now, LinkFailure::ServerClosed);
    }

    /// The answer to our own request; the connection is given up with the request.
    void On(TimePoint, const Endpoint&, const DisconnectResponse&) {}

    // Heartbeat.

    void Heartbeat(TimePoint now) {
        if (m_heartbeatTries == kHeartbeatTries) {
            CloseConnection(now, LinkFailure::Heartbeat);
            return;
        }
        ++m_heartbeatTries;
        m_heartbeatTime = now + kHeartbeatTimeout;
        SendTo(m_server, WriteFrame(ConnectionStateRequest{m_channel, m_ownHpai}));
    }

    void On(TimePoint now, const Endpoint&, const ConnectionStateResponse& response) {
        if (m_state != State::Connected || response.channel != m_channel || m_heartbeatTries == 0)
            return;
        if (response.status == Status::ConnectionId) {
            ConnectionLost(now, LinkFailure::Forgotten);
            return;
        }
        m_underWay.ServerSpoke();
        if (response.status != Status::NoError)
            return; // as if there had been no answer: asked again when its time is over
        m_heartbeatTries = 0;
        m_heartbeatTime = now + kHeartbeatInterval;
    }

    // Telegrams from the server.

    void On(TimePoint now, const Endpoint& from, const TunnellingRequest& request) {
        if (m_state != State::Connected || request.channel != m_channel)
            return;
        m_underWay.ServerSpoke();
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
        if (m_state != State::Connected || m_underWay.IsActive())
            return;
        if (m_queue.IsEmpty()) {
            m_overflowReported = false;
            return;
        }
        SendTo(m_data, m_underWay.Begin(now + kAckTimeout, m_channel, m_queue.Pop()));
    }

    void On(TimePoint now, const Endpoint&, const TunnellingAck& ack) {
        if (m_state != State::Connected || ack.channel != m_channel)
            return;
        switch (m_underWay.OnAck(ack)) {
        case PendingRequest::AckVerdict::Stale: m_underWay.ServerSpoke(); return;
        case PendingRequest::AckVerdict::Refused:
            if (ack.status == Status::ConnectionId) {
                ConnectionLost(now, LinkFailure::Forgotten);
                return;
            }
            m_underWay.ServerSpoke();
            RepeatOrGiveUp(now);
            return;
        case PendingRequest::AckVerdict::Done: break;
        }
        ++m_counters.sent;
        m_confirmDeadline = now + kConfirmTimeout;
        if (m_underWay.IsConfirmed())
            Finish(now);
    }

    void TakeConfirmation(TimePoint now, const LData& confirmation) {
        if (!m_underWay.OnConfirmation(confirmation))
            return;
        if (confirmation.HasConfirmError())
            ReportFailure(SendFailure::NegativeConfirm);
        // It may overtake the acknowledgement, which is then still awaited: the sequence number goes with it.
        if (m_underWay.AwaitsConfirmation())
            Finish(now);
    }

    void ConfirmationMissing(TimePoint now) {
        m_underWay.ForgoConfirmation();
        ReportFailure(SendFailure::NoConfirmation);
        Finish(now);
    }

    void Finish(TimePoint now) {
        m_underWay.Finish();
        SendNext(now);
    }

    void RepeatOrGiveUp(TimePoint now) {
        if (m_underWay.WasRepeated()) {
            CloseConnection(now, LinkFailure::NoAck);
            return;
        }
        ++m_counters.repeated;
        SendTo(m_data, m_underWay.Repeat(now + kAckTimeout));
    }

    /// The connection of the telegram under way is over; `forgotten` as in TelegramUnderWay::End().
    void GiveUpTelegram(bool forgotten) {
        switch (m_underWay.End(forgotten)) {
        case TelegramUnderWay::Fate::Settled: return;
        case TelegramUnderWay::Fate::NotTaken:
            ++m_counters.resent;
            m_queue.PutBack(m_underWay.Entry());
            return;
        case TelegramUnderWay::Fate::NoAck: ReportFailure(SendFailure::NoAck); return;
        case TelegramUnderWay::Fate::Unconfirmed: ReportFailure(SendFailure::NoConfirmation); return;
        }
    }

    void ReportFailure(SendFailure failure) {
        switch (failure) {
        case SendFailure::NoAck: ++m_counters.noAck; break;
        case SendFailure::NoConfirmation: ++m_counters.noConfirmation; break;
        case SendFailure::NegativeConfirm: ++m_counters.negativeConfirm; break;
        }
        m_listener.OnSendFailed(m_underWay.Telegram(), failure);
    }

    /// What clients and routers send has no business here.
    template <class T>
    void On(TimePoint, const Endpoint& from, const T&) {
        m_listener.OnRefusedDatagram(
            from, FrameError::Unsupported("a frame that is not for a client was sent to one", 2));
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
    Endpoint m_nextServer; // of the next try; unspecified: not known yet
    Endpoint m_server;     // of this connection or try
    Hpai m_ownHpai;        // as told to the server

    // While connected:
    Endpoint m_data; // of the server
    std::uint8_t m_channel = 0;
    IndividualAddress m_address;
    TimePoint m_connectedAt{};
    TimePoint m_heartbeatTime{};   // when the next request is due, or the answer to the last one late
    unsigned m_heartbeatTries = 0; // requests without a good answer
    ReceiveCounter m_received;

    TelegramUnderWay m_underWay;
    TimePoint m_confirmDeadline{};
};

TunnelClient::TunnelClient(TunnelClientConfig config, TunnelClientListener& listener)
    : m_implementation(std::make_unique<Implementation>(std::move(config), listener)) {}

TunnelClient::~TunnelClient() = default;

void TunnelClient::Start(TimePoint now) {
    m_implementation->Start(now);
}

void TunnelClient::SetServer(TimePoint now, const Endpoint& server) {
    m_implementation->SetServer(now, server);
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
