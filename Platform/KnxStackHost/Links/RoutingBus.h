// The multicast bus on its socket. Internal to the host.
#pragma once

#include "KnxIp/RoutingLink.h"
#include "KnxIp/TunnelServer.h"
#include "KnxStackHost/Configuration/Configuration.h"
#include "KnxStackHost/Control/ControlTarget.h"
#include "KnxStackHost/Links/DropBurst.h"
#include "KnxStackHost/Links/Udp.h"
#include "KnxStackHost/Notices.h"

#include <functional>
#include <random>
#include <string>

namespace KnxStackHost {

/// Feeds a RoutingLink with datagrams and time. All calls on the thread of the io_context.
class RoutingBus final : private KnxIp::RoutingLinkListener {
public:
    using OnTelegramFrom = std::function<void(const KnxFrames::LData&)>;

    /// Joins the group of the configuration's `routing`, or later, when its network interface is not there
    /// yet. Throws LinkError. Who has the port of the group for itself must share it meanwhile.
    RoutingBus(boost::asio::io_context& context, const Configuration& configuration, OnTelegramFrom received);

    void Start();
    void Stop();
    void Send(const KnxFrames::LData& telegram);
    /// What became of the telegram that was received last, behind here.
    void OnPassedOn(KnxIp::Backlog backlog);
    void OnNetworkChanged() { m_socket.RenewGroup(); }
    /// In the group, so that somebody may hear what is sent.
    bool IsJoined() const { return !m_socket.GroupFault(); }
    RoutingStatus Status() const;

private:
    void SendDatagram(const KnxIp::Endpoint& to, KnxIp::Octets datagram) override;
    void OnTelegram(const KnxFrames::LData& telegram) override;
    void OnLostMessages(const KnxIp::Endpoint& from, std::uint16_t lost) override;
    void OnBusy(const KnxIp::Endpoint& from, std::chrono::milliseconds wait) override;
    void OnQueueOverflow() override;
    void OnRefusedDatagram(const KnxIp::Endpoint& from, const KnxFrames::FrameError& error) override;
    bool IsOwnEndpoint(const KnxIp::Endpoint& from) override;

    void Open();
    KnxIp::RoutingLinkConfig LinkConfig();
    std::optional<TimePoint> OnTime();
    void AfterWork();
    KnxIp::RoutingLinkCounters Counters() const;

    boost::asio::io_context& m_context;
    const std::string m_file; // of the configuration
    const RoutingSettings m_settings;
    const KnxIp::Endpoint m_group;
    OnTelegramFrom m_received;
    UdpSocket m_socket;
    Deadline m_deadline;
    Notices m_refused;
    Notices m_busy;
    Notices m_lost;
    std::uint64_t m_unsent = 0;  // telegrams that the system did not take, as without a network
    std::uint64_t m_foreign = 0; // datagrams to the group that were none of routing
    DropBurst m_drops;
    std::minstd_rand m_random{std::random_device{}()};
    KnxIp::RoutingLink m_link;
};

} // namespace KnxStackHost
