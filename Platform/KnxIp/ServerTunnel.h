// The connections of a TunnelServer: who the client is and what is under way. Internal to this folder.
#pragma once

#include "KnxFrames/CemiManagement.h"
#include "KnxIp/FrameRing.h"
#include "KnxIp/Peer.h"
#include "KnxIp/SendQueue.h"
#include "KnxIp/TunnelLink.h"
#include "KnxIp/TunnelServer.h"

#include <cstdint>

namespace KnxIp {

/// Where an answer goes: back over a stream, else to the endpoint that the request names, else to where the
/// request came from.
inline Peer AnswerTo(const Hpai& hpai, const Peer& from) {
    const bool isNamed = hpai.protocol == Hpai::kUdp && hpai.endpoint.IsSpecified();
    return !from.IsStream() && isNamed ? Peer{hpai.endpoint} : from;
}

/// The client of a connection, and which frames come from it.
///
/// A connection that was made over a stream belongs to that stream alone, whatever endpoints a frame names.
/// By UDP the host is always compared. Ports are compared when they mean something: the CONNECT_REQUEST came
/// from the very control endpoint that it names. A client that named no endpoint, or whose datagrams come
/// from elsewhere than it says, sits behind an address translation that may give it another port at any time.
class ConnectionPeer {
public:
    ConnectionPeer() = default;
    ConnectionPeer(const ConnectRequest& request, const Peer& from)
        : m_connectedFrom(from), m_control(AnswerTo(request.control, from)),
          m_data(AnswerTo(request.data, from)), m_portsCount(request.control.endpoint == from.endpoint),
          m_dataFollows(!request.data.endpoint.IsSpecified()) {}

    const Peer& Control() const { return m_control; }
    const Peer& Data() const { return m_data; }
    StreamId Stream() const { return m_connectedFrom.stream; }
    bool IsStream() const { return m_connectedFrom.IsStream(); }

    /// Whether a request about the connection is the client's; `named` is the endpoint given in the request.
    bool OwnsControl(const Peer& from, const Hpai& named) const {
        if (IsStream() || from.IsStream())
            return from.stream == Stream();
        return IsHost(from) && (!m_portsCount || from == m_control || named.endpoint == m_control.endpoint);
    }

    /// Whether a telegram or an acknowledgement is the client's.
    bool OwnsData(const Peer& from) const {
        if (IsStream() || from.IsStream())
            return from.stream == Stream();
        return IsHost(from) && (!m_portsCount || m_dataFollows || from == m_data || from == m_control);
    }

    /// A telegram in sequence came from there: a client that named no data endpoint is there from now on.
    void TelegramCameFrom(const Peer& from) {
        if (m_dataFollows)
            m_data = from;
    }

    /// Where a telegram from there is acknowledged.
    const Peer& AcknowledgeTo(const Peer& from) const { return m_dataFollows ? from : m_data; }

private:
    bool IsHost(const Peer& from) const {
        const auto address = from.endpoint.address;
        return address == m_connectedFrom.endpoint.address || address == m_control.endpoint.address ||
               address == m_data.endpoint.address;
    }

    Peer m_connectedFrom; // may be on another host than its HPAIs say
    Peer m_control;
    Peer m_data;
    bool m_portsCount = false;
    bool m_dataFollows = false; // to where its telegrams come from
};

/// What tunnels and management connections have in common.
struct ServerConnection {
    bool isOpen = false;
    std::uint8_t channel = 0;
    ConnectionPeer peer;
    TimePoint silentUntil{};
    // By UDP alone: a stream keeps the order and loses nothing, so nothing is acknowledged or repeated.
    ReceiveCounter received;
    PendingRequest pending;
    std::uint8_t streamSequence = 0; // of the next request over a stream; nobody looks at it

    /// A client has it from now on.
    void Open(std::uint8_t newChannel, const ConnectionPeer& newPeer, TimePoint until) {
        isOpen = true;
        channel = newChannel;
        peer = newPeer;
        silentUntil = until;
        received.Reset();
        pending.Reset();
        streamSequence = 0;
    }
};

/// An answer about a feature, or the news of one, that waits for its turn.
struct WaitingFeature {
    ServiceType service{};
    InterfaceFeature feature{};
    FeatureResult result = FeatureResult::Success;
    KnxFrames::FixedOctets<2> value;
};

struct ServerTunnel : ServerConnection {
    ServerTunnel(KnxFrames::IndividualAddress ownAddress, std::size_t queueLimit)
        : address(ownAddress), queue(queueLimit) {}

    KnxFrames::IndividualAddress address;
    SendQueue queue;
    FrameRing<WaitingFeature> features; // sent before the telegrams that wait
    bool tellsChanges = false;          // of features, to its client
    TunnelCounters counters;
};

struct ManagementConnection : ServerConnection {
    FrameRing<KnxFrames::ManagementMessage> queue;
    bool asks = false; // a request of its client is being done
};

} // namespace KnxIp
