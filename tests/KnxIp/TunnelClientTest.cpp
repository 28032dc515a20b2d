#include "KnxIp/TunnelClient.h"

#include "Transcript.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

namespace KnxIp {
namespace {

using namespace Testing;
using KnxFrames::FrameError;
using KnxFrames::GroupAddress;
using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using KnxFrames::Priority;
using std::chrono::seconds;

constexpr Endpoint kStranger{0xC0A801FE, 3671};
constexpr Endpoint kServerData{0xC0A80102, 3672};

TunnelClientConfig Config() {
    TunnelClientConfig config;
    config.server = kServer;
    return config;
}

/// A client under test; everything it wishes goes into the transcript.
class ClientBench : public TunnelClientListener {
public:
    explicit ClientBench(TunnelClientConfig config = Config()) : m_client(std::move(config), *this) {
        m_transcript.Name(kServer, "server");
        m_transcript.Name(kServerData, "server-data");
        m_transcript.Name(kStranger, "stranger");
    }

    void SendDatagram(const Endpoint& to, Octets datagram) override { m_transcript.Out(m_now, to, datagram); }
    void OnTelegram(const LData& telegram) override { Event("telegram " + Describe(telegram)); }
    void OnConnected(IndividualAddress address) override {
        Event("connected as " + address.ToString());
        if (m_onConnected)
            m_onConnected();
    }
    void OnDisconnected(LinkFailure failure, milliseconds retryIn) override {
        Event(std::string("disconnected: ") + ToString(failure) + ", " + std::to_string(retryIn.count()) +
              " ms");
        if (m_onDisconnected)
            m_onDisconnected();
    }
    void OnConnectFailed(LinkFailure failure, Status status, milliseconds retryIn) override {
        Event(std::string("not connected: ") + ToString(failure) + ", " + ToString(status) + ", " +
              std::to_string(retryIn.count()) + " ms");
        m_delays.push_back(retryIn.count());
    }
    void OnSendFailed(const LData& telegram, SendFailure failure) override {
        Event(Describe(telegram) + ": " + ToString(failure));
        if (m_onSendFailed)
            m_onSendFailed();
    }
    void OnQueueOverflow() override { Event("queue overflows"); }
    void OnRefusedDatagram(const Endpoint&, const FrameError& error) override { Event(error.cause); }
    Endpoint LocalEndpoint() override { return kClient; }

    void Receive(const Endpoint& from, const std::string& hex) {
        const auto octets = Hex(hex);
        m_transcript.In(m_now, from, octets);
        m_client.OnDatagram(m_now, from, octets);
    }
    /// A connection on channel 21 with 1.1.250 that has lived for 10 s; the lines of it are taken away.
    void Connect() {
        m_client.Start(m_now);
        Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
        Advance(seconds(10));
        Take();
    }
    void Send(const LData& telegram) { m_isTaken = m_client.Send(m_now, telegram); }
    void Advance(milliseconds by) { RunUntil(m_client, m_now, m_now + by); }
    void Event(const std::string& text) { m_transcript.Event(m_now, text); }

    TunnelClient& Client() { return m_client; }
    std::string Take() { return m_transcript.Take(); }
    TimePoint Now() const { return m_now; }
    bool IsTaken() const { return m_isTaken; }
    const std::vector<milliseconds::rep>& Delays() const { return m_delays; }

    std::function<void()> m_onConnected;
    std::function<void()> m_onDisconnected;
    std::function<void()> m_onSendFailed;

private:
    TimePoint m_now{};
    Transcript m_transcript;
    bool m_isTaken = false;
    std::vector<milliseconds::rep> m_delays;
    TunnelClient m_client;
};

// Datagrams of the server on channel 21 (15h); of the first two, sequence number and 00 follow.
const std::string kRequest = "061004200015 0415";
const std::string kAck = "06100421000a 0415";
const std::string kSwitchOnInd = "00 2900bce011040a03010081";
const std::string kCon = "00 2e00bce011fa0a030100"; // of a telegram to 1/2/3; the value follows, 80h to BFh
const std::string kNegativeCon = "00 2e00bde011fa0a030100";
const std::string kDisconnectRequest = "061002090010 1500 0801c0a801020e57";
const std::string kStateGood = "061002080008 1500";

LData Telegram(std::uint8_t value, Priority priority = Priority::Low) {
    return MakeGroupTelegram(IndividualAddress(), GroupAddress(1, 2, 3),
                             KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, value), priority);
}

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

TEST(TunnelClient, SendsToTheDataEndpointOfTheServer) {
    ClientBench bench;
    bench.Client().Start(bench.Now());
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e58 040411fa");
    bench.Take();
    bench.Send(Telegram(1));
    bench.Receive(kServerData, kRequest + "00" + kSwitchOnInd);
    EXPECT_EQ(bench.Take(), R"(
0.000 > server-data 061004200015 041500001100bce000000a03010081
0.000 < server-data 061004200015 041500002900bce011040a03010081
0.000 > server-data 06100421000a 04150000
0.000 ! telegram 1.1.4 -> 1/2/3 GroupValue_Write 01
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
0.000 ! disconnected: the server closed the connection, 1000 ms
)");
}

TEST(TunnelClient, HandsOverTelegramsFromTheBus) {
    ClientBench bench;
    bench.Connect();
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd);
    bench.Receive(kServer, "061004200014 04150100 2900b06011fa11040080"); // T_Connect
    EXPECT_EQ(bench.Take(), R"(
10.000 < server 061004200015 041500002900bce011040a03010081
10.000 > server 06100421000a 04150000
10.000 ! telegram 1.1.4 -> 1/2/3 GroupValue_Write 01
10.000 < server 061004200014 041501002900b06011fa11040080
10.000 > server 06100421000a 04150100
10.000 ! telegram 1.1.250 -> 1.1.4 T_Connect 80
)");
    EXPECT_EQ(bench.Client().Counters().received, 2U);
}

TEST(TunnelClient, ARepeatedRequestIsAcknowledgedAgainAndDiscarded) {
    ClientBench bench;
    bench.Connect();
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd);
    bench.Take();
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd);
    bench.Receive(kServer, kRequest + "02" + kSwitchOnInd);
    EXPECT_EQ(bench.Take(), R"(
10.000 < server 061004200015 041500002900bce011040a03010081
10.000 > server 06100421000a 04150000
10.000 < server 061004200015 041502002900bce011040a03010081
)");
    EXPECT_EQ(bench.Client().Counters().received, 1U);
    EXPECT_EQ(bench.Client().Counters().duplicates, 1U);
    EXPECT_EQ(bench.Client().Counters().outOfOrder, 1U);
}

TEST(TunnelClient, SendsTheNextTelegramAfterAcknowledgementAndConfirmation) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    EXPECT_EQ(bench.Client().Waiting(), 1U);
    bench.Receive(kServer, kAck + "0000");
    bench.Receive(kServer, kRequest + "00" + kCon + "81");
    bench.Receive(kServer, kAck + "0100");
    bench.Receive(kServer, kRequest + "01" + kCon + "82");
    bench.Advance(seconds(5));
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150000
10.000 < server 061004200015 041500002e00bce011fa0a03010081
10.000 > server 06100421000a 04150000
10.000 > server 061004200015 041501001100bce000000a03010082
10.000 < server 06100421000a 04150100
10.000 < server 061004200015 041501002e00bce011fa0a03010082
10.000 > server 06100421000a 04150100
)");
    EXPECT_EQ(bench.Client().Counters().sent, 2U);
    EXPECT_EQ(bench.Client().Counters().received, 0U);
}

TEST(TunnelClient, AConfirmationMayOvertakeTheAcknowledgement) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    bench.Receive(kServer, kRequest + "00" + kCon + "81");
    bench.Receive(kServer, kAck + "0000");
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 061004200015 041500002e00bce011fa0a03010081
10.000 > server 06100421000a 04150000
10.000 < server 06100421000a 04150000
10.000 > server 061004200015 041501001100bce000000a03010082
)");
}

TEST(TunnelClient, AMissingConfirmationIsCountedAfterThreeSeconds) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    bench.Receive(kServer, kAck + "0000");
    bench.Receive(kServer, kRequest + "00" + kCon + "83"); // of somebody else
    bench.Advance(milliseconds(3500));
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150000
10.000 < server 061004200015 041500002e00bce011fa0a03010083
10.000 > server 06100421000a 04150000
13.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not confirmed by the interface within 3 s
13.000 > server 061004200015 041501001100bce000000a03010082
)");
    EXPECT_EQ(bench.Client().Counters().noConfirmation, 1U);
}

TEST(TunnelClient, ANegativeConfirmationIsReported) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kAck + "0000");
    bench.Receive(kServer, kRequest + "00" + kNegativeCon + "81");
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150000
10.000 < server 061004200015 041500002e00bde011fa0a03010081
10.000 > server 06100421000a 04150000
10.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged on the bus
)");
    EXPECT_EQ(bench.Client().Counters().negativeConfirm, 1U);
}

TEST(TunnelClient, RepeatsOnceAndGivesTheConnectionUp) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd); // the server lives
    bench.Advance(milliseconds(2500));
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 061004200015 041500002900bce011040a03010081
10.000 > server 06100421000a 04150000
10.000 ! telegram 1.1.4 -> 1/2/3 GroupValue_Write 01
11.000 > server 061004200015 041500001100bce000000a03010081
12.000 > server 061002090010 15000801c0a8010ac350
12.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged by the interface
12.000 ! disconnected: a telegram was not acknowledged, 0 ms
12.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
    EXPECT_EQ(bench.Client().Counters().repeated, 1U);
    EXPECT_EQ(bench.Client().Counters().noAck, 1U);
    EXPECT_EQ(bench.Client().Waiting(), 0U);
}

TEST(TunnelClient, ATelegramThatMetADeadLinkIsSentAfterTheReconnect) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    bench.Advance(milliseconds(2500));
    EXPECT_EQ(bench.Client().Waiting(), 2U);
    bench.Receive(kServer, "061002060014 1600 0801c0a801020e57 040411fb");
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
11.000 > server 061004200015 041500001100bce000000a03010081
12.000 > server 061002090010 15000801c0a8010ac350
12.000 ! disconnected: a telegram was not acknowledged, 0 ms
12.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
12.500 < server 061002060014 16000801c0a801020e57040411fb
12.500 ! connected as 1.1.251
12.500 > server 061004200015 041600001100bce000000a03010081
)");
    EXPECT_EQ(bench.Client().Counters().resent, 1U);
    EXPECT_EQ(bench.Client().Counters().noAck, 0U);
    EXPECT_EQ(bench.Client().Address(), IndividualAddress(1, 1, 251));
}

TEST(TunnelClient, AnErrorInTheAcknowledgementCountsAsNone) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kAck + "0029");
    bench.Receive(kServer, kAck + "0029");
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150029
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150029
10.000 > server 061002090010 15000801c0a8010ac350
10.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged by the interface
10.000 ! disconnected: a telegram was not acknowledged, 0 ms
10.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
}

TEST(TunnelClient, AForgottenConnectionIsMadeAgainAndNothingIsLost) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kAck + "0021");
    bench.Receive(kServer, "061002060014 0100 0801c0a801020e57 040411fa");
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150021
10.000 ! disconnected: the server does not know the connection any more, 0 ms
10.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
10.000 < server 061002060014 01000801c0a801020e57040411fa
10.000 ! connected as 1.1.250
10.000 > server 061004200015 040100001100bce000000a03010081
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

TEST(TunnelClient, TelegramsWaitForTheConnection) {
    ClientBench bench;
    bench.Send(Telegram(1));
    EXPECT_TRUE(bench.IsTaken());
    bench.Send(Telegram(2, Priority::Urgent));
    EXPECT_EQ(bench.Take(), "\n");
    EXPECT_EQ(bench.Client().Waiting(), 2U);
    bench.m_onConnected = [&] { bench.Send(Telegram(3)); };
    bench.Client().Start(bench.Now());
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
    for (const char* number : {"00", "01", "02"}) {
        bench.Receive(kServer, kAck + number + "00");
        bench.Receive(kServer, kRequest + number + kCon + "8" + std::to_string(number[1] - '0' + 1));
    }
    EXPECT_EQ(bench.Take(), R"(
0.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
0.000 < server 061002060014 15000801c0a801020e57040411fa
0.000 ! connected as 1.1.250
0.000 > server 061004200015 041500001100bce000000a03010081
0.000 < server 06100421000a 04150000
0.000 < server 061004200015 041500002e00bce011fa0a03010081
0.000 > server 06100421000a 04150000
0.000 > server 061004200015 041501001100b8e000000a03010082
0.000 < server 06100421000a 04150100
0.000 < server 061004200015 041501002e00bce011fa0a03010082
0.000 > server 06100421000a 04150100
0.000 > server 061004200015 041502001100bce000000a03010083
0.000 < server 06100421000a 04150200
0.000 < server 061004200015 041502002e00bce011fa0a03010083
0.000 > server 06100421000a 04150200
)");
}

TEST(TunnelClient, AFullQueueDropsTheOldestOfTheLowestPriority) {
    TunnelClientConfig config = Config();
    config.queueLimit = 3;
    ClientBench bench(std::move(config));
    bench.Send(Telegram(1, Priority::Urgent));
    bench.Send(Telegram(2, Priority::Low));
    bench.Send(Telegram(3, Priority::Low));
    bench.Send(Telegram(4, Priority::Normal)); // 2 goes
    bench.Send(Telegram(5, Priority::System)); // 3 goes
    EXPECT_TRUE(bench.IsTaken());
    bench.Send(Telegram(6, Priority::Low)); // goes itself
    EXPECT_FALSE(bench.IsTaken());
    bench.Send(Telegram(7, Priority::System)); // 4 goes
    bench.Send(Telegram(8, Priority::System)); // 1 goes
    bench.Send(Telegram(9, Priority::System)); // 5 goes
    EXPECT_EQ(bench.Client().Waiting(), 3U);
    EXPECT_EQ(bench.Client().Counters().dropped, 6U);
    bench.Client().Start(bench.Now());
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
    for (const char* number : {"00", "01", "02"}) {
        bench.Receive(kServer, kAck + number + "00");
        bench.Receive(kServer, kRequest + number + kCon + "8" + std::to_string(number[1] - '0' + 7));
    }
    // The queue has run empty: a new burst is reported anew.
    for (std::uint8_t value = 10; value < 15; ++value)
        bench.Send(Telegram(value));
    EXPECT_EQ(bench.Take(), R"(
0.000 ! queue overflows
0.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
0.000 < server 061002060014 15000801c0a801020e57040411fa
0.000 ! connected as 1.1.250
0.000 > server 061004200015 041500001100b0e000000a03010087
0.000 < server 06100421000a 04150000
0.000 < server 061004200015 041500002e00bce011fa0a03010087
0.000 > server 06100421000a 04150000
0.000 > server 061004200015 041501001100b0e000000a03010088
0.000 < server 06100421000a 04150100
0.000 < server 061004200015 041501002e00bce011fa0a03010088
0.000 > server 06100421000a 04150100
0.000 > server 061004200015 041502001100b0e000000a03010089
0.000 < server 06100421000a 04150200
0.000 < server 061004200015 041502002e00bce011fa0a03010089
0.000 > server 06100421000a 04150200
0.000 > server 061004200015 041503001100bce000000a0301008a
0.000 ! queue overflows
)");
}

TEST(TunnelClient, ABurstOfAThousandPasses) {
    ClientBench bench;
    bench.Connect();
    for (unsigned index = 0; index <= 1000; ++index)
        bench.Send(Telegram(static_cast<std::uint8_t>(index % 64)));
    EXPECT_EQ(bench.Client().Waiting(), 1000U);
    for (unsigned index = 0; index <= 1000; ++index) {
        char number[3];
        std::snprintf(number, sizeof number, "%02x", index % 256);
        char value[3];
        std::snprintf(value, sizeof value, "%02x", 0x80 + index % 64);
        bench.Receive(kServer, kAck + number + "00");
        bench.Receive(kServer, kRequest + number + kCon + value);
    }
    EXPECT_EQ(bench.Client().Counters().sent, 1001U);
    EXPECT_EQ(bench.Client().Counters().dropped, 0U);
    EXPECT_EQ(bench.Client().Waiting(), 0U);
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

TEST(TunnelClient, ATelegramSentWhileTheConnectionEndsWaitsForTheNext) {
    ClientBench bench;
    bench.Connect();
    bench.m_onSendFailed = [&] { bench.Send(Telegram(2)); };
    bench.Send(Telegram(1));
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd);
    bench.Receive(kServer, kDisconnectRequest);
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 061004200015 041500002900bce011040a03010081
10.000 > server 06100421000a 04150000
10.000 ! telegram 1.1.4 -> 1/2/3 GroupValue_Write 01
10.000 < server 061002090010 15000801c0a801020e57
10.000 > server 0610020a0008 1500
10.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged by the interface
10.000 ! disconnected: the server closed the connection, 0 ms
10.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
    EXPECT_EQ(bench.Client().Waiting(), 1U);
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
10.000 ! a request of a client, or an answer to a search, was sent to a client
10.000 < server 06100420000a 04150000
10.000 > server 06100421000a 04150000
10.000 ! the cEMI message is empty
10.000 < server 061004200015 041501001100bce011040a03010081
10.000 > server 06100421000a 04150100
10.000 ! a server sent an L_Data.req
)");
    EXPECT_TRUE(bench.Client().IsConnected());
}

TEST(TunnelClient, RefusesABrokenConfiguration) {
    TunnelClientConfig config;
    EXPECT_THROW(ClientBench{config}, std::invalid_argument);
    config = Config();
    config.queueLimit = 0;
    EXPECT_THROW(ClientBench{config}, std::invalid_argument);
}

} // namespace
} // namespace KnxIp
