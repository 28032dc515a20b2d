// The running daemon on a multicast bus, which is loopback.
#include "../DaemonProcess.h"
#include "../RawGroup.h"

#include <gmock/gmock.h>

#include <csignal>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;
using testing::HasSubstr;

std::string OnGroup(const std::string& group, const std::string& more = "") {
    return TestConfiguration("", R"(, "routing": {"group": ")" + group + R"(", "interface": "127.0.0.1")" +
                                     more + "}");
}

Bytes Indication(const Bytes& cemi) {
    Bytes datagram = {0x06, 0x10, 0x05, 0x30, 0x00, static_cast<std::uint8_t>(6 + cemi.size())};
    datagram.insert(datagram.end(), cemi.begin(), cemi.end());
    return datagram;
}

/// L_Data.ind or .req of 1.1.20 to 9/1/1, which no object has.
Bytes Telegram(std::uint8_t code, std::uint8_t value) {
    return {code, 0x00, 0xBC, 0xE0, 0x11, 0x14, 0x49, 0x01, 0x02, 0x00, 0x80, value};
}

class OnARoutingBus : public testing::Test {
protected:
    const std::string m_name = OwnGroup();
    const RawGroup m_group{m_name};
    TemporaryDirectory m_directory;
};

TEST_F(OnARoutingBus, TelegramsPassBetweenGroupDeviceAndTunnels) {
    DaemonProcess daemon(m_directory, OnGroup(m_name));
    RawTunnel tunnel(daemon.Port());
    ASSERT_TRUE(daemon.WaitForLog("joined the KNX bus in the multicast group " + m_name + ":3671"));

    m_group.Send(Indication({0x29, 0x00, 0xBC, 0xE0, 0x11, 0x14, 0x0A, 0x03, 0x01, 0x00, 0x81}));
    EXPECT_EQ(Bytes({0x29, 0x00, 0xBC, 0xE0, 0x11, 0x14, 0x0A, 0x03, 0x01, 0x00, 0x81}),
              tunnel.ReceiveIndication(seconds(20)));
    EXPECT_TRUE(Eventually(
        [&] { return m_directory.Read("record").find("write 1 01\n") != std::string::npos; }, seconds(20)));

    ASSERT_TRUE(tunnel.Send(Telegram(0x11, 7)));
    EXPECT_EQ(Indication(Telegram(0x29, 7)), m_group.Receive());

    // The program sends by its own object, too.
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(0, 0, 250), kWrite, {4})));
    EXPECT_EQ(0x11, m_group.Receive().at(10)) << "the command itself";
    EXPECT_EQ(Indication({0x29, 0x00, 0xBC, 0xE0, 0x11, 0xFA, 0x0A, 0x03, 0x01, 0x00, 0x81}),
              m_group.Receive());
}

TEST_F(OnARoutingBus, WhatComesBackFromTheGroupIsNotATelegram) {
    DaemonProcess daemon(m_directory, OnGroup(m_name));
    RawTunnel one(daemon.Port());
    RawTunnel two(daemon.Port());
    // A foreign source: by that alone nobody could tell that it has been here.
    ASSERT_TRUE(one.Send(Telegram(0x11, 7)));
    EXPECT_EQ(Telegram(0x29, 7), two.ReceiveIndication(seconds(20)));
    EXPECT_EQ(Indication(Telegram(0x29, 7)), m_group.Receive());
    ASSERT_TRUE(one.Send(Telegram(0x11, 8)));
    EXPECT_EQ(Telegram(0x29, 8), two.ReceiveIndication(seconds(20))) << "and the first one not again";
    EXPECT_EQ(Indication(Telegram(0x29, 8)), m_group.Receive());
    EXPECT_EQ(Bytes(), one.ReceiveIndication(milliseconds(200)));
    daemon.Signal(SIGTERM);
    ASSERT_EQ(0, daemon.WaitForEnd(seconds(30)));
    EXPECT_THAT(daemon.Log(),
                HasSubstr("2 telegrams sent and 0 received, 0 dropped, 0 waiting; 0 times busy, "
                          "0 telegrams lost by others; 2 own datagrams came back"));
}

TEST_F(OnARoutingBus, TwoHostsOnOneMachineHearEachOther) {
    TemporaryDirectory second;
    DaemonProcess daemon(m_directory, OnGroup(m_name));
    DaemonProcess other(second, OnGroup(m_name));
    RawTunnel one(daemon.Port());
    RawTunnel two(other.Port());
    // From the same address and port as far as each can see.
    ASSERT_TRUE(one.Send(Telegram(0x11, 7)));
    EXPECT_EQ(Telegram(0x29, 7), two.ReceiveIndication(seconds(20)));
    ASSERT_TRUE(two.Send(Telegram(0x11, 8)));
    EXPECT_EQ(Telegram(0x29, 8), one.ReceiveIndication(seconds(20)));
    EXPECT_EQ(Indication(Telegram(0x29, 7)), m_group.Receive());
    EXPECT_EQ(Indication(Telegram(0x29, 8)), m_group.Receive());
    EXPECT_EQ(Bytes(), m_group.Receive(milliseconds(200))) << "and pass nothing on";
}

TEST_F(OnARoutingBus, ABusyRouterIsGivenTheTimeThatItAsksFor) {
    DaemonProcess daemon(m_directory, OnGroup(m_name));
    RawTunnel tunnel(daemon.Port());
    ASSERT_TRUE(daemon.WaitForLog("joined the KNX bus"));
    m_group.Send({0x06, 0x10, 0x05, 0x32, 0x00, 0x0C, 0x06, 0x00, 0x0F, 0xA0, 0x00, 0x00}); // 4 s
    ASSERT_TRUE(daemon.WaitForLog("is busy and asks for a pause of 4000 ms"));
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(tunnel.Send(Telegram(0x11, 7)));
    EXPECT_EQ(Indication(Telegram(0x29, 7)), m_group.Receive());
    // Until the log line was seen, some of it had passed.
    EXPECT_GE(std::chrono::steady_clock::now() - start, seconds(1));
}

TEST_F(OnARoutingBus, WhenAClientDoesNotKeepUpOthersAreAskedForAPauseAndToldWhatIsLost) {
    DaemonProcess daemon(m_directory, OnGroup(m_name));
    RawTunnel slow(daemon.Port());
    ASSERT_TRUE(daemon.WaitForLog("joined the KNX bus"));
    std::vector<Bytes> said;
    // Fifty come for each that the client acknowledges.
    ASSERT_TRUE(Eventually(
        [&] {
            for (int count = 0; count < 50; ++count)
                m_group.Send(Indication(Telegram(0x29, 7)));
            EXPECT_FALSE(slow.ReceiveIndication(seconds(20)).empty());
            for (auto next = m_group.Receive(milliseconds(1)); !next.empty();
                 next = m_group.Receive(milliseconds(1)))
                said.push_back(next);
            return said.size() > 1 && said.back()[3] == 0x31;
        },
        seconds(60)));
    EXPECT_EQ(Bytes({0x06, 0x10, 0x05, 0x32, 0x00, 0x0C, 0x06, 0x00, 0x00, 0x64, 0x00, 0x00}), said.front());
    EXPECT_THAT(said, testing::Contains(Bytes({0x06, 0x10, 0x05, 0x31, 0x00, 0x0A, 0x04, 0x00, 0x00, 0x01})));
    daemon.Signal(SIGTERM);
    ASSERT_EQ(0, daemon.WaitForEnd(seconds(30)));
    EXPECT_THAT(daemon.Log(), testing::ContainsRegex("0 times busy, 0 telegrams lost by others; .*"
                                                     " [1-9][0-9]* pauses asked for, [1-9][0-9]* telegrams "
                                                     "lost by clients here"));
}

TEST_F(OnARoutingBus, TheRateIsThatOfTheConfiguration) {
    DaemonProcess daemon(m_directory, OnGroup(m_name, R"(, "rate": 20)"));
    RawTunnel tunnel(daemon.Port());
    const auto start = std::chrono::steady_clock::now();
    for (std::uint8_t value = 0; value < 11; ++value)
        ASSERT_TRUE(tunnel.Send(Telegram(0x11, value)));
    for (std::uint8_t value = 0; value < 11; ++value)
        ASSERT_EQ(Indication(Telegram(0x29, value)), m_group.Receive());
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(500));
}

TEST_F(OnARoutingBus, ValuesAreReadAtTheStartAlthoughNobodyIsConnected) {
    auto configuration = OnGroup(m_name);
    const std::string objects = R"("groupObjects": [)";
    configuration.insert(configuration.find(objects) + objects.size(),
                         R"({"number": 11, "size": 8, "flags": "CUI", "addresses": ["2/0/1"]}, )");
    DaemonProcess daemon(m_directory, configuration);
    EXPECT_EQ(Indication({0x29, 0x00, 0xBC, 0xE0, 0x11, 0xFA, 0x10, 0x01, 0x01, 0x00, 0x00}),
              m_group.Receive());
    m_group.Send(Indication({0x29, 0x00, 0xBC, 0xE0, 0x11, 0x14, 0x10, 0x01, 0x02, 0x00, 0x40, 0x22}));
    EXPECT_TRUE(daemon.WaitForLog("of 1 values to be read at the start, 1 are known", seconds(20)));
}

TEST_F(OnARoutingBus, TheDescriptionNamesTheGroup) {
    DaemonProcess daemon(m_directory, OnGroup(m_name));
    const RawUdp client(daemon.Port());
    client.Send({0x06, 0x10, 0x02, 0x03, 0x00, 0x0E, 0x08, 0x01, 0, 0, 0, 0, 0, 0});
    const auto description = client.Receive(seconds(20));
    ASSERT_EQ(70u, description.size());
    const auto octet = [&](std::size_t index) { return std::to_string(description[index]); };
    EXPECT_EQ(m_name, octet(20) + "." + octet(21) + "." + octet(22) + "." + octet(23));
    EXPECT_EQ(Bytes(description.begin() + 60, description.end()),
              Bytes({10, 2, 0x02, 2, 0x04, 2, 0x03, 2, 0x05, 1}));
}

TEST_F(OnARoutingBus, OnTheStandardPortOfItsServerToo) {
    // The server has the group's port for itself otherwise. 127.x.y.z is this test's own.
    auto configuration = OnGroup(m_name);
    const std::string server = R"("address": "127.0.0.1", "port": 0)";
    const auto own = "127" + m_name.substr(3);
    configuration.replace(configuration.find(server), server.size(),
                          R"("address": ")" + own + R"(", "port": 3671)");
    DaemonProcess daemon(m_directory, configuration);
    ASSERT_TRUE(daemon.WaitForLog("joined the KNX bus")) << daemon.Log();
    EXPECT_THAT(daemon.Log(), HasSubstr("listening on " + own + ":3671"));
}

} // namespace
} // namespace KnxStackHost
