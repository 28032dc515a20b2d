// Management connections of the server.
#include "ServerBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace ServerTesting;
using std::chrono::seconds;

const std::string kTcp = "0802000000000000";
const std::string kConnect = "061002050018 0801c0a8010ac350 0801c0a8010ac351 0203";
const std::string kConnectOfOther = "061002050018 0801c0a8010bc350 0801c0a8010bc350 0203";
const std::string kManagementOverTcp = "061002050018" + kTcp + kTcp + "0203";
// On channel 1; the sequence number and 00 follow, then the message.
const std::string kConfigure = "061003100011 0401";
const std::string kConfigureAck = "06100311000a 0401";
const std::string kRead = "00 fc000b01341001";       // object 11, PID 52, one element
const std::string kConfirmed = "fb000b0134100111fa"; // its confirmation

TunnelServerConfig Managed(std::size_t connections = 2) {
    TunnelServerConfig config = Config();
    config.managementConnections = connections;
    return config;
}

class Management : public testing::Test {
protected:
    void Connect() {
        m_bench.Receive(kClient, kConnect);
        m_bench.Take();
    }

    ServerBench m_bench{Managed()};
};

TEST_F(Management, APropertyIsReadOverAConnectionOfItsOwn) {
    m_bench.Receive(kClient, kConnect);
    m_bench.Receive(kClientData, kConfigure + "00" + kRead);
    m_bench.Receive(kClientData, kConfigureAck + "0000");
    m_bench.Receive(kClient, kStateRequest);
    m_bench.Receive(kClient, kDisconnectRequest);
    EXPECT_EQ(m_bench.Take(), R"(
0.000 < client 061002050018 0801c0a8010ac3500801c0a8010ac3510203
0.000 > client 061002060012 01000801c0a801020e570203
0.000 ! management by 192.168.1.10:50000
0.000 < client-data 061003100011 04010000fc000b01341001
0.000 > client-data 06100311000a 04010000
0.000 ! M_PropRead.req of object 11, PID 52
0.000 > client-data 061003100013 04010000fb000b0134100111fa
0.000 < client-data 06100311000a 04010000
0.000 < client 061002070010 01000801c0a8010ac350
0.000 > client 061002080008 0100
0.000 < client 061002090010 01000801c0a8010ac350
0.000 > client 0610020a0008 0100
0.000 ! management by 192.168.1.10:50000: closed by the client
)");
    EXPECT_EQ(m_bench.Server().NextTime(), std::nullopt);
}

TEST_F(Management, AWriteIsConfirmedAndWhatIsNotThereRefused) {
    Connect();
    m_bench.Receive(kClientData, "061003100013 0401 00 00 f6000b0134100111fb");
    m_bench.Receive(kClientData, kConfigureAck + "0000");
    m_bench.m_onManagement = [](const ManagementMessage& request) {
        return request.Refusal(KnxFrames::PropertyError::ReadOnly);
    };
    m_bench.Receive(kClientData, "061003100013 0401 01 00 f6000b0134100111fb");
    EXPECT_EQ(m_bench.Take(), R"(
0.000 < client-data 061003100013 04010000f6000b0134100111fb
0.000 > client-data 06100311000a 04010000
0.000 ! M_PropWrite.req of object 11, PID 52
0.000 > client-data 061003100011 04010000f5000b01341001
0.000 < client-data 06100311000a 04010000
0.000 < client-data 061003100013 04010100f6000b0134100111fb
0.000 > client-data 06100311000a 04010100
0.000 ! M_PropWrite.req of object 11, PID 52
0.000 > client-data 061003100012 04010100f5000b0134000105
)");
}

TEST_F(Management, ARepeatedRequestIsAcknowledgedAndNotDoneAgain) {
    Connect();
    m_bench.Receive(kClientData, kConfigure + "00" + kRead);
    m_bench.Take();
    m_bench.Receive(kClientData, kConfigure + "00" + kRead);
    m_bench.Receive(kClientData, kConfigure + "07" + kRead);
    EXPECT_EQ(m_bench.Take(), R"(
0.000 < client-data 061003100011 04010000fc000b01341001
0.000 > client-data 06100311000a 04010000
0.000 < client-data 061003100011 04010700fc000b01341001
)");
}

TEST_F(Management, AnAnswerIsSentFourTimesBeforeTheConnectionIsGivenUp) {
    Connect();
    m_bench.Receive(kClientData, kConfigure + "00" + kRead);
    m_bench.Take();
    m_bench.Advance(seconds(100));
    EXPECT_EQ(m_bench.Take(), R"(
10.000 > client-data 061003100013 04010000fb000b0134100111fa
20.000 > client-data 061003100013 04010000fb000b0134100111fa
30.000 > client-data 061003100013 04010000fb000b0134100111fa
40.000 > client 061002090010 01000801c0a801020e57
40.000 ! management by 192.168.1.10:50000: a telegram was not acknowledged
)");
}

TEST_F(Management, ASilentClientIsDroppedAfter120Seconds) {
    Connect();
    m_bench.Advance(seconds(119));
    EXPECT_EQ(m_bench.Take(), "\n");
    m_bench.Advance(seconds(2));
    EXPECT_EQ(m_bench.Take(), R"(
120.000 > client 061002090010 01000801c0a801020e57
120.000 ! management by 192.168.1.10:50000: nothing heard of the client for 120 s
)");
}

TEST_F(Management, AnswersWaitForTheirTurnAndTheOldestGoWhenNobodyAcknowledges) {
    Connect();
    for (unsigned number = 0; number < 70; ++number)
        m_bench.Receive(kClientData,
                        kConfigure + Digits(number) + fmt::format("00 fc000b01{:02x}1001", number));
    m_bench.Take();
    m_bench.Receive(kClientData, kConfigureAck + "0000");
    const auto next = m_bench.Take();
    // 0 was under way; of 1 to 69 the last 64 are left.
    EXPECT_NE(next.find("fb000b0106100111fa"), std::string::npos) << next;
}

TEST_F(Management, AResetIsForTheDeviceAndEndsItsConnection) {
    Connect();
    m_bench.Receive(kClientData, "06100310000b 0401 00 00 f1");
    EXPECT_EQ(m_bench.Take(), R"(
0.000 < client-data 06100310000b 04010000f1
0.000 > client-data 06100311000a 04010000
0.000 ! reset
0.000 > client 061002090010 01000801c0a801020e57
0.000 ! management by 192.168.1.10:50000: closed by the server
)");
}

TEST_F(Management, AChangedPropertyIsAnnouncedToEveryClient) {
    ManagementMessage property;
    property.objectType = 0;
    property.property = 54;
    property.data.Append(1);
    m_bench.Server().AnnounceProperty(m_bench.Now(), property); // to nobody
    Connect();
    m_bench.OpenStream(1, kOther);
    m_bench.ReceiveFrom(1, kManagementOverTcp);
    m_bench.Take();
    m_bench.Server().AnnounceProperty(m_bench.Now(), property);
    EXPECT_EQ(m_bench.Take(), R"(
0.000 > client-data 061003100012 04010000f700000136100101
0.000 > stream-1 061003100012 04020000f700000136100101
)");
}

TEST_F(Management, WhoChangesAPropertyIsNotToldOfIt) {
    Connect();
    m_bench.Receive(kOther, kConnectOfOther);
    m_bench.Take();
    m_bench.m_onManagement = [&](const ManagementMessage& request) {
        m_bench.Server().AnnounceProperty(m_bench.Now(), request);
        return request.Confirmation();
    };
    m_bench.Receive(kClientData, "061003100012 0401 00 00 f6000001361001 01");
    m_bench.Receive(kClientData, kConfigureAck + "0000");
    EXPECT_EQ(m_bench.Take(), R"(
0.000 < client-data 061003100012 04010000f600000136100101
0.000 > client-data 06100311000a 04010000
0.000 ! M_PropWrite.req of object 0, PID 54
0.000 > other 061003100012 04020000f700000136100101
0.000 > client-data 061003100011 04010000f5000001361001
0.000 < client-data 06100311000a 04010000
)");
    ManagementMessage property;
    property.property = 54;
    m_bench.Server().AnnounceProperty(m_bench.Now(), property);
    EXPECT_EQ(m_bench.Take(), "\n0.000 > client-data 061003100011 04010100f7000001361001\n") << "of the next";
}

TEST_F(Management, AFunctionIsCalledAndConfirmed) {
    Connect();
    m_bench.m_onManagement = [](const ManagementMessage& request) {
        auto answer = request.Confirmation();
        answer.data.Append16(0x002A);
        return answer;
    };
    m_bench.Receive(kClientData, "061003100011 0401 00 00 f8000001c9 0001");
    m_bench.Receive(kClientData, kConfigureAck + "0000");
    m_bench.Receive(kClientData, "06100310000f 0401 01 00 f9000001c9");
    EXPECT_EQ(m_bench.Take(), R"(
0.000 < client-data 061003100011 04010000f8000001c90001
0.000 > client-data 06100311000a 04010000
0.000 ! M_FuncPropCommand.req of object 0, PID 201
0.000 > client-data 061003100011 04010000fa000001c9002a
0.000 < client-data 06100311000a 04010000
0.000 < client-data 06100310000f 04010100f9000001c9
0.000 > client-data 06100311000a 04010100
0.000 ! M_FuncPropStateRead.req of object 0, PID 201
0.000 > client-data 061003100011 04010100fa000001c9002a
)");
}

TEST_F(Management, AComputersSecondConnectionEndsItsFirst) {
    Connect();
    m_bench.Receive(kOther, kConnectOfOther);
    m_bench.Take();
    m_bench.Receive(kSameHost, "061002050018 0801c0a8010ad6d8 0801c0a8010ad6d9 0203");
    EXPECT_EQ(m_bench.Take(), R"(
0.000 < same-host 061002050018 0801c0a8010ad6d80801c0a8010ad6d90203
0.000 > client 061002090010 01000801c0a801020e57
0.000 ! management by 192.168.1.10:50000: closed by the server
0.000 > same-host 061002060012 03000801c0a801020e570203
0.000 ! management by 192.168.1.10:55000
)");
}

TEST_F(Management, MoreClientsThanConnectionsAreRefused) {
    ServerBench bench(Managed(1));
    bench.Receive(kClient, kConnect);
    bench.Receive(kOther, kConnectOfOther);
    EXPECT_NE(bench.Take().find("> other 061002060008 0024"), std::string::npos);
}

TEST_F(Management, TunnelsAndManagementAreApart) {
    Connect();
    m_bench.Receive(kClient, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200"); // channel 2
    m_bench.Take();
    m_bench.Receive(kClientData, "061004200015 0401 00" + kSwitchOn);
    m_bench.Receive(kClientData, "061003100011 0402 00" + kRead);
    m_bench.Receive(kOther, kConfigure + "00" + kRead);
    EXPECT_EQ(m_bench.Take(), R"(
0.000 < client-data 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010021
0.000 < client-data 061003100011 04020000fc000b01341001
0.000 > client-data 06100311000a 04020021
0.000 < other 061003100011 04010000fc000b01341001
0.000 > other 06100311000a 04010021
)");
    m_bench.Server().Broadcast(m_bench.Now(), Telegram());
    EXPECT_EQ(m_bench.Take(), "\n0.000 > client-data 061004200015 040200002900bce011040a03010081\n");
}

TEST_F(Management, OverAStreamNothingIsAcknowledgedAndTheEndIsTheStreams) {
    m_bench.OpenStream(1, kOther);
    m_bench.ReceiveFrom(1, kManagementOverTcp);
    m_bench.ReceiveFrom(1, kConfigure + "09" + kRead + kConfigure + "09" + kRead);
    m_bench.Advance(seconds(100));
    m_bench.Server().OnStreamClosed(1);
    EXPECT_EQ(m_bench.Take(), R"(
0.000 < stream-1 061002050018 080200000000000008020000000000000203
0.000 > stream-1 061002060012 010008020000000000000203
0.000 ! management by 192.168.1.11:50000 over TCP
0.000 < stream-1 061003100011 04010900fc000b0134100106100310001104010900fc000b01341001
0.000 ! M_PropRead.req of object 11, PID 52
0.000 > stream-1 061003100013 04010000fb000b0134100111fa
0.000 ! M_PropRead.req of object 11, PID 52
0.000 > stream-1 061003100013 04010100fb000b0134100111fa
100.000 ! management by 192.168.1.11:50000 over TCP: the TCP connection has ended
)");
}

TEST_F(Management, WhatIsNoRequestOfDeviceManagementIsAcknowledgedAndIgnored) {
    Connect();
    m_bench.Receive(kClientData, "061003100015 0401 00" + kSwitchOn);
    m_bench.Receive(kClientData, "061003100013 0401 01 00 " + kConfirmed);
    EXPECT_EQ(m_bench.Take(), R"(
0.000 < client-data 061003100015 040100001100bce000000a03010081
0.000 > client-data 06100311000a 04010000
0.000 ! the cEMI message is not one of device management
0.000 < client-data 061003100013 04010100fb000b0134100111fa
0.000 > client-data 06100311000a 04010100
0.000 ! a client sent no request of device management
)");
}

TEST_F(Management, StopEndsTheConnectionsToo) {
    Connect();
    m_bench.Server().Stop();
    EXPECT_EQ(m_bench.Take(), R"(
0.000 > client 061002090010 01000801c0a801020e57
0.000 ! management by 192.168.1.10:50000: closed by the server
)");
}

TEST(ManagementConfiguration, TheNumberOfConnectionsIsBounded) {
    EXPECT_THROW(ServerBench{Managed(17)}, std::invalid_argument);
    EXPECT_NO_THROW(ServerBench{Managed(16)});
    TunnelServerConfig config = Config(250);
    config.managementConnections = 6;
    EXPECT_THROW(ServerBench{config}, std::invalid_argument);
}

} // namespace
} // namespace KnxIp
