// One tunnel of a TunnelServer: who its client is and what is under way. Internal to this folder.
#pragma once

#include "KnxIp/FrameRing.h"
#include "KnxIp/TunnelLink.h"
#include "KnxIp/TunnelServer.h"

#include <cstdint>

namespace KnxIp {

/// Where an answer goes: to the endpoint that the request names, else to where the request came from.
inline Endpoint AnswerTo(const Hpai& hpai, const Endpoint& from) {
    return hpai.protocol == Hpai::kUdp && hpai.endpoint.IsSpecified() ? hpai.endpoint : from;
}

/// Endpoints of a tunnel's client, and which datagrams come from it.
///
/// Its host is always compared. Ports are compared when they mean something: the CONNECT_REQUEST came from
/// the very control endpoint that it names. A client that named no endpoint, or whose datagrams come from
/// elsewhere than it says, sits behind an address translation that may give it another port at any time.
class TunnelPeer {
public:
    TunnelPeer() = default;
    TunnelPeer(const ConnectRequest& request, const Endpoint& from)
        : m_connectedFrom(from), m_control(AnswerTo(request.control, from)),
          m_data(AnswerTo(request.data, from)), m_portsCount(request.control.endpoint == from),
          m_dataFollows(!request.data.endpoint.IsSpecified()) {}

    const Endpoint& Control() const { return m_control; }
    const Endpoint& Data() const { return m_data; }

    /// Whether a request about the connection is the client's; `named` is the endpoint given in the request.
    bool OwnsControl(const Endpoint& from, const Hpai& named) const {
        return IsHost(from) && (!m_portsCount || from == m_control || named.endpoint == m_control);
    }

    /// Whether a telegram or an acknowledgement is the client's.
    bool OwnsData(const Endpoint& from) const {
        return IsHost(from) && (!m_portsCount || m_dataFollows || from == m_data || from == m_control);
    }

    /// A telegram in sequence came from there: a client that named no data endpoint is there from now on.
    void TelegramCameFrom(const Endpoint& from) {
        if (m_dataFollows)
            m_data = from;
    }

    /// Where a telegram from there is acknowledged.
    const Endpoint& AcknowledgeTo(const Endpoint& from) const { return m_dataFollows ? from : m_data; }

private:
    bool IsHost(const Endpoint& from) const {
        return from.address == m_connectedFrom.address || from.address == m_control.address ||
               from.address == m_data.address;
    }

    Endpoint m_connectedFrom; // may be on another host than its HPAIs say
    Endpoint m_control;
    Endpoint m_data;
    bool m_portsCount = false;
    bool m_dataFollows = false; // to where its telegrams come from
};

struct ServerTunnel {
    KnxFrames::IndividualAddress address;
    bool isOpen = false;
    std::uint8_t channel = 0;
    TunnelPeer peer;
    TimePoint silentUntil{};
    ReceiveCounter received;
    PendingRequest pending;
    FrameRing<KnxFrames::LData> queue;
    bool overflowReported = false;
    TunnelCounters counters;
};

} // namespace KnxIp
