// How tunnels of a TunnelServer are opened, kept and closed.

#include "KnxIp/TunnelServerImplementation.h"

#include <algorithm>

namespace KnxIp {
namespace {

using KnxFrames::IndividualAddress;

Status KnownOrNot(const ServerConnection* connection) {
    return connection != nullptr ? Status::NoError : Status::ConnectionId;
}

} // namespace

void TunnelServer::Implementation::On(TimePoint now, const Peer& from, const ConnectRequest& request) {
    if (!IsOfItsWay(from, request.control) || !IsOfItsWay(from, request.data))
        return;
    const Peer to = AnswerTo(request.control, from);
    if (request.connectionType == ConnectRequest::kManagementConnection && !m_management.empty())
        ConnectManagement(now, from, request, to);
    else if (request.connectionType == ConnectRequest::kTunnelConnection)
        ConnectTunnel(now, from, request, to);
    else
        Refuse(from, to, Status::ConnectionType);
}

void TunnelServer::Implementation::ConnectTunnel(TimePoint now, const Peer& from,
                                                 const ConnectRequest& request, const Peer& to) {
    Tunnel* free = nullptr;
    const Status status = Admit(from, request, free);
    if (status != Status::NoError) {
        Refuse(from, to, status);
        return;
    }
    Tunnel& tunnel = *free;
    tunnel.Open(NextChannel(), ConnectionPeer(request, from), now + kHeartbeatTimeout);
    tunnel.counters = {};
    tunnel.tellsChanges = false;
    if (from.IsStream())
        ++m_streams.at(from.stream).connections;
    SendTo(to, WriteFrame(ConnectResponse{tunnel.channel, Status::NoError, OwnHpai(tunnel.peer.Data()),
                                          tunnel.address}));
    m_listener.OnTunnelOpened(IdOf(tunnel), tunnel.address, to);
}

void TunnelServer::Implementation::Refuse(const Peer& from, const Peer& to, Status status) {
    SendTo(to, WriteFrame(ConnectResponse{0, status, {}, {}}));
    m_listener.OnConnectRefused(from.endpoint, status);
}

void TunnelServer::Implementation::On(TimePoint now, const Peer& from,
                                      const ConnectionStateRequest& request) {
    ServerConnection* connection = FindByControl(request.channel, from, request.control);
    if (connection != nullptr)
        connection->silentUntil = now + kHeartbeatTimeout;
    SendTo(AnswerTo(request.control, from),
           WriteFrame(ConnectionStateResponse{request.channel, KnownOrNot(connection)}));
}

void TunnelServer::Implementation::On(TimePoint, const Peer& from, const DisconnectRequest& request) {
    const ServerConnection* connection = FindByControl(request.channel, from, request.control);
    SendTo(AnswerTo(request.control, from),
           WriteFrame(DisconnectResponse{request.channel, KnownOrNot(connection)}));
    for (Tunnel& tunnel : m_tunnels) {
        if (&tunnel == connection)
            Close(tunnel, TunnelEnd::Client);
    }
    for (ManagementConnection& each : m_management) {
        if (&each == connection)
            Close(each, TunnelEnd::Client);
    }
}

/// Whether the request can be served, and by which tunnel.
Status TunnelServer::Implementation::Admit(const Peer& from, const ConnectRequest& request, Tunnel*& free) {
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
    if (Tunnel* const former = FormerTunnel(from, request)) {
        Close(*former, TunnelEnd::Replaced);
        free = former;
        return Status::NoError;
    }
    return wanted.raw == 0 ? Status::NoMoreConnections : Status::ConnectionInUse;
}

/// A tunnel of the very client that asks: its answer was lost, or it was started anew at the same port, and
/// nobody uses the tunnel any more. Of several, the one that was not heard of for the longest time. A client
/// may well use several, so this is for want of a free one.
TunnelServer::Implementation::Tunnel*
TunnelServer::Implementation::FormerTunnel(const Peer& from, const ConnectRequest& request) {
    if (from.IsStream())
        return nullptr;
    const ConnectionPeer peer(request, from);
    Tunnel* former = nullptr;
    for (Tunnel& tunnel : m_tunnels) {
        const bool isWanted = request.wantedAddress.raw == 0 || tunnel.address == request.wantedAddress;
        const bool isIts = tunnel.peer.Control() == peer.Control() && tunnel.peer.Data() == peer.Data() &&
                           tunnel.peer.OwnsControl(from, request.control);
        if (isWanted && isIts && (former == nullptr || tunnel.silentUntil < former->silentUntil))
            former = &tunnel;
    }
    return former;
}

/// Channels are given out in turn, so that a late datagram of a former client hits nobody. 0 is left out,
/// since some clients take it for "none".
std::uint8_t TunnelServer::Implementation::NextChannel() {
    do {
        ++m_lastChannel;
    } while (m_lastChannel == 0 || IsInUse(m_lastChannel));
    return m_lastChannel;
}

void TunnelServer::Implementation::CloseTunnel(TunnelId tunnel) {
    if (m_tunnels.at(tunnel).isOpen)
        Close(m_tunnels[tunnel], TunnelEnd::Server);
}

void TunnelServer::Implementation::Stop() {
    const auto close = [this](auto& connection) {
        if (connection.isOpen)
            Close(connection, TunnelEnd::Server);
    };
    std::for_each(m_tunnels.begin(), m_tunnels.end(), close);
    std::for_each(m_management.begin(), m_management.end(), close);
}

void TunnelServer::Implementation::Close(Tunnel& tunnel, TunnelEnd end) {
    tunnel.counters.dropped += tunnel.queue.Size() + (tunnel.pending.IsActive() ? 1 : 0);
    tunnel.queue.Clear();
    tunnel.features = {};
    CloseConnection(tunnel, end);
    m_listener.OnTunnelClosed(IdOf(tunnel), end);
}

void TunnelServer::Implementation::CloseConnection(ServerConnection& connection, TunnelEnd end) {
    connection.isOpen = false;
    connection.pending.Reset();
    const Peer& control = connection.peer.Control();
    if (end != TunnelEnd::Client && end != TunnelEnd::Stream && end != TunnelEnd::Replaced)
        SendTo(control, WriteFrame(DisconnectRequest{connection.channel, OwnHpai(control)}));
    if (const auto stream = m_streams.find(connection.peer.Stream()); stream != m_streams.end())
        --stream->second.connections;
}

/// The connection that a request about it speaks of; null unless the client itself asks.
ServerConnection* TunnelServer::Implementation::FindByControl(std::uint8_t channel, const Peer& from,
                                                              const Hpai& named) {
    const auto isMeant = [&](const ServerConnection& each) {
        return each.isOpen && each.channel == channel && each.peer.OwnsControl(from, named);
    };
    if (const auto tunnel = std::find_if(m_tunnels.begin(), m_tunnels.end(), isMeant);
        tunnel != m_tunnels.end())
        return &*tunnel;
    const auto management = std::find_if(m_management.begin(), m_management.end(), isMeant);
    return management == m_management.end() ? nullptr : &*management;
}

bool TunnelServer::Implementation::IsInUse(std::uint8_t channel) const {
    const auto isIt = [channel](const ServerConnection& each) {
        return each.isOpen && each.channel == channel;
    };
    return std::any_of(m_tunnels.begin(), m_tunnels.end(), isIt) ||
           std::any_of(m_management.begin(), m_management.end(), isIt);
}

} // namespace KnxIp
