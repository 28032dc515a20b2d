// Tunnels over TCP to the running daemon.
#include "../DaemonProcess.h"
#include "../RawTcp.h"

#include <gmock/gmock.h>

#include <csignal>
#include <system_error>

namespace KnxStackHost {
namespace {

using testing::HasSubstr;

const Bytes kIndication = {0x29, 0x00, 0xBC, 0xE0, 0x11, 0xFB, 0x49, 0x01, 0x02, 0x00, 0x80, 0x55};

class TcpTunnel : public testing::Test {
protected:
    /// Connects a tunnel in the stream and gives its channel.
    static std::uint8_t Connect(const RawTcp& stream) {
        EXPECT_TRUE(stream.Send(ConnectOverTcp()));
        const auto answer = stream.ReceiveFrame();
        if (answer.size() != 20 || answer[7] != 0) {
            ADD_FAILURE() << "no tunnel";
            return 0;
        }
        EXPECT_EQ(Bytes(answer.begin() + 8, answer.begin() + 16), Bytes({8, 2, 0, 0, 0, 0, 0, 0}));
        return answer[6];
    }

    TemporaryDirectory m_directory;
    DaemonProcess m_daemon{m_directory, TestConfiguration()};
    const std::uint16_t m_port = m_daemon.Port();
};

TEST_F(TcpTunnel, TelegramsPassBetweenAStreamAndAUdpClient) {
    const RawTcp stream(m_port);
    const auto channel = Connect(stream);
    RawTunnel udp(m_port);
    ASSERT_TRUE(stream.Send(TunnellingRequest(channel, GroupRequest(Group(9, 1, 1), kWrite, {0x55}))));
    EXPECT_EQ(kIndication, udp.ReceiveIndication());
    const auto confirmation = stream.ReceiveFrame();
    ASSERT_EQ(22u, confirmation.size());
    EXPECT_EQ(0x2E, confirmation[10]);
    ASSERT_TRUE(udp.Send(GroupRequest(Group(9, 1, 1), kWrite, {0x56})));
    const auto indication = stream.ReceiveFrame();
    ASSERT_EQ(22u, indication.size());
    EXPECT_EQ(0x29, indication[10]);
    EXPECT_EQ(0x56, indication[21]);
    EXPECT_THAT(m_daemon.Log(), HasSubstr("tunnel 1.1.251: connected by 127.0.0.1:"));
    EXPECT_THAT(m_daemon.Log(), HasSubstr(" over TCP"));
}

TEST_F(TcpTunnel, ATunnelIsFreeAgainOnceItsStreamHasEnded) {
    for (std::size_t round = 0; round < 3; ++round) {
        ASSERT_TRUE(m_daemon.WaitForLog("the TCP connection has ended", milliseconds(20000), 2 * round));
        const RawTcp one(m_port);
        const RawTcp two(m_port);
        Connect(one);
        Connect(two);
        ASSERT_TRUE(one.Send(ConnectOverTcp()));
        EXPECT_EQ(0x24, one.ReceiveFrame().at(7)) << "there are two tunnels";
    }
}

TEST_F(TcpTunnel, SomethingElseThanKnxEndsTheStreamAndIsReportedOnce) {
    for (int round = 0; round < 3; ++round) {
        const RawTcp stream(m_port);
        const std::string request = "GET / HTTP/1.1\r\n\r\n";
        ASSERT_TRUE(stream.Send(Bytes(request.begin(), request.end())));
        EXPECT_TRUE(stream.HasEnded());
    }
    EXPECT_EQ(1u, CountOf(m_daemon.Log(), "the KNXnet/IP header is not 6 octets long"));
}

TEST_F(TcpTunnel, ClientsAreDisconnectedWhenTheDaemonEnds) {
    const RawTcp stream(m_port);
    const auto channel = Connect(stream);
    m_daemon.Signal(SIGTERM);
    EXPECT_EQ(stream.ReceiveFrame(),
              Bytes({0x06, 0x10, 0x02, 0x09, 0x00, 0x10, channel, 0, 8, 2, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(stream.HasEnded());
    EXPECT_EQ(0, m_daemon.WaitForEnd(milliseconds(20000)));
}

TEST_F(TcpTunnel, ASearchForProgrammingModeFindsTheDeviceWhileItIsInIt) {
    const RawUdp client(m_port);
    const Bytes forProgrammingMode = {0x06, 0x10, 0x02, 0x0B, 0x00, 0x10, 0x08, 0x01,
                                      0,    0,    0,    0,    0,    0,    0x02, 0x81};
    client.Send(forProgrammingMode);
    EXPECT_EQ(Bytes(), client.Receive(milliseconds(200)));
    m_daemon.Signal(SIGUSR2);
    Bytes answer;
    ASSERT_TRUE(Eventually(
        [&] {
            client.Send(forProgrammingMode);
            answer = client.Receive(milliseconds(200));
            return !answer.empty();
        },
        milliseconds(20000)));
    ASSERT_GT(answer.size(), 68u);
    EXPECT_EQ(Bytes({0x06, 0x10, 0x02, 0x0C}), Bytes(answer.begin(), answer.begin() + 4));
    EXPECT_EQ(Bytes({0x36, 0x01, 0x20, 0x01, 0x11, 0xFA}), Bytes(answer.begin() + 14, answer.begin() + 20));
}

TEST(TcpSwitchedOff, NobodyListensAndTheDescriptionSaysSo) {
    const TemporaryDirectory directory;
    auto configuration = TestConfiguration();
    const std::string server = "\"server\": {";
    configuration.replace(configuration.find(server), server.size(), server + "\"tcp\": false, ");
    const DaemonProcess daemon(directory, configuration);
    const auto port = daemon.Port();
    EXPECT_THROW(RawTcp{port}, std::system_error);
    const RawUdp client(port);
    client.Send({0x06, 0x10, 0x02, 0x03, 0x00, 0x0E, 0x08, 0x01, 0, 0, 0, 0, 0, 0});
    const auto description = client.Receive();
    ASSERT_EQ(68u, description.size());
    EXPECT_EQ(Bytes(description.end() - 6, description.end()), Bytes({0x02, 1, 0x04, 1, 0x03, 1}));
}

TEST_F(TcpTunnel, TheDescriptionSaysThatTcpIsSpoken) {
    const RawTcp stream(m_port);
    ASSERT_TRUE(stream.Send({0x06, 0x10, 0x02, 0x03, 0x00, 0x0E, 0x08, 0x02, 0, 0, 0, 0, 0, 0}));
    const auto description = stream.ReceiveFrame();
    ASSERT_EQ(68u, description.size());
    EXPECT_EQ(Bytes(description.begin() + 60, description.end()), Bytes({8, 2, 0x02, 2, 0x04, 2, 0x03, 2}));
    ASSERT_TRUE(stream.Send({0x06, 0x10, 0x02, 0x0B, 0x00, 0x0E, 0x08, 0x02, 0, 0, 0, 0, 0, 0}));
    const auto found = stream.ReceiveFrame();
    ASSERT_EQ(96u, found.size()); // with the blocks of version 2
    EXPECT_EQ(Bytes(found.begin() + 84, found.end()),
              Bytes({12, 7, 0x00, 0xFE, 0x11, 0xFB, 0x00, 0x07, 0x11, 0xFC, 0x00, 0x07}));
}

} // namespace
} // namespace KnxStackHost
