// The way to the bus: one daemon as the KNX/IP interface of another.
#include "../DaemonProcess.h"
#include "../RawManagement.h"
#include "../RawTunnel.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;
using testing::HasSubstr;

std::string InterfaceAt(const std::string& host, std::uint16_t port, const std::string& protocol = "udp") {
    auto text = TestConfiguration("", R"(, "interface": {"host": ")" + host + R"(", "port": )" +
                                          std::to_string(port) + R"(, "protocol": ")" + protocol + "\"}");
    const std::string own = "\"1.1.250\"";
    text.replace(text.find(own), own.size(), "\"1.1.240\"");
    for (const auto& [from, to] : {std::pair("1.1.251", "1.1.241"), std::pair("1.1.252", "1.1.242")})
        text.replace(text.find(from), 7, to);
    return text;
}

/// Over UDP and over TCP.
class WithInterface : public testing::TestWithParam<const char*> {
protected:
    /// True once the program of the inner host has recorded the line.
    bool Recorded(const std::string& line) const {
        return Eventually([&] { return CountOf(m_innerDirectory.Read("record"), line + "\n") > 0; });
    }

    TemporaryDirectory m_outerDirectory;
    TemporaryDirectory m_innerDirectory;
    std::optional<DaemonProcess> m_outer{std::in_place, m_outerDirectory, TestConfiguration()};
    const std::uint16_t m_outerPort = m_outer->Port();
    std::optional<DaemonProcess> m_inner{std::in_place, m_innerDirectory,
                                         InterfaceAt("127.0.0.1", m_outerPort, GetParam())};
    const std::uint16_t m_innerPort = m_inner->Port();
};

TEST_P(WithInterface, TelegramsPassInBothDirections) {
    ASSERT_TRUE(m_inner->WaitForLog("connected to the KNX/IP interface"));
    EXPECT_THAT(m_inner->Log(), HasSubstr(" as 1.1.251"));
    RawTunnel bus(m_outerPort);
    RawTunnel inside(m_innerPort);
    ASSERT_TRUE(bus.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    EXPECT_TRUE(Recorded("write 4 42"));
    EXPECT_EQ(Bytes({0x29, 0x00, 0xBC, 0xE0, 0x11, 0xFC, 0xFF, 0xFF, 0x02, 0x00, 0x80, 0x42}),
              inside.ReceiveIndication());
    ASSERT_TRUE(inside.Send(GroupRequest(Group(9, 0, 1), kWrite, {0x17})));
    EXPECT_EQ(Bytes({0x29, 0x00, 0xBC, 0xE0, 0x11, 0xF1, 0x48, 0x01, 0x02, 0x00, 0x80, 0x17}),
              bus.ReceiveIndication());
    ASSERT_TRUE(inside.Send(GroupRequest(Group(0, 0, 250), kWrite, {4})));
    EXPECT_EQ(0xFA, bus.ReceiveIndication().at(7)) << "the command itself";
    // The programs of both hosts obey, in any order.
    const Bytes fromInner = {0x29, 0x00, 0xBC, 0xE0, 0x11, 0xF0, 0x0A, 0x03, 0x01, 0x00, 0x81};
    const Bytes fromOuter = {0x29, 0x00, 0xBC, 0xE0, 0x11, 0xFA, 0x0A, 0x03, 0x01, 0x00, 0x81};
    const std::vector<Bytes> obeyed = {bus.ReceiveIndication(), bus.ReceiveIndication()};
    EXPECT_THAT(obeyed, testing::UnorderedElementsAre(fromInner, fromOuter));
}

TEST_P(WithInterface, ABurstOfATunnelReachesTheBusCompleteAndInOrder) {
    ASSERT_TRUE(m_inner->WaitForLog("connected to the KNX/IP interface"));
    RawTunnel bus(m_outerPort);
    RawTunnel inside(m_innerPort);
    for (std::uint8_t i = 0; i < 100; ++i)
        ASSERT_TRUE(inside.Send(GroupRequest(Group(9, 0, 1), kWrite, {i})));
    for (std::uint8_t i = 0; i < 100; ++i) {
        const auto indication = bus.ReceiveIndication();
        ASSERT_EQ(12u, indication.size());
        ASSERT_EQ(i, indication.at(11));
    }
}

TEST_P(WithInterface, ABurstOfTheProgramReachesTheBusAndTheTunnelsCompleteAndInOrder) {
    ASSERT_TRUE(m_inner->WaitForLog("connected to the KNX/IP interface"));
    RawTunnel bus(m_outerPort);
    RawTunnel inside(m_innerPort);
    ASSERT_TRUE(inside.Send(GroupRequest(Group(0, 0, 250), kWrite, {8})));
    // In turn, so that each is acknowledged in time.
    for (std::uint8_t i = 0; i < 100; ++i) {
        for (auto* const tunnel : {&bus, &inside}) {
            // The program of the outer host obeys, too; what the inner one sends comes from 1.1.240.
            auto indication = tunnel->ReceiveIndication();
            while (indication.size() == 12 && indication[5] != 0xF0)
                indication = tunnel->ReceiveIndication();
            ASSERT_EQ(12u, indication.size()) << "after " << int{i};
            ASSERT_EQ(i, indication[11]);
        }
    }
}

TEST_P(WithInterface, ALostInterfaceIsFoundAgain) {
    ASSERT_TRUE(m_inner->WaitForLog("connected to the KNX/IP interface"));
    m_outer->Signal(SIGTERM);
    ASSERT_EQ(0, m_outer->WaitForEnd(seconds(6)));
    ASSERT_TRUE(m_inner->WaitForLog("has ended: "));
    RawTunnel inside(m_innerPort);
    ASSERT_TRUE(inside.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    EXPECT_TRUE(Recorded("write 4 42")) << "the device goes on without the bus";
    m_outer.emplace(m_outerDirectory, TestConfiguration(),
                    std::vector<std::string>{"--knx-port", std::to_string(m_outerPort)});
    EXPECT_TRUE(m_inner->WaitForLog("connected to the KNX/IP interface", seconds(30), 2)) << m_inner->Log();
}

TEST_P(WithInterface, WhoManagesTheDeviceIsToldWhenTheBusIsLostAndFoundAgain) {
    ASSERT_TRUE(m_inner->WaitForLog("connected to the KNX/IP interface"));
    // KNXnet/IP parameters, property 69.
    const auto client = ConnectToManage(m_innerPort, GetParam());
    EXPECT_EQ(Bytes({0xFB, 0, 11, 1, 69, 0x10, 1, 0}), client->Ask({0xFC, 0, 11, 1, 69, 0x10, 1}));
    m_outer->Signal(SIGTERM);
    EXPECT_EQ(Bytes({0xF7, 0, 11, 1, 69, 0x10, 1, 1}), client->Receive());
    ASSERT_EQ(0, m_outer->WaitForEnd(seconds(20)));
    EXPECT_EQ(Bytes({0xFB, 0, 11, 1, 69, 0x10, 1, 1}), client->Ask({0xFC, 0, 11, 1, 69, 0x10, 1}));
    m_outer.emplace(m_outerDirectory, TestConfiguration(),
                    std::vector<std::string>{"--knx-port", std::to_string(m_outerPort)});
    ASSERT_TRUE(m_inner->WaitForLog("connected to the KNX/IP interface", seconds(60), 2)) << m_inner->Log();
    EXPECT_EQ(Bytes({0xF7, 0, 11, 1, 69, 0x10, 1, 0}), client->Receive());
}

TEST_P(WithInterface, CountsWhatPassedWhenItEnds) {
    ASSERT_TRUE(m_inner->WaitForLog("connected to the KNX/IP interface"));
    RawTunnel bus(m_outerPort);
    RawTunnel inside(m_innerPort);
    for (std::uint8_t i = 0; i < 3; ++i)
        ASSERT_TRUE(bus.Send(GroupRequest(Group(9, 0, 1), kWrite, {i})));
    for (std::uint8_t i = 0; i < 3; ++i)
        ASSERT_EQ(12u, inside.ReceiveIndication().size());
    ASSERT_TRUE(inside.Send(GroupRequest(Group(9, 0, 1), kWrite, {9})));
    ASSERT_EQ(12u, bus.ReceiveIndication().size());
    ASSERT_TRUE(Eventually([&] {
        RawUdp(m_innerPort).Send({0x06, 0x10, 0x02}); // too short
        return CountOf(m_inner->Log(), "a datagram was refused") > 0;
    }));
    m_inner->Signal(SIGTERM);
    ASSERT_EQ(0, m_inner->WaitForEnd(seconds(6)));
    EXPECT_THAT(m_inner->Log(),
                HasSubstr(": 1 connections so far; 1 telegrams sent and 3 received, 0 dropped, 0 waiting, 0 "
                          "not acknowledged, 0 not confirmed, 0 refused on the bus; 0 datagrams "
                          "refused"));
    EXPECT_THAT(m_inner->Log(), HasSubstr("4 telegrams had a group address that no group object has"));
}

TEST_P(WithInterface, LeavesTheInterfaceWhenItEnds) {
    ASSERT_TRUE(m_inner->WaitForLog("connected to the KNX/IP interface"));
    m_inner->Signal(SIGTERM);
    ASSERT_EQ(0, m_inner->WaitForEnd(seconds(6)));
    EXPECT_TRUE(m_outer->WaitForLog("tunnel 1.1.251: closed by the client"));
}

INSTANTIATE_TEST_SUITE_P(Protocols, WithInterface, testing::Values("udp", "tcp"),
                         [](const auto& each) { return std::string(each.param); });

TEST(Interface, OverTcpIsTriedAgainUntilItIsThere) {
    const TemporaryDirectory outerDirectory;
    const TemporaryDirectory innerDirectory;
    std::optional<DaemonProcess> outer(std::in_place, outerDirectory, TestConfiguration());
    const auto port = outer->Port();
    outer.reset();
    DaemonProcess inner(innerDirectory, InterfaceAt("127.0.0.1", port, "tcp"));
    ASSERT_TRUE(
        inner.WaitForLog("no connection to the KNX/IP interface 127.0.0.1:" + std::to_string(port) +
                         " over TCP: the TCP connection could not be made or has ended; next try in "));
    RawTunnel inside(inner.Port());
    ASSERT_TRUE(inside.Send(GroupRequest(Group(9, 0, 1), kWrite, {0x17})));
    outer.emplace(outerDirectory, TestConfiguration(),
                  std::vector<std::string>{"--knx-port", std::to_string(port)});
    ASSERT_TRUE(inner.WaitForLog("connected to the KNX/IP interface", seconds(60)));
    EXPECT_TRUE(outer->WaitForLog("connected by 127.0.0.1:"));
    EXPECT_TRUE(outer->WaitForLog("1.1.241 -> 9/0/1 GroupValue_Write 17")) << "what waited has come";
    EXPECT_THAT(outer->Log(), HasSubstr(" over TCP"));
}

TEST(Interface, IsLookedUpByName) {
    const TemporaryDirectory outerDirectory;
    const TemporaryDirectory innerDirectory;
    const DaemonProcess outer(outerDirectory, TestConfiguration());
    const DaemonProcess inner(innerDirectory, InterfaceAt("localhost", outer.Port()));
    EXPECT_TRUE(inner.WaitForLog("connected to the KNX/IP interface localhost:"));
}

TEST(Interface, AnUnknownNameIsReportedOnceAndItsTelegramsWaitWhileTheServerRuns) {
    const TemporaryDirectory directory;
    const std::string name(70, 'x'); // longer than a label may be, so that nobody is asked on the network
    DaemonProcess daemon(directory, InterfaceAt(name, 3671));
    EXPECT_TRUE(daemon.WaitForLog("the KNX/IP interface " + name + ":3671 is not known"));
    RawTunnel tunnel(daemon.Port());
    EXPECT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    EXPECT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x43})));
    daemon.Signal(SIGTERM);
    ASSERT_EQ(0, daemon.WaitForEnd(seconds(6)));
    EXPECT_THAT(daemon.Log(), HasSubstr(": 0 connections so far; 0 telegrams sent and 0 received, 0 dropped, "
                                        "2 waiting, "));
}

TEST(Search, IsAnsweredInTheConfiguredGroup) {
    const TemporaryDirectory directory;
    auto configuration = TestConfiguration();
    const std::string port = "\"port\": 0";
    // A group of our own on loopback.
    configuration.replace(configuration.find(port), port.size(),
                          port +
                              R"(, "multicastGroup": "239.192.39.238", "multicastInterface": "127.0.0.1")");
    DaemonProcess daemon(directory, configuration);
    const auto server = daemon.Port();
    EXPECT_EQ(EADDRINUSE, BindBeside(INADDR_LOOPBACK, server)) << "the group is shared, the port is not";

    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    const in_addr loopback{htonl(INADDR_LOOPBACK)};
    ::setsockopt(socket, IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr = loopback;
    ASSERT_EQ(0, ::bind(socket, reinterpret_cast<sockaddr*>(&own), sizeof own));
    socklen_t length = sizeof own;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &length);
    const auto ownPort = ntohs(own.sin_port);
    const Bytes request = {0x06,
                           0x10,
                           0x02,
                           0x01,
                           0x00,
                           0x0E,
                           0x08,
                           0x01,
                           127,
                           0,
                           0,
                           1,
                           static_cast<std::uint8_t>(ownPort >> 8),
                           static_cast<std::uint8_t>(ownPort & 0xFF)};
    sockaddr_in group{};
    group.sin_family = AF_INET;
    group.sin_port = htons(3671);
    ASSERT_EQ(1, ::inet_pton(AF_INET, "239.192.39.238", &group.sin_addr));
    const Bytes routed = {0x06, 0x10, 0x05, 0x30, 0x00, 0x11, 0x29, 0x00, 0xBC,
                          0xE0, 0x11, 0x04, 0x0A, 0x03, 0x01, 0x00, 0x81};
    ASSERT_EQ(17, ::sendto(socket, routed.data(), routed.size(), 0, reinterpret_cast<sockaddr*>(&group),
                           sizeof group));
    ASSERT_EQ(14, ::sendto(socket, request.data(), request.size(), 0, reinterpret_cast<sockaddr*>(&group),
                           sizeof group));
    const timeval patience{5, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    Bytes answer(512);
    const auto size = ::recv(socket, answer.data(), answer.size(), 0);
    ASSERT_LT(60, size) << daemon.Log();
    const Bytes head(answer.begin(), answer.begin() + 14);
    EXPECT_EQ(Bytes({0x06, 0x10, 0x02, 0x02, 0x00, static_cast<std::uint8_t>(size), 0x08, 0x01, 127, 0, 0, 1,
                     static_cast<std::uint8_t>(server >> 8), static_cast<std::uint8_t>(server & 0xFF)}),
              head);
    const std::string name(answer.begin() + 38, answer.begin() + 47);
    EXPECT_EQ("test host", name);
    ::close(socket);

    EXPECT_EQ(0u, CountOf(daemon.Log(), "WARN ")) << "routers may talk to the group:\n" << daemon.Log();
    daemon.Signal(SIGTERM);
    ASSERT_EQ(0, daemon.WaitForEnd(seconds(6)));
    EXPECT_THAT(daemon.Log(), HasSubstr("KNXnet/IP server: 0 datagrams were refused and 0 requests for a "
                                        "tunnel, 1 datagrams to the group were not for it"));
}

} // namespace
} // namespace KnxStackHost
