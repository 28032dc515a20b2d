// What clients ask of the server's interface through their tunnels.
#include "ServerBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace ServerTesting;
using std::chrono::milliseconds;
using std::chrono::seconds;

TunnelServerConfig Features() {
    TunnelServerConfig config = Config();
    config.extended.apduLength = 233;
    return config;
}

/// A tunnel with the first channel, over a stream, where nothing is acknowledged.
class Client {
public:
    Client() {
        m_bench.Server().SetInterface(m_bench.Now(), {0x00FA, true});
        m_bench.ConnectOver(1);
    }

    /// What comes back for a TUNNELLING_FEATURE_GET or _SET: feature, return code, value.
    std::string Get(const std::string& feature) { return Ask("22", feature, ""); }
    std::string Set(const std::string& feature, const std::string& value) {
        return Ask("24", feature, value);
    }

    ServerBench& Bench() { return m_bench; }

private:
    std::string Ask(const std::string& service, const std::string& feature, const std::string& value) {
        m_bench.ReceiveFrom(
            1, fmt::format("061004{}{:04x} 04010000 {}00{}", service, 12 + value.size() / 2, feature, value));
        const auto transcript = m_bench.Take();
        const std::string sent = "> stream-1 06100423";
        const auto found = transcript.find(sent);
        if (found == std::string::npos)
            return transcript;
        constexpr std::size_t kBehindHeaders = 4 + 1 + 8; // length, blank, connection header
        const auto begin = found + sent.size() + kBehindHeaders;
        return transcript.substr(begin, transcript.find('\n', begin) - begin);
    }

    ServerBench m_bench{Features()};
};

TEST(TunnelServerFeatures, EachIsTold) {
    Client client;
    EXPECT_EQ(client.Get("01"), "01000004") << "cEMI alone";
    EXPECT_EQ(client.Get("02"), "020057b0");
    EXPECT_EQ(client.Get("03"), "030001");
    EXPECT_EQ(client.Get("04"), "040000fa");
    EXPECT_EQ(client.Get("05"), "050003");
    EXPECT_EQ(client.Get("06"), "060011fa");
    EXPECT_EQ(client.Get("07"), "070000e9");
    EXPECT_EQ(client.Get("08"), "080000");
    EXPECT_EQ(client.Get("00"), "00fd");
    EXPECT_EQ(client.Get("09"), "09fd");
}

TEST(TunnelServerFeatures, OnlyTheWishToBeToldOfChangesCanBeSet) {
    Client client;
    for (const std::string feature : {"01", "02", "03", "04", "05", "06", "07"})
        EXPECT_EQ(client.Set(feature, "0000"), feature + "fb");
    EXPECT_EQ(client.Set("00", "00"), "00fd");
    EXPECT_EQ(client.Set("08", ""), "08fe");
    EXPECT_EQ(client.Set("08", "0000"), "08fe");
    EXPECT_EQ(client.Set("08", "02"), "08f8");
    EXPECT_EQ(client.Get("08"), "080000");
    EXPECT_EQ(client.Set("08", "01"), "080001");
    EXPECT_EQ(client.Get("08"), "080001");
    EXPECT_EQ(client.Set("08", "00"), "080000");
}

TEST(TunnelServerFeatures, AClientThatWishesSoIsToldWhenTheBusIsGoneAndBack) {
    Client client;
    client.Bench().Server().SetInterface(client.Bench().Now(), {0x00FA, false});
    EXPECT_EQ(client.Bench().Take(), "\n") << "nobody wished it";
    EXPECT_EQ(client.Get("03"), "030000");
    client.Set("08", "01");
    client.Bench().ConnectOver(2, kOther);
    client.Bench().Server().SetInterface(client.Bench().Now(), {0x00FA, false});
    EXPECT_EQ(client.Bench().Take(), "\n") << "no change";
    client.Bench().Server().SetInterface(client.Bench().Now(), {0x00FA, true});
    client.Bench().Server().SetInterface(client.Bench().Now(), {0x00FA, false});
    EXPECT_EQ(client.Bench().Take(), R"(
0.000 > stream-1 06100425000d 04010200030001
0.000 > stream-1 06100425000d 04010300030000
)") << "to the first client alone";
}

TEST(TunnelServerFeatures, TheNextClientOfATunnelStartsWithoutTheWish) {
    ServerBench bench(Features());
    bench.Connect();
    bench.Receive(kClientData, "06100424000d 04010000 080001");
    bench.Receive(kClientData, kAck + "0000");
    bench.Receive(kClient, kDisconnectRequest);
    bench.Connect();
    bench.Server().SetInterface(bench.Now(), {0, false});
    EXPECT_EQ(bench.Take(), "\n");
    bench.Receive(kClientData, "06100422000c 04020000 0800");
    EXPECT_TRUE(bench.Take().ends_with("> client-data 06100423000d 04020000080000\n"));
}

TEST(TunnelServerFeatures, ADatagramIsAcknowledgedAndItsAnswerRepeatedUntilItIs) {
    ServerBench bench(Features());
    bench.Connect();
    bench.Receive(kClientData, "06100422000c 04010000 0300");
    bench.Receive(kClientData, "06100422000c 04010000 0300"); // the acknowledgement was lost
    bench.Receive(kClientData, "06100422000c 04010500 0300"); // out of order
    bench.Advance(milliseconds(1500));
    bench.Receive(kClientData, kAck + "0000");
    bench.Advance(seconds(5));
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 06100422000c 040100000300
0.000 > client-data 06100421000a 04010000
0.000 > client-data 06100423000d 04010000030001
0.000 < client-data 06100422000c 040100000300
0.000 > client-data 06100421000a 04010000
0.000 < client-data 06100422000c 040105000300
1.000 > client-data 06100423000d 04010000030001
1.500 < client-data 06100421000a 04010000
)");
    EXPECT_TRUE(bench.Server().IsOpen(0));
}

TEST(TunnelServerFeatures, AnAnswerTakesItsTurnAmongTelegrams) {
    ServerBench bench(Features());
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Server().Broadcast(bench.Now(), Telegram(0));
    bench.Take();
    bench.Receive(kClientData, "06100422000c 04010000 0300");
    bench.Receive(kClientData, kAck + "0000");
    bench.Receive(kClientData, kAck + "0100");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 06100422000c 040100000300
0.000 > client-data 06100421000a 04010000
0.000 < client-data 06100421000a 04010000
0.000 > client-data 06100423000d 04010100030001
0.000 < client-data 06100421000a 04010100
0.000 > client-data 061004200015 040102002900bce011040a03010080
)");
}

TEST(TunnelServerFeatures, AClientThatAcknowledgesNothingLosesTheOldestAnswers) {
    ServerBench bench(Features());
    bench.Connect();
    for (unsigned number = 0; number < TunnelServer::kMostFeatures + 3; ++number)
        bench.Receive(kClientData, fmt::format("06100422000c 0401{:02x}00 {:02x}00", number, number));
    bench.Take();
    bench.Receive(kClientData, kAck + "0000"); // of the first answer; two behind it were lost
    EXPECT_TRUE(bench.Take().ends_with("> client-data 06100423000d 04010100030001\n"));
}

TEST(TunnelServerFeatures, OthersAreNotAnswered) {
    ServerBench bench(Features());
    bench.Connect();
    bench.Receive(kClientData, "06100422000c 04020000 0300");
    bench.Receive(kOther, "06100422000c 04010000 0300");
    bench.Receive(kClientData, "06100423000d 04010000 030001");
    bench.Receive(kClientData, "06100425000d 04010000 030001");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 06100422000c 040200000300
0.000 < other 06100422000c 040100000300
0.000 < client-data 06100423000d 04010000030001
0.000 ! a frame that is not for a server was sent to one
0.000 < client-data 06100425000d 04010000030001
0.000 ! a frame that is not for a server was sent to one
)");
}

} // namespace
} // namespace KnxIp
