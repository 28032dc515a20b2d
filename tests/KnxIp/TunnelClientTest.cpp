#include "ClientBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace ClientTesting;

TEST(TunnelClient, ConnectsAndExposesItsAddress) {
    ClientBench bench;
    EXPECT_EQ(bench.Client().NextTime(), std::nullopt);
    bench.Client().Start(bench.Now());
    EXPECT_FALSE(bench.Client().IsConnected());
    EXPECT_EQ(bench.Client().Address(), IndividualAddress());
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
    EXPECT_TRUE(bench.Client().IsConnected());
    EXPECT_EQ(bench.Client().Address(), IndividualAddress(1, 1, 250));
    bench.Client().Start(bench.Now()); // started already
    EXPECT_EQ(bench.Take(), R"(
0.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
0.000 < server 061002060014 15000801c0a801020e57040411fa
0.000 ! connected as 1.1.250
)");
}

TEST(TunnelClient, AConnectionThatIsNoTunnelIsNone) {
    ClientBench bench;
    bench.Client().Start(bench.Now());
    bench.Take();
    bench.Receive(kServer, "061002060012 1500 0801c0a801020e57 0203");
    EXPECT_FALSE(bench.Client().IsConnected());
    EXPECT_EQ(bench.Take(), R"(
0.000 < server 061002060012 15000801c0a801020e570203
0.000 ! the connection is no tunnel
)");
}

TEST(TunnelClient, BehindNatItNamesNoEndpointAndIgnoresThatOfTheServer) {
    TunnelClientConfig config = Config();
    config.nat = true;
    ClientBench bench(std::move(config));
    bench.Client().Start(bench.Now());
    bench.Receive(kServer, "061002060014 1500 08010a00000a0e57 040411fa"); // 10.0.0.10
    bench.Send(Telegram(1));
    bench.Receive(kServer, "061002090010 1500 08010a00000a0e57");
    EXPECT_EQ(bench.Take(), R"(
0.000 > server 06100205001a 0801000000000000080100000000000004040200
0.000 < server 061002060014 150008010a00000a0e57040411fa
0.000 ! connected as 1.1.250
0.000 > server 061004200015 041500001100bce000000a03010081
0.000 < server 061002090010 150008010a00000a0e57
0.000 > server 0610020a0008 1500
0.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged by the interface
0.000 ! disconnected: the server closed the connection, 1000 ms
)");
}

TEST(TunnelClient, KeepsTheConnectionAliveEverySixtySeconds) {
    ClientBench bench;
    bench.Connect(); // 10 s ago
    bench.Advance(seconds(50));
    bench.Receive(kServer, kStateGood);
    bench.Advance(seconds(70));
    EXPECT_EQ(bench.Take(), R"(
60.000 > server 061002070010 15000801c0a8010ac350
60.000 < server 061002080008 1500
120.000 > server 061002070010 15000801c0a8010ac350
130.000 > server 061002070010 15000801c0a8010ac350
)");
}

TEST(TunnelClient, ReconnectsAfterFourHeartbeatsWithoutAnswer) {
    ClientBench bench;
    bench.Connect();
    bench.Advance(seconds(50));
    bench.Receive(kServer, "061002080008 1527"); // no connection to the bus: as bad as no answer
    bench.Advance(seconds(40));
    EXPECT_EQ(bench.Take(), R"(
60.000 > server 061002070010 15000801c0a8010ac350
60.000 < server 061002080008 1527
70.000 > server 061002070010 15000801c0a8010ac350
80.000 > server 061002070010 15000801c0a8010ac350
90.000 > server 061002070010 15000801c0a8010ac350
100.000 > server 061002090010 15000801c0a8010ac350
100.000 ! disconnected: no answer to the heartbeat, 0 ms
100.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
}

TEST(TunnelClient, AHeartbeatAnsweredAtTheLastTryKeepsTheConnection) {
    ClientBench bench;
    bench.Connect();
    bench.Advance(seconds(50 + 39));
    bench.Receive(kServer, kStateGood);
    bench.Take();
    bench.Advance(seconds(59));
    EXPECT_EQ(bench.Take(), R"(
)");
    EXPECT_TRUE(bench.Client().IsConnected());
}

TEST(TunnelClient, AServerThatForgotTheConnectionIsConnectedAgainAtOnce) {
    ClientBench bench;
    bench.Connect();
    bench.Advance(seconds(50));
    bench.Receive(kServer, "061002080008 1521");
    EXPECT_EQ(bench.Take(), R"(
60.000 > server 061002070010 15000801c0a8010ac350
60.000 < server 061002080008 1521
60.000 ! disconnected: the server does not know the connection any more, 0 ms
60.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
}

TEST(TunnelClient, ADisconnectOfTheServerIsAnsweredAndFollowedByAReconnect) {
    ClientBench bench;
    bench.Connect();
    bench.Receive(kServer, kDisconnectRequest);
    bench.Receive(kServer, kDisconnectRequest); // twice on the network
    bench.Receive(kServer, "061002060014 1600 0801c0a801020e57 040411fa");
    EXPECT_EQ(bench.Take(), R"(
10.000 < server 061002090010 15000801c0a801020e57
10.000 > server 0610020a0008 1500
10.000 ! disconnected: the server closed the connection, 0 ms
10.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
10.000 < server 061002090010 15000801c0a801020e57
10.000 > server 0610020a0008 1521
10.000 < server 061002060014 16000801c0a801020e57040411fa
10.000 ! connected as 1.1.250
)");
    EXPECT_TRUE(bench.Client().IsConnected());
}

TEST(TunnelClient, AServerThatHangsUpAtOnceIsNotTriedInALoop) {
    ClientBench bench;
    bench.Client().Start(bench.Now());
    for (int round = 0; round < 3; ++round) {
        bench.Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
        bench.Receive(kServer, kDisconnectRequest);
        bench.Advance(seconds(1 << round));
    }
    EXPECT_EQ(bench.Take(), R"(
0.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
0.000 < server 061002060014 15000801c0a801020e57040411fa
0.000 ! connected as 1.1.250
0.000 < server 061002090010 15000801c0a801020e57
0.000 > server 0610020a0008 1500
0.000 ! disconnected: the server closed the connection, 1000 ms
1.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
1.000 < server 061002060014 15000801c0a801020e57040411fa
1.000 ! connected as 1.1.250
1.000 < server 061002090010 15000801c0a801020e57
1.000 > server 0610020a0008 1500
1.000 ! disconnected: the server closed the connection, 2000 ms
3.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
3.000 < server 061002060014 15000801c0a801020e57040411fa
3.000 ! connected as 1.1.250
3.000 < server 061002090010 15000801c0a801020e57
3.000 > server 0610020a0008 1500
3.000 ! disconnected: the server closed the connection, 4000 ms
7.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
}

TEST(TunnelClient, TriesForEverWithGrowingPauses) {
    ClientBench bench;
    bench.Client().Start(bench.Now());
    bench.Advance(std::chrono::hours(1));
    ASSERT_GT(bench.Delays().size(), 50U);
    EXPECT_EQ(std::vector<milliseconds::rep>(bench.Delays().begin(), bench.Delays().begin() + 9),
              (std::vector<milliseconds::rep>{1000, 2000, 4000, 8000, 16000, 32000, 48000, 48000, 48000}));
    EXPECT_EQ(bench.Delays().back(), 48000);
}

TEST(TunnelClient, JitterAddsUpToAQuarter) {
    for (const auto& [jitter, first, last] : {std::tuple{0.5, 1125, 54000}, std::tuple{1.0, 1250, 60000},
                                              std::tuple{7.0, 1250, 60000}, std::tuple{-1.0, 1000, 48000}}) {
        TunnelClientConfig config = Config();
        config.jitter = [jitter = jitter] { return jitter; };
        ClientBench bench(std::move(config));
        bench.Client().Start(bench.Now());
        bench.Advance(std::chrono::minutes(10));
        EXPECT_EQ(bench.Delays().front(), first);
        EXPECT_EQ(bench.Delays().back(), last);
    }
}

TEST(TunnelClient, AfterAStableConnectionThePausesBeginAnew) {
    ClientBench bench;
    bench.Client().Start(bench.Now());
    bench.Receive(kServer, "061002060008 0024");
    bench.Advance(seconds(1));
    bench.Receive(kServer, "061002060008 0024");
    bench.Advance(seconds(2));
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
    bench.Advance(seconds(10));
    bench.Receive(kServer, kDisconnectRequest);
    bench.Receive(kServer, "061002060008 0024");
    EXPECT_EQ(bench.Take(), R"(
0.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
0.000 < server 061002060008 0024
0.000 ! not connected: the server refused to connect, no more connections, 1000 ms
1.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
1.000 < server 061002060008 0024
1.000 ! not connected: the server refused to connect, no more connections, 2000 ms
3.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
3.000 < server 061002060014 15000801c0a801020e57040411fa
3.000 ! connected as 1.1.250
13.000 < server 061002090010 15000801c0a801020e57
13.000 > server 0610020a0008 1500
13.000 ! disconnected: the server closed the connection, 0 ms
13.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
13.000 < server 061002060008 0024
13.000 ! not connected: the server refused to connect, no more connections, 1000 ms
)");
}

TEST(TunnelClient, AnAnswerThatComesTooLateIsHungUp) {
    ClientBench bench;
    bench.Client().Start(bench.Now());
    bench.Advance(milliseconds(10500));
    bench.Take();
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
    EXPECT_EQ(bench.Take(), R"(
10.500 < server 061002060014 15000801c0a801020e57040411fa
10.500 > server 061002090010 15000801c0a8010ac350
)");
    EXPECT_FALSE(bench.Client().IsConnected());
}

TEST(TunnelClient, ASecondTunnelOpenedByADoubledRequestIsHungUp) {
    ClientBench bench;
    bench.Connect();
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa"); // the answer twice
    bench.Receive(kServer, "061002060014 1600 0801c0a801020e57 040411fb"); // the request twice
    EXPECT_EQ(bench.Take(), R"(
10.000 < server 061002060014 15000801c0a801020e57040411fa
10.000 < server 061002060014 16000801c0a801020e57040411fb
10.000 > server 061002090010 16000801c0a8010ac350
)");
    EXPECT_TRUE(bench.Client().IsConnected());
}

TEST(TunnelClient, StopDisconnectsAndKeepsTheQueue) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    bench.Receive(kServer, kAck + "0000");
    bench.Client().Stop();
    bench.Receive(kServer, "0610020a0008 1500");
    EXPECT_EQ(bench.Client().NextTime(), std::nullopt);
    EXPECT_EQ(bench.Client().Waiting(), 1U);
    bench.Advance(seconds(100));
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150000
10.000 > server 061002090010 15000801c0a8010ac350
10.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not confirmed by the interface
10.000 < server 0610020a0008 1500
)");
    bench.Client().Start(bench.Now());
    bench.Receive(kServer, "061002060014 1600 0801c0a801020e57 040411fa");
    EXPECT_EQ(bench.Take(), R"(
110.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
110.000 < server 061002060014 16000801c0a801020e57040411fa
110.000 ! connected as 1.1.250
110.000 > server 061004200015 041600001100bce000000a03010082
)");
}

TEST(TunnelClient, StopInsideACallbackEndsEverything) {
    ClientBench bench;
    bench.m_onDisconnected = [&] { bench.Client().Stop(); };
    bench.Connect();
    bench.Receive(kServer, kDisconnectRequest);
    EXPECT_EQ(bench.Client().NextTime(), std::nullopt);
    EXPECT_EQ(bench.Take(), R"(
10.000 < server 061002090010 15000801c0a801020e57
10.000 > server 0610020a0008 1500
10.000 ! disconnected: the server closed the connection, 0 ms
)");
}

TEST(TunnelClient, DatagramsOfStrangersAreRefused) {
    ClientBench bench;
    bench.Connect();
    bench.Receive(kStranger, kDisconnectRequest);
    bench.Receive(kStranger, kRequest + "00" + kSwitchOnInd);
    EXPECT_EQ(bench.Take(), R"(
10.000 < stranger 061002090010 15000801c0a801020e57
10.000 ! the sender is not the KNXnet/IP server
10.000 < stranger 061004200015 041500002900bce011040a03010081
10.000 ! the sender is not the KNXnet/IP server
)");
    EXPECT_TRUE(bench.Client().IsConnected());
}

TEST(TunnelClient, OtherChannelsAreNotOurs) {
    ClientBench bench;
    bench.Connect();
    bench.Receive(kServer, "061002090010 1600 0801c0a801020e57");
    bench.Receive(kServer, "061004200015 041600002900bce011040a03010081");
    bench.Receive(kServer, "06100421000a 04160000");
    bench.Receive(kServer, "061002080008 1621");
    EXPECT_EQ(bench.Take(), R"(
10.000 < server 061002090010 16000801c0a801020e57
10.000 > server 0610020a0008 1621
10.000 < server 061004200015 041600002900bce011040a03010081
10.000 < server 06100421000a 04160000
10.000 < server 061002080008 1621
)");
    EXPECT_TRUE(bench.Client().IsConnected());
}

TEST(TunnelClient, GarbageIsReportedAndChangesNothing) {
    ClientBench bench;
    bench.Connect();
    bench.Receive(kServer, "");
    bench.Receive(kServer, "061002060014 15");
    bench.Receive(kServer, "06100201000e 0801c0a801020e57"); // a search request
    bench.Receive(kServer, "06100420000a 04150000");         // no cEMI inside: acknowledged all the same
    bench.Receive(kServer, kRequest + "0100 1100bce011040a03010081");
    EXPECT_EQ(bench.Take(), R"(
10.000 < server
10.000 ! the datagram is shorter than a KNXnet/IP header
10.000 < server 061002060014 15
10.000 ! the total length is not the size of the datagram
10.000 < server 06100201000e 0801c0a801020e57
10.000 ! a frame that is not for a client was sent to one
10.000 < server 06100420000a 04150000
10.000 > server 06100421000a 04150000
10.000 ! the cEMI message is empty
10.000 < server 061004200015 041501001100bce011040a03010081
10.000 > server 06100421000a 04150100
10.000 ! a server sent an L_Data.req
)");
    EXPECT_TRUE(bench.Client().IsConnected());
}

TEST(TunnelClient, AServerSetBeforeTheStartOrAfterTheStopIsNotDisturbed) {
    ClientBench bench{TunnelClientConfig()};
    bench.Client().SetServer(bench.Now(), kServer);
    EXPECT_EQ(bench.Take(), "\n");
    bench.Client().Start(bench.Now());
    bench.Client().Stop();
    bench.Client().SetServer(bench.Now(), kServerData);
    EXPECT_EQ(bench.Take(), R"(
0.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
    EXPECT_EQ(bench.Client().NextTime(), std::nullopt);
}

TEST(TunnelClient, AServerThatHasMovedCountsFromTheNextTryOn) {
    ClientBench bench;
    bench.Connect();
    bench.Client().SetServer(bench.Now(), kStranger);
    bench.Receive(kStranger, kRequest + "00" + kSwitchOnInd);
    bench.Receive(kServer, kDisconnectRequest);
    bench.Receive(kStranger, "061002060014 1600 0801c0a801fe0e57 040411fa");
    EXPECT_EQ(bench.Take(), R"(
10.000 < stranger 061004200015 041500002900bce011040a03010081
10.000 ! the sender is not the KNXnet/IP server
10.000 < server 061002090010 15000801c0a801020e57
10.000 > server 0610020a0008 1500
10.000 ! disconnected: the server closed the connection, 0 ms
10.000 > stranger 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
10.000 < stranger 061002060014 16000801c0a801fe0e57040411fa
10.000 ! connected as 1.1.250
)");
}

TEST(TunnelClient, RefusesABrokenConfiguration) {
    TunnelClientConfig config;
    config.server = {kServer.address, 0};
    EXPECT_THROW(ClientBench{config}, std::invalid_argument);
    config.server = {0, kServer.port};
    EXPECT_THROW(ClientBench{config}, std::invalid_argument);
    config = Config();
    config.queueLimit = 0;
    EXPECT_THROW(ClientBench{config}, std::invalid_argument);
    ClientBench bench;
    EXPECT_THROW(bench.Client().SetServer(bench.Now(), Endpoint()), std::invalid_argument);
}

} // namespace
} // namespace KnxIp
