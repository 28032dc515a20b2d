#include "KnxStackHost/Links/ServerLink.h"

#include "KnxStackHost/Links/LinkThread.h"
#include "KnxStackHost/Links/MissingNetwork.h"
#include "KnxStackHost/Links/NetworkPlace.h"

#include <boost/system/system_error.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <random>
#include <utility>

namespace KnxStackHost {

using boost::system::system_error;
using KnxIp::Endpoint;

namespace {

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Link");
    return logger;
}

constexpr unsigned kPortTries = 20;
constexpr std::size_t kManagementConnections = 4;
constexpr std::size_t kMostChannels = 255;
constexpr std::size_t kFurtherStreams = 16; // beside one for each tunnel

TimePoint Now() {
    return std::chrono::steady_clock::now();
}

/// That searches come in.
Endpoint GroupOf(const ServerSettings& settings) {
    return EndpointOf(settings.multicastGroup, KnxIp::kStandardPort);
}

KnxIp::TunnelServerConfig ServerConfigOf(const Configuration& configuration, const Endpoint& local) {
    KnxIp::TunnelServerConfig config;
    config.device.medium = KnxIp::DeviceInformation::kMediumIp; // as its device descriptor says
    config.device.address = configuration.individualAddress;
    config.device.name = configuration.deviceName;
    config.device.multicast = 0;
    config.device.mac = NetworkPlaceOf(local.address).mac;
    config.families = KnxIp::CoreAndTunnelling(configuration.server.tcp);
    config.managementConnections =
        std::min(kManagementConnections, kMostChannels - configuration.server.tunnels.size());
    if (config.managementConnections != 0)
        config.families.push_back({KnxIp::ServiceFamily::kManagement, config.families.front().version});
    if (configuration.routing) {
        config.device.multicast = EndpointOf(configuration.routing->group, 0).address;
        config.families.push_back({KnxIp::ServiceFamily::kRouting, 1});
    }
    config.endpoint = local;
    config.tunnelAddresses = configuration.server.tunnels;
    std::random_device random;
    config.firstChannel = static_cast<std::uint8_t>(std::uniform_int_distribution<unsigned>(1, 255)(random));
    return config;
}

} // namespace

ServerLink::ServerLink(boost::asio::io_context& context, const Configuration& configuration,
                       OnTelegramFrom received, OnEndOf closed)
    : m_context(context), m_file(configuration.file), m_settings(configuration.server),
      m_addresses(m_settings.tunnels), m_received(std::move(received)), m_closed(std::move(closed)),
      m_socket(context,
               [this](const Endpoint& from, KnxFrames::Octets datagram) { Receive(from, datagram); }),
      m_deadline(context, [this] { return OnTime(); }), m_lines(m_addresses.size()) {
    Open();
    if (!m_settings.multicastGroup.empty())
        OpenGroup();
    auto config = ServerConfigOf(configuration, m_socket.Local());
    m_device = config.device;
    m_server.emplace(std::move(config), static_cast<KnxIp::TunnelServerListener&>(*this));
}

void ServerLink::Open() {
    for (unsigned left = m_settings.port == 0 ? kPortTries : 1;; --left) {
        try {
            OpenOnce();
            return;
        } catch (const system_error& error) {
            m_socket.Close();
            if (left > 1)
                continue; // UDP was given a port that is somebody's by TCP
            throw LinkError(fmt::format("/server: {}:{} cannot be opened: {}; choose another \"address\" or "
                                        "\"port\"",
                                        m_settings.address, m_settings.port, error.code().message()));
        }
    }
}

void ServerLink::OpenOnce() {
    m_socket.Open(EndpointOf(m_settings.address, m_settings.port));
    if (m_settings.tcp)
        m_tcp.emplace(m_context, m_addresses.size() + kFurtherStreams, static_cast<TcpStreamUser&>(*this))
            .Open(m_socket.Local());
}

void ServerLink::OpenGroup() {
    m_group.emplace(m_context, [this](const Endpoint& from, KnxFrames::Octets datagram) {
        ReceiveFromGroup(from, datagram);
    });
    try {
        m_socket.ShareAddress(true); // with the group, which may have the same port
        m_group->OpenGroup(GroupOf(m_settings), EndpointOf(m_settings.multicastInterface, 0).address);
        m_socket.ShareAddress(false);
    } catch (const system_error& error) {
        throw LinkError(fmt::format(
            "/server/multicastGroup: the multicast group {} cannot be joined on {}: {}",
            m_settings.multicastGroup,
            m_settings.multicastInterface.empty() ? "any interface" : m_settings.multicastInterface,
            error.code().message()));
    }
}

void ServerLink::Start() {
    m_socket.Start();
    if (m_group)
        m_group->Start();
    if (m_tcp)
        m_tcp->Start();
    LOG4CPLUS_INFO(Log(), fmt::format("KNXnet/IP server listening on {} with {} tunnels{}",
                                      m_socket.Local().ToString(), m_addresses.size(),
                                      m_tcp ? ", over UDP and TCP" : ""));
    m_isAddressHere = IsAddressHere();
    if (!m_isAddressHere)
        LOG4CPLUS_WARN(Log(), AddressNotYetHere(m_file + ": /server/address", m_settings.address,
                                                "no client can connect until one has"));
    if (m_group && m_group->GroupFault())
        LOG4CPLUS_WARN(Log(), GroupNotYetJoined(m_file + ": /server", "multicastInterface",
                                                m_settings.multicastInterface, GroupOf(m_settings).ToString(),
                                                m_group->GroupFault()));
}

bool ServerLink::IsAddressHere() const {
    return KnxStackHost::IsAddressHere(m_context, m_socket.Local().address);
}

void ServerLink::OnNetworkChanged(const KnxDevice::IpPlace& place) {
    if (m_group)
        m_group->RenewGroup();
    if (!m_isAddressHere && IsAddressHere()) {
        m_isAddressHere = true;
        LOG4CPLUS_INFO(Log(),
                       fmt::format("the address {} of the KNXnet/IP server is there", m_settings.address));
    }
    if (place.mac != decltype(place.mac){}) // the card's, also while it has no address
        m_device.mac = place.mac;
    m_server->SetDevice(m_device);
}

void ServerLink::Stop() {
    m_server->Stop();
    std::uint64_t leftOut = 0;
    for (const auto& lines : m_lines)
        leftOut += lines.leftOut;
    const auto streams = m_tcp ? m_tcp->Refused() + m_tcp->GivenUp() : 0;
    if (m_refused.Total() + m_refusedClients.Total() + m_foreign + leftOut + streams != 0)
        LOG4CPLUS_INFO(
            Log(),
            fmt::format("KNXnet/IP server: {} datagrams were refused and {} requests for a tunnel, {} "
                        "datagrams to the group were not for it, {} TCP connections were turned away and {} "
                        "given up, {} lines about tunnels were left out",
                        m_refused.Total(), m_refusedClients.Total(), m_foreign, m_tcp ? m_tcp->Refused() : 0,
                        m_tcp ? m_tcp->GivenUp() : 0, leftOut));
}

bool ServerLink::HasClients() const {
    for (std::size_t tunnel = 0; tunnel < m_addresses.size(); ++tunnel)
        if (m_server->IsOpen(static_cast<KnxIp::TunnelId>(tunnel)))
            return true;
    return false;
}

void ServerLink::SetDevice(const KnxDevice::Device& device, bool isBusReachable) {
    m_device.address = device.Address();
    m_device.programmingMode = device.IsInProgrammingMode();
    m_device.serialNumber = device.Identity().serialNumber;
    m_device.projectInstallation = device.ProjectInstallation();
    m_server->SetDevice(m_device);
    m_server->SetInterface(Now(), {device.Identity().manufacturer, isBusReachable});
    m_deadline.Set(m_server->NextTime());
}

KnxDevice::IpFacts ServerLink::Facts() const {
    KnxDevice::IpFacts facts;
    facts.multicast = m_device.multicast;
    facts.tunnels = m_addresses;
    facts.routes = m_device.multicast != 0;
    facts.sentToIp = m_toClients;
    facts.lostToIp = m_lostToClients;
    for (std::size_t place = 0; place < m_addresses.size(); ++place) {
        const auto tunnel = static_cast<KnxIp::TunnelId>(place);
        if (!m_server->IsOpen(tunnel))
            continue;
        facts.sentToIp += m_server->Counters(tunnel).toClient;
        facts.lostToIp += m_server->Counters(tunnel).dropped;
    }
    return facts;
}

ServerStatus ServerLink::Status() const {
    ServerStatus status{m_socket.Local().ToString(), m_tcp.has_value(), {}};
    if (!IsAddressHere())
        status.fault = AddressFaultText(m_settings.address);
    if (m_group) {
        status.group = GroupOf(m_settings).ToString();
        status.groupFault = GroupFaultText(m_settings.multicastInterface, m_group->GroupFault());
    }
    for (std::size_t tunnel = 0; tunnel < m_addresses.size(); ++tunnel) {
        const auto id = static_cast<KnxIp::TunnelId>(tunnel);
        status.tunnels.push_back({m_addresses[tunnel],
                                  m_server->IsOpen(id) ? m_lines[tunnel].client : std::string(),
                                  m_server->Counters(id)});
    }
    return status;
}

KnxIp::Backlog ServerLink::Broadcast(const KnxFrames::LData& telegram, std::optional<std::uint8_t> except) {
    const auto backlog = m_server->Broadcast(Now(), telegram, except);
    m_deadline.Set(m_server->NextTime());
    return backlog;
}

KnxIp::Backlog ServerLink::Send(const KnxFrames::LData& telegram, std::uint8_t tunnel) {
    const auto backlog = m_server->Send(Now(), telegram, tunnel);
    m_deadline.Set(m_server->NextTime());
    return backlog;
}

void ServerLink::Announce(const KnxFrames::ManagementMessage& property) {
    m_server->AnnounceProperty(Now(), property);
    m_deadline.Set(m_server->NextTime());
}

void ServerLink::Receive(const Endpoint& from, KnxFrames::Octets datagram) {
    m_server->OnDatagram(Now(), from, datagram);
    m_deadline.Set(m_server->NextTime());
}

void ServerLink::ReceiveFromGroup(const Endpoint& from, KnxFrames::Octets datagram) {
    // The group is everybody's: routers send their telegrams to it, and clients searches of other kinds.
    struct Mark {
        explicit Mark(bool& mark) : m_mark(mark) { m_mark = true; }
        ~Mark() { m_mark = false; }
        Mark(const Mark&) = delete;
        Mark& operator=(const Mark&) = delete;
        bool& m_mark;
    };
    const Mark mark(m_fromGroup);
    Receive(from, datagram);
}

std::optional<TimePoint> ServerLink::OnTime() {
    m_server->OnTime(Now());
    return m_server->NextTime();
}

void ServerLink::SendDatagram(const Endpoint& to, KnxIp::Octets datagram) {
    m_socket.Send(to, datagram);
}

void ServerLink::SendToStream(KnxIp::StreamId stream, KnxIp::Octets frame) {
    m_tcp->Send(stream, frame);
}

void ServerLink::CloseStream(KnxIp::StreamId stream) {
    m_tcp->Close(stream);
}

void ServerLink::OnStreamOpened(KnxIp::StreamId stream, const Endpoint& from) {
    m_server->OnStreamOpened(Now(), stream, from);
    m_deadline.Set(m_server->NextTime());
}

void ServerLink::OnStreamOctets(KnxIp::StreamId stream, KnxFrames::Octets octets) {
    m_server->OnStreamOctets(Now(), stream, octets);
    m_deadline.Set(m_server->NextTime());
}

void ServerLink::OnStreamClosed(KnxIp::StreamId stream) {
    m_server->OnStreamClosed(stream);
}

void ServerLink::OnTelegram(KnxIp::TunnelId origin, const KnxFrames::LData& telegram) {
    m_received(origin, telegram);
}

std::optional<std::string> ServerLink::LineAbout(KnxIp::TunnelId tunnel, std::string_view text) {
    auto& lines = m_lines[tunnel];
    if (!lines.pace.Take(Now())) {
        ++lines.leftOut;
        return std::nullopt;
    }
    auto line = fmt::format("tunnel {}: {}", m_addresses[tunnel].ToString(), text);
    if (const auto leftOut = std::exchange(lines.leftOut, 0); leftOut != 0)
        line += fmt::format(" ({} lines about this tunnel were left out before)", leftOut);
    else if (lines.pace.IsUsedUp())
        line += " (further lines about this tunnel come once a minute)";
    return line;
}

void ServerLink::OnTunnelOpened(KnxIp::TunnelId tunnel, KnxFrames::IndividualAddress,
                                const KnxIp::Peer& client) {
    m_lines[tunnel].client = client.ToString();
    if (const auto line = LineAbout(tunnel, fmt::format("connected by {}", client.ToString())))
        LOG4CPLUS_INFO(Log(), *line);
}

void ServerLink::OnTunnelClosed(KnxIp::TunnelId tunnel, KnxIp::TunnelEnd end) {
    m_closed(tunnel);
    const auto& counters = m_server->Counters(tunnel);
    m_toClients += counters.toClient;
    m_lostToClients += counters.dropped;
    const auto line = LineAbout(tunnel, fmt::format("{}; {} telegrams from the client, {} to it, {} lost",
                                                    KnxIp::ToString(end), counters.fromClient,
                                                    counters.toClient, counters.dropped));
    if (!line)
        return;
    using KnxIp::TunnelEnd;
    if (end == TunnelEnd::Client || end == TunnelEnd::Server || end == TunnelEnd::Stream)
        LOG4CPLUS_INFO(Log(), *line);
    else
        LOG4CPLUS_WARN(Log(), *line);
}

KnxFrames::ManagementMessage ServerLink::OnDeviceManagement(const KnxFrames::ManagementMessage& request) {
    return m_manager.answer ? m_manager.answer(request)
                            : request.Refusal(KnxFrames::PropertyError::NoSuchProperty);
}

void ServerLink::OnDeviceReset(const Endpoint& client) {
    LogManagement(fmt::format("{} asked for a restart of the device", client.ToString()));
    if (m_manager.restart)
        m_manager.restart();
}

void ServerLink::OnManagementOpened(const KnxIp::Peer& client) {
    LogManagement(fmt::format("{} has connected to manage the device", client.ToString()));
}

void ServerLink::OnManagementClosed(const KnxIp::Peer& client, KnxIp::TunnelEnd end) {
    LogManagement(
        fmt::format("{} does not manage the device any more: {}", client.ToString(), KnxIp::ToString(end)));
}

void ServerLink::LogManagement(const std::string& text) {
    if (m_managementPace.Take(Now()))
        LOG4CPLUS_INFO(Log(), text << (m_managementPace.IsUsedUp()
                                           ? " (further lines about management come once a minute)"
                                           : ""));
}

void ServerLink::OnConnectRefused(const Endpoint& from, KnxIp::Status status) {
    const auto verdict = m_refusedClients.Count(from.address, KnxIp::ToString(status));
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(), fmt::format("{}: was refused a connection: {}{}", from.ToString(),
                                          KnxIp::ToString(status), Suffix(verdict)));
}

void ServerLink::OnQueueOverflow(KnxIp::TunnelId tunnel) {
    if (const auto line =
            LineAbout(tunnel, "the client does not keep up; waiting telegrams are dropped, the oldest "
                              "of the lowest priority first"))
        LOG4CPLUS_WARN(Log(), *line);
}

void ServerLink::OnRefusedDatagram(const Endpoint& from, const KnxFrames::FrameError& error) {
    if (m_fromGroup && error.kind == KnxFrames::FrameError::Kind::Unsupported) {
        ++m_foreign;
        return;
    }
    const auto verdict = m_refused.Count(from.address, error.cause);
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(), fmt::format("{}: a datagram was refused at octet {}: {}{}", from.ToString(),
                                          error.offset, error.cause, Suffix(verdict)));
}

Endpoint ServerLink::LocalEndpointTowards(const Endpoint& peer) {
    const auto local = m_socket.Local();
    return local.address != 0 ? local : Endpoint{LocalAddressTowards(m_context, peer), local.port};
}

} // namespace KnxStackHost
