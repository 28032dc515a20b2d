// The way of a telegram takes nothing from the heap. A program of its own: operator new is replaced.

#include "../support/AllocationCounter.h"

#include "KnxIp/TunnelClient.h"
#include "KnxIp/TunnelServer.h"

#include <gtest/gtest.h>

#include <array>

namespace KnxIp {
namespace {

using KnxFrames::GroupAddress;
using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;

constexpr Endpoint kServer{0xC0A80102, 3671};

/// The datagrams that were sent last, without a heap.
class Mailbox {
public:
    void Put(Octets datagram) {
        m_datagrams[m_count % m_datagrams.size()] = Datagram(datagram);
        ++m_count;
    }
    std::size_t Count() const { return m_count; }
    const Datagram& operator[](std::size_t number) const { return m_datagrams[number % m_datagrams.size()]; }

private:
    std::array<Datagram, 8> m_datagrams;
    std::size_t m_count = 0;
};

class ServerHost : public TunnelServerListener {
public:
    void SendDatagram(const Endpoint&, Octets datagram) override { sent.Put(datagram); }
    void OnTelegram(TunnelId, const LData&) override { ++telegrams; }
    void OnTunnelOpened(TunnelId, IndividualAddress, const Peer&) override {}
    void OnTunnelClosed(TunnelId, TunnelEnd) override {}
    void OnConnectRefused(const Endpoint&, Status) override {}
    void OnQueueOverflow(TunnelId) override {}
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError&) override {}

    Mailbox sent;
    unsigned telegrams = 0;
};

class ClientHost : public TunnelClientListener {
public:
    void SendDatagram(const Endpoint&, Octets datagram) override { sent.Put(datagram); }
    void OnTelegram(const LData&) override { ++telegrams; }
    void OnConnected(IndividualAddress) override {}
    void OnDisconnected(LinkFailure, std::chrono::milliseconds) override {}
    void OnConnectFailed(LinkFailure, Status, std::chrono::milliseconds) override {}
    void OnSendFailed(const LData&, SendFailure) override {}
    void OnQueueOverflow() override {}
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError&) override {}
    Endpoint LocalEndpoint() override { return {0xC0A8010A, 50000}; }

    Mailbox sent;
    unsigned telegrams = 0;
};

TEST(Allocation, TelegramsThroughATunnelTakeNothingFromTheHeap) {
    const TimePoint now{};
    ServerHost serverHost;
    TunnelServerConfig serverConfig;
    serverConfig.endpoint = kServer;
    serverConfig.tunnelAddresses = {IndividualAddress(1, 1, 250)};
    TunnelServer server(serverConfig, serverHost);
    ClientHost clientHost;
    TunnelClientConfig clientConfig;
    clientConfig.server = kServer;
    TunnelClient client(clientConfig, clientHost);

    std::size_t toServer = 0;
    std::size_t toClient = 0;
    const auto exchange = [&] {
        while (toServer < clientHost.sent.Count() || toClient < serverHost.sent.Count()) {
            if (toServer < clientHost.sent.Count())
                server.OnDatagram(now, {0xC0A8010A, 50000}, clientHost.sent[toServer++]);
            if (toClient < serverHost.sent.Count())
                client.OnDatagram(now, kServer, serverHost.sent[toClient++]);
        }
    };
    const LData telegram = MakeGroupTelegram(IndividualAddress(), GroupAddress(1, 2, 3),
                                             KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, 1));
    const auto send = [&](unsigned count) {
        for (unsigned index = 0; index < count; ++index) {
            client.Send(now, telegram);
            exchange();
            server.Broadcast(now, telegram);
            exchange();
        }
    };
    client.Start(now);
    exchange();
    send(1); // the queues take their first slots

    const std::size_t before = CountAllocations();
    send(1000);
    EXPECT_EQ(CountAllocations() - before, 0U);
    EXPECT_EQ(serverHost.telegrams, 1001U);
    EXPECT_EQ(clientHost.telegrams, 1001U);
}

} // namespace
} // namespace KnxIp
