// Telegrams of a TunnelServer's tunnels, both ways.

#include "KnxIp/TunnelServerImplementation.h"

#include <algorithm>

namespace KnxIp {

using KnxFrames::FrameError;
using KnxFrames::LData;
using KnxFrames::MessageCode;

Backlog TunnelServer::Implementation::Broadcast(TimePoint now, const LData& telegram,
                                                std::optional<TunnelId> except) {
    Backlog backlog;
    for (std::size_t index = 0; index < m_tunnels.size(); ++index) {
        if (except != index)
            backlog |= Send(now, telegram, static_cast<TunnelId>(index));
    }
    return backlog;
}

Backlog TunnelServer::Implementation::Send(TimePoint now, const LData& telegram, TunnelId id) {
    Tunnel& tunnel = m_tunnels.at(id);
    if (!tunnel.isOpen)
        return {};
    const auto dropped = tunnel.counters.dropped;
    Send(now, tunnel, telegram, MessageCode::LDataInd);
    return {4 * tunnel.queue.Size() >= 3 * m_config.queueLimit && !tunnel.queue.IsEmpty(),
            tunnel.counters.dropped != dropped};
}

/// The tunnel that a telegram or its acknowledgement is for; null unless it comes from the tunnel's client.
ServerTunnel* TunnelServer::Implementation::FindTunnel(std::uint8_t channel, const Peer& from) {
    const auto found = std::find_if(m_tunnels.begin(), m_tunnels.end(), [&](const Tunnel& each) {
        return each.isOpen && each.channel == channel && each.peer.OwnsData(from);
    });
    return found == m_tunnels.end() ? nullptr : &*found;
}

void TunnelServer::Implementation::On(TimePoint now, const Peer& from, const TunnellingRequest& request) {
    Tunnel* tunnel = FindTunnel(request.channel, from);
    if (tunnel == nullptr) {
        // Tells a client that was forgotten (we were restarted) sooner than its heartbeat would. A stream
        // would have ended.
        if (!from.IsStream())
            SendTo(from, WriteFrame(TunnellingAck{request.channel, request.sequence, Status::ConnectionId}));
        return;
    }
    if (Accept(now, from, *tunnel, request.sequence))
        TakeTelegram(now, from, *tunnel, request.cemi);
}

/// Acknowledges a request of the tunnel's client as its way demands. False when its content is not to be
/// used.
bool TunnelServer::Implementation::Accept(TimePoint now, const Peer& from, Tunnel& tunnel,
                                          std::uint8_t sequence) {
    if (from.IsStream()) {
        tunnel.silentUntil = now + kHeartbeatTimeout;
        return true;
    }
    const auto verdict = tunnel.received.Judge(sequence);
    if (verdict == ReceiveCounter::Verdict::Discard) {
        ++tunnel.counters.outOfOrder;
        return false;
    }
    tunnel.silentUntil = now + kHeartbeatTimeout;
    if (verdict == ReceiveCounter::Verdict::Take)
        tunnel.peer.TelegramCameFrom(from);
    SendTo(tunnel.peer.AcknowledgeTo(from),
           WriteFrame(TunnellingAck{tunnel.channel, sequence, Status::NoError}));
    if (verdict == ReceiveCounter::Verdict::Again)
        ++tunnel.counters.duplicates;
    return verdict == ReceiveCounter::Verdict::Take && tunnel.isOpen;
}

void TunnelServer::Implementation::On(TimePoint now, const Peer& from, const TunnellingAck& ack) {
    Tunnel* tunnel = FindTunnel(ack.channel, from);
    if (tunnel == nullptr)
        return;
    // Over a stream nothing is pending: whoever acknowledges all the same is not minded.
    switch (tunnel->pending.OnAck(ack)) {
    case PendingRequest::AckVerdict::Stale: return;
    case PendingRequest::AckVerdict::Refused: RepeatOrClose(now, *tunnel); return;
    case PendingRequest::AckVerdict::Done: break;
    }
    ++tunnel->counters.toClient;
    tunnel->silentUntil = now + kHeartbeatTimeout;
    SendNext(now, *tunnel);
}

void TunnelServer::Implementation::TakeTelegram(TimePoint now, const Peer& from, Tunnel& tunnel,
                                                Octets cemi) {
    auto parsed = KnxFrames::ParseLData(cemi);
    if (!parsed) {
        ++tunnel.counters.unsupported;
        m_listener.OnRefusedDatagram(from.endpoint, parsed.Error());
        return;
    }
    LData& telegram = *parsed;
    if (telegram.code != MessageCode::LDataReq) {
        ++tunnel.counters.unsupported;
        m_listener.OnRefusedDatagram(from.endpoint,
                                     FrameError::Unsupported("a client sent no L_Data.req", 0));
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

void TunnelServer::Implementation::Send(TimePoint now, Tunnel& tunnel, LData telegram, MessageCode code) {
    telegram.code = code;
    if (tunnel.peer.IsStream()) {
        Datagram frame;
        WriteTunnellingRequest(tunnel.channel, tunnel.streamSequence++, telegram, frame);
        ++tunnel.counters.toClient;
        SendTo(tunnel.peer.Data(), frame);
        return;
    }
    if (const SendQueue::PushResult pushed = tunnel.queue.Push(telegram); pushed.wasFull) {
        ++tunnel.counters.dropped;
        if (pushed.beginsBurst)
            m_listener.OnQueueOverflow(IdOf(tunnel));
        if (!tunnel.isOpen)
            return;
    }
    SendNext(now, tunnel);
    tunnel.counters.mostWaiting = std::max<std::uint64_t>(tunnel.counters.mostWaiting, tunnel.queue.Size());
}

void TunnelServer::Implementation::SendNext(TimePoint now, Tunnel& tunnel) {
    if (tunnel.pending.IsActive())
        return;
    if (!tunnel.features.IsEmpty()) {
        const auto [service, feature, result, value] = tunnel.features.Front();
        tunnel.features.PopFront();
        SendTo(tunnel.peer.Data(),
               tunnel.pending.Begin(now + kAckTimeout, tunnel.channel,
                                    TunnellingFeature{service, 0, 0, feature, result, value.View()}));
        return;
    }
    if (tunnel.queue.IsEmpty()) {
        tunnel.queue.EndBurst();
        return;
    }
    const Datagram& datagram =
        tunnel.pending.Begin(now + kAckTimeout, tunnel.channel, tunnel.queue.Pop().telegram);
    SendTo(tunnel.peer.Data(), datagram);
}

void TunnelServer::Implementation::RepeatOrClose(TimePoint now, Tunnel& tunnel) {
    if (tunnel.pending.WasRepeated()) {
        Close(tunnel, TunnelEnd::NoAck);
        return;
    }
    ++tunnel.counters.repeated;
    SendTo(tunnel.peer.Data(), tunnel.pending.Repeat(now + kAckTimeout));
}

} // namespace KnxIp
