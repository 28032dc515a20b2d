// How tunnels of a TunnelServer are opened, kept and closed.

#include "KnxIp/TunnelServerImplementation.h"

#include <algorithm>

namespace KnxIp {
namespace {

using KnxFrames::IndividualAddress;

Status KnownOrNot(const ServerTunnel* tunnel) {
    return tunnel != nullptr ? Status::NoError : Status::ConnectionId;
}

} // namespace

void TunnelServer::Implementation::On(TimePoint now, const Peer& from, const ConnectRequest& request) {
    const Peer to = AnswerTo(request.control, from);
    Tunnel* free = nullptr;
    const Status status = Admit(request, from, free);
    if (status != Status::NoError) {
        SendTo(to, WriteFrame(ConnectResponse{0, status, {}, {}}));
        m_listener.OnConnectRefused(from.endpoint, status);
        return;
    }
    Tunnel& tunnel = *free;
    tunnel.channel = NextChannel();
    tunnel.isOpen = true;
    tunnel.peer = ConnectionPeer(request, from);
    tunnel.silentUntil = now + kHeartbeatTimeout;
    tunnel.received.Reset();
    tunnel.pending.Reset();
    tunnel.streamSequence = 0;
    tunnel.counters = {};
    if (from.IsStream())
        ++m_streams.at(from.stream).connections;
    SendTo(to, WriteFrame(ConnectResponse{tunnel.channel, Status::NoError, OwnHpai(tunnel.peer.Data()),
                                          tunnel.address}));
    m_listener.OnTunnelOpened(IdOf(tunnel), tunnel.address, to);
}

void TunnelServer::Implementation::On(TimePoint now, const Peer& from,
                                      const ConnectionStateRequest& request) {
    Tunnel* tunnel = FindByControl(request.channel, from, request.control);
    if (tunnel != nullptr)
        tunnel->silentUntil = now + kHeartbeatTimeout;
    SendTo(AnswerTo(request.control, from),
           WriteFrame(ConnectionStateResponse{request.channel, KnownOrNot(tunnel)}));
}

void TunnelServer::Implementation::On(TimePoint, const Peer& from, const DisconnectRequest& request) {
    Tunnel* tunnel = FindByControl(request.channel, from, request.control);
    SendTo(AnswerTo(request.control, from),
           WriteFrame(DisconnectResponse{request.channel, KnownOrNot(tunnel)}));
    if (tunnel != nullptr)
        Close(*tunnel, TunnelEnd::Client);
}

/// Whether the request can be served, and by which tunnel.
Status TunnelServer::Implementation::Admit(const ConnectRequest& request, const Peer& from, Tunnel*& free) {
    const std::uint8_t protocol = from.IsStream() ? Hpai::kTcp : Hpai::kUdp;
    if (request.control.protocol != protocol || request.data.protocol != protocol)
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
std::uint8_t TunnelServer::Implementation::NextChannel() {
    do {
        ++m_lastChannel;
    } while (m_lastChannel == 0 || Find(m_lastChannel) != nullptr);
    return m_lastChannel;
}

void TunnelServer::Implementation::CloseTunnel(TunnelId tunnel) {
    if (m_tunnels.at(tunnel).isOpen)
        Close(m_tunnels[tunnel], TunnelEnd::Server);
}

void TunnelServer::Implementation::Stop() {
    for (Tunnel& tunnel : m_tunnels) {
        if (tunnel.isOpen)
            Close(tunnel, TunnelEnd::Server);
    }
}

void TunnelServer::Implementation::Close(Tunnel& tunnel, TunnelEnd end) {
    tunnel.isOpen = false;
    tunnel.counters.dropped += tunnel.queue.Size() + (tunnel.pending.IsActive() ? 1 : 0);
    tunnel.pending.Reset();
    tunnel.queue.Clear();
    tunnel.overflowReported = false;
    const Peer& control = tunnel.peer.Control();
    if (end != TunnelEnd::Client && end != TunnelEnd::Stream)
        SendTo(control, WriteFrame(DisconnectRequest{tunnel.channel, OwnHpai(control)}));
    if (const auto stream = m_streams.find(tunnel.peer.Stream()); stream != m_streams.end())
        --stream->second.connections;
    m_listener.OnTunnelClosed(IdOf(tunnel), end);
}

/// The tunnel that a request about its connection speaks of; null unless the client itself asks.
ServerTunnel* TunnelServer::Implementation::FindByControl(std::uint8_t channel, const Peer& from,
                                                          const Hpai& named) {
    Tunnel* tunnel = Find(channel);
    return tunnel != nullptr && tunnel->peer.OwnsControl(from, named) ? tunnel : nullptr;
}

/// Likewise for telegrams and their acknowledgements.
ServerTunnel* TunnelServer::Implementation::FindByData(std::uint8_t channel, const Peer& from) {
    Tunnel* tunnel = Find(channel);
    return tunnel != nullptr && tunnel->peer.OwnsData(from) ? tunnel : nullptr;
}

ServerTunnel* TunnelServer::Implementation::Find(std::uint8_t channel) {
    const auto found = std::find_if(m_tunnels.begin(), m_tunnels.end(), [&](const Tunnel& each) {
        return each.isOpen && each.channel == channel;
    });
    return found == m_tunnels.end() ? nullptr : &*found;
}

} // namespace KnxIp
