// Whose a channel is: requests from other endpoints than those that the tunnel was opened for.
#include "ServerBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace ServerTesting;

// Two clients on one computer. The server has died and come back, and only the second one has noticed.
TEST(TunnelServer, AClientOfAServerThatDiedDoesNotTakeOverAnothersTunnel) {
    ServerBench bench;
    bench.Receive(kSameHost, "06100205001a 0801c0a8010ad6d8 0801c0a8010ad6d9 04040200");
    bench.Take();
    bench.Receive(kClient, kStateRequest);
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Receive(kClientData, kAck + "0000");
    bench.Receive(kClient, kDisconnectRequest);
    bench.Advance(milliseconds(1000)); // the broadcast has not been acknowledged by the right one
    EXPECT_EQ(bench.Take(), R"(
0.000 < client 061002070010 01000801c0a8010ac350
0.000 > client 061002080008 0121
0.000 < client-data 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010021
0.000 > same-host-data 061004200015 040100002900bce011040a03010081
0.000 < client-data 06100421000a 04010000
0.000 < client 061002090010 01000801c0a8010ac350
0.000 > client 0610020a0008 0121
1.000 > same-host-data 061004200015 040100002900bce011040a03010081
)");
    // The tunnel's own client is served.
    bench.Receive(kSameHostData, kAck + "0000");
    bench.Receive(kSameHost, "061002070010 0100 0801c0a8010ad6d8");
    bench.Receive(kSameHostData, kRequest + "00" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
1.000 < same-host-data 06100421000a 04010000
1.000 < same-host 061002070010 01000801c0a8010ad6d8
1.000 > same-host 061002080008 0100
1.000 < same-host-data 061004200015 040100001100bce000000a03010081
1.000 > same-host-data 06100421000a 04010000
1.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
1.000 > same-host-data 061004200015 040101002e00bce011fa0a03010081
)");
    EXPECT_EQ(bench.Server().Counters(0).fromClient, 1U);
}

TEST(TunnelServer, AClientMayUseItsEndpointsAsItLikes) {
    ServerBench bench;
    bench.Connect();
    bench.Receive(kClientData, kStateRequest); // names its control endpoint
    bench.Receive(kClient, "061002070010 0100 0801000000000000");
    bench.Receive(kClient, kRequest + "00" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061002070010 01000801c0a8010ac350
0.000 > client 061002080008 0100
0.000 < client 061002070010 01000801000000000000
0.000 > client 061002080008 0100
0.000 < client 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010000
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 > client-data 061004200015 040100002e00bce011fa0a03010081
)");
}

// Ports say nothing of a client whose CONNECT_REQUEST comes from elsewhere than it says.
TEST(TunnelServer, AClientBehindATranslationMaySendFromAnyPort) {
    ServerBench bench;
    bench.Receive(kOther, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200");
    bench.Take();
    const Endpoint translated{kOther.address, 40000};
    bench.Receive(translated, kStateRequest);
    bench.Receive(translated, kRequest + "00" + kSwitchOn);
    bench.Receive(translated, kAck + "0000");
    bench.Receive(translated, kDisconnectRequest);
    EXPECT_EQ(bench.Take(), R"(
0.000 < 192.168.1.11:40000 061002070010 01000801c0a8010ac350
0.000 > client 061002080008 0100
0.000 < 192.168.1.11:40000 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010000
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 > client-data 061004200015 040100002e00bce011fa0a03010081
0.000 < 192.168.1.11:40000 06100421000a 04010000
0.000 < 192.168.1.11:40000 061002090010 01000801c0a8010ac350
0.000 > client 0610020a0008 0100
0.000 ! tunnel 0: closed by the client
)");
}

TEST(TunnelServer, AWrongChannelIsToldToTheSender) {
    ServerBench bench;
    bench.Connect();
    bench.Receive(kClient, "061002070010 0900 0801c0a8010ac350");
    bench.Receive(kClient, "061002090010 0900 0801c0a8010ac350");
    bench.Receive(kClientData, "061004200015 040900001100bce000000a03010081");
    bench.Receive(kClientData, "06100421000a 04090000");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client 061002070010 09000801c0a8010ac350
0.000 > client 061002080008 0921
0.000 < client 061002090010 09000801c0a8010ac350
0.000 > client 0610020a0008 0921
0.000 < client-data 061004200015 040900001100bce000000a03010081
0.000 > client-data 06100421000a 04090021
0.000 < client-data 06100421000a 04090000
)");
}

TEST(TunnelServer, AChannelOfAnotherHostIsAWrongChannel) {
    ServerBench bench;
    bench.Connect();
    bench.Receive(kOther, kRequest + "00" + kSwitchOn);
    bench.Receive(kOther, "061002090010 0100 0801c0a8010bc350");
    EXPECT_EQ(bench.Take(), R"(
0.000 < other 061004200015 040100001100bce000000a03010081
0.000 > other 06100421000a 04010021
0.000 < other 061002090010 01000801c0a8010bc350
0.000 > other 0610020a0008 0121
)");
    EXPECT_TRUE(bench.Server().IsOpen(0));
}

TEST(TunnelServer, BehindNatTheDataEndpointFollowsTheRequests) {
    ServerBench bench;
    bench.Receive(kClient, "06100205001a 0801000000000000 0801000000000000 04040200");
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Receive(kClient, kAck + "0000");
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    bench.Receive(kClient, "061002070010 0100 0801000000000000");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client 06100205001a 0801000000000000080100000000000004040200
0.000 > client 061002060014 01000801c0a801020e57040411fa
0.000 ! tunnel 0 opened, 1.1.250, 192.168.1.10:50000
0.000 > client 061004200015 040100002900bce011040a03010081
0.000 < client 06100421000a 04010000
0.000 < client-data 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010000
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 > client-data 061004200015 040101002e00bce011fa0a03010081
0.000 < client 061002070010 01000801000000000000
0.000 > client 061002080008 0100
)");
}

TEST(TunnelServer, BehindNatAStrayRequestDoesNotMoveTheDataEndpoint) {
    ServerBench bench;
    bench.Receive(kClient, "06100205001a 0801000000000000 0801000000000000 04040200");
    bench.Receive(kClient, kRequest + "00" + kSwitchOn);
    bench.Receive(kClient, kAck + "0000");
    bench.Take();
    bench.Receive(kSameHost, kRequest + "09" + kSwitchOn); // out of sequence
    bench.Receive(kSameHost, kRequest + "00" + kSwitchOn); // the last one, acknowledged where it came from
    bench.Server().Broadcast(bench.Now(), Telegram());
    EXPECT_EQ(bench.Take(), R"(
0.000 < same-host 061004200015 040109001100bce000000a03010081
0.000 < same-host 061004200015 040100001100bce000000a03010081
0.000 > same-host 06100421000a 04010000
0.000 > client 061004200015 040101002900bce011040a03010081
)");
}

} // namespace
} // namespace KnxIp
