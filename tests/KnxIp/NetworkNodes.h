// A device behind a tunnelling server and a tool with a tunnelling client, on a network in one process.
#pragma once

#include "Downloader.h"
#include "Network.h"

#include "KnxDevice/GroupTraffic.h"
#include "KnxDevice/Management.h"
#include "KnxIp/TunnelClient.h"
#include "KnxIp/TunnelServer.h"
#include "KnxStack/GroupValue.h"

#include <gtest/gtest.h>

#include <deque>
#include <set>

namespace KnxIp::Testing {

using KnxFrames::GroupAddress;
using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using KnxFrames::Tpdu;
using std::chrono::milliseconds;
using std::chrono::seconds;
using TestSupport::Network;

inline constexpr Endpoint kHouseEndpoint{0xC0A80102, 3671};
inline constexpr Endpoint kToolEndpoint{0xC0A8010A, 50000};
inline constexpr IndividualAddress kDeviceAddress(1, 1, 250);
inline constexpr GroupAddress kToDevice(1, 0, 1);
inline constexpr GroupAddress kFromDevice(1, 0, 2);
inline constexpr std::size_t kQueueLimit = 10000;

inline std::uint32_t NumberOf(Octets value) {
    std::uint32_t number = 0;
    for (const std::uint8_t octet : value)
        number = number << 8 | octet;
    return number;
}

inline std::array<std::uint8_t, 4> ValueOf(std::uint32_t number) {
    return {static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
            static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

/// Server and device of one host, as knxstackd joins them. What is written to group object 1 is kept; group
/// object 2 sends. Both exist once a download has brought them.
class House final : private TunnelServerListener, private KnxDevice::ManagementListener {
public:
    explicit House(Network& network) : m_network(network), m_server(Config(), *this) {
        network.Attach(kHouseEndpoint, [this](const Endpoint& from, Octets datagram) {
            m_server.OnDatagram(m_network.Now(), from, datagram);
        });
        network.Drive(m_server);
        network.Drive(m_management);
    }

    void SendValue(std::uint32_t number) {
        const auto value = ValueOf(number);
        LData telegram;
        const KnxStack::GroupValue content{KnxStack::BinaryData(Octets(value)), 32};
        ASSERT_EQ(KnxDevice::SendOutcome::Composed,
                  KnxDevice::ComposeValue(m_table, 2, GroupServiceKind::Write, content, telegram));
        sentToNobody += m_open.empty() ? 1 : 0;
        SendTelegram(telegram);
    }

    std::size_t OpenTunnels() const { return m_open.size(); }
    bool IsIdle() const { return !m_server.NextTime() && !m_management.NextTime(); }
    const KnxDevice::Device& Device() const { return m_device; }

    std::vector<std::uint32_t> received; ///< by object 1, in order
    std::uint64_t dropped = 0;           ///< frames that were lost with their tunnels
    std::uint64_t sentToNobody = 0;      ///< telegrams of object 2 while no tunnel was open
    unsigned closed = 0;
    unsigned restarts = 0;

private:
    static TunnelServerConfig Config() {
        TunnelServerConfig config;
        config.endpoint = kHouseEndpoint;
        for (std::uint16_t device = 1; device <= 20; ++device)
            config.tunnelAddresses.emplace_back(static_cast<std::uint16_t>(0x1100 + device));
        config.queueLimit = kQueueLimit;
        return config;
    }

    void SendDatagram(const Endpoint& to, Octets datagram) override {
        m_network.Send(kHouseEndpoint, to, datagram);
    }
    void OnTelegram(TunnelId origin, const LData& telegram) override {
        m_server.Broadcast(m_network.Now(), telegram, origin);
        if (!telegram.IsGroupData()) {
            m_management.OnTelegram(m_network.Now(), telegram);
            return;
        }
        const auto service = KnxFrames::ReadGroupService(telegram.tpdu);
        ASSERT_TRUE(service);
        const auto taken = KnxDevice::Receive(m_table, telegram.GroupDestination(), *service);
        if (taken.objects.size() == 1 && taken.objects[0] == 1)
            received.push_back(NumberOf(service->longValue));
    }
    void OnTunnelOpened(TunnelId tunnel, IndividualAddress, const Peer&) override { m_open.insert(tunnel); }
    void OnTunnelClosed(TunnelId tunnel, TunnelEnd) override {
        m_open.erase(tunnel);
        ++closed;
        dropped += m_server.Counters(tunnel).dropped;
    }
    void OnConnectRefused(const Endpoint&, Status status) override {
        ADD_FAILURE() << "a tunnel was refused: " << static_cast<int>(status);
    }
    void OnQueueOverflow(TunnelId) override { ADD_FAILURE() << "the server's queue is full"; }
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError& error) override {
        ADD_FAILURE() << error.cause;
    }

    void SendTelegram(const LData& telegram) override {
        LData sent = telegram;
        sent.source = m_device.Address();
        m_server.Broadcast(m_network.Now(), sent);
    }
    void OnRestart(KnxDevice::Erase, IndividualAddress) override {
        ++restarts;
        m_table = KnxDevice::GroupObjectTable(m_device.LoadedGroupObjects());
    }
    void OnConnection(IndividualAddress, bool) override {}
    void OnRefused(IndividualAddress, KnxFrames::Service service, const char* reason) override {
        ADD_FAILURE() << KnxFrames::ToString(service) << ": " << reason;
    }

    Network& m_network;
    KnxDevice::InterfaceObjects m_objects;
    KnxDevice::Device m_device{{.factoryAddress = kDeviceAddress}, m_objects};
    KnxDevice::Management m_management{m_device, *this};
    KnxDevice::GroupObjectTable m_table;
    std::set<TunnelId> m_open;
    TunnelServer m_server;
};

/// The other side of the network. Holds the client to its word on when it tries again.
class Tool final : public TestSupport::ManagementChannel, private TunnelClientListener {
public:
    explicit Tool(Network& network) : m_network(network), m_client(Config(), *this) {
        network.Attach(kToolEndpoint, [this](const Endpoint& from, Octets datagram) {
            m_client.OnDatagram(m_network.Now(), from, datagram);
        });
        network.Drive(m_client);
        m_client.Start(network.Now());
    }

    void SendValue(std::uint32_t number) {
        const auto value = ValueOf(number);
        m_client.Send(m_network.Now(), KnxFrames::MakeGroupTelegram(
                                           IndividualAddress(), kToDevice,
                                           *KnxFrames::MakeGroupLongValue(GroupServiceKind::Write, value)));
    }
    void AskForSerialNumber() { Send({0x03, 0xD5, 0x00, 0x0B, 0x10, 0x01}); }
    void Stop() { m_client.Stop(); }

    void Send(const Tpdu& tpdu) override {
        LData telegram;
        telegram.control2 = 0x60;
        telegram.destination = kDeviceAddress.raw;
        telegram.tpdu = tpdu;
        m_client.Send(m_network.Now(), telegram);
    }
    std::optional<Tpdu> Receive() override {
        m_network.RunUntil([this] { return !m_fromDevice.empty(); }, seconds(20));
        if (m_fromDevice.empty())
            return std::nullopt;
        const auto tpdu = m_fromDevice.front();
        m_fromDevice.pop_front();
        return tpdu;
    }

    const TunnelClient& Client() const { return m_client; }

    std::vector<std::uint32_t> received;     ///< from object 2, in order
    std::set<std::uint32_t> notAcknowledged; ///< own values that the client gave up
    std::set<std::uint32_t> notConfirmed;    ///< own values that the server has taken all the same
    unsigned answers = 0;                    ///< to AskForSerialNumber()
    unsigned failedTries = 0;
    milliseconds longestPause{0};

private:
    TunnelClientConfig Config() {
        TunnelClientConfig config;
        config.server = kHouseEndpoint;
        config.queueLimit = kQueueLimit;
        config.jitter = [this] { return m_network.Random(); };
        return config;
    }

    void SendDatagram(const Endpoint& to, Octets datagram) override {
        if (datagram[2] == 0x02 && datagram[3] == 0x05 && m_nextTry) { // CONNECT_REQUEST
            EXPECT_EQ(*m_nextTry, m_network.Now());
            m_nextTry.reset();
        }
        m_network.Send(kToolEndpoint, to, datagram);
    }
    void OnTelegram(const LData& telegram) override {
        if (telegram.IsGroupData()) {
            EXPECT_EQ(kFromDevice, telegram.GroupDestination());
            received.push_back(NumberOf(KnxFrames::ReadGroupService(telegram.tpdu)->longValue));
        } else if (telegram.IndividualDestination() != m_client.Address()) {
            return; // of a former tunnel
        } else if (telegram.tpdu.Size() > 6 && KnxFrames::Apci(telegram.tpdu) == 0x3D6 &&
                   telegram.tpdu[0] == 0x03) {
            ++answers;
        } else {
            m_fromDevice.push_back(telegram.tpdu);
        }
    }
    void OnConnected(IndividualAddress) override { EXPECT_FALSE(m_nextTry); }
    void OnDisconnected(LinkFailure, milliseconds retryIn) override {
        if (retryIn == milliseconds(0))
            m_nextTry = m_network.Now(); // after a connection that was good for long enough
        else
            TryAgainIn(retryIn);
    }
    void OnConnectFailed(LinkFailure, Status, milliseconds retryIn) override {
        ++failedTries;
        TryAgainIn(retryIn);
    }
    void TryAgainIn(milliseconds pause) {
        EXPECT_GE(pause, seconds(1));
        EXPECT_LE(pause, seconds(60));
        longestPause = std::max(longestPause, pause);
        m_nextTry = m_network.Now() + pause;
    }
    void OnSendFailed(const LData& telegram, SendFailure failure) override {
        EXPECT_NE(SendFailure::NegativeConfirm, failure);
        if (telegram.IsGroupData())
            (failure == SendFailure::NoAck ? notAcknowledged : notConfirmed)
                .insert(NumberOf(KnxFrames::ReadGroupService(telegram.tpdu)->longValue));
    }
    void OnQueueOverflow() override { ADD_FAILURE() << "the client's queue is full"; }
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError& error) override {
        ADD_FAILURE() << error.cause;
    }
    Endpoint LocalEndpoint() override { return kToolEndpoint; }

    Network& m_network;
    std::deque<Tpdu> m_fromDevice;
    std::optional<TimePoint> m_nextTry;
    TunnelClient m_client;
};

} // namespace KnxIp::Testing
