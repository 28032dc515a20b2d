// One client's socket: lines in, lines out, without ever waiting. Internal to the daemon.
#pragma once

#include "DeviceStackProtocol/LineBuffer.h"
#include "DeviceStackServer/IEnvironment.h"

#include <boost/asio/local/stream_protocol.hpp>

#include <deque>
#include <memory>
#include <string_view>

namespace DeviceStackServer {

class Session;

/// Told of what comes in. All calls come on the thread of the io_context.
class ISessionOwner {
public:
    virtual ~ISessionOwner() = default;
    virtual void OnLine(Session& session, std::string_view line) = 0;
    virtual void OnLineTooLong(Session& session) = 0;
    /// The connection is over; called once, never from inside Send().
    virtual void OnClosed(Session& session, const std::string& reason) = 0;
    /// True while the peer of a connection that sends no more still waits for something.
    virtual bool IsWaiting(Session& session) = 0;
};

class Session : public std::enable_shared_from_this<Session> {
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    /// A receiver that leaves more unread is cut off; only messages it did not ask for count.
    static constexpr std::size_t kMaxEventBytes = std::size_t{4} * 1024 * 1024;
    static constexpr std::size_t kMaxEvents = 10000;
    /// With more unread answers than this, no further requests are taken from the peer.
    static constexpr std::size_t kMaxAnswerBytes = std::size_t{1024} * 1024;

    Session(Socket socket, Connection connection, ISessionOwner& owner);

    Connection GetConnection() const { return m_connection; }

    /// Process id of the peer as it was when it connected; 0 = not known.
    long PeerPid() const;

    /// True when the session ends because the peer did not read, or because one of its messages failed.
    bool WasCutOff() const { return m_cutOff; }

    /// Begins to read.
    void Start();

    void Send(Line line, IEnvironment::Kind kind);

    /// Takes no more lines from the peer, or goes on soon.
    void SetPaused(bool paused);

    /// Closes the socket without a word to the owner. What the socket has taken still reaches the peer.
    void Close();

    /// True when the peer has closed its end or died. Takes what it sent before; the caller forgets the
    /// session.
    bool DrainIfDead();

private:
    struct Item {
        Line line;
        IEnvironment::Kind kind;
    };

    void WaitToRead();
    void WaitToWrite();
    void WaitForEnd();
    void OnReadable();
    void OnEndOfInput();
    void EndIfFinished();
    bool TakeLines();
    bool PeerIsGone() const;
    bool IsCongested() const { return (m_answerBytes > kMaxAnswerBytes || m_paused) && !m_broken; }
    void GoOn();
    void Flush();
    void Drop(std::size_t sent);
    void Count(const Item& item, bool added);
    void StopSending();
    void EndSoon(std::string reason);
    void End(const std::string& reason);

    Socket m_socket;
    const Connection m_connection;
    ISessionOwner& m_owner;
    DeviceStack::LineBuffer m_input{DeviceStack::kMaxRequestLine};
    std::deque<Item> m_output;
    std::size_t m_sentOfFirst = 0;
    std::size_t m_eventBytes = 0;
    std::size_t m_events = 0;
    std::size_t m_answerBytes = 0;
    bool m_inputEnded = false; // the peer sends no more
    bool m_reading = false;    // a wait for input is running
    bool m_paused = false;     // SetPaused()
    bool m_writing = false;
    bool m_broken = false; // nothing more reaches the peer; what it sent before still counts
    bool m_ending = false; // EndSoon() was called
    bool m_cutOff = false;
    bool m_closed = false;
};

} // namespace DeviceStackServer
