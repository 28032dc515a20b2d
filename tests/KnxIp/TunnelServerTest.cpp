#include "KnxIp/TunnelServer.h"

#include "Transcript.h"

#include <gtest/gtest.h>

#include <cstdio>
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

constexpr Endpoint kOther{0xC0A8010B, 50000}; // 192.168.1.11

TunnelServerConfig Config(std::size_t tunnels = 2) {
    TunnelServerConfig config;
    config.endpoint = kServer;
    config.device.address = IndividualAddress(1, 1, 0);
    config.device.name = "test";
    for (std::size_t index = 0; index < tunnels; ++index)
        config.tunnelAddresses.emplace_back(static_cast<std::uint16_t>(0x11FA + index));
    return config;
}

/// A server under test; everything it wishes goes into the transcript.
class ServerBench : public TunnelServerListener {
public:
    explicit ServerBench(TunnelServerConfig config = Config()) : m_server(std::move(config), *this) {
        m_transcript.Name(kClient, "client");
        m_transcript.Name(kClientData, "client-data");
        m_transcript.Name(kOther, "other");
    }

    void SendDatagram(const Endpoint& to, Octets datagram) override { m_transcript.Out(m_now, to, datagram); }
    void OnTelegram(TunnelId origin, const LData& telegram) override {
        Event("telegram of tunnel " + std::to_string(origin) + ": " + Describe(telegram));
        m_telegrams.push_back(telegram);
        if (m_onTelegram)
            m_onTelegram(origin, telegram);
    }
    void OnTunnelOpened(TunnelId tunnel, IndividualAddress address, const Endpoint& client) override {
        Event("tunnel " + std::to_string(tunnel) + " opened, " + address.ToString() + ", " +
              client.ToString());
    }
    void OnTunnelClosed(TunnelId tunnel, TunnelEnd end) override {
        Event("tunnel " + std::to_string(tunnel) + ": " + ToString(end));
    }
    void OnConnectRefused(const Endpoint&, Status status) override {
        Event(std::string("refused: ") + ToString(status));
    }
    void OnQueueOverflow(TunnelId tunnel) override {
        Event("tunnel " + std::to_string(tunnel) + " overflows");
    }
    void OnRefusedDatagram(const Endpoint&, const FrameError& error) override { Event(error.cause); }

    void Receive(const Endpoint& from, const std::string& hex) {
        const auto octets = Hex(hex);
        m_transcript.In(m_now, from, octets);
        m_server.OnDatagram(m_now, from, octets);
    }
    /// A connection with control and data endpoint of the client; the lines of it are taken away.
    void Connect() {
        Receive(kClient, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200");
        m_transcript.Take();
    }
    void Advance(milliseconds by) { RunUntil(m_server, m_now, m_now + by); }
    void Event(const std::string& text) { m_transcript.Event(m_now, text); }

    TunnelServer& Server() { return m_server; }
    std::string Take() { return m_transcript.Take(); }
    TimePoint Now() const { return m_now; }
    const std::vector<LData>& Telegrams() const { return m_telegrams; }

    std::function<void(TunnelId, const LData&)> m_onTelegram;

private:
    TimePoint m_now{};
    Transcript m_transcript;
    std::vector<LData> m_telegrams;
    TunnelServer m_server;
};

// Requests of the client on channel 1; the sequence number follows as two digits, then 00 and the message.
const std::string kRequest = "061004200015 0401";
const std::string kAck = "06100421000a 0401";
const std::string kSwitchOn = "00 1100bce000000a03010081"; // L_Data.req of 0.0.0 to 1/2/3
const std::string kStateRequest = "061002070010 0100 0801c0a8010ac350";
const std::string kDisconnectRequest = "061002090010 0100 0801c0a8010ac350";

LData Telegram(std::uint8_t value = 1) {
    return MakeGroupTelegram(IndividualAddress(1, 1, 4), GroupAddress(1, 2, 3),
                             KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, value));
}

/// Two hexadecimal digits.
std::string Digits(unsigned octet) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", octet & 0xFF);
    return digits;
}

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
    EXPECT_EQ(bench.Server().OpenTunnels(), 1U);
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

TEST(TunnelServer, AcknowledgesConfirmsAndHandsOverATelegram) {
    ServerBench bench;
    bench.Connect();
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    bench.Receive(kClientData, kAck + "0000");
    bench.Receive(kClientData, kRequest + "01 00 1100bce011770a03010080");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010000
0.000 > client-data 061004200015 040100002e00bce011fa0a03010081
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 < client-data 06100421000a 04010000
0.000 < client-data 061004200015 040101001100bce011770a03010080
0.000 > client-data 06100421000a 04010100
0.000 > client-data 061004200015 040101002e00bce011770a03010080
0.000 ! telegram of tunnel 0: 1.1.119 -> 1/2/3 GroupValue_Write 00
)");
    ASSERT_EQ(bench.Telegrams().size(), 2U);
    EXPECT_EQ(bench.Telegrams()[0].code, KnxFrames::MessageCode::LDataInd);
    // 0.0.0 became the address of the tunnel, 1.1.119 stayed.
    EXPECT_EQ(bench.Telegrams()[0].source, IndividualAddress(1, 1, 250));
    EXPECT_EQ(bench.Telegrams()[1].source, IndividualAddress(1, 1, 119));
    EXPECT_EQ(bench.Server().Counters(0).fromClient, 2U);
    EXPECT_EQ(bench.Server().Counters(0).toClient, 1U);
}

TEST(TunnelServer, ATelegramGoesToAllTunnelsButItsOrigin) {
    ServerBench bench;
    bench.m_onTelegram = [&](TunnelId origin, const LData& telegram) {
        bench.Server().Broadcast(bench.Now(), telegram, origin);
    };
    bench.Connect();
    bench.Receive(kOther, "06100205001a 0801c0a8010bc350 0801c0a8010bc350 04040200");
    bench.Take();
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010000
0.000 > client-data 061004200015 040100002e00bce011fa0a03010081
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 > other 061004200015 040200002900bce011fa0a03010081
)");
}

TEST(TunnelServer, PassesPointToPointAndBroadcastTelegramsUnharmed) {
    ServerBench bench;
    bench.m_onTelegram = [&](TunnelId origin, const LData& telegram) {
        bench.Server().Broadcast(bench.Now(), telegram, origin);
    };
    bench.Connect();
    bench.Receive(kOther, "06100205001a 0801c0a8010bc350 0801c0a8010bc350 04040200");
    bench.Take();
    // T_Connect to 1.1.4, then A_IndividualAddress_Read as system broadcast.
    bench.Receive(kClientData, "061004200014 04010000 1100b060000011040080");
    bench.Receive(kClientData, kAck + "0000");
    bench.Receive(kOther, "06100421000a 04020000");
    bench.Receive(kClientData, kRequest + "0100 1100a0e011fa0000010100");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200014 040100001100b060000011040080
0.000 > client-data 06100421000a 04010000
0.000 > client-data 061004200014 040100002e00b06011fa11040080
0.000 ! telegram of tunnel 0: 1.1.250 -> 1.1.4 T_Connect 80
0.000 > other 061004200014 040200002900b06011fa11040080
0.000 < client-data 06100421000a 04010000
0.000 < other 06100421000a 04020000
0.000 < client-data 061004200015 040101001100a0e011fa0000010100
0.000 > client-data 06100421000a 04010100
0.000 > client-data 061004200015 040101002e00a0e011fa0000010100
0.000 ! telegram of tunnel 0: 1.1.250 -> 0/0/0 T_Data_Broadcast 0100
0.000 > other 061004200015 040201002900a0e011fa0000010100
)");
}

TEST(TunnelServer, ARepeatedRequestIsAcknowledgedAgainAndDiscarded) {
    ServerBench bench;
    bench.Connect();
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    bench.Receive(kClientData, kAck + "0000");
    bench.Take();
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010000
)");
    bench.Receive(kClientData, kRequest + "02" + kSwitchOn);
    bench.Receive(kClientData, kRequest + "ff" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200015 040102001100bce000000a03010081
0.000 < client-data 061004200015 0401ff001100bce000000a03010081
)");
    EXPECT_EQ(bench.Server().Counters(0).fromClient, 1U);
    EXPECT_EQ(bench.Server().Counters(0).duplicates, 1U);
    EXPECT_EQ(bench.Server().Counters(0).outOfOrder, 2U);
}

TEST(TunnelServer, RepeatsOnceAfterOneSecondAndThenDisconnects) {
    ServerBench bench;
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Advance(milliseconds(2500));
    EXPECT_EQ(bench.Take(), R"(
0.000 > client-data 061004200015 040100002900bce011040a03010081
1.000 > client-data 061004200015 040100002900bce011040a03010081
2.000 > client 061002090010 01000801c0a801020e57
2.000 ! tunnel 0: a telegram was not acknowledged
)");
    EXPECT_FALSE(bench.Server().IsOpen(0));
    EXPECT_EQ(bench.Server().Counters(0).repeated, 1U);
}

TEST(TunnelServer, AnAcknowledgedRepetitionIsNotFollowedByAnother) {
    ServerBench bench;
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram(1));
    bench.Server().Broadcast(bench.Now(), Telegram(0));
    bench.Advance(milliseconds(1200));
    bench.Receive(kClientData, kAck + "0000"); // of the first transmission, late
    bench.Receive(kClientData, kAck + "0000"); // of the repetition
    bench.Receive(kClientData, kAck + "0100");
    bench.Advance(milliseconds(5000));
    EXPECT_EQ(bench.Take(), R"(
0.000 > client-data 061004200015 040100002900bce011040a03010081
1.000 > client-data 061004200015 040100002900bce011040a03010081
1.200 < client-data 06100421000a 04010000
1.200 > client-data 061004200015 040101002900bce011040a03010080
1.200 < client-data 06100421000a 04010000
1.200 < client-data 06100421000a 04010100
)");
    EXPECT_TRUE(bench.Server().IsOpen(0));
}

TEST(TunnelServer, AnErrorInTheAcknowledgementCountsAsNone) {
    ServerBench bench;
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Receive(kClientData, kAck + "0029");
    bench.Receive(kClientData, kAck + "0029");
    EXPECT_EQ(bench.Take(), R"(
0.000 > client-data 061004200015 040100002900bce011040a03010081
0.000 < client-data 06100421000a 04010029
0.000 > client-data 061004200015 040100002900bce011040a03010081
0.000 < client-data 06100421000a 04010029
0.000 > client 061002090010 01000801c0a801020e57
0.000 ! tunnel 0: a telegram was not acknowledged
)");
}

TEST(TunnelServer, AcknowledgementsWithAnotherSequenceNumberAreIgnored) {
    ServerBench bench;
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Receive(kClientData, kAck + "0100");
    bench.Receive(kClientData, kAck + "ff00");
    bench.Take();
    bench.Advance(milliseconds(1000));
    EXPECT_EQ(bench.Take(), R"(
1.000 > client-data 061004200015 040100002900bce011040a03010081
)");
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
0.000 > client 061002060008 0001
0.000 ! refused: the host protocol is not supported
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
0.000 > client-data 061004200015 040101002e00bce011fa0a03010081
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 < client 061002070010 01000801000000000000
0.000 > client 061002080008 0100
)");
}

TEST(TunnelServer, GarbageIsReportedAndChangesNothing) {
    ServerBench bench;
    bench.Connect();
    bench.Receive(kClient, "");
    bench.Receive(kClient, "0610");
    bench.Receive(kClient, "06100205001a");
    bench.Receive(kClient, "061005300011 2900bce011040a03010081"); // a routing indication
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
0.000 < client 061005300011 2900bce011040a03010081
0.000 ! the KNXnet/IP service is not known
0.000 < client 061002060008 0024
0.000 ! an answer of a server was sent to a server
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

TEST(TunnelServer, ABurstPassesInOrder) {
    constexpr unsigned kBurst = 1000;
    ServerBench bench;
    bench.Connect();
    // One is under way, the others wait.
    for (unsigned index = 0; index <= kBurst; ++index)
        bench.Server().Broadcast(bench.Now(), Telegram(index % 64));
    std::string expected = "\n";
    for (unsigned index = 0; index <= kBurst; ++index) {
        const std::string sequence = Digits(index % 256);
        expected += "0.000 > client-data 061004200015 0401" + sequence + "002900bce011040a030100" +
                    Digits(0x80 + index % 64) + "\n";
        ASSERT_EQ(bench.Take(), expected) << index;
        bench.Receive(kClientData, kAck + sequence + "00");
        expected = "\n0.000 < client-data 06100421000a 0401" + sequence + "00\n";
    }
    EXPECT_EQ(bench.Server().Counters(0).toClient, kBurst + 1);
    EXPECT_EQ(bench.Server().Counters(0).dropped, 0U);
}

TEST(TunnelServer, AFullQueueDropsItsOldestAndSaysSoOncePerBurst) {
    TunnelServerConfig config = Config();
    config.queueLimit = 2;
    ServerBench bench(std::move(config));
    bench.Connect();
    for (std::uint8_t value = 0; value < 6; ++value)
        bench.Server().Broadcast(bench.Now(), Telegram(value)); // 0 under way; 4 and 5 are left
    for (const char* sequence : {"00", "01", "02"})
        bench.Receive(kClientData, kAck + sequence + "00");
    for (std::uint8_t value = 6; value < 10; ++value)
        bench.Server().Broadcast(bench.Now(), Telegram(value));
    EXPECT_EQ(bench.Take(), R"(
0.000 > client-data 061004200015 040100002900bce011040a03010080
0.000 ! tunnel 0 overflows
0.000 < client-data 06100421000a 04010000
0.000 > client-data 061004200015 040101002900bce011040a03010084
0.000 < client-data 06100421000a 04010100
0.000 > client-data 061004200015 040102002900bce011040a03010085
0.000 < client-data 06100421000a 04010200
0.000 > client-data 061004200015 040103002900bce011040a03010086
0.000 ! tunnel 0 overflows
)");
    EXPECT_EQ(bench.Server().Counters(0).dropped, 4U);
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
    EXPECT_EQ(bench.Server().OpenTunnels(), 0U);
    bench.Connect();
    EXPECT_EQ(bench.Server().OpenTunnels(), 1U);
}

TEST(TunnelServer, CloseTunnelInsideACallbackIsAllowed) {
    ServerBench bench;
    bench.m_onTelegram = [&](TunnelId origin, const LData&) { bench.Server().CloseTunnel(origin); };
    bench.Connect();
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    EXPECT_FALSE(bench.Server().IsOpen(0));
    bench.Advance(std::chrono::seconds(10));
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
