// The KNXnet/IP server on its sockets. Internal to the host.
#pragma once

#include "KnxIp/TunnelServer.h"
#include "KnxStackHost/Configuration/Configuration.h"
#include "KnxStackHost/Control/ControlTarget.h"
#include "KnxStackHost/Links/BusRouter.h"
#include "KnxStackHost/Links/Tcp.h"
#include "KnxStackHost/Links/Udp.h"
#include "KnxStackHost/Notices.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KnxStackHost {

/// Feeds a TunnelServer with datagrams, streams and time. All calls on the thread of the io_context.
class ServerLink final : private KnxIp::TunnelServerListener, private TcpStreamUser {
public:
    using OnTelegramFrom = std::function<void(std::uint8_t tunnel, const KnxFrames::LData&)>;
    using OnEndOf = std::function<void(std::uint8_t tunnel)>;

    /// Opens the sockets; their addresses and network interfaces need not be there yet. Throws LinkError.
    ServerLink(boost::asio::io_context& context, const Configuration& configuration, OnTelegramFrom received,
               OnEndOf closed);

    void Start();
    void Stop();
    KnxIp::Backlog Broadcast(const KnxFrames::LData& telegram, std::optional<std::uint8_t> except);
    KnxIp::Backlog Send(const KnxFrames::LData& telegram, std::uint8_t tunnel);
    std::uint16_t Port() const { return m_socket.Local().port; }
    ServerStatus Status() const;

    /// True while a tunnel is open.
    bool HasClients() const;

    /// What searches, descriptions and features say of the device and of its interface to the bus. Name,
    /// multicast group and hardware address are the configuration's and the network's.
    void SetDevice(const KnxDevice::Device& device, bool isBusReachable);
    /// Who answers management connections; before Start().
    struct Manager {
        std::function<KnxFrames::ManagementMessage(const KnxFrames::ManagementMessage&)> answer;
        std::function<void()> restart;
    };
    void ManageBy(Manager manager) { m_manager = std::move(manager); }

    /// A property has changed: clients of management connections are told (M_PropInfo.ind).
    void Announce(const KnxFrames::ManagementMessage& property);

    /// The IPv4 address that the server listens on; 0 = all of this machine.
    std::uint32_t Address() const { return m_socket.Local().address; }

    /// What concerns the server, but its place in the IP network.
    KnxDevice::IpFacts Facts() const;

    /// Lets a socket of a group in that has the same port, or not, from now on: see UdpSocket.
    void ShareAddress(bool share) { m_socket.ShareAddress(share); }

    /// The machine's network has changed; the place in it is this now.
    void OnNetworkChanged(const KnxDevice::IpPlace& place);

private:
    /// The lines about one tunnel: a client that comes and goes does not fill the log.
    struct TunnelLines {
        LinePace pace{20};
        std::uint64_t leftOut = 0; // since the last line
        std::string client;        // the last one
    };

    void SendDatagram(const KnxIp::Endpoint& to, KnxIp::Octets datagram) override;
    void SendToStream(KnxIp::StreamId stream, KnxIp::Octets frame) override;
    void CloseStream(KnxIp::StreamId stream) override;
    void OnTelegram(KnxIp::TunnelId origin, const KnxFrames::LData& telegram) override;
    void OnTunnelOpened(KnxIp::TunnelId tunnel, KnxFrames::IndividualAddress address,
                        const KnxIp::Peer& client) override;
    void OnTunnelClosed(KnxIp::TunnelId tunnel, KnxIp::TunnelEnd end) override;
    KnxFrames::ManagementMessage OnDeviceManagement(const KnxFrames::ManagementMessage& request) override;
    void OnDeviceReset(const KnxIp::Endpoint& client) override;
    void OnManagementOpened(const KnxIp::Peer& client) override;
    void OnManagementClosed(const KnxIp::Peer& client, KnxIp::TunnelEnd end) override;
    void LogManagement(const std::string& text);
    void OnConnectRefused(const KnxIp::Endpoint& from, KnxIp::Status status) override;
    void OnQueueOverflow(KnxIp::TunnelId tunnel) override;
    void OnRefusedDatagram(const KnxIp::Endpoint& from, const KnxFrames::FrameError& error) override;
    KnxIp::Endpoint LocalEndpointTowards(const KnxIp::Endpoint& peer) override;

    void OnStreamOpened(KnxIp::StreamId stream, const KnxIp::Endpoint& from) override;
    void OnStreamOctets(KnxIp::StreamId stream, KnxFrames::Octets octets) override;
    void OnStreamClosed(KnxIp::StreamId stream) override;

    void Open();
    void OpenOnce();
    void OpenGroup();
    bool IsAddressHere() const;
    void Receive(const KnxIp::Endpoint& from, KnxFrames::Octets datagram);
    void ReceiveFromGroup(const KnxIp::Endpoint& from, KnxFrames::Octets datagram);
    std::optional<std::string> LineAbout(KnxIp::TunnelId tunnel, std::string_view text);
    std::optional<TimePoint> OnTime();

    boost::asio::io_context& m_context;
    const std::string m_file; // of the configuration
    const ServerSettings m_settings;
    const std::vector<KnxFrames::IndividualAddress>& m_addresses; // of the tunnels
    OnTelegramFrom m_received;
    OnEndOf m_closed;
    UdpSocket m_socket;
    std::optional<TcpServer> m_tcp;
    std::optional<UdpSocket> m_group;
    bool m_isAddressHere = true; // as the log has it
    Deadline m_deadline;
    Notices m_refused;
    Notices m_refusedClients;
    std::uint64_t m_foreign = 0;   // datagrams to the group that were for others
    bool m_fromGroup = false;      // what is being received
    std::uint64_t m_toClients = 0; // telegrams, through tunnels that are closed
    std::uint64_t m_lostToClients = 0;
    std::vector<TunnelLines> m_lines;
    LinePace m_managementPace{20};
    Manager m_manager;
    KnxIp::DeviceInformation m_device;
    std::optional<KnxIp::TunnelServer> m_server;
};

} // namespace KnxStackHost
