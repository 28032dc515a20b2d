// Tunnels over TCP streams.
#include "ServerBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace ServerTesting;
using std::chrono::seconds;

// Over TCP an endpoint is 0.0.0.0:0, host protocol 2.
const std::string kTcp = "0802000000000000";

TEST(TunnelServerStreams, ATunnelOverAStreamIsNeitherAcknowledgedNorRepeated) {
    ServerBench bench;
    bench.OpenStream(7);
    bench.ReceiveFrom(7, kConnectOverTcp);
    bench.ReceiveFrom(7, kRequest + "00" + kSwitchOn);
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Server().Broadcast(bench.Now(), Telegram(0));
    bench.Advance(seconds(10));
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream-7 06100205001a 0802000000000000080200000000000004040200
0.000 > stream-7 061002060014 01000802000000000000040411fa
0.000 ! tunnel 0 opened, 1.1.250, 192.168.1.10:50000 over TCP
0.000 < stream-7 061004200015 040100001100bce000000a03010081
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 > stream-7 061004200015 040100002e00bce011fa0a03010081
0.000 > stream-7 061004200015 040101002900bce011040a03010081
0.000 > stream-7 061004200015 040102002900bce011040a03010080
)");
    EXPECT_EQ(bench.Server().Counters(0).fromClient, 1U);
    EXPECT_EQ(bench.Server().Counters(0).toClient, 3U);
}

TEST(TunnelServerStreams, NumbersOfRequestsDoNotMatterAndAcknowledgementsAreNotMinded) {
    ServerBench bench;
    bench.ConnectOver(1);
    for (const unsigned number : {0U, 0U, 9U, 8U, 255U})
        bench.ReceiveFrom(1, kRequest + Digits(number) + kSwitchOn);
    EXPECT_EQ(bench.Telegrams().size(), 5U);
    EXPECT_EQ(bench.Server().Counters(0).duplicates + bench.Server().Counters(0).outOfOrder, 0U);
    bench.Take();
    bench.ReceiveFrom(1, kAck + "0000");
    bench.ReceiveFrom(1, kAck + "0029");
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream-1 06100421000a 04010000
0.000 < stream-1 06100421000a 04010029
)");
}

TEST(TunnelServerStreams, OneStreamCarriesSeveralTunnels) {
    ServerBench bench(Config(2));
    bench.ConnectOver(1);
    // In one piece: a second connection, a third that finds no tunnel, and a telegram of the second.
    bench.ReceiveFrom(1, kConnectOverTcp + kConnectOverTcp + "061004200015 0402 00" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream-1 06100205001a 080200000000000008020000000000000404020006100205001a0802000000000000080200000000000004040200061004200015040200001100bce000000a03010081
0.000 > stream-1 061002060014 02000802000000000000040411fb
0.000 ! tunnel 1 opened, 1.1.251, 192.168.1.10:50000 over TCP
0.000 > stream-1 061002060008 0024
0.000 ! refused: no more connections
0.000 ! telegram of tunnel 1: 1.1.251 -> 1/2/3 GroupValue_Write 01
0.000 > stream-1 061004200015 040200002e00bce011fb0a03010081
)");
    bench.ReceiveFrom(1, "061002090010 0100" + kTcp);
    bench.Server().Broadcast(bench.Now(), Telegram());
    EXPECT_TRUE(bench.Server().IsOpen(1)) << "the other tunnel stays";
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream-1 061002090010 01000802000000000000
0.000 > stream-1 0610020a0008 0100
0.000 ! tunnel 0: closed by the client
0.000 > stream-1 061004200015 040201002900bce011040a03010081
)");
}

TEST(TunnelServerStreams, ConnectionsDieWithTheirStreamAndNoOther) {
    ServerBench bench(Config(4));
    bench.ConnectOver(1);
    bench.ConnectOver(2);
    bench.ReceiveFrom(1, kConnectOverTcp);
    bench.Receive(kClient, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200");
    bench.Take();
    bench.Server().OnStreamClosed(1);
    bench.Server().OnStreamClosed(1);
    EXPECT_EQ(bench.Take(), R"(
0.000 ! tunnel 0: the TCP connection has ended
0.000 ! tunnel 2: the TCP connection has ended
)");
    EXPECT_TRUE(bench.Server().IsOpen(1));
    EXPECT_TRUE(bench.Server().IsOpen(3)) << "by UDP from the same address and port";
    bench.ReceiveFrom(1, kConnectOverTcp);
    EXPECT_EQ(bench.Take().find('>'), std::string::npos) << "what comes late in it counts for nothing";
}

TEST(TunnelServerStreams, AConnectionIsItsOwnStreamsAlone) {
    ServerBench bench;
    bench.ConnectOver(1);
    bench.OpenStream(2);
    bench.ReceiveFrom(2, "061002070010 0100" + kTcp);
    bench.ReceiveFrom(2, "061002090010 0100" + kTcp);
    bench.ReceiveFrom(2, kRequest + "00" + kSwitchOn);
    bench.Receive(kClient, kStateRequest);
    bench.Receive(kClient, kDisconnectRequest);
    bench.Receive(kClient, kRequest + "00" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream-2 061002070010 01000802000000000000
0.000 > stream-2 061002080008 0121
0.000 < stream-2 061002090010 01000802000000000000
0.000 > stream-2 0610020a0008 0121
0.000 < stream-2 061004200015 040100001100bce000000a03010081
0.000 < client 061002070010 01000801c0a8010ac350
0.000 > client 061002080008 0121
0.000 < client 061002090010 01000801c0a8010ac350
0.000 > client 0610020a0008 0121
0.000 < client 061004200015 040100001100bce000000a03010081
0.000 > client 06100421000a 04010021
)");
    EXPECT_TRUE(bench.Server().IsOpen(0));
    EXPECT_TRUE(bench.Telegrams().empty());
}

TEST(TunnelServerStreams, AConnectionByUdpIsNoStreams) {
    ServerBench bench;
    bench.Receive(kClient, "06100205001a 0801000000000000 0801000000000000 04040200");
    bench.OpenStream(1, kClient);
    bench.Take();
    bench.ReceiveFrom(1, "061002070010 0100" + kTcp);
    bench.ReceiveFrom(1, kRequest + "00" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream-1 061002070010 01000802000000000000
0.000 > stream-1 061002080008 0121
0.000 < stream-1 061004200015 040100001100bce000000a03010081
)");
    EXPECT_TRUE(bench.Telegrams().empty());
}

TEST(TunnelServerStreams, AnEndpointOfARequestMustFitItsWay) {
    ServerBench bench;
    bench.OpenStream(1);
    bench.ReceiveFrom(1, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200");
    bench.ReceiveFrom(1, "06100205001a 0802000000000000 0801c0a8010ac351 04040200");
    bench.ReceiveFrom(1, "06100205001a 0802c0a8010a0000 0802000000000000 04040200");
    bench.ReceiveFrom(1, "06100203000e 080200000000c350");
    bench.Receive(kClient, kConnectOverTcp);
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream-1 06100205001a 0801c0a8010ac3500801c0a8010ac35104040200
0.000 ! an endpoint in a stream is not 0.0.0.0:0 over TCP
0.000 < stream-1 06100205001a 08020000000000000801c0a8010ac35104040200
0.000 ! an endpoint in a stream is not 0.0.0.0:0 over TCP
0.000 < stream-1 06100205001a 0802c0a8010a0000080200000000000004040200
0.000 ! an endpoint in a stream is not 0.0.0.0:0 over TCP
0.000 < stream-1 06100203000e 080200000000c350
0.000 ! an endpoint in a stream is not 0.0.0.0:0 over TCP
0.000 < client 06100205001a 0802000000000000080200000000000004040200
0.000 ! an endpoint in a datagram is not one of UDP
)");
    EXPECT_FALSE(bench.Server().IsOpen(0));
}

TEST(TunnelServerStreams, ADescriptionIsAnsweredInTheStream) {
    ServerBench bench;
    bench.OpenStream(1, kOther);
    bench.ReceiveFrom(1, "06100203000e" + kTcp);
    const auto transcript = bench.Take();
    EXPECT_NE(transcript.find("> stream-1 061002040042 "), std::string::npos) << transcript;
}

TEST(TunnelServerStreams, ASilentClientIsDroppedAfter120SecondsAlthoughItsStreamIsOpen) {
    ServerBench bench;
    bench.ConnectOver(1);
    bench.Advance(seconds(100));
    bench.ReceiveFrom(1, "061002070010 0100" + kTcp);
    bench.Advance(seconds(119));
    EXPECT_TRUE(bench.Server().IsOpen(0));
    bench.Advance(seconds(2));
    EXPECT_EQ(bench.Take(), R"(
100.000 < stream-1 061002070010 01000802000000000000
100.000 > stream-1 061002080008 0100
220.000 > stream-1 061002090010 01000802000000000000
220.000 ! tunnel 0: nothing heard of the client for 120 s
220.000 ! stream 1 is to be closed
)");
    EXPECT_EQ(bench.Server().NextTime(), std::nullopt);
}

TEST(TunnelServerStreams, AStreamWithoutAConnectionIsClosedAfter10Seconds) {
    ServerBench bench;
    bench.OpenStream(1);
    bench.OpenStream(2);
    bench.Advance(seconds(9));
    EXPECT_EQ(bench.Take(), "\n");
    bench.ReceiveFrom(2, "0610"); // not even a header
    bench.Take();
    bench.Advance(seconds(2));
    EXPECT_EQ(bench.Take(), "\n10.000 ! stream 1 is to be closed\n");
    bench.Advance(seconds(10));
    EXPECT_EQ(bench.Take(), "\n19.000 ! stream 2 is to be closed\n");
    EXPECT_EQ(bench.Server().NextTime(), std::nullopt);
    bench.ReceiveFrom(2, "02030006");
    EXPECT_EQ(bench.Take(), "\n21.000 < stream-2 02030006\n") << "it is forgotten";
}

TEST(TunnelServerStreams, AStreamIsKeptForItsConnectionAndClosed10SecondsAfterIt) {
    ServerBench bench;
    bench.ConnectOver(1);
    bench.Advance(seconds(100));
    EXPECT_EQ(bench.Take(), "\n");
    bench.ReceiveFrom(1, "061002090010 0100" + kTcp);
    bench.Take();
    bench.Advance(seconds(120));
    EXPECT_EQ(bench.Take(), "\n110.000 ! stream 1 is to be closed\n");
}

TEST(TunnelServerStreams, ABadHeaderEndsTheStreamAndItsConnections) {
    ServerBench bench;
    bench.ConnectOver(1);
    bench.ReceiveFrom(1, "061002070010 0100" + kTcp + "ffff0000ffff" + kConnectOverTcp);
    EXPECT_EQ(bench.Take(),
              R"(
0.000 < stream-1 061002070010 01000802000000000000ffff0000ffff06100205001a0802000000000000080200000000000004040200
0.000 > stream-1 061002080008 0100
0.000 ! the KNXnet/IP header is not 6 octets long
0.000 ! tunnel 0: the TCP connection has ended
0.000 ! stream 1 is to be closed
)");
    EXPECT_EQ(bench.Server().NextTime(), std::nullopt);
}

TEST(TunnelServerStreams, AFrameThatSaysNothingUsableCostsNoStream) {
    ServerBench bench;
    bench.ConnectOver(1);
    bench.ReceiveFrom(1, "061009500006 06100420000a 04010000 061002070010 0100" + kTcp);
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream-1 061009500006 06100420000a0401000006100207001001000802000000000000
0.000 ! the KNXnet/IP service is not known
0.000 ! the cEMI message is empty
0.000 > stream-1 061002080008 0100
)");
}

TEST(TunnelServerStreams, StopDisconnectsAndLeavesTheStreamToItsOwner) {
    ServerBench bench;
    bench.ConnectOver(1);
    bench.Server().Stop();
    EXPECT_EQ(bench.Take(), R"(
0.000 > stream-1 061002090010 01000802000000000000
0.000 ! tunnel 0: closed by the server
)");
}

TEST(TunnelServerStreams, ATelegramPassesBetweenAStreamAndAUdpClient) {
    ServerBench bench;
    bench.m_onTelegram = [&](TunnelId origin, const LData& telegram) {
        bench.Server().Broadcast(bench.Now(), telegram, origin);
    };
    bench.ConnectOver(1, kOther);
    bench.Receive(kClient, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200");
    bench.Take();
    bench.ReceiveFrom(1, kRequest + "00" + kSwitchOn);
    bench.Receive(kClientData, "061004200015 0402 00 00 1100bce000000a03010080");
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream-1 061004200015 040100001100bce000000a03010081
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 > client-data 061004200015 040200002900bce011fa0a03010081
0.000 > stream-1 061004200015 040100002e00bce011fa0a03010081
0.000 < client-data 061004200015 040200001100bce000000a03010080
0.000 > client-data 06100421000a 04020000
0.000 ! telegram of tunnel 1: 1.1.251 -> 1/2/3 GroupValue_Write 00
0.000 > stream-1 061004200015 040101002900bce011fb0a03010080
)");
}

TEST(TunnelServerStreams, TheFamiliesSayThatTcpIsSpoken) {
    EXPECT_EQ(CoreAndTunnelling(), (std::vector<ServiceFamily>{{0x02, 1}, {0x04, 1}}));
    EXPECT_EQ(CoreAndTunnelling(true), (std::vector<ServiceFamily>{{0x02, 2}, {0x04, 2}}));
}

} // namespace
} // namespace KnxIp
