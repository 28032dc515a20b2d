// The TCP streams of a TunnelServer.

#include "KnxIp/TunnelServerImplementation.h"

namespace KnxIp {

void TunnelServer::Implementation::OnStreamOpened(TimePoint now, StreamId stream, const Endpoint& from) {
    Stream& opened = m_streams[stream];
    opened.peer = from;
    opened.idleUntil = now + kIdleStreamTimeout;
}

void TunnelServer::Implementation::OnStreamOctets(TimePoint now, StreamId id, Octets octets) {
    const auto found = m_streams.find(id);
    if (found == m_streams.end())
        return;
    // Nothing that a frame brings about takes the stream away: the listener tells of an end only afterwards.
    Stream& stream = found->second;
    stream.idleUntil = now + kIdleStreamTimeout;
    for (;;) {
        const auto piece = stream.splitter.Take(octets);
        switch (piece.kind) {
        case FrameSplitter::Piece::Kind::Nothing: return;
        case FrameSplitter::Piece::Kind::Whole: OnFrame(now, {stream.peer, id}, piece.frame); break;
        case FrameSplitter::Piece::Kind::TooLong:
            m_listener.OnRefusedDatagram(stream.peer, piece.error);
            break;
        case FrameSplitter::Piece::Kind::BadHeader:
            m_listener.OnRefusedDatagram(stream.peer, piece.error);
            OnStreamClosed(id);
            m_listener.CloseStream(id);
            return;
        }
    }
}

void TunnelServer::Implementation::OnStreamClosed(StreamId stream) {
    if (m_streams.erase(stream) == 0)
        return;
    for (Tunnel& tunnel : m_tunnels) {
        if (tunnel.isOpen && tunnel.peer.Stream() == stream)
            Close(tunnel, TunnelEnd::Stream);
    }
    for (ManagementConnection& connection : m_management) {
        if (connection.isOpen && connection.peer.Stream() == stream)
            Close(connection, TunnelEnd::Stream);
    }
}

void TunnelServer::Implementation::CloseIdleStreams(TimePoint now) {
    for (auto each = m_streams.begin(); each != m_streams.end();) {
        const auto& [id, stream] = *each;
        if (stream.connections != 0 || now < stream.idleUntil) {
            ++each;
            continue;
        }
        const StreamId closed = id;
        each = m_streams.erase(each);
        m_listener.CloseStream(closed);
    }
}

} // namespace KnxIp
