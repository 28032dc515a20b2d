// TunnelServer and TunnelClients on a network that loses, doubles, delays and reorders datagrams.

#include "Network.h"

#include "KnxIp/TunnelClient.h"
#include "KnxIp/TunnelServer.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>

namespace KnxIp {
namespace {

using KnxFrames::GroupAddress;
using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using std::chrono::milliseconds;
using TestSupport::Faults;
using TestSupport::Network;

constexpr Endpoint kServerEndpoint{0xC0A80102, 3671};

/// A telegram that carries who sent it (in the group address) and its number.
LData Numbered(unsigned sender, std::uint32_t number) {
    const std::array<std::uint8_t, 4> value = {
        static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
        static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
    return MakeGroupTelegram(IndividualAddress(), GroupAddress(1, 0, sender),
                             *KnxFrames::MakeGroupLongValue(GroupServiceKind::Write, value));
}

unsigned SenderOf(const LData& telegram) {
    return telegram.GroupDestination().Sub();
}

std::uint32_t NumberOf(const LData& telegram) {
    const auto service = ReadGroupService(telegram.tpdu);
    std::uint32_t number = 0;
    for (const std::uint8_t octet : service->longValue)
        number = number << 8 | octet;
    return number;
}

using Numbers = std::vector<std::uint32_t>;
using NumbersBySender = std::map<unsigned, Numbers>;

/// A server whose host passes every telegram on to the other tunnels.
class ServerNode : public TunnelServerListener {
public:
    ServerNode(Network& network, std::size_t tunnels) : m_network(network), m_server(Config(tunnels), *this) {
        network.Attach(kServerEndpoint, [this](const Endpoint& from, Octets datagram) {
            m_server.OnDatagram(m_network.Now(), from, datagram);
        });
        network.Drive(m_server);
    }

    void SendDatagram(const Endpoint& to, Octets datagram) override {
        m_network.Send(kServerEndpoint, to, datagram);
    }
    void OnTelegram(TunnelId origin, const LData& telegram) override {
        received[SenderOf(telegram)].push_back(NumberOf(telegram));
        m_server.Broadcast(m_network.Now(), telegram, origin);
    }
    void OnTunnelOpened(TunnelId, IndividualAddress, const Peer&) override {}
    void OnTunnelClosed(TunnelId, TunnelEnd) override { ++closed; }
    void OnConnectRefused(const Endpoint&, Status) override {}
    void OnQueueOverflow(TunnelId) override { ++overflows; }
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError& error) override {
        ADD_FAILURE() << error.cause;
    }

    NumbersBySender received;
    unsigned closed = 0;
    unsigned overflows = 0;

private:
    static TunnelServerConfig Config(std::size_t tunnels) {
        TunnelServerConfig config;
        config.endpoint = kServerEndpoint;
        for (std::size_t index = 0; index < tunnels; ++index)
            config.tunnelAddresses.emplace_back(static_cast<std::uint16_t>(0x1101 + index));
        return config;
    }

    Network& m_network;
    TunnelServer m_server;
};

class ClientNode : public TunnelClientListener {
public:
    ClientNode(Network& network, unsigned id)
        : m_network(network), m_id(id), m_endpoint{0xC0A8010A + id, 50000}, m_client(Config(), *this) {
        network.Attach(m_endpoint, [this](const Endpoint& from, Octets datagram) {
            m_client.OnDatagram(m_network.Now(), from, datagram);
        });
        network.Drive(m_client);
        m_client.Start(network.Now());
    }

    void SendDatagram(const Endpoint& to, Octets datagram) override {
        m_network.Send(m_endpoint, to, datagram);
    }
    void OnTelegram(const LData& telegram) override {
        received[SenderOf(telegram)].push_back(NumberOf(telegram));
    }
    void OnConnected(IndividualAddress) override {}
    void OnDisconnected(LinkFailure, milliseconds) override {}
    void OnConnectFailed(LinkFailure, Status, milliseconds) override {}
    void OnSendFailed(const LData& telegram, SendFailure failure) override {
        // A late confirmation says nothing about the telegram itself.
        if (failure == SendFailure::NoAck)
            failed.insert(NumberOf(telegram));
    }
    void OnQueueOverflow() override {}
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError& error) override {
        ADD_FAILURE() << error.cause;
    }
    Endpoint LocalEndpoint() override { return m_endpoint; }

    /// Sends `count` telegrams, one each `pace`, from now on.
    void SendPaced(std::uint32_t count, milliseconds pace) {
        for (std::uint32_t index = 0; index < count; ++index)
            m_network.At(m_network.Now() + pace * index,
                         [this] { m_client.Send(m_network.Now(), Numbered(m_id, m_next++)); });
    }

    const TunnelClient& Client() const { return m_client; }

    NumbersBySender received;
    std::set<std::uint32_t> failed; ///< own telegrams that the client reported as not acknowledged

private:
    static TunnelClientConfig Config() {
        TunnelClientConfig config;
        config.server = kServerEndpoint;
        return config;
    }

    Network& m_network;
    const unsigned m_id;
    const Endpoint m_endpoint;
    std::uint32_t m_next = 0;
    TunnelClient m_client;
};

Numbers Counting(std::uint32_t count) {
    Numbers numbers(count);
    for (std::uint32_t index = 0; index < count; ++index)
        numbers[index] = index;
    return numbers;
}

class NetworkWithFaults : public testing::TestWithParam<std::uint32_t> {};

TEST_P(NetworkWithFaults, NothingIsLostDoubledOrReorderedWhileRepetitionsArrive) {
    constexpr unsigned kClients = 3;
    constexpr std::uint32_t kTelegrams = 4000;
    Network network(GetParam());
    ServerNode server(network, kClients);
    std::vector<std::unique_ptr<ClientNode>> clients;
    for (unsigned id = 0; id < kClients; ++id)
        clients.push_back(std::make_unique<ClientNode>(network, id));
    network.RunFor(std::chrono::seconds(1));
    network.SetFaults({0.05, 0.05, milliseconds(1), milliseconds(40), milliseconds(400), true, 1});
    for (auto& client : clients)
        client->SendPaced(kTelegrams, milliseconds(1000));
    network.RunFor(std::chrono::seconds(kTelegrams + 100));

    EXPECT_GT(network.lost, network.sent / 50);
    EXPECT_GT(network.duplicated, network.sent / 50);
    EXPECT_GT(network.overtaken, network.sent / 50);
    EXPECT_EQ(server.closed, 0U);
    EXPECT_EQ(server.overflows, 0U);
    const Numbers all = Counting(kTelegrams);
    for (unsigned id = 0; id < kClients; ++id) {
        EXPECT_EQ(server.received[id], all) << "of client " << id;
        for (unsigned sender = 0; sender < kClients; ++sender)
            EXPECT_EQ(clients[id]->received[sender], sender == id ? Numbers() : all)
                << "of client " << sender << " at client " << id;
        const TunnelClientCounters& counters = clients[id]->Client().Counters();
        EXPECT_EQ(counters.connections, 1U);
        EXPECT_EQ(counters.sent, kTelegrams);
        EXPECT_EQ(counters.dropped, 0U);
        EXPECT_GT(counters.repeated, 0U);
        EXPECT_GT(counters.duplicates, 0U);
        EXPECT_TRUE(clients[id]->failed.empty());
    }
}

/// Numbers that appear, in a list that must not go down; each repetition counts as one double.
void ExpectOrder(const Numbers& numbers, std::set<std::uint32_t>& seen, std::uint64_t& doubles) {
    for (std::size_t index = 0; index < numbers.size(); ++index) {
        if (index > 0) {
            EXPECT_GE(numbers[index], numbers[index - 1]) << "at " << index;
        }
        doubles += seen.insert(numbers[index]).second ? 0 : 1;
    }
}

TEST_P(NetworkWithFaults, EveryLossIsReportedAndNothingIsDoubledWhenConnectionsBreak) {
    constexpr unsigned kClients = 2;
    constexpr std::uint32_t kTelegrams = 3000;
    constexpr std::uint32_t kAfterwards = 100;
    Network network(GetParam(), {0.12, 0.05, milliseconds(1), milliseconds(40), milliseconds(400), false, 1});
    ServerNode server(network, 20);
    std::vector<std::unique_ptr<ClientNode>> clients;
    for (unsigned id = 0; id < kClients; ++id) {
        clients.push_back(std::make_unique<ClientNode>(network, id));
        clients.back()->SendPaced(kTelegrams, milliseconds(3000));
    }
    network.RunFor(std::chrono::seconds(3 * kTelegrams + 200));

    // The network heals: everything still comes through, in order.
    network.SetFaults({});
    network.RunFor(std::chrono::seconds(600));
    for (auto& client : clients)
        client->SendPaced(kAfterwards, milliseconds(100));
    network.RunFor(std::chrono::seconds(100));

    EXPECT_GT(server.closed, 10U);
    for (unsigned id = 0; id < kClients; ++id) {
        const TunnelClientCounters& counters = clients[id]->Client().Counters();
        EXPECT_GT(counters.connections, 10U);
        EXPECT_GT(counters.noAck, 0U);
        EXPECT_EQ(counters.dropped, 0U);
        EXPECT_TRUE(clients[id]->Client().IsConnected());
        EXPECT_EQ(clients[id]->Client().Waiting(), 0U);

        std::set<std::uint32_t> seen;
        std::uint64_t doubles = 0;
        ExpectOrder(server.received[id], seen, doubles);
        EXPECT_LE(doubles, counters.resent);
        for (std::uint32_t number = 0; number < kTelegrams + kAfterwards; ++number)
            EXPECT_TRUE(seen.contains(number) || clients[id]->failed.contains(number)) << number;

        // What the server passes on may be lost with a tunnel, but comes in order and as often as it came in.
        std::set<std::uint32_t> passedOn;
        std::uint64_t doublesPassedOn = 0;
        ExpectOrder(clients[1 - id]->received[id], passedOn, doublesPassedOn);
        EXPECT_LE(doublesPassedOn, doubles);
        for (std::uint32_t number = kTelegrams; number < kTelegrams + kAfterwards; ++number)
            EXPECT_TRUE(passedOn.contains(number)) << number;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, NetworkWithFaults, testing::Values(1U, 2U, 3U),
                         testing::PrintToStringParamName());

TEST(TunnelNetwork, ABurstOfAThousandTelegramsPassesToEveryTunnel) {
    constexpr unsigned kClients = 3;
    constexpr std::uint32_t kBurst = 1000;
    Network network(1);
    ServerNode server(network, kClients);
    std::vector<std::unique_ptr<ClientNode>> clients;
    for (unsigned id = 0; id < kClients; ++id)
        clients.push_back(std::make_unique<ClientNode>(network, id));
    network.RunFor(std::chrono::seconds(1));
    clients[0]->SendPaced(kBurst, milliseconds(0));
    network.RunFor(std::chrono::seconds(60));
    EXPECT_EQ(server.received[0], Counting(kBurst));
    EXPECT_EQ(clients[1]->received[0], Counting(kBurst));
    EXPECT_EQ(clients[2]->received[0], Counting(kBurst));
}

TEST(TunnelNetwork, AfterALongOutageWaitingTelegramsArriveInOrderAndOnce) {
    Network network(1);
    ServerNode server(network, 2);
    ClientNode client(network, 0);
    network.RunFor(std::chrono::seconds(30));
    Faults dead;
    dead.loss = 1;
    network.SetFaults(dead);
    client.SendPaced(200, milliseconds(10000));
    network.RunFor(std::chrono::hours(1));
    EXPECT_FALSE(client.Client().IsConnected());
    EXPECT_EQ(client.Client().Waiting(), 200U);
    network.SetFaults({});
    network.RunFor(std::chrono::minutes(2));
    EXPECT_TRUE(client.Client().IsConnected());
    EXPECT_EQ(server.received[0], Counting(200));
    EXPECT_TRUE(client.failed.empty());
}

} // namespace
} // namespace KnxIp
