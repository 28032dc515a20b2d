// The client over a TCP stream.
#include "ClientBench.h"

#include "KnxIp/TunnelServer.h"

#include <gtest/gtest.h>

#include <deque>

namespace KnxIp {
namespace {

using namespace ClientTesting;

TunnelClientConfig OverTcp() {
    TunnelClientConfig config = Config();
    config.tcp = true;
    return config;
}

TEST(TunnelClientStream, ConnectsInAStreamOfItsOwn) {
    ClientBench bench(OverTcp());
    bench.Client().Start(bench.Now());
    bench.StreamOpened();
    bench.ReceiveInStream(kConnectedOverTcp);
    EXPECT_TRUE(bench.Client().IsConnected());
    EXPECT_EQ(bench.Client().Address(), IndividualAddress(1, 1, 250));
    EXPECT_EQ(bench.Take(), R"(
0.000 ! open a stream to 192.168.1.2:3671
0.000 > stream 06100205001a 0802000000000000080200000000000004040200
0.000 < stream 061002060014 15000802000000000000040411fa
0.000 ! connected as 1.1.250
)");
}

TEST(TunnelClientStream, TelegramsAreNeitherAcknowledgedNorRepeatedButConfirmed) {
    ClientBench bench(OverTcp());
    bench.ConnectOverTcp();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    bench.Advance(seconds(2));
    bench.ReceiveInStream(kRequest + "07" + kCon + "81");
    bench.ReceiveInStream(kRequest + "07" + kSwitchOnInd); // whatever its number
    bench.Advance(seconds(3));
    EXPECT_EQ(bench.Take(), R"(
10.000 > stream 061004200015 041500001100bce000000a03010081
12.000 < stream 061004200015 041507002e00bce011fa0a03010081
12.000 > stream 061004200015 041501001100bce000000a03010082
12.000 < stream 061004200015 041507002900bce011040a03010081
12.000 ! telegram 1.1.4 -> 1/2/3 GroupValue_Write 01
15.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 02: not confirmed by the interface
)");
    EXPECT_EQ(bench.Client().Counters().sent, 2U);
    EXPECT_EQ(bench.Client().Counters().received, 1U);
    EXPECT_EQ(bench.Client().Counters().duplicates + bench.Client().Counters().outOfOrder, 0U);
}

TEST(TunnelClientStream, FramesMayComeInPiecesAndTogether) {
    ClientBench bench(OverTcp());
    bench.ConnectOverTcp();
    const std::string request = "061004200015041500002900bce011040a03010081";
    bench.ReceiveInStream(request + request.substr(0, 14));
    bench.ReceiveInStream(request.substr(14) + request);
    EXPECT_EQ(bench.Client().Counters().received, 3U);
}

TEST(TunnelClientStream, AStreamThatEndsIsTriedAgainAtOnceWhenItHadLived) {
    ClientBench bench(OverTcp());
    bench.ConnectOverTcp();
    bench.StreamClosed();
    EXPECT_FALSE(bench.Client().IsConnected());
    bench.StreamOpened();
    bench.ReceiveInStream(kConnectedOverTcp);
    bench.StreamClosed(); // too soon
    bench.StreamClosed(); // twice is once
    bench.Advance(seconds(1));
    EXPECT_EQ(bench.Take(), R"(
10.000 ! the stream has ended
10.000 ! disconnected: the TCP connection could not be made or has ended, 0 ms
10.000 ! open a stream to 192.168.1.2:3671
10.000 > stream 06100205001a 0802000000000000080200000000000004040200
10.000 < stream 061002060014 15000802000000000000040411fa
10.000 ! connected as 1.1.250
10.000 ! the stream has ended
10.000 ! disconnected: the TCP connection could not be made or has ended, 1000 ms
10.000 ! the stream has ended
11.000 ! open a stream to 192.168.1.2:3671
)");
}

TEST(TunnelClientStream, AStreamThatCannotBeOpenedIsTriedWithGrowingPauses) {
    ClientBench bench(OverTcp());
    bench.Client().Start(bench.Now());
    for (int count = 0; count < 9; ++count) {
        bench.StreamClosed();
        bench.Advance(seconds(bench.Delays().back() / 1000));
    }
    EXPECT_EQ(bench.Delays(),
              (std::vector<milliseconds::rep>{1000, 2000, 4000, 8000, 16000, 32000, 48000, 48000, 48000}));
}

TEST(TunnelClientStream, AStreamThatDoesNotOpenWithin10SecondsIsGivenUp) {
    ClientBench bench(OverTcp());
    bench.Client().Start(bench.Now());
    bench.Advance(seconds(10));
    bench.StreamOpened(); // too late
    bench.Advance(seconds(1));
    EXPECT_EQ(bench.Take(), R"(
0.000 ! open a stream to 192.168.1.2:3671
10.000 ! close the stream
10.000 ! not connected: no answer to the connect request, no error, 1000 ms
11.000 ! open a stream to 192.168.1.2:3671
)");
}

TEST(TunnelClientStream, ARefusalEndsTheStream) {
    ClientBench bench(OverTcp());
    bench.Client().Start(bench.Now());
    bench.StreamOpened();
    bench.Take();
    bench.ReceiveInStream("061002060008 0024");
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream 061002060008 0024
0.000 ! close the stream
0.000 ! not connected: the server refused to connect, no more connections, 1000 ms
)");
}

TEST(TunnelClientStream, TheHeartbeatIsKept) {
    ClientBench bench(OverTcp());
    bench.ConnectOverTcp();
    bench.Advance(seconds(50));
    bench.ReceiveInStream("061002080008 1500");
    bench.Advance(seconds(100));
    EXPECT_EQ(bench.Take(), R"(
60.000 > stream 061002070010 15000802000000000000
60.000 < stream 061002080008 1500
120.000 > stream 061002070010 15000802000000000000
130.000 > stream 061002070010 15000802000000000000
140.000 > stream 061002070010 15000802000000000000
150.000 > stream 061002070010 15000802000000000000
160.000 > stream 061002090010 15000802000000000000
160.000 ! close the stream
160.000 ! disconnected: no answer to the heartbeat, 0 ms
160.000 ! open a stream to 192.168.1.2:3671
)");
}

TEST(TunnelClientStream, ADisconnectRequestEndsTheStreamAndWhatFollowsInItIsNotHeard) {
    ClientBench bench(OverTcp());
    bench.ConnectOverTcp();
    bench.ReceiveInStream("061002090010 1500 0802000000000000" + kConnectedOverTcp + kRequest + "00" +
                          kSwitchOnInd);
    EXPECT_EQ(bench.Take(), R"(
10.000 < stream 061002090010 1500080200000000000006100206001415000802000000000000040411fa061004200015041500002900bce011040a03010081
10.000 > stream 0610020a0008 1500
10.000 ! close the stream
10.000 ! disconnected: the server closed the connection, 0 ms
10.000 ! open a stream to 192.168.1.2:3671
)");
    EXPECT_EQ(bench.Client().Counters().received, 0U);
}

TEST(TunnelClientStream, SomethingElseThanKnxEndsTheStream) {
    ClientBench bench(OverTcp());
    bench.ConnectOverTcp();
    bench.ReceiveInStream("485454502f31");
    bench.StreamOpened();
    bench.ReceiveInStream("485454502f31");
    EXPECT_EQ(bench.Take(), R"(
10.000 < stream 485454502f31
10.000 ! the KNXnet/IP header is not 6 octets long
10.000 ! close the stream
10.000 ! disconnected: the TCP connection could not be made or has ended, 0 ms
10.000 ! open a stream to 192.168.1.2:3671
10.000 > stream 06100205001a 0802000000000000080200000000000004040200
10.000 < stream 485454502f31
10.000 ! the KNXnet/IP header is not 6 octets long
10.000 ! close the stream
10.000 ! not connected: the TCP connection could not be made or has ended, no error, 1000 ms
)");
}

TEST(TunnelClientStream, ATelegramUnderWayWhenTheStreamEndsIsReportedAndNotSentAgain) {
    ClientBench bench(OverTcp());
    bench.ConnectOverTcp();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    bench.StreamClosed();
    bench.StreamOpened();
    bench.Take();
    bench.ReceiveInStream(kConnectedOverTcp);
    EXPECT_EQ(bench.Take(), R"(
10.000 < stream 061002060014 15000802000000000000040411fa
10.000 ! connected as 1.1.250
10.000 > stream 061004200015 041500001100bce000000a03010082
)");
    EXPECT_EQ(bench.Client().Counters().noConfirmation, 1U);
}

TEST(TunnelClientStream, StopDisconnectsAndClosesTheStreamAlsoBeforeItIsOpen) {
    ClientBench bench(OverTcp());
    bench.ConnectOverTcp();
    bench.Client().Stop();
    bench.Client().Stop();
    bench.Client().Start(bench.Now());
    bench.Client().Stop();
    EXPECT_EQ(bench.Take(), R"(
10.000 > stream 061002090010 15000802000000000000
10.000 ! close the stream
10.000 ! open a stream to 192.168.1.2:3671
10.000 ! close the stream
)");
    bench.StreamOpened();
    bench.ReceiveInStream(kConnectedOverTcp);
    EXPECT_FALSE(bench.Client().IsConnected());
}

/// A client and a server of ours, joined by pipes that cut what passes into pieces of 1 to 9 octets.
class Pipes : public TunnelClientListener, public TunnelServerListener {
public:
    Pipes() : m_client(OverTcp(), *this), m_server(ServerConfig(), *this) {}

    void OpenStream(const Endpoint&) override { m_isOpening = true; }
    void SendToStream(Octets frame) override { Put(m_toServer, frame); }
    void CloseStream() override { m_isOpen = false; }
    void OnTelegram(const LData& telegram) override { m_atClient.push_back(telegram.tpdu); }
    void OnConnected(IndividualAddress) override {}
    void OnDisconnected(LinkFailure, milliseconds) override { ADD_FAILURE() << "disconnected"; }
    void OnConnectFailed(LinkFailure, Status, milliseconds) override { ADD_FAILURE() << "not connected"; }
    void OnSendFailed(const LData&, SendFailure) override { ADD_FAILURE() << "not sent"; }
    void OnQueueOverflow() override {}
    void OnRefusedDatagram(const Endpoint&, const FrameError& error) override {
        ADD_FAILURE() << error.cause;
    }
    Endpoint LocalEndpoint() override { return {}; }
    void SendDatagram(const Endpoint&, Octets) override { ADD_FAILURE() << "a datagram"; }

    void CloseStream(StreamId) override { ADD_FAILURE() << "closed"; }
    void SendToStream(StreamId, Octets frame) override { Put(m_toClient, frame); }
    void OnTelegram(TunnelId, const LData& telegram) override { m_atServer.push_back(telegram.tpdu); }
    void OnTunnelOpened(TunnelId, IndividualAddress, const Peer&) override {}
    void OnTunnelClosed(TunnelId, TunnelEnd) override { ADD_FAILURE() << "closed"; }
    void OnConnectRefused(const Endpoint&, Status) override { ADD_FAILURE() << "refused"; }
    void OnQueueOverflow(TunnelId) override {}

    /// Until nothing is under way.
    void Run() {
        if (std::exchange(m_isOpening, false)) {
            m_isOpen = true;
            m_server.OnStreamOpened(m_now, 1, kClient);
            m_client.OnStreamOpened(m_now);
        }
        while (m_isOpen && !(m_toServer.empty() && m_toClient.empty())) {
            m_server.OnStreamOctets(m_now, 1, TakePiece(m_toServer));
            m_client.OnStreamOctets(m_now, TakePiece(m_toClient));
        }
    }

    static void Put(std::deque<std::uint8_t>& pipe, Octets octets) {
        pipe.insert(pipe.end(), octets.begin(), octets.end());
    }
    Octets TakePiece(std::deque<std::uint8_t>& pipe) {
        m_size = m_size % 9 + 1;
        const auto size = static_cast<std::ptrdiff_t>(std::min(m_size, pipe.size()));
        m_piece.assign(pipe.begin(), pipe.begin() + size);
        pipe.erase(pipe.begin(), pipe.begin() + size);
        return m_piece;
    }

    static TunnelServerConfig ServerConfig() {
        TunnelServerConfig config;
        config.tunnelAddresses = {IndividualAddress(1, 1, 250)};
        return config;
    }

    TimePoint m_now{};
    bool m_isOpening = false;
    bool m_isOpen = false;
    std::deque<std::uint8_t> m_toServer;
    std::deque<std::uint8_t> m_toClient;
    std::size_t m_size = 0;
    std::vector<std::uint8_t> m_piece;
    std::vector<KnxFrames::Tpdu> m_atClient;
    std::vector<KnxFrames::Tpdu> m_atServer;
    TunnelClient m_client;
    TunnelServer m_server;
};

TEST(TunnelClientStream, ThousandsOfTelegramsPassToAServerAndBackInPieces) {
    Pipes pipes;
    pipes.m_client.Start(pipes.m_now);
    pipes.Run();
    ASSERT_TRUE(pipes.m_client.IsConnected());
    std::vector<KnxFrames::Tpdu> sent;
    for (unsigned number = 0; number < 5000; ++number) {
        const std::uint8_t octets[] = {static_cast<std::uint8_t>(number >> 8),
                                       static_cast<std::uint8_t>(number & 0xFF)};
        const auto telegram =
            MakeGroupTelegram(IndividualAddress(1, 1, 4), GroupAddress(1, 2, 3),
                              *KnxFrames::MakeGroupLongValue(GroupServiceKind::Write, octets));
        sent.push_back(telegram.tpdu);
        pipes.m_client.Send(pipes.m_now, telegram);
        pipes.m_server.Broadcast(pipes.m_now, telegram);
        if (number % 7 == 0)
            pipes.Run();
    }
    pipes.Run();
    EXPECT_TRUE(pipes.m_atServer == sent) << pipes.m_atServer.size();
    EXPECT_TRUE(pipes.m_atClient == sent) << pipes.m_atClient.size();
    EXPECT_EQ(pipes.m_client.Waiting(), 0U);
}

} // namespace
} // namespace KnxIp
