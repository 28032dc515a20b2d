// Server side of KNXnet/IP: answers searches and lends tunnels to clients.
#pragma once

#include "KnxFrames/Cemi.h"
#include "KnxIp/Frames.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace KnxIp {

using TimePoint = std::chrono::steady_clock::time_point;

/// What a TunnelServer offers by itself: the families core and tunnelling, version 1.
std::vector<ServiceFamily> CoreAndTunnelling();

/// What a TunnelServer is and offers; constant while it exists.
struct TunnelServerConfig {
    /// Answers to searches and descriptions. `device.address` is the server's own individual address.
    DeviceInformation device;
    std::vector<ServiceFamily> families = CoreAndTunnelling();

    /// Where clients reach the server, for control and data alike. Used when the listener knows no better
    /// (TunnelServerListener::LocalEndpointTowards). Unspecified: clients are told to answer to where our
    /// datagrams come from.
    Endpoint endpoint;

    /// The individual address of each tunnel; their number is the number of tunnels, 1 to 255. No two are
    /// equal and none is 0.0.0.
    std::vector<KnxFrames::IndividualAddress> tunnelAddresses;

    /// Telegrams that wait per tunnel, beside the one that waits for its acknowledgement. At least 1.
    std::size_t queueLimit = 1000;

    /// Channel of the first connection; further ones follow in turn. Best chosen at random at each start, so
    /// that a client of a server that died does not take the connection of another client for its own. 0
    /// counts as 1, since some clients take it for "none".
    std::uint8_t firstChannel = 1;
};

/// Number of a tunnel: the index of its address in TunnelServerConfig::tunnelAddresses.
using TunnelId = std::uint8_t;

/// Why a tunnel was closed.
enum class TunnelEnd : std::uint8_t {
    Client,    ///< the client asked for it
    Heartbeat, ///< nothing was heard of the client for 120 s
    NoAck,     ///< a telegram was not acknowledged, nor its repetition
    Server,    ///< CloseTunnel() or Stop()
};

/// "closed by the client", "no heartbeat", ...
const char* ToString(TunnelEnd end);

/// Counts since the tunnel was opened; they stay readable until it is opened again.
struct TunnelCounters {
    std::uint64_t fromClient = 0; ///< telegrams taken from the client
    std::uint64_t toClient = 0;   ///< frames that the client has acknowledged, confirmations included
    std::uint64_t repeated = 0;   ///< frames sent a second time
    std::uint64_t duplicates = 0; ///< requests of the client that were acknowledged again and discarded
    std::uint64_t outOfOrder = 0; ///< requests of the client with any other wrong sequence number
    /// Frames for the client that were lost: the queue was full, or they waited, or went unacknowledged, when
    /// the tunnel was closed.
    std::uint64_t dropped = 0;
    std::uint64_t unsupported =
        0; ///< requests of the client that were no L_Data.req; acknowledged, else ignored
};

/// Receives the wishes of a TunnelServer, inside the call that caused them and on its thread. An
/// implementation may call Broadcast() and CloseTunnel() from any of them, but neither OnDatagram() nor
/// OnTime(), and must not destroy the server.
class TunnelServerListener {
public:
    virtual ~TunnelServerListener() = default;

    /// Send one UDP datagram. The octets are valid during the call. A datagram that cannot be sent is lost,
    /// as on the network.
    virtual void SendDatagram(const Endpoint& to, Octets datagram) = 0;

    /// A client has sent a telegram: as L_Data.ind with the source that everybody is to see, and marked as
    /// not repeated; every other bit is as the client sent it. Its confirmation follows when this returns.
    /// The host gives it to the bus, to its own device, and with Broadcast(now, telegram, origin) to the
    /// other tunnels; the server does none of that itself.
    virtual void OnTelegram(TunnelId origin, const KnxFrames::LData& telegram) = 0;

    virtual void OnTunnelOpened(TunnelId tunnel, KnxFrames::IndividualAddress address,
                                const Endpoint& client) = 0;
    virtual void OnTunnelClosed(TunnelId tunnel, TunnelEnd end) = 0;

    /// A client was refused a tunnel.
    virtual void OnConnectRefused(const Endpoint& from, Status status) = 0;

    /// The queue of a tunnel is full and its oldest frame was dropped. Called once per burst, which ends when
    /// the queue has run empty; TunnelCounters::dropped counts on.
    virtual void OnQueueOverflow(TunnelId tunnel) = 0;

    /// A datagram or the cEMI message inside was refused. Called for each; report each cause once per source.
    virtual void OnRefusedDatagram(const Endpoint& from, const KnxFrames::FrameError& error) = 0;

    /// Own address as seen by `peer`, for hosts with several network interfaces. Unspecified (the default):
    /// the configured endpoint is used. Asked once per search and per connection.
    virtual Endpoint LocalEndpointTowards(const Endpoint& peer) {
        static_cast<void>(peer);
        return {};
    }
};

/// KNXnet/IP server over UDP, version 1.0: SEARCH, DESCRIPTION, and tunnels on the link layer. It opens no
/// socket and reads no clock: whoever owns it feeds datagrams and time and carries out what the listener is
/// told. Not synchronised: all calls from one thread. Time never goes back between calls.
///
/// Sources of telegrams: an L_Data.req with source 0.0.0 gets the individual address of its tunnel. Any other
/// source is kept, because a client may be a gateway that speaks for devices behind it.
///
/// Per tunnel, one frame is under way at a time: sent, repeated once when no acknowledgement came within 1 s,
/// and after another second the tunnel is closed. Others wait in a queue, in order.
class TunnelServer {
public:
    static constexpr std::chrono::seconds kAckTimeout{1};
    static constexpr std::chrono::seconds kHeartbeatTimeout{120};

    /// `listener` outlives the server. Throws std::invalid_argument, with the cause for people, when the
    /// configuration breaks a rule given there.
    TunnelServer(TunnelServerConfig config, TunnelServerListener& listener);
    ~TunnelServer();
    TunnelServer(const TunnelServer&) = delete;
    TunnelServer& operator=(const TunnelServer&) = delete;

    /// A datagram arrived at the server's port (unicast, or a search request by multicast).
    void OnDatagram(TimePoint now, const Endpoint& from, Octets datagram);

    /// Does what is due. Harmless when nothing is.
    void OnTime(TimePoint now);

    /// When OnTime() wants to be called next; empty when no tunnel is open. To be asked after each call that
    /// took a time.
    std::optional<TimePoint> NextTime() const;

    /// Sends the telegram as L_Data.ind to every open tunnel except `except`. The message code of `telegram`
    /// does not matter; everything else is sent as it is.
    void Broadcast(TimePoint now, const KnxFrames::LData& telegram,
                   std::optional<TunnelId> except = std::nullopt);

    /// Closes one tunnel with a DISCONNECT_REQUEST to its client; the answer is not awaited. Nothing when it
    /// is not open.
    void CloseTunnel(TunnelId tunnel);

    /// Closes every tunnel likewise. New ones may be opened again afterwards.
    void Stop();

    /// `tunnel` below the number of tunnels, here and below.
    bool IsOpen(TunnelId tunnel) const;
    const TunnelCounters& Counters(TunnelId tunnel) const;

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace KnxIp
