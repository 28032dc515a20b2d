// Client side of KNXnet/IP tunnelling: the connection to an interface on the bus, kept alive for ever.
#pragma once

#include "KnxFrames/Cemi.h"
#include "KnxIp/Frames.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace KnxIp {

using TimePoint = std::chrono::steady_clock::time_point;

/// What a TunnelClient connects to and how; constant while it exists.
struct TunnelClientConfig {
    /// Control endpoint of the interface. Left empty, it is waited for: see TunnelClient::SetServer().
    Endpoint server;

    /// Over a TCP stream instead of UDP. A network address translation makes no difference then.
    bool tcp = false;

    /// True behind a network address translation: the server is told to answer to where our datagrams come
    /// from, and its own idea of its address is ignored.
    bool nat = false;

    /// Telegrams that wait, beside the one under way. At least 1.
    std::size_t queueLimit = 1000;

    /// Gives a number from 0 to 1 each time a waiting time is chosen, so that many hosts do not return at the
    /// same moment. Empty: always 0.
    std::function<double()> jitter;
};

/// Why there is no connection, or not any more.
enum class LinkFailure : std::uint8_t {
    ConnectTimeout, ///< no CONNECT_RESPONSE within 10 s
    ConnectRefused, ///< CONNECT_RESPONSE with an error status
    ServerClosed,   ///< DISCONNECT_REQUEST of the server
    NoAck,          ///< a telegram was not acknowledged, nor its repetition
    Heartbeat,      ///< four CONNECTIONSTATE_REQUESTs without a good answer
    Forgotten,      ///< the server does not know the connection: status 21h
    StreamEnded,    ///< the TCP stream could not be opened, has ended, or carries something else
};

/// "no answer to the connect request", ...
const char* ToString(LinkFailure failure);

/// Why a telegram of ours may not have reached the bus.
enum class SendFailure : std::uint8_t {
    NoAck,           ///< the server lives but acknowledged neither the telegram nor its repetition
    NoConfirmation,  ///< acknowledged by the server, but no L_Data.con within 3 s or before the connection
                     ///< ended
    NegativeConfirm, ///< L_Data.con with the error bit: nobody on the bus acknowledged it
};

const char* ToString(SendFailure failure);

/// Counts since the client was made.
struct TunnelClientCounters {
    std::uint64_t sent = 0;            ///< telegrams acknowledged by the server
    std::uint64_t received = 0;        ///< telegrams handed to the listener
    std::uint64_t repeated = 0;        ///< requests sent a second time within a connection
    std::uint64_t resent = 0;          ///< telegrams taken back into the queue because the link was dead
    std::uint64_t duplicates = 0;      ///< requests of the server that were acknowledged again and discarded
    std::uint64_t outOfOrder = 0;      ///< requests of the server with any other wrong sequence number
    std::uint64_t dropped = 0;         ///< telegrams lost because the queue was full
    std::uint64_t noAck = 0;           ///< SendFailure::NoAck
    std::uint64_t noConfirmation = 0;  ///< SendFailure::NoConfirmation
    std::uint64_t negativeConfirm = 0; ///< SendFailure::NegativeConfirm
    std::uint64_t connections = 0;     ///< times a connection was made
};

/// Receives the wishes of a TunnelClient, inside the call that caused them and on its thread. An
/// implementation may call Send() and Stop() from any of them, but nothing whose name begins with On, and
/// must not destroy the client.
class TunnelClientListener {
public:
    virtual ~TunnelClientListener() = default;

    /// Send one UDP datagram, always from the same socket. The octets are valid during the call.
    virtual void SendDatagram(const Endpoint& to, Octets datagram) = 0;

    /// Whether the datagram of the last SendDatagram() may have left this machine: false when the system
    /// refused it, as without a network. Asked at once for each that carries a telegram.
    virtual bool MayHaveLeft() const { return true; }

    /// Open a TCP stream to the server; then TunnelClient::OnStreamOpened(), or OnStreamClosed() when that
    /// fails. There is never more than one. Not called without TunnelClientConfig::tcp, as the next two.
    virtual void OpenStream(const Endpoint& server) { static_cast<void>(server); }

    /// Send a frame in the stream, all of it and in order, without waiting. The octets are valid during the
    /// call.
    virtual void SendToStream(Octets frame) { static_cast<void>(frame); }

    /// Close the stream, or give up opening it. Nothing of it is to be told afterwards.
    virtual void CloseStream() {}

    /// A telegram from the bus (L_Data.ind). Confirmations of our own telegrams do not come here.
    virtual void OnTelegram(const KnxFrames::LData& telegram) = 0;

    /// Connected; `address` is the individual address that the server lent to this tunnel. Telegrams that
    /// waited are sent after this call.
    virtual void OnConnected(KnxFrames::IndividualAddress address) = 0;

    /// The connection ended. `retryIn` 0: the next try follows at once.
    virtual void OnDisconnected(LinkFailure failure, std::chrono::milliseconds retryIn) = 0;

    /// A try to connect failed. `status` is NoError unless the server refused.
    virtual void OnConnectFailed(LinkFailure failure, Status status, std::chrono::milliseconds retryIn) = 0;

    /// A telegram of ours may not have reached the bus. It is not sent again.
    virtual void OnSendFailed(const KnxFrames::LData& telegram, SendFailure failure) = 0;

    /// The queue is full and a telegram was dropped. Called once per burst, which ends when the queue has run
    /// empty; TunnelClientCounters::dropped counts on.
    virtual void OnQueueOverflow() = 0;

    /// A datagram or the cEMI message inside was refused. Called for each; report each cause once per source.
    virtual void OnRefusedDatagram(const Endpoint& from, const KnxFrames::FrameError& error) = 0;

    /// Address and port of our socket as the server is to see them, asked at each try to connect, since it
    /// may change while the host runs. Not asked with TunnelClientConfig::nat. Unspecified: as with nat, but
    /// the server's data endpoint counts.
    virtual Endpoint LocalEndpoint() = 0;
};

/// KNXnet/IP tunnelling client over UDP or TCP, link layer. It opens no socket and reads no clock. Not
/// synchronised: all calls from one thread. Time never goes back between calls.
///
/// Connection: CONNECT_REQUEST, 10 s for the answer. Heartbeat each 60 s, 10 s for the answer, three
/// repetitions. When a connection that has lived for kStableTime ends, the next try follows at once; after a
/// failed try, or a connection that did not live that long, it follows after 1 s, 2 s, 4 s ... 48 s, each
/// plus up to a quarter by jitter, for ever.
///
/// Telegrams: one under way at a time, until its acknowledgement (1 s, one repetition, then the connection is
/// given up) and its L_Data.con (3 s, then counted and the next one sent) have come. The others wait in their
/// order, also while there is no connection or not even a server. When the queue is full, the oldest one of
/// the lowest priority is dropped.
///
/// A telegram that was under way unacknowledged when the connection ended goes back to the head of the queue
/// if the server cannot have taken it as far as one can know: it never left this machine, the server said
/// nothing at all since then, or it answered the first transmission by not knowing the connection. Otherwise
/// it is reported as not acknowledged and not sent again, so that nothing happens twice. One that was
/// acknowledged but not yet confirmed is reported as not confirmed; one that was confirmed has reached the
/// bus, acknowledged or not.
///
/// Over TCP each try opens a stream of its own, within the 10 s of the connect request. Nothing is
/// acknowledged or repeated there, and numbers of requests do not matter: a telegram counts as acknowledged
/// once it is in the stream, and the next one follows its confirmation. When the stream ends, the connection
/// has ended.
class TunnelClient {
public:
    static constexpr std::chrono::seconds kConnectTimeout{10};
    static constexpr std::chrono::seconds kAckTimeout{1};
    static constexpr std::chrono::seconds kConfirmTimeout{3};
    static constexpr std::chrono::seconds kHeartbeatInterval{60};
    static constexpr std::chrono::seconds kHeartbeatTimeout{10};
    static constexpr unsigned kHeartbeatTries = 4;
    static constexpr std::chrono::seconds kStableTime{5};
    static constexpr std::chrono::seconds kFirstRetry{1};
    static constexpr std::chrono::seconds kLongestRetry{48}; ///< 60 s with the whole jitter

    /// `listener` outlives the client. Throws std::invalid_argument, with the cause for people, when the
    /// server has an address without a port or the reverse, or the queue limit is 0.
    TunnelClient(TunnelClientConfig config, TunnelClientListener& listener);
    ~TunnelClient();
    TunnelClient(const TunnelClient&) = delete;
    TunnelClient& operator=(const TunnelClient&) = delete;

    /// Begins to connect, with the first try in this call, or in SetServer() when there is no server yet.
    /// Nothing when already started.
    void Start(TimePoint now);

    /// The control endpoint of the interface, found out late or found to have changed. A started client that
    /// had none connects in this call; else it counts from the next try to connect on. Throws
    /// std::invalid_argument when address or port is 0.
    void SetServer(TimePoint now, const Endpoint& server);

    /// Ends the connection with a DISCONNECT_REQUEST whose answer is not awaited, and every further try. The
    /// queue stays; a telegram under way is given up as when a connection ends. May be started again.
    void Stop();

    /// A datagram arrived at our socket.
    void OnDatagram(TimePoint now, const Endpoint& from, Octets datagram);

    /// The stream that was asked for is open.
    void OnStreamOpened(TimePoint now);

    /// Octets came in the stream, cut anywhere.
    void OnStreamOctets(TimePoint now, Octets octets);

    /// The stream could not be opened or has ended, but not by CloseStream(). Never inside a call of the
    /// listener.
    void OnStreamClosed(TimePoint now);

    /// Does what is due. Harmless when nothing is.
    void OnTime(TimePoint now);

    /// When OnTime() wants to be called next; empty while stopped. To be asked after each call that took a
    /// time.
    std::optional<TimePoint> NextTime() const;

    /// Sends the telegram as L_Data.req, at once or when its turn comes. Its own message code does not
    /// matter. Source 0.0.0 leaves the source to the interface. False when the queue is full of telegrams
    /// with a higher priority, so that this one was dropped.
    bool Send(TimePoint now, const KnxFrames::LData& telegram);

    bool IsConnected() const;

    /// The individual address that the server lent to us; 0.0.0 while not connected.
    KnxFrames::IndividualAddress Address() const;

    /// Telegrams that wait, without the one under way.
    std::size_t Waiting() const;

    const TunnelClientCounters& Counters() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace KnxIp
