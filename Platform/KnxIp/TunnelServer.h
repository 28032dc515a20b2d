// Server side of KNXnet/IP over UDP and TCP: answers searches and lends tunnels to clients.
#pragma once

#include "KnxFrames/Cemi.h"
#include "KnxFrames/CemiManagement.h"
#include "KnxIp/Frames.h"
#include "KnxIp/Peer.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace KnxIp {

using TimePoint = std::chrono::steady_clock::time_point;

/// What a TunnelServer offers by itself: the families core and tunnelling, version 1, or 2 with TCP.
std::vector<ServiceFamily> CoreAndTunnelling(bool overTcp = false);

/// What a TunnelServer is and offers; constant while it exists.
struct TunnelServerConfig {
    /// Answers to searches and descriptions. `device.address` is the server's own individual address.
    DeviceInformation device;
    std::vector<ServiceFamily> families = CoreAndTunnelling();

    /// Told to who asks for more than a basic search does.
    ExtendedDeviceInformation extended;

    /// Where clients reach the server, for control and data alike. Used when the listener knows no better
    /// (TunnelServerListener::LocalEndpointTowards). Unspecified: clients are told to answer to where our
    /// datagrams come from.
    Endpoint endpoint;

    /// The individual address of each tunnel; their number is the number of tunnels, 1 to 255. No two are
    /// equal and none is 0.0.0.
    std::vector<KnxFrames::IndividualAddress> tunnelAddresses;

    /// Connections for device management, at most 16 and in all at most 255 with the tunnels. 0: none is
    /// offered.
    std::size_t managementConnections = 0;

    /// Telegrams that wait per tunnel, beside the one that waits for its acknowledgement. At least 1.
    std::size_t queueLimit = 1000;

    /// Channel of the first connection; further ones follow in turn. Best chosen at random at each start, so
    /// that a client of a server that died does not take the connection of another client for its own. 0
    /// counts as 1, since some clients take it for "none".
    std::uint8_t firstChannel = 1;
};

/// What the server's interface to the bus is, for clients that ask through their tunnels.
struct InterfaceInformation {
    std::uint16_t manufacturer = 0; ///< code of the manufacturer
    bool isConnected = true;        ///< the bus can be reached

    bool operator==(const InterfaceInformation& other) const = default;
};

/// Number of a tunnel: the index of its address in TunnelServerConfig::tunnelAddresses.
using TunnelId = std::uint8_t;

/// Why a tunnel was closed.
enum class TunnelEnd : std::uint8_t {
    Client,    ///< the client asked for it
    Heartbeat, ///< nothing was heard of the client for 120 s
    NoAck,     ///< a telegram was not acknowledged, nor its repetition
    Server,    ///< CloseTunnel() or Stop()
    Stream,    ///< its TCP stream ended, or was closed because of what came in it
    Replaced,  ///< its client asked for a tunnel by UDP as if it had none, and no other was free
};

/// "closed by the client", "no heartbeat", ...
const char* ToString(TunnelEnd end);

/// Counts since the tunnel was opened; they stay readable until it is opened again.
struct TunnelCounters {
    std::uint64_t fromClient = 0; ///< telegrams taken from the client
    /// Frames that the client has acknowledged, or that were put into its stream; confirmations included.
    std::uint64_t toClient = 0;
    std::uint64_t repeated = 0;   ///< frames sent a second time
    std::uint64_t duplicates = 0; ///< requests of the client that were acknowledged again and discarded
    std::uint64_t outOfOrder = 0; ///< requests of the client with any other wrong sequence number
    /// Frames for the client that were lost: the queue was full, or they waited, or went unacknowledged, when
    /// the tunnel was closed.
    std::uint64_t dropped = 0;
    std::uint64_t unsupported =
        0; ///< requests of the client that were no L_Data.req; acknowledged, else ignored
    /// Frames that have waited for the client at the same time, at most; never more than the queue's limit.
    /// Over a stream nothing waits here.
    std::uint64_t mostWaiting = 0;
};

/// The queues that a telegram was put into.
struct Backlog {
    bool isNearlyFull = false;  ///< one of them is, by three quarters at least
    bool hasOverflowed = false; ///< one of them was full, and lost a telegram

    Backlog& operator|=(const Backlog& other) {
        isNearlyFull |= other.isNearlyFull;
        hasOverflowed |= other.hasOverflowed;
        return *this;
    }
};

/// Receives the wishes of a TunnelServer, inside the call that caused them and on its thread. An
/// implementation may call Broadcast(), Send(), AnnounceProperty() and CloseTunnel() from any of them, but
/// nothing whose name begins with On, and must not destroy the server.
class TunnelServerListener {
public:
    virtual ~TunnelServerListener() = default;

    /// Send one UDP datagram. The octets are valid during the call. A datagram that cannot be sent is lost,
    /// as on the network.
    virtual void SendDatagram(const Endpoint& to, Octets datagram) = 0;

    /// Send a frame in a TCP stream, all of it and in order, without waiting. The octets are valid during the
    /// call. What the other side does not read is kept up to a bound; beyond it the stream is given up, which
    /// is told with TunnelServer::OnStreamClosed() once this call has returned. Never called for a server
    /// that is told of no stream.
    virtual void SendToStream(StreamId stream, Octets frame) {
        static_cast<void>(stream);
        static_cast<void>(frame);
    }

    /// Close a TCP stream. The server has forgotten it already.
    virtual void CloseStream(StreamId stream) { static_cast<void>(stream); }

    /// A client has sent a telegram: as L_Data.ind with the source that everybody is to see, and marked as
    /// not repeated; every other bit is as the client sent it. Its confirmation follows when this returns.
    /// The host gives it to the bus, to its own device, and with Broadcast(now, telegram, origin) or Send()
    /// to other tunnels; the server does none of that itself.
    virtual void OnTelegram(TunnelId origin, const KnxFrames::LData& telegram) = 0;

    virtual void OnTunnelOpened(TunnelId tunnel, KnxFrames::IndividualAddress address,
                                const Peer& client) = 0;
    virtual void OnTunnelClosed(TunnelId tunnel, TunnelEnd end) = 0;

    /// A client of a management connection asks for elements of a property (M_PropRead.req), wants to
    /// change them (M_PropWrite.req), or calls a function property (M_FuncPropCommand.req,
    /// M_FuncPropStateRead.req). Gives the confirmation: request.Confirmation() with the data read or the
    /// return code, or request.Refusal().
    virtual KnxFrames::ManagementMessage OnDeviceManagement(const KnxFrames::ManagementMessage& request) {
        return request.Refusal(KnxFrames::PropertyError::NoSuchProperty);
    }

    /// A client of a management connection wants the device to restart (M_Reset.req). Not answered: the
    /// server closes that connection when this returns.
    virtual void OnDeviceReset(const Endpoint& client) { static_cast<void>(client); }

    virtual void OnManagementOpened(const Peer& client) { static_cast<void>(client); }
    virtual void OnManagementClosed(const Peer& client, TunnelEnd end) {
        static_cast<void>(client);
        static_cast<void>(end);
    }

    /// A client was refused a tunnel or a management connection.
    virtual void OnConnectRefused(const Endpoint& from, Status status) = 0;

    /// The queue of a tunnel is full and a frame was dropped. Called once per burst, which ends when the
    /// queue has run empty; TunnelCounters::dropped counts on.
    virtual void OnQueueOverflow(TunnelId tunnel) = 0;

    /// A datagram, a frame of a stream, or the cEMI message inside was refused. Called for each; report each
    /// cause once per source.
    virtual void OnRefusedDatagram(const Endpoint& from, const KnxFrames::FrameError& error) = 0;

    /// Own address as seen by `peer`, for hosts with several network interfaces. Unspecified (the default):
    /// the configured endpoint is used. Asked once per search and per connection.
    virtual Endpoint LocalEndpointTowards(const Endpoint& peer) {
        static_cast<void>(peer);
        return {};
    }
};

/// KNXnet/IP server: SEARCH, DESCRIPTION, and tunnels on the link layer, over UDP and over TCP streams. It
/// opens no socket and reads no clock: whoever owns it feeds octets and time and carries out what the
/// listener is told. Not synchronised: all calls from one thread. Time never goes back between calls.
///
/// An extended search is answered when each of its conditions holds: programming mode, MAC address, a service
/// family in at least a version. A parameter of an unknown type, or with data of a wrong size, keeps the
/// server silent when it is mandatory and counts for nothing otherwise. Without a wish the answer has all
/// blocks there are; with one, device and families, and of the others those wished. The block about tunnels
/// names the first 62. Basic searches and descriptions name device and families alone: clients of version 1
/// know no other blocks.
///
/// Through a tunnel a client may ask for the eight features of the interface (tunnelling, version 2), and
/// whether it is to be told of their changes is the one that it can set. At most kMostFeatures of these
/// answers wait for acknowledgements.
///
/// An endpoint in a request that opens a connection or asks for a description must fit the way of the
/// request: host protocol UDP in a datagram; in a stream TCP, and neither address nor port, since answers
/// come back in the stream. A search of the basic kind in a stream is none. Whatever does not fit is refused
/// and not answered.
///
/// Sources of telegrams: an L_Data.req with source 0.0.0 gets the individual address of its tunnel. Any other
/// source is kept, because a client may be a gateway that speaks for devices behind it.
///
/// Per tunnel over UDP, one frame is under way at a time: sent, repeated once when no acknowledgement came
/// within 1 s, and after another second the tunnel is closed. Others wait in a queue, in order; when it is
/// full, the oldest one of the lowest priority is dropped.
///
/// A management connection gives access to the properties of the device itself (KNX Standard 3/6/3, local
/// device management). One client computer has one at a time: a further one ends the one before, so that a
/// tool that crashed can come back at once. Requests are sent four times in all, 10 s apart, before the
/// connection is given up; at most kMostManagementMessages wait for that.
///
/// Over TCP nothing is acknowledged, numbers of requests do not matter and nothing is repeated; a frame goes
/// into the stream at once. One stream carries any number of connections, which nobody else can use and which
/// end with it. The heartbeat is kept all the same. A stream is closed when something else than a KNXnet/IP
/// header begins where a frame must, and when it carries no connection and nothing has come for
/// kIdleStreamTimeout.
class TunnelServer {
public:
    static constexpr std::chrono::seconds kAckTimeout{1};
    static constexpr std::chrono::seconds kHeartbeatTimeout{120};
    static constexpr std::chrono::seconds kIdleStreamTimeout{10};
    static constexpr std::chrono::seconds kConfigurationTimeout{10};
    static constexpr unsigned kConfigurationRepetitions = 3;
    static constexpr std::size_t kMostManagementMessages = 64;
    static constexpr std::size_t kMostFeatures = 16;

    /// `listener` outlives the server. Throws std::invalid_argument, with the cause for people, when the
    /// configuration breaks a rule given there.
    TunnelServer(TunnelServerConfig config, TunnelServerListener& listener);
    ~TunnelServer();
    TunnelServer(const TunnelServer&) = delete;
    TunnelServer& operator=(const TunnelServer&) = delete;

    /// A datagram arrived at the server's port (unicast, or a search request by multicast).
    void OnDatagram(TimePoint now, const Endpoint& from, Octets datagram);

    /// What searches and descriptions are told of the device from now on.
    void SetDevice(const DeviceInformation& device);

    /// What clients are told of the interface from now on. Those that wished so are told when the bus can be
    /// reached or not any more (TUNNELLING_FEATURE_INFO), and searches are told of it, too.
    void SetInterface(TimePoint now, const InterfaceInformation& interface);

    /// A client has opened a TCP stream. `stream` is not 0 and was never told of before.
    void OnStreamOpened(TimePoint now, StreamId stream, const Endpoint& from);

    /// Octets came in a stream, cut anywhere. Nothing for a stream that is not open (any more).
    void OnStreamOctets(TimePoint now, StreamId stream, Octets octets);

    /// A stream has ended, whoever ended it, but CloseStream(); its connections are over. Nothing for a
    /// stream that is not open.
    void OnStreamClosed(StreamId stream);

    /// Does what is due. Harmless when nothing is.
    void OnTime(TimePoint now);

    /// When OnTime() wants to be called next; empty when neither tunnel nor stream is open. To be asked after
    /// each call that took a time.
    std::optional<TimePoint> NextTime() const;

    /// Sends the telegram as L_Data.ind to every open tunnel except `except`. The message code of `telegram`
    /// does not matter; everything else is sent as it is.
    Backlog Broadcast(TimePoint now, const KnxFrames::LData& telegram,
                      std::optional<TunnelId> except = std::nullopt);

    /// Sends it likewise to one tunnel, if that is open.
    Backlog Send(TimePoint now, const KnxFrames::LData& telegram, TunnelId tunnel);

    /// Tells the clients of all management connections that a property has changed (M_PropInfo.ind), with its
    /// new value; but not the one whose request the listener is just carrying out, which will have its
    /// confirmation.
    void AnnounceProperty(TimePoint now, const KnxFrames::ManagementMessage& property);

    /// Closes one tunnel with a DISCONNECT_REQUEST to its client; the answer is not awaited. Nothing when it
    /// is not open.
    void CloseTunnel(TunnelId tunnel);

    /// Closes every tunnel and management connection likewise; streams stay open. New ones may be opened
    /// again afterwards.
    void Stop();

    /// `tunnel` below the number of tunnels, here and below.
    bool IsOpen(TunnelId tunnel) const;
    const TunnelCounters& Counters(TunnelId tunnel) const;

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace KnxIp
