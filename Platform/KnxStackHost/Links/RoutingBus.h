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

namespace KnxStackHost {

/// Feeds a RoutingLink with datagrams and time. All calls on the thread of the io_context.
class RoutingBus final : private KnxIp::RoutingLinkListener {
public:
    using OnTelegramFrom = std::function<void(const KnxFrames::LData&)>;

    /// Joins the group. Throws LinkError. Who has the port of the group for itself must share it meanwhile.
    RoutingBus(boost::asio::io_context& context, const RoutingSettings& settings, OnTelegramFrom received);

    void Start();
    void Stop();
    void Send(const KnxFrames::LData& telegram);
    /// What became of the telegram that was received last, behind here.
    void OnPassedOn(KnxIp::Backlog backlog);
    void OnNetworkChanged() { m_socket.RenewGroup(); }
    RoutingStatus Status() const { return {m_group.ToString(), m_link.Waiting(), m_link.Counters()}; }

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

    boost::asio::io_context& m_context;
    const RoutingSettings m_settings;
    const KnxIp::Endpoint m_group;
    OnTelegramFrom m_received;
    UdpSocket m_socket;
    Deadline m_deadline;
    Notices m_refused;
    Notices m_busy;
    Notices m_lost;
    std::uint64_t m_foreign = 0; // datagrams to the group that were none of routing
    DropBurst m_drops;
    std::minstd_rand m_random{std::random_device{}()};
    KnxIp::RoutingLink m_link;
};

} // namespace KnxStackHost
