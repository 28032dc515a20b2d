#include "KnxIp/TunnelServer.h"

#include "KnxIp/ServerTunnel.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace KnxIp {
namespace {

using KnxFrames::FrameError;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using KnxFrames::MessageCode;
using Tunnel = ServerTunnel;

void CheckConfig(const TunnelServerConfig& config) {
    if (config.tunnelAddresses.empty() || config.tunnelAddresses.size() > 255)
        throw std::invalid_argument("the number of tunnel addresses is not 1 to 255");
    if (config.queueLimit == 0)
        throw std::invalid_argument("the queue limit of the tunnels is 0");
    for (auto each = config.tunnelAddresses.begin(); each != config.tunnelAddresses.end(); ++each) {
        if (each->raw == 0)
            throw std::invalid_argument("0.0.0 is not an address for a tunnel");
        if (std::find(config.tunnelAddresses.begin(), each, *each) != each)
            throw std::invalid_argument("two tunnels have the address " + each->ToString());
    }
}

} // namespace

std::vector<ServiceFamily> CoreAndTunnelling() {
    return {{ServiceFamily::kCore, 1}, {ServiceFamily::kTunnelling, 1}};
}

class TunnelServer::Implementation {
public:
    Implementation(TunnelServerConfig config, TunnelServerListener& listener)
        : m_config(std::move(config)), m_listener(listener),
          m_lastChannel(static_cast<std::uint8_t>(m_config.firstChannel - 1)) {
        CheckConfig(m_config);
        m_tunnels.resize(m_config.tunnelAddresses.size());
        for (std::size_t index = 0; index < m_tunnels.size(); ++index)
            m_tunnels[index].address = m_config.tunnelAddresses[index];
    }

    void OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
        auto frame = ReadFrame(datagram);
        if (!frame) {
            m_listener.OnRefusedDatagram(from, frame.Error());
            return;
        }
        std::visit([&](const auto& content) { On(now, from, content); }, *frame);
    }

    void OnTime(TimePoint now) {
        for (Tunnel& tunnel : m_tunnels) {
            if (!tunnel.isOpen)
                continue;
            if (now >= tunnel.silentUntil)
                Close(tunnel, TunnelEnd::Heartbeat);
            else if (tunnel.pending.IsActive() && now >= tunnel.pending.Deadline())
                RepeatOrClose(now, tunnel);
        }
    }

    std::optional<TimePoint> NextTime() const {
        std::optional<TimePoint> next;
        const auto consider = [&next](TimePoint time) {
            if (!next || time < *next)
                next = time;
        };
        for (const Tunnel& tunnel : m_tunnels) {
            if (!tunnel.isOpen)
                continue;
            consider(tunnel.silentUntil);
            if (tunnel.pending.IsActive())
                consider(tunnel.pending.Deadline());
        }
        return next;
    }

    void Broadcast(TimePoint now, const LData& telegram, std::optional<TunnelId> except) {
        for (std::size_t index = 0; index < m_tunnels.size(); ++index) {
            if (m_tunnels[index].isOpen && except != index)
                Send(now, m_tunnels[index], telegram, MessageCode::LDataInd);
        }
    }

    void CloseTunnel(TunnelId tunnel) {
        if (m_tunnels.at(tunnel).isOpen)
            Close(m_tunnels[tunnel], TunnelEnd::Server);
    }

    void Stop() {
        for (Tunnel& tunnel : m_tunnels) {
            if (tunnel.isOpen)
                Close(tunnel, TunnelEnd::Server);
        }
    }

    const std::vector<Tunnel>& Tunnels() const { return m_tunnels; }

private:
    // Discovery.

    void On(TimePoint, const Endpoint& from, const SearchRequest& request) {
        const Endpoint to = AnswerTo(request.discovery, from);
        SendTo(to, WriteFrame(SearchResponse{{OwnEndpoint(to)}, {m_config.device, m_config.families}}));
    }

    void On(TimePoint, const Endpoint& from, const DescriptionRequest& request) {
        SendTo(AnswerTo(request.control, from),
               WriteFrame(DescriptionResponse{{m_config.device, m_config.families}}));
    }

    // Connections.

    void On(TimePoint now, const Endpoint& from, const ConnectRequest& request) {
        const Endpoint to = AnswerTo(request.control, from);
        Tunnel* free = nullptr;
        const Status status = Admit(request, free);
        if (status != Status::NoError) {
            SendTo(to, WriteFrame(ConnectResponse{0, status, {}, {}}));
            m_listener.OnConnectRefused(from, status);
            return;
        }
        Tunnel& tunnel = *free;
        tunnel.channel = NextChannel();
        tunnel.isOpen = true;
        tunnel.peer = TunnelPeer(request, from);
        tunnel.silentUntil = now + kHeartbeatTimeout;
        tunnel.received.Reset();
        tunnel.pending.Reset();
        tunnel.counters = {};
        SendTo(to, WriteFrame(ConnectResponse{
                       tunnel.channel, Status::NoError, {OwnEndpoint(tunnel.peer.Data())}, tunnel.address}));
        m_listener.OnTunnelOpened(IdOf(tunnel), tunnel.address, to);
    }

    void On(TimePoint now, const Endpoint& from, const ConnectionStateRequest& request) {
        Tunnel* tunnel = FindByControl(request.channel, from, request.control);
        if (tunnel != nullptr)
            tunnel->silentUntil = now + kHeartbeatTimeout;
        SendTo(AnswerTo(request.control, from),
               WriteFrame(ConnectionStateResponse{request.channel, KnownOrNot(tunnel)}));
    }

    void On(TimePoint, const Endpoint& from, const DisconnectRequest& request) {
        Tunnel* tunnel = FindByControl(request.channel, from, request.control);
        SendTo(AnswerTo(request.control, from),
               WriteFrame(DisconnectResponse{request.channel, KnownOrNot(tunnel)}));
        if (tunnel != nullptr)
            Close(*tunnel, TunnelEnd::Client);
    }

    /// The answer to a DISCONNECT_REQUEST of ours; the tunnel was closed with the request.
    void On(TimePoint, const Endpoint&, const DisconnectResponse&) {}

    // Telegrams.

    void On(TimePoint now, const Endpoint& from, const TunnellingRequest& request) {
        Tunnel* tunnel = FindByData(request.channel, from);
        if (tunnel == nullptr) {
            // Tells a client that was forgotten (we were restarted) sooner than its heartbeat would.
            SendTo(from, WriteFrame(TunnellingAck{request.channel, request.sequence, Status::ConnectionId}));
            return;
        }
        const auto verdict = tunnel->received.Judge(request.sequence);
        if (verdict == ReceiveCounter::Verdict::Discard) {
            ++tunnel->counters.outOfOrder;
            return;
        }
        tunnel->silentUntil = now + kHeartbeatTimeout;
        if (verdict == ReceiveCounter::Verdict::Take)
            tunnel->peer.TelegramCameFrom(from);
        SendTo(tunnel->peer.AcknowledgeTo(from),
               WriteFrame(TunnellingAck{request.channel, request.sequence, Status::NoError}));
        if (verdict == ReceiveCounter::Verdict::Again)
            ++tunnel->counters.duplicates;
        else if (tunnel->isOpen)
            TakeTelegram(now, from, *tunnel, request.cemi);
    }

    void On(TimePoint now, const Endpoint& from, const TunnellingAck& ack) {
        Tunnel* tunnel = FindByData(ack.channel, from);
        if (tunnel == nullptr)
            return;
        switch (tunnel->pending.OnAck(ack)) {
        case PendingRequest::AckVerdict::Stale: return;
        case PendingRequest::AckVerdict::Refused: RepeatOrClose(now, *tunnel); return;
        case PendingRequest::AckVerdict::Done: break;
        }
        ++tunnel->counters.toClient;
        tunnel->silentUntil = now + kHeartbeatTimeout;
        SendNext(now, *tunnel);
    }

    /// What only servers send has no business here.
    template <class T>
    void On(TimePoint, const Endpoint& from, const T&) {
        m_listener.OnRefusedDatagram(
            from, FrameError::Unsupported("an answer of a server was sent to a server", 2));
    }

    /// Whether the request can be served, and by which tunnel.
    Status Admit(const ConnectRequest& request, Tunnel*& free) {
        if (request.control.protocol != Hpai::kUdp || request.data.protocol != Hpai::kUdp)
            return Status::HostProtocolType;
        if (request.connectionType != ConnectRequest::kTunnelConnection)
            return Status::ConnectionType;
        if (request.layer != ConnectRequest::kLinkLayer)
            return Status::TunnellingLayer;
        const IndividualAddress wanted = request.wantedAddress;
        bool exists = wanted.raw == 0;
        for (Tunnel& tunnel : m_tunnels) {
            if (wanted.raw != 0 && tunnel.address != wanted)
                continue;
            exists = true;
            if (!tunnel.isOpen) {
                free = &tunnel;
                return Status::NoError;
            }
        }
        if (!exists)
            return Status::NoTunnellingAddress;
        return wanted.raw == 0 ? Status::NoMoreConnections : Status::ConnectionInUse;
    }

    /// Channels are given out in turn, so that a late datagram of a former client hits nobody. 0 is left out,
    /// since some clients take it for "none".
    std::uint8_t NextChannel() {
        do {
            ++m_lastChannel;
        } while (m_lastChannel == 0 ||
                 std::any_of(m_tunnels.begin(), m_tunnels.end(), [this](const Tunnel& each) {
                     return each.isOpen && each.channel == m_lastChannel;
                 }));
        return m_lastChannel;
    }

    void TakeTelegram(TimePoint now, const Endpoint& from, Tunnel& tunnel, Octets cemi) {
        auto parsed = KnxFrames::ParseLData(cemi);
        if (!parsed) {
            ++tunnel.counters.unsupported;
            m_listener.OnRefusedDatagram(from, parsed.Error());
            return;
        }
        LData& telegram = *parsed;
        if (telegram.code != MessageCode::LDataReq) {
            ++tunnel.counters.unsupported;
            m_listener.OnRefusedDatagram(from, FrameError::Unsupported("a client sent no L_Data.req", 0));
            return;
        }
        ++tunnel.counters.fromClient;
        if (telegram.source.raw == 0)
            telegram.source = tunnel.address;
        telegram.SetConfirmError(false);
        LData indication = telegram;
        indication.code = MessageCode::LDataInd;
        // In a request the bit is an order to the link layer; in an indication, clear, it would mean "this is
        // a repetition", which receivers discard.
        indication.control1 |= LData::kDoNotRepeat;
        m_listener.OnTelegram(IdOf(tunnel), indication);
        // Behind the telegram: others wait for that, and what is confirmed has then been passed on.
        if (tunnel.isOpen)
            Send(now, tunnel, telegram, MessageCode::LDataCon);
    }

    void Send(TimePoint now, Tunnel& tunnel, const LData& telegram, MessageCode code) {
        if (tunnel.queue.Size() == m_config.queueLimit) {
            tunnel.queue.PopFront();
            ++tunnel.counters.dropped;
            if (!std::exchange(tunnel.overflowReported, true))
                m_listener.OnQueueOverflow(IdOf(tunnel));
            if (!tunnel.isOpen)
                return;
        }
        tunnel.queue.PushBack(telegram).code = code;
        SendNext(now, tunnel);
    }

    void SendNext(TimePoint now, Tunnel& tunnel) {
        if (tunnel.pending.IsActive())
            return;
        if (tunnel.queue.IsEmpty()) {
            tunnel.overflowReported = false;
            return;
        }
        const Datagram& datagram =
            tunnel.pending.Begin(now + kAckTimeout, tunnel.channel, tunnel.queue.Front());
        tunnel.queue.PopFront();
        SendTo(tunnel.peer.Data(), datagram);
    }

    void RepeatOrClose(TimePoint now, Tunnel& tunnel) {
        if (tunnel.pending.WasRepeated()) {
            Close(tunnel, TunnelEnd::NoAck);
            return;
        }
        ++tunnel.counters.repeated;
        SendTo(tunnel.peer.Data(), tunnel.pending.Repeat(now + kAckTimeout));
    }

    void Close(Tunnel& tunnel, TunnelEnd end) {
        tunnel.isOpen = false;
        tunnel.counters.dropped += tunnel.queue.Size() + (tunnel.pending.IsActive() ? 1 : 0);
        tunnel.pending.Reset();
        tunnel.queue = {};
        tunnel.overflowReported = false;
        if (end != TunnelEnd::Client) {
            const Endpoint own = OwnEndpoint(tunnel.peer.Control());
            SendTo(tunnel.peer.Control(), WriteFrame(DisconnectRequest{tunnel.channel, {own}}));
        }
        m_listener.OnTunnelClosed(IdOf(tunnel), end);
    }

    /// The tunnel that a request about its connection speaks of; null unless the client itself asks.
    Tunnel* FindByControl(std::uint8_t channel, const Endpoint& from, const Hpai& named) {
        Tunnel* tunnel = Find(channel);
        return tunnel != nullptr && tunnel->peer.OwnsControl(from, named) ? tunnel : nullptr;
    }

    /// Likewise for telegrams and their acknowledgements.
    Tunnel* FindByData(std::uint8_t channel, const Endpoint& from) {
        Tunnel* tunnel = Find(channel);
        return tunnel != nullptr && tunnel->peer.OwnsData(from) ? tunnel : nullptr;
    }

    Tunnel* Find(std::uint8_t channel) {
        const auto found = std::find_if(m_tunnels.begin(), m_tunnels.end(), [&](const Tunnel& each) {
            return each.isOpen && each.channel == channel;
        });
        return found == m_tunnels.end() ? nullptr : &*found;
    }

    static Status KnownOrNot(const Tunnel* tunnel) {
        return tunnel != nullptr ? Status::NoError : Status::ConnectionId;
    }

    TunnelId IdOf(const Tunnel& tunnel) const { return static_cast<TunnelId>(&tunnel - m_tunnels.data()); }

    Endpoint OwnEndpoint(const Endpoint& towards) {
        const Endpoint own = m_listener.LocalEndpointTowards(towards);
        return own.IsSpecified() ? own : m_config.endpoint;
    }

    void SendTo(const Endpoint& to, const Datagram& datagram) { m_listener.SendDatagram(to, datagram); }

    const TunnelServerConfig m_config;
    TunnelServerListener& m_listener;
    std::vector<Tunnel> m_tunnels; // never resized after construction
    std::uint8_t m_lastChannel;
};

TunnelServer::TunnelServer(TunnelServerConfig config, TunnelServerListener& listener)
    : m_implementation(std::make_unique<Implementation>(std::move(config), listener)) {}

TunnelServer::~TunnelServer() = default;

void TunnelServer::OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
    m_implementation->OnDatagram(now, from, datagram);
}

void TunnelServer::OnTime(TimePoint now) {
    m_implementation->OnTime(now);
}

std::optional<TimePoint> TunnelServer::NextTime() const {
    return m_implementation->NextTime();
}

void TunnelServer::Broadcast(TimePoint now, const LData& telegram, std::optional<TunnelId> except) {
    m_implementation->Broadcast(now, telegram, except);
}

void TunnelServer::CloseTunnel(TunnelId tunnel) {
    m_implementation->CloseTunnel(tunnel);
}

void TunnelServer::Stop() {
    m_implementation->Stop();
}

bool TunnelServer::IsOpen(TunnelId tunnel) const {
    return m_implementation->Tunnels().at(tunnel).isOpen;
}

const TunnelCounters& TunnelServer::Counters(TunnelId tunnel) const {
    return m_implementation->Tunnels().at(tunnel).counters;
}

} // namespace KnxIp
