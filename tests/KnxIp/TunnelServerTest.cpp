#include "ServerBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace ServerTesting;

TEST(TunnelServer, AnswersASearchAtTheEndpointThatItNames) {
    ServerBench bench;
    bench.Receive(kOther, "06100201000e 0801c0a8010ac350");
    EXPECT_EQ(bench.Take(),
              R"(
0.000 < other 06100201000e 0801c0a8010ac350
0.000 > client 06100202004a 0801c0a801020e57360102001100000000000000)"
              R"(0000e000170c0000000000007465737400000000000000000000000000000000000000000000000000000602)"
              R"(02010401
)");
}

TEST(TunnelServer, AnswersADescriptionBehindNatToWhereItCameFrom) {
    ServerBench bench;
    bench.Receive(kOther, "06100203000e 0801000000000000");
    EXPECT_EQ(bench.Take(), R"(
0.000 < other 06100203000e 0801000000000000
0.000 > other 061002040042 3601020011000000000000000000e000170c000000)"
                            R"(0000007465737400000000000000000000000000000000000000000000000000000602)"
                            R"(02010401
)");
}

TEST(TunnelServer, ConnectsWithSeparateControlAndDataEndpoints) {
    ServerBench bench;
    bench.Receive(kClient, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client 06100205001a 0801c0a8010ac3500801c0a8010ac35104040200
0.000 > client 061002060014 01000801c0a801020e57040411fa
0.000 ! tunnel 0 opened, 1.1.250, 192.168.1.10:50000
)");
    EXPECT_TRUE(bench.Server().IsOpen(0));
    EXPECT_FALSE(bench.Server().IsOpen(1));
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Receive(kClientData, kAck + "0000");
    bench.Receive(kClient, kStateRequest);
    bench.Receive(kClient, kDisconnectRequest);
    EXPECT_EQ(bench.Take(), R"(
0.000 > client-data 061004200015 040100002900bce011040a03010081
0.000 < client-data 06100421000a 04010000
0.000 < client 061002070010 01000801c0a8010ac350
0.000 > client 061002080008 0100
0.000 < client 061002090010 01000801c0a8010ac350
0.000 > client 0610020a0008 0100
0.000 ! tunnel 0: closed by the client
)");
    EXPECT_FALSE(bench.Server().IsOpen(0));
    EXPECT_EQ(bench.Server().NextTime(), std::nullopt);
}

TEST(TunnelServer, ASilentClientIsDroppedAfter120Seconds) {
    ServerBench bench;
    bench.Connect();
    bench.Advance(std::chrono::seconds(119));
    bench.Receive(kClient, kStateRequest);
    bench.Advance(std::chrono::seconds(119));
    EXPECT_TRUE(bench.Server().IsOpen(0));
    bench.Advance(std::chrono::seconds(2));
    EXPECT_EQ(bench.Take(), R"(
119.000 < client 061002070010 01000801c0a8010ac350
119.000 > client 061002080008 0100
239.000 > client 061002090010 01000801c0a801020e57
239.000 ! tunnel 0: nothing heard of the client for 120 s
)");
    // Its next heartbeat tells the client.
    bench.Receive(kClient, kStateRequest);
    EXPECT_EQ(bench.Take(), R"(
240.000 < client 061002070010 01000801c0a8010ac350
240.000 > client 061002080008 0121
)");
}

TEST(TunnelServer, RefusesWhatItCannotServe) {
    ServerBench bench(Config(1));
    const std::string endpoints = "0801c0a8010ac350 0801c0a8010ac351";
    bench.Receive(kClient, "061002050018" + endpoints + "0203");         // device management
    bench.Receive(kClient, "06100205001a" + endpoints + "04048000");     // busmonitor
    bench.Receive(kClient, "06100205001c" + endpoints + "060402001177"); // no address of a tunnel
    bench.Receive(kClient, "06100205001a 0802c0a8010ac350 0802c0a8010ac351 04040200"); // TCP
    bench.Receive(kClient, "06100205001c" + endpoints + "0604020011fa");
    bench.Receive(kOther, "06100205001a 0801c0a8010bc350 0801c0a8010bc350 04040200");
    bench.Receive(kOther, "06100205001c 0801c0a8010bc350 0801c0a8010bc350 0604020011fa");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client 061002050018 0801c0a8010ac3500801c0a8010ac3510203
0.000 > client 061002060008 0022
0.000 ! refused: the connection type is not supported
0.000 < client 06100205001a 0801c0a8010ac3500801c0a8010ac35104048000
0.000 > client 061002060008 0029
0.000 ! refused: the tunnelling layer is not supported
0.000 < client 06100205001c 0801c0a8010ac3500801c0a8010ac351060402001177
0.000 > client 061002060008 002d
0.000 ! refused: not an address of a tunnel
0.000 < client 06100205001a 0802c0a8010ac3500802c0a8010ac35104040200
0.000 ! an endpoint in a datagram is not one of UDP
0.000 < client 06100205001c 0801c0a8010ac3500801c0a8010ac3510604020011fa
0.000 > client 061002060014 01000801c0a801020e57040411fa
0.000 ! tunnel 0 opened, 1.1.250, 192.168.1.10:50000
0.000 < other 06100205001a 0801c0a8010bc3500801c0a8010bc35004040200
0.000 > other 061002060008 0024
0.000 ! refused: no more connections
0.000 < other 06100205001c 0801c0a8010bc3500801c0a8010bc3500604020011fa
0.000 > other 061002060008 002e
0.000 ! refused: the tunnel with this address is in use
)");
}

TEST(TunnelServer, AClientThatConnectsAnewGetsItsFormerTunnelWhenNoneIsFree) {
    ServerBench bench;
    bench.Connect();
    bench.Advance(std::chrono::seconds(1));
    bench.Connect();
    EXPECT_TRUE(bench.Server().IsOpen(0)) << "a client may have several tunnels";
    EXPECT_TRUE(bench.Server().IsOpen(1));
    bench.Advance(std::chrono::seconds(1));
    bench.Receive(kClient, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200");
    EXPECT_EQ(bench.Take(), R"(
2.000 < client 06100205001a 0801c0a8010ac3500801c0a8010ac35104040200
2.000 ! tunnel 0: its client has connected anew without closing it
2.000 > client 061002060014 03000801c0a801020e57040411fa
2.000 ! tunnel 0 opened, 1.1.250, 192.168.1.10:50000
)") << "of its two the one that it did not use for longer, and it is told nothing that it might take for its "
       "new one";
    // By address likewise.
    bench.Receive(kClient, "06100205001c 0801c0a8010ac350 0801c0a8010ac351 0604020011fb");
    EXPECT_EQ(bench.Take(), R"(
2.000 < client 06100205001c 0801c0a8010ac3500801c0a8010ac3510604020011fb
2.000 ! tunnel 1: its client has connected anew without closing it
2.000 > client 061002060014 04000801c0a801020e57040411fb
2.000 ! tunnel 1 opened, 1.1.251, 192.168.1.10:50000
)");
}

TEST(TunnelServer, AClientGetsNobodyElsesTunnel) {
    ServerBench bench(Config(1));
    bench.Connect();
    for (const auto& [from, request] :
         {std::pair(kOther, "06100205001a 0801c0a8010bc350 0801c0a8010bc350 04040200"),
          std::pair(kSameHost, "06100205001a 0801c0a8010ad6d8 0801c0a8010ad6d9 04040200"),
          // Names the client's endpoints and is somebody else.
          std::pair(kOther, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200"),
          // The client's control endpoint with another data endpoint, as a second tunnel may have.
          std::pair(kClient, "06100205001a 0801c0a8010ac350 0801c0a8010ac352 04040200")})
        bench.Receive(from, request);
    EXPECT_EQ(bench.Take(), R"(
0.000 < other 06100205001a 0801c0a8010bc3500801c0a8010bc35004040200
0.000 > other 061002060008 0024
0.000 ! refused: no more connections
0.000 < same-host 06100205001a 0801c0a8010ad6d80801c0a8010ad6d904040200
0.000 > same-host 061002060008 0024
0.000 ! refused: no more connections
0.000 < other 06100205001a 0801c0a8010ac3500801c0a8010ac35104040200
0.000 > client 061002060008 0024
0.000 ! refused: no more connections
0.000 < client 06100205001a 0801c0a8010ac3500801c0a8010ac35204040200
0.000 > client 061002060008 0024
0.000 ! refused: no more connections
)");
    EXPECT_TRUE(bench.Server().IsOpen(0));
}

TEST(TunnelServer, ChannelsAreGivenOutInTurn) {
    ServerBench bench(Config(1));
    bench.Connect();
    bench.Receive(kClient, kDisconnectRequest);
    bench.Connect();
    // A late request of the former connection hits nobody.
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010021
)");
    EXPECT_TRUE(bench.Telegrams().empty());
}

TEST(TunnelServer, TheFirstChannelIsConfigured) {
    const auto channels = [](std::uint8_t first) {
        TunnelServerConfig config = Config();
        config.firstChannel = first;
        ServerBench bench(std::move(config));
        std::vector<std::string> given;
        for (int client = 0; client < 2; ++client) {
            bench.Receive(kClient, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200");
            const std::string answer = "> client 061002060014 ";
            const auto transcript = bench.Take();
            given.push_back(transcript.substr(transcript.find(answer) + answer.size(), 2));
        }
        return given;
    };
    EXPECT_EQ(channels(1), (std::vector<std::string>{"01", "02"}));
    EXPECT_EQ(channels(0x4d), (std::vector<std::string>{"4d", "4e"}));
    EXPECT_EQ(channels(255), (std::vector<std::string>{"ff", "01"})) << "never 0";
    EXPECT_EQ(channels(0), (std::vector<std::string>{"01", "02"}));
}

TEST(TunnelServer, StrayRequestsDoNotKeepATunnelOpen) {
    ServerBench bench;
    bench.Connect();
    bench.Advance(std::chrono::seconds(119));
    bench.Receive(kClientData, kRequest + "09" + kSwitchOn);
    bench.Advance(std::chrono::seconds(1));
    EXPECT_FALSE(bench.Server().IsOpen(0));
}

TEST(TunnelServer, GarbageIsReportedAndChangesNothing) {
    ServerBench bench;
    bench.Connect();
    bench.Receive(kClient, "");
    bench.Receive(kClient, "0610");
    bench.Receive(kClient, "06100205001a");
    bench.Receive(kClient, "061009500011 2900bce011040a03010081"); // a routing indication
    bench.Receive(kClient, "061002060008 0024");                   // an answer of a server
    // Acknowledged, since the tunnel is in order; what is inside is not.
    bench.Receive(kClientData, "06100420000a 04010000");
    bench.Receive(kClientData, "06100420000b 04010100 f1");
    bench.Receive(kClientData, kRequest + "0200 2900bce011040a03010081");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client
0.000 ! the datagram is shorter than a KNXnet/IP header
0.000 < client 0610
0.000 ! the datagram is shorter than a KNXnet/IP header
0.000 < client 06100205001a
0.000 ! the total length is not the size of the datagram
0.000 < client 061009500011 2900bce011040a03010081
0.000 ! the KNXnet/IP service is not known
0.000 < client 061002060008 0024
0.000 ! a frame that is not for a server was sent to one
0.000 < client-data 06100420000a 04010000
0.000 > client-data 06100421000a 04010000
0.000 ! the cEMI message is empty
0.000 < client-data 06100420000b 04010100f1
0.000 > client-data 06100421000a 04010100
0.000 ! the cEMI message is not L_Data
0.000 < client-data 061004200015 040102002900bce011040a03010081
0.000 > client-data 06100421000a 04010200
0.000 ! a client sent no L_Data.req
)");
    EXPECT_EQ(bench.Server().Counters(0).unsupported, 3U);
    EXPECT_TRUE(bench.Server().IsOpen(0));
}

TEST(TunnelServer, StopClosesEveryTunnelAndMayBeFollowedByNewOnes) {
    ServerBench bench;
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Take();
    bench.Server().Stop();
    bench.Receive(kClient, "0610020a0008 0100"); // the client's answer
    EXPECT_EQ(bench.Take(), R"(
0.000 > client 061002090010 01000801c0a801020e57
0.000 ! tunnel 0: closed by the server
0.000 < client 0610020a0008 0100
)");
    EXPECT_FALSE(bench.Server().IsOpen(0));
    bench.Connect();
    EXPECT_TRUE(bench.Server().IsOpen(0));
}

TEST(TunnelServer, RefusesABrokenConfiguration) {
    const auto cause = [](const TunnelServerConfig& config) -> std::string {
        try {
            ServerBench bench(config);
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(cause(Config(0)), "the number of tunnel addresses is not 1 to 255");
    EXPECT_EQ(cause(Config(256)), "the number of tunnel addresses is not 1 to 255");
    EXPECT_EQ(cause(Config(255)), "");
    TunnelServerConfig config = Config();
    config.tunnelAddresses[1] = config.tunnelAddresses[0];
    EXPECT_EQ(cause(config), "two tunnels have the address 1.1.250");
    config.tunnelAddresses[1] = IndividualAddress();
    EXPECT_EQ(cause(config), "0.0.0 is not an address for a tunnel");
    config = Config();
    config.queueLimit = 0;
    EXPECT_EQ(cause(config), "the queue limit of the tunnels is 0");
}

} // namespace
} // namespace KnxIp
