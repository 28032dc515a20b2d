// The connection to the KNX/IP interface on its socket. Internal to the host.
#pragma once

#include "KnxIp/TunnelClient.h"
#include "KnxStackHost/Configuration/Configuration.h"
#include "KnxStackHost/Control/ControlTarget.h"
#include "KnxStackHost/Links/DropBurst.h"
#include "KnxStackHost/Links/NameLookUp.h"
#include "KnxStackHost/Links/TcpClient.h"
#include "KnxStackHost/Links/Udp.h"
#include "KnxStackHost/Notices.h"

#include <boost/asio/steady_timer.hpp>

#include <functional>
#include <optional>
#include <random>
#include <string>

namespace KnxStackHost {

/// Feeds a TunnelClient with datagrams, or what comes in a TCP stream, and time. An interface that is given
/// by name is looked up until there is an answer, and again whenever a connection has ended or could not be
/// made, since it may have moved; telegrams to it wait meanwhile, as while there is no connection. All calls
/// on the thread of the io_context.
class InterfaceLink final : private KnxIp::TunnelClientListener {
public:
    using OnTelegramFrom = std::function<void(const KnxFrames::LData&)>;

    /// Opens the socket; its local address need not be there yet. Throws LinkError.
    InterfaceLink(boost::asio::io_context& context, const Configuration& configuration,
                  OnTelegramFrom received);

    void Start();
    void Stop();
    /// Calls `told` with each change of IsConnected(), but for Stop().
    void TellOfConnections(std::function<void()> told) { m_connection = std::move(told); }
    void Send(const KnxFrames::LData& telegram);
    bool IsConnected() const { return m_client.IsConnected(); }
    InterfaceStatus Status() const;

private:
    void SendDatagram(const KnxIp::Endpoint& to, KnxIp::Octets datagram) override;
    bool MayHaveLeft() const override { return m_mayHaveLeft; }
    void OpenStream(const KnxIp::Endpoint& server) override;
    void SendToStream(KnxIp::Octets frame) override;
    void CloseStream() override;
    void OnTelegram(const KnxFrames::LData& telegram) override;
    void OnConnected(KnxFrames::IndividualAddress address) override;
    void OnDisconnected(KnxIp::LinkFailure failure, std::chrono::milliseconds retryIn) override;
    void OnConnectFailed(KnxIp::LinkFailure failure, KnxIp::Status status,
                         std::chrono::milliseconds retryIn) override;
    void OnSendFailed(const KnxFrames::LData& telegram, KnxIp::SendFailure failure) override;
    void OnQueueOverflow() override;
    void OnRefusedDatagram(const KnxIp::Endpoint& from, const KnxFrames::FrameError& error) override;
    KnxIp::Endpoint LocalEndpoint() override;

    void LookUp();
    void OnLookedUp(const LookedUp& result);
    KnxIp::TunnelClientConfig ClientConfig();
    void SetServer(const KnxIp::Endpoint& server);
    std::optional<TimePoint> OnTime();
    TcpClient::Events StreamEvents();
    void AfterWork();
    void ReportCounts();
    std::string Name() const;

    boost::asio::io_context& m_context;
    const std::string m_file; // of the configuration
    const InterfaceSettings m_settings;
    const std::uint32_t m_localAddress; // 0 = any
    OnTelegramFrom m_received;
    std::function<void()> m_connection;
    UdpSocket m_socket; // not open when TCP is spoken
    TcpClient m_stream;
    NameLookUp m_nameLookUp;
    boost::asio::steady_timer m_lookUpAgain;
    Deadline m_deadline;
    Notices m_refused;
    Notices m_sendFailures;
    bool m_mayHaveLeft = true; // of the last datagram
    DropBurst m_drops;
    std::string m_fault;            // why there is no connection; "" = there is, or no try has ended yet
    bool m_failureReported = false; // since the last connection
    bool m_absenceReported = false; // likewise, of the local address
    bool m_wasAbsent = false;       // that one, when the last try ended
    bool m_lookingUp = false;
    bool m_stopped = false;
    std::minstd_rand m_random{std::random_device{}()};
    KnxIp::Endpoint m_server;
    KnxIp::TunnelClient m_client;
};

} // namespace KnxStackHost
