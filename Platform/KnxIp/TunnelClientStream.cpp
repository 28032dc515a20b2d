// The TCP stream of a TunnelClient.

#include "KnxIp/TunnelClientImplementation.h"

#include <utility>

namespace KnxIp {

void TunnelClient::Implementation::OnStreamOpened() {
    if (m_stream != Stream::Opening)
        return;
    m_stream = Stream::Open;
    SendTo(m_server, WriteFrame(ConnectRequest{m_ownHpai, m_ownHpai}));
}

void TunnelClient::Implementation::OnStreamOctets(TimePoint now, Octets octets) {
    const auto number = m_streamNumber;
    // A frame may end the connection, and with it the stream.
    while (m_stream == Stream::Open && m_streamNumber == number) {
        const auto piece = m_splitter.Take(octets);
        switch (piece.kind) {
        case FrameSplitter::Piece::Kind::Nothing: return;
        case FrameSplitter::Piece::Kind::Whole: OnFrame(now, m_server, piece.frame); break;
        case FrameSplitter::Piece::Kind::TooLong: m_listener.OnRefusedDatagram(m_server, piece.error); break;
        case FrameSplitter::Piece::Kind::BadHeader:
            m_listener.OnRefusedDatagram(m_server, piece.error);
            EndStream();
            if (m_state == State::Connecting)
                ConnectFailed(now, LinkFailure::StreamEnded, Status::NoError);
            else if (m_state == State::Connected)
                ConnectionLost(now, LinkFailure::StreamEnded);
            return;
        }
    }
}

void TunnelClient::Implementation::OnStreamClosed(TimePoint now) {
    if (std::exchange(m_stream, Stream::None) == Stream::None)
        return;
    ++m_streamNumber;
    if (m_state == State::Connecting)
        ConnectFailed(now, LinkFailure::StreamEnded, Status::NoError);
    else if (m_state == State::Connected)
        ConnectionLost(now, LinkFailure::StreamEnded);
}

/// Nothing more is wanted of the stream, if there is one.
void TunnelClient::Implementation::EndStream() {
    if (std::exchange(m_stream, Stream::None) == Stream::None)
        return;
    ++m_streamNumber;
    m_listener.CloseStream();
}

} // namespace KnxIp
