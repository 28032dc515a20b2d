// Management connections of a TunnelServer.

#include "KnxIp/TunnelServerImplementation.h"

#include <algorithm>

namespace KnxIp {

using KnxFrames::FrameError;
using KnxFrames::ManagementMessage;
using KnxFrames::MessageCode;

void TunnelServer::Implementation::ConnectManagement(TimePoint now, const Peer& from,
                                                     const ConnectRequest& request, const Peer& to) {
    for (ManagementConnection& each : m_management) {
        if (each.isOpen && each.peer.Control().endpoint.address == to.endpoint.address)
            Close(each, TunnelEnd::Server);
    }
    const auto free = std::find_if(m_management.begin(), m_management.end(),
                                   [](const ManagementConnection& each) { return !each.isOpen; });
    if (free == m_management.end()) {
        Refuse(from, to, Status::NoMoreConnections);
        return;
    }
    free->Open(NextChannel(), ConnectionPeer(request, from), now + kHeartbeatTimeout);
    if (from.IsStream())
        ++m_streams.at(from.stream).connections;
    ConnectResponse response{free->channel, Status::NoError, OwnHpai(free->peer.Data()), {}};
    response.connectionType = ConnectRequest::kManagementConnection;
    SendTo(to, WriteFrame(response));
    m_listener.OnManagementOpened(to);
}

ManagementConnection* TunnelServer::Implementation::FindManagement(std::uint8_t channel, const Peer& from) {
    const auto found =
        std::find_if(m_management.begin(), m_management.end(), [&](const ManagementConnection& each) {
            return each.isOpen && each.channel == channel && each.peer.OwnsData(from);
        });
    return found == m_management.end() ? nullptr : &*found;
}

void TunnelServer::Implementation::On(TimePoint now, const Peer& from,
                                      const DeviceConfigurationRequest& request) {
    ManagementConnection* connection = FindManagement(request.channel, from);
    if (connection == nullptr) {
        if (!from.IsStream())
            SendTo(from, WriteFrame(DeviceConfigurationAck{request.channel, request.sequence,
                                                           Status::ConnectionId}));
        return;
    }
    auto verdict = ReceiveCounter::Verdict::Take;
    if (!from.IsStream()) {
        verdict = connection->received.Judge(request.sequence);
        if (verdict == ReceiveCounter::Verdict::Discard)
            return;
        if (verdict == ReceiveCounter::Verdict::Take)
            connection->peer.TelegramCameFrom(from);
        SendTo(connection->peer.AcknowledgeTo(from),
               WriteFrame(DeviceConfigurationAck{request.channel, request.sequence, Status::NoError}));
    }
    connection->silentUntil = now + kHeartbeatTimeout;
    if (verdict == ReceiveCounter::Verdict::Take)
        TakeManagement(now, from, *connection, request.cemi);
}

void TunnelServer::Implementation::TakeManagement(TimePoint now, const Peer& from,
                                                  ManagementConnection& connection, Octets cemi) {
    const auto message = KnxFrames::ParseManagement(cemi);
    if (!message) {
        m_listener.OnRefusedDatagram(from.endpoint, message.Error());
        return;
    }
    switch (message->code) {
    case MessageCode::MPropReadReq:
    case MessageCode::MPropWriteReq:
    case MessageCode::MFuncPropCommandReq:
    case MessageCode::MFuncPropStateReadReq: {
        const ManagementMessage answer = Answer(connection, *message);
        if (connection.isOpen)
            Send(now, connection, answer);
        return;
    }
    case MessageCode::MResetReq:
        m_listener.OnDeviceReset(from.endpoint);
        if (connection.isOpen)
            Close(connection, TunnelEnd::Server);
        return;
    default:
        m_listener.OnRefusedDatagram(
            from.endpoint, FrameError::Unsupported("a client sent no request of device management", 0));
    }
}

ManagementMessage TunnelServer::Implementation::Answer(ManagementConnection& connection,
                                                       const ManagementMessage& request) {
    struct Asking { // whatever the listener throws
        explicit Asking(bool& asks) : m_asks(asks) { m_asks = true; }
        ~Asking() { m_asks = false; }
        Asking(const Asking&) = delete;
        Asking& operator=(const Asking&) = delete;
        bool& m_asks;
    };
    const Asking asking(connection.asks);
    return m_listener.OnDeviceManagement(request);
}

void TunnelServer::Implementation::AnnounceProperty(TimePoint now, const ManagementMessage& property) {
    ManagementMessage message = property;
    message.code = MessageCode::MPropInfoInd;
    for (ManagementConnection& connection : m_management) {
        if (connection.isOpen && !connection.asks)
            Send(now, connection, message);
    }
}

void TunnelServer::Implementation::Send(TimePoint now, ManagementConnection& connection,
                                        const ManagementMessage& message) {
    if (connection.peer.IsStream()) {
        SendTo(connection.peer.Data(),
               WriteFrame(DeviceConfigurationRequest{connection.channel, connection.streamSequence++,
                                                     KnxFrames::EncodeManagement(message)}));
        return;
    }
    // A client that asks on while it acknowledges nothing gets no answer to what it asked first.
    if (connection.queue.Size() == kMostManagementMessages)
        connection.queue.PopFront();
    connection.queue.PushBack(message);
    SendNext(now, connection);
}

void TunnelServer::Implementation::SendNext(TimePoint now, ManagementConnection& connection) {
    if (connection.pending.IsActive() || connection.queue.IsEmpty())
        return;
    const auto cemi = KnxFrames::EncodeManagement(connection.queue.Front());
    connection.queue.PopFront();
    SendTo(connection.peer.Data(),
           connection.pending.Begin(now + kConfigurationTimeout, connection.channel, Octets(cemi)));
}

void TunnelServer::Implementation::On(TimePoint now, const Peer& from, const DeviceConfigurationAck& ack) {
    ManagementConnection* connection = FindManagement(ack.channel, from);
    if (connection == nullptr)
        return;
    switch (connection->pending.OnAck(ack)) {
    case PendingRequest::AckVerdict::Stale: return;
    case PendingRequest::AckVerdict::Refused: RepeatOrClose(now, *connection); return;
    case PendingRequest::AckVerdict::Done: break;
    }
    connection->silentUntil = now + kHeartbeatTimeout;
    SendNext(now, *connection);
}

void TunnelServer::Implementation::RepeatOrClose(TimePoint now, ManagementConnection& connection) {
    if (connection.pending.Repetitions() == kConfigurationRepetitions)
        Close(connection, TunnelEnd::NoAck);
    else
        SendTo(connection.peer.Data(), connection.pending.Repeat(now + kConfigurationTimeout));
}

void TunnelServer::Implementation::Close(ManagementConnection& connection, TunnelEnd end) {
    connection.queue = {};
    CloseConnection(connection, end);
    m_listener.OnManagementClosed(connection.peer.Control(), end);
}

} // namespace KnxIp
