// How a TunnelClient connects, stays connected, and comes back.

#include "KnxIp/TunnelClientImplementation.h"

#include <stdexcept>
#include <utility>

namespace KnxIp {

using std::chrono::milliseconds;

void TunnelClient::Implementation::CheckServer(const Endpoint& server) {
    if (!server.IsSpecified())
        throw std::invalid_argument("address or port of the KNXnet/IP server is missing");
}

void TunnelClient::Implementation::Start(TimePoint now) {
    if (m_state != State::Stopped)
        return;
    m_backOff.Reset();
    if (m_nextServer.IsSpecified())
        Connect(now);
    else
        m_state = State::WithoutServer;
}

void TunnelClient::Implementation::SetServer(TimePoint now, const Endpoint& server) {
    CheckServer(server);
    m_nextServer = server;
    if (m_state == State::WithoutServer)
        Connect(now);
}

void TunnelClient::Implementation::Stop() {
    if (std::exchange(m_state, State::Stopped) == State::Connected) {
        SendTo(m_server, WriteFrame(DisconnectRequest{m_channel, m_ownHpai}));
        GiveUpTelegram(false);
    }
    EndStream();
}

void TunnelClient::Implementation::Connect(TimePoint now) {
    m_server = m_nextServer;
    m_data = {};
    m_state = State::Connecting;
    m_deadline = now + kConnectTimeout;
    if (m_config.tcp) {
        m_ownHpai = {{}, Hpai::kTcp};
        m_stream = Stream::Opening;
        m_splitter = {};
        m_listener.OpenStream(m_server);
        return;
    }
    const Endpoint own = m_config.nat ? Endpoint{} : m_listener.LocalEndpoint();
    m_ownHpai = Hpai{own.IsSpecified() ? own : Endpoint{}};
    SendTo(m_server, WriteFrame(ConnectRequest{m_ownHpai, m_ownHpai}));
}

void TunnelClient::Implementation::On(TimePoint now, const Endpoint& from, const ConnectResponse& response) {
    if (response.status == Status::NoError && response.connectionType != ConnectRequest::kTunnelConnection) {
        m_listener.OnRefusedDatagram(from,
                                     KnxFrames::FrameError::Unsupported("the connection is no tunnel", 17));
        return;
    }
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
    m_data = m_config.nat || m_config.tcp || !data.IsSpecified() ? from : data;
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

void TunnelClient::Implementation::ConnectFailed(TimePoint now, LinkFailure failure, Status status) {
    const milliseconds delay = m_backOff.Next();
    m_state = State::Waiting;
    m_deadline = now + delay;
    EndStream();
    m_listener.OnConnectFailed(failure, status, delay);
}

void TunnelClient::Implementation::ConnectionLost(TimePoint now, LinkFailure failure) {
    milliseconds delay{0};
    if (now - m_connectedAt >= kStableTime)
        m_backOff.Reset();
    else
        delay = m_backOff.Next();
    m_state = State::Waiting;
    m_deadline = now + delay;
    EndStream();
    GiveUpTelegram(failure == LinkFailure::Forgotten);
    m_listener.OnDisconnected(failure, delay);
    OnTime(now);
}

void TunnelClient::Implementation::CloseConnection(TimePoint now, LinkFailure failure) {
    SendTo(m_server, WriteFrame(DisconnectRequest{m_channel, m_ownHpai}));
    ConnectionLost(now, failure);
}

void TunnelClient::Implementation::On(TimePoint now, const Endpoint& from, const DisconnectRequest& request) {
    const bool isOurs = m_state == State::Connected && request.channel == m_channel;
    const Hpai& control = request.control;
    SendTo(control.endpoint.IsSpecified() && !m_config.nat && !m_config.tcp ? control.endpoint : from,
           WriteFrame(DisconnectResponse{request.channel, isOurs ? Status::NoError : Status::ConnectionId}));
    if (!isOurs)
        return;
    m_underWay.ServerSpoke(); // it may close because our acknowledgements do not come through
    ConnectionLost(now, LinkFailure::ServerClosed);
}

void TunnelClient::Implementation::Heartbeat(TimePoint now) {
    if (m_heartbeatTries == kHeartbeatTries) {
        CloseConnection(now, LinkFailure::Heartbeat);
        return;
    }
    ++m_heartbeatTries;
    m_heartbeatTime = now + kHeartbeatTimeout;
    SendTo(m_server, WriteFrame(ConnectionStateRequest{m_channel, m_ownHpai}));
}

void TunnelClient::Implementation::On(TimePoint now, const Endpoint&,
                                      const ConnectionStateResponse& response) {
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

} // namespace KnxIp
