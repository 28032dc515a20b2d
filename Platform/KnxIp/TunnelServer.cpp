#include "KnxIp/TunnelServer.h"

#include "KnxIp/TunnelServerImplementation.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace KnxIp {
namespace {

using KnxFrames::LData;

void CheckConfig(const TunnelServerConfig& config) {
    if (config.tunnelAddresses.empty() || config.tunnelAddresses.size() > 255)
        throw std::invalid_argument("the number of tunnel addresses is not 1 to 255");
    if (config.managementConnections > 16 ||
        config.managementConnections + config.tunnelAddresses.size() > 255)
        throw std::invalid_argument(
            "the number of management connections is not 0 to 16, or with the tunnels "
            "more than 255");
    if (config.queueLimit == 0)
        throw std::invalid_argument("the queue limit of the tunnels is 0");
    for (auto each = config.tunnelAddresses.begin(); each != config.tunnelAddresses.end(); ++each) {
        if (each->raw == 0)
            throw std::invalid_argument("0.0.0 is not an address for a tunnel");
        if (std::find(config.tunnelAddresses.begin(), each, *each) != each)
            throw std::invalid_argument("two tunnels have the address " + each->ToString());
    }
}

} // namespace

std::vector<ServiceFamily> CoreAndTunnelling(bool overTcp) {
    const std::uint8_t version = overTcp ? 2 : 1;
    return {{ServiceFamily::kCore, version}, {ServiceFamily::kTunnelling, version}};
}

TunnelServer::Implementation::Implementation(TunnelServerConfig config, TunnelServerListener& listener)
    : m_config(std::move(config)), m_listener(listener),
      m_lastChannel(static_cast<std::uint8_t>(m_config.firstChannel - 1)) {
    CheckConfig(m_config);
    m_tunnels.reserve(m_config.tunnelAddresses.size());
    for (const KnxFrames::IndividualAddress address : m_config.tunnelAddresses)
        m_tunnels.emplace_back(address, m_config.queueLimit);
    m_management.resize(m_config.managementConnections);
}

void TunnelServer::Implementation::OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
    OnFrame(now, {from}, datagram);
}

void TunnelServer::Implementation::OnFrame(TimePoint now, const Peer& from, Octets octets) {
    auto frame = ReadFrame(octets);
    if (!frame) {
        m_listener.OnRefusedDatagram(from.endpoint, frame.Error());
        return;
    }
    std::visit([&](const auto& content) { On(now, from, content); }, *frame);
}

void TunnelServer::Implementation::OnTime(TimePoint now) {
    const auto serve = [&](auto& connection) {
        if (!connection.isOpen)
            return;
        if (now >= connection.silentUntil)
            Close(connection, TunnelEnd::Heartbeat);
        else if (connection.pending.IsActive() && now >= connection.pending.Deadline())
            RepeatOrClose(now, connection);
    };
    std::for_each(m_tunnels.begin(), m_tunnels.end(), serve);
    std::for_each(m_management.begin(), m_management.end(), serve);
    CloseIdleStreams(now);
}

std::optional<TimePoint> TunnelServer::Implementation::NextTime() const {
    std::optional<TimePoint> next;
    const auto consider = [&next](TimePoint time) {
        if (!next || time < *next)
            next = time;
    };
    const auto considerConnection = [&consider](const ServerConnection& connection) {
        if (!connection.isOpen)
            return;
        consider(connection.silentUntil);
        if (connection.pending.IsActive())
            consider(connection.pending.Deadline());
    };
    std::for_each(m_tunnels.begin(), m_tunnels.end(), considerConnection);
    std::for_each(m_management.begin(), m_management.end(), considerConnection);
    for (const auto& [id, stream] : m_streams) {
        if (stream.connections == 0)
            consider(stream.idleUntil);
    }
    return next;
}

Endpoint TunnelServer::Implementation::OwnEndpoint(const Endpoint& towards) {
    const Endpoint own = m_listener.LocalEndpointTowards(towards);
    return own.IsSpecified() ? own : m_config.endpoint;
}

Hpai TunnelServer::Implementation::OwnHpai(const Peer& towards) {
    return towards.IsStream() ? Hpai{{}, Hpai::kTcp} : Hpai{OwnEndpoint(towards.endpoint)};
}

void TunnelServer::Implementation::SendTo(const Peer& to, const Datagram& datagram) {
    if (to.IsStream())
        m_listener.SendToStream(to.stream, datagram);
    else
        m_listener.SendDatagram(to.endpoint, datagram);
}

TunnelServer::TunnelServer(TunnelServerConfig config, TunnelServerListener& listener)
    : m_implementation(std::make_unique<Implementation>(std::move(config), listener)) {}

TunnelServer::~TunnelServer() = default;

void TunnelServer::OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
    m_implementation->OnDatagram(now, from, datagram);
}

void TunnelServer::SetDevice(const DeviceInformation& device) {
    m_implementation->SetDevice(device);
}

void TunnelServer::SetInterface(TimePoint now, const InterfaceInformation& interface) {
    m_implementation->SetInterface(now, interface);
}

void TunnelServer::OnStreamOpened(TimePoint now, StreamId stream, const Endpoint& from) {
    m_implementation->OnStreamOpened(now, stream, from);
}

void TunnelServer::OnStreamOctets(TimePoint now, StreamId stream, Octets octets) {
    m_implementation->OnStreamOctets(now, stream, octets);
}

void TunnelServer::OnStreamClosed(StreamId stream) {
    m_implementation->OnStreamClosed(stream);
}

void TunnelServer::OnTime(TimePoint now) {
    m_implementation->OnTime(now);
}

std::optional<TimePoint> TunnelServer::NextTime() const {
    return m_implementation->NextTime();
}

Backlog TunnelServer::Broadcast(TimePoint now, const LData& telegram, std::optional<TunnelId> except) {
    return m_implementation->Broadcast(now, telegram, except);
}

Backlog TunnelServer::Send(TimePoint now, const LData& telegram, TunnelId tunnel) {
    return m_implementation->Send(now, telegram, tunnel);
}

void TunnelServer::AnnounceProperty(TimePoint now, const KnxFrames::ManagementMessage& property) {
    m_implementation->AnnounceProperty(now, property);
}

void TunnelServer::CloseTunnel(TunnelId tunnel) {
    m_implementation->CloseTunnel(tunnel);
}

void TunnelServer::Stop() {
    m_implementation->Stop();
}

bool TunnelServer::IsOpen(TunnelId tunnel) const {
    return m_implementation->Tunnels().at(tunnel).isOpen;
}

const TunnelCounters& TunnelServer::Counters(TunnelId tunnel) const {
    return m_implementation->Tunnels().at(tunnel).counters;
}

} // namespace KnxIp
