#include "KnxIp/TunnelClient.h"

#include "KnxIp/TunnelClientImplementation.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace KnxIp {

using KnxFrames::FrameError;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;

TunnelClient::Implementation::Implementation(TunnelClientConfig config, TunnelClientListener& listener)
    : m_config(std::move(config)), m_listener(listener), m_queue(m_config.queueLimit),
      m_backOff(kFirstRetry, kLongestRetry, m_config.jitter), m_nextServer(m_config.server) {
    if (m_nextServer != Endpoint())
        CheckServer(m_nextServer);
    if (m_config.queueLimit == 0)
        throw std::invalid_argument("the queue limit of the KNXnet/IP client is 0");
}

void TunnelClient::Implementation::OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
    if (from.address != m_server.address && from.address != m_data.address) {
        m_listener.OnRefusedDatagram(from,
                                     FrameError::Unsupported("the sender is not the KNXnet/IP server", 0));
        return;
    }
    OnFrame(now, from, datagram);
}

void TunnelClient::Implementation::OnFrame(TimePoint now, const Endpoint& from, Octets octets) {
    auto frame = ReadFrame(octets);
    if (!frame) {
        m_listener.OnRefusedDatagram(from, frame.Error());
        return;
    }
    std::visit([&](const auto& content) { On(now, from, content); }, *frame);
}

void TunnelClient::Implementation::OnTime(TimePoint now) {
    switch (m_state) {
    case State::Stopped:
    case State::WithoutServer: return;
    case State::Waiting:
        if (now >= m_deadline)
            Connect(now);
        return;
    case State::Connecting:
        if (now >= m_deadline)
            ConnectFailed(now, LinkFailure::ConnectTimeout, Status::NoError);
        return;
    case State::Connected: break;
    }
    if (m_underWay.AwaitsAcknowledgement() && now >= m_underWay.AckDeadline())
        RepeatOrGiveUp(now);
    else if (m_underWay.AwaitsConfirmation() && now >= m_confirmDeadline)
        ConfirmationMissing(now);
    if (m_state == State::Connected && now >= m_heartbeatTime)
        Heartbeat(now);
}

std::optional<TimePoint> TunnelClient::Implementation::NextTime() const {
    switch (m_state) {
    case State::Stopped:
    case State::WithoutServer: return std::nullopt;
    case State::Waiting:
    case State::Connecting: return m_deadline;
    case State::Connected: break;
    }
    TimePoint next = m_heartbeatTime;
    if (m_underWay.AwaitsAcknowledgement())
        next = std::min(next, m_underWay.AckDeadline());
    else if (m_underWay.AwaitsConfirmation())
        next = std::min(next, m_confirmDeadline);
    return next;
}

void TunnelClient::Implementation::SendTo(const Endpoint& to, const Datagram& datagram) {
    if (m_stream == Stream::Open)
        m_listener.SendToStream(datagram);
    else if (!m_config.tcp)
        m_listener.SendDatagram(to, datagram);
}

TunnelClient::TunnelClient(TunnelClientConfig config, TunnelClientListener& listener)
    : m_implementation(std::make_unique<Implementation>(std::move(config), listener)) {}

TunnelClient::~TunnelClient() = default;

void TunnelClient::Start(TimePoint now) {
    m_implementation->Start(now);
}

void TunnelClient::SetServer(TimePoint now, const Endpoint& server) {
    m_implementation->SetServer(now, server);
}

void TunnelClient::Stop() {
    m_implementation->Stop();
}

void TunnelClient::OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
    m_implementation->OnDatagram(now, from, datagram);
}

void TunnelClient::OnStreamOpened(TimePoint) {
    m_implementation->OnStreamOpened();
}

void TunnelClient::OnStreamOctets(TimePoint now, Octets octets) {
    m_implementation->OnStreamOctets(now, octets);
}

void TunnelClient::OnStreamClosed(TimePoint now) {
    m_implementation->OnStreamClosed(now);
}

void TunnelClient::OnTime(TimePoint now) {
    m_implementation->OnTime(now);
}

std::optional<TimePoint> TunnelClient::NextTime() const {
    return m_implementation->NextTime();
}

bool TunnelClient::Send(TimePoint now, const LData& telegram) {
    return m_implementation->Send(now, telegram);
}

bool TunnelClient::IsConnected() const {
    return m_implementation->IsConnected();
}

IndividualAddress TunnelClient::Address() const {
    return m_implementation->Address();
}

std::size_t TunnelClient::Waiting() const {
    return m_implementation->Waiting();
}

const TunnelClientCounters& TunnelClient::Counters() const {
    return m_implementation->Counters();
}

} // namespace KnxIp
