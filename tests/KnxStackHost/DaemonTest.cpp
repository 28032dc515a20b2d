// Telegrams through the running daemon.
#include "DaemonProcess.h"
#include "RawTunnel.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <map>

namespace KnxStackHost {
namespace {

using testing::HasSubstr;
using testing::Not;

/// Number of threads by name.
std::map<std::string, int> ThreadsOf(pid_t process) {
    std::map<std::string, int> threads;
    const auto tasks = "/proc/" + std::to_string(process) + "/task";
    for (const auto& entry : std::filesystem::directory_iterator(tasks)) {
        std::string name;
        std::ifstream comm(entry.path() / "comm");
        std::getline(comm, name);
        ++threads[name];
    }
    return threads;
}

class Daemon : public testing::Test {
protected:
    bool Recorded(const std::string& line, milliseconds patience = milliseconds(5000)) const {
        return Eventually([&] { return CountOf(m_directory.Read("record"), line + "\n") > 0; }, patience);
    }

    TemporaryDirectory m_directory;
    DaemonProcess m_daemon{m_directory, TestConfiguration()};
    const std::uint16_t m_port = m_daemon.Port();
};

TEST_F(Daemon, AWriteFromATunnelReachesEveryListeningObject) {
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 3), kWrite | 1)));
    EXPECT_TRUE(Recorded("write 1 01"));
    EXPECT_TRUE(Recorded("write 2 01"));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 4), kWrite, {0x0C, 0x1A})));
    EXPECT_TRUE(Recorded("write 3 0c1a"));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kResponse, {0xFF})));
    EXPECT_TRUE(Recorded("response 4 ff"));
}

TEST_F(Daemon, AWriteFromATunnelReachesTheOthersWithItsAddress) {
    RawTunnel one(m_port);
    RawTunnel two(m_port);
    EXPECT_EQ(0x11FB, one.Address());
    EXPECT_EQ(0x11FC, two.Address());
    ASSERT_TRUE(one.Send(GroupRequest(Group(9, 1, 1), kWrite, {0x55})));
    EXPECT_EQ(Bytes({0x29, 0x00, 0xBC, 0xE0, 0x11, 0xFB, 0x49, 0x01, 0x02, 0x00, 0x80, 0x55}),
              two.ReceiveIndication());
    EXPECT_EQ(0x2E, one.Receive().at(0)) << "the sender gets its confirmation";
    EXPECT_EQ(Bytes(), one.ReceiveIndication(milliseconds(200))) << "and not its own telegram";
}

TEST_F(Daemon, WhatAClientSendsBackIsNotPassedOnAgain) {
    RawTunnel one(m_port);
    RawTunnel bridge(m_port);
    ASSERT_TRUE(one.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    auto echo = bridge.ReceiveIndication();
    ASSERT_EQ(12u, echo.size());
    echo[0] = 0x11; // the same as L_Data.req, as a host would that has this one as its interface
    ASSERT_TRUE(bridge.Send(echo));
    EXPECT_EQ(0x2E, bridge.Receive().at(0)) << "confirmed all the same";
    EXPECT_EQ(0x2E, one.Receive().at(0));
    EXPECT_EQ(Bytes(), one.ReceiveIndication(milliseconds(300)));
    ASSERT_TRUE(one.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x43})));
    ASSERT_TRUE(Recorded("write 4 43"));
    EXPECT_EQ(1u, CountOf(m_directory.Read("record"), "write 4 42"));
    EXPECT_THAT(m_daemon.Log(),
                HasSubstr("1.1.251 -> 31/7/255 GroupValue_Write 42: a client of a tunnel sends "
                          "back what came from here"));
}

TEST_F(Daemon, AReadIsAnsweredAtTheObjectsSendingAddress) {
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 4), kWrite, {0x0C, 0x1A})));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 4), kRead)));
    // From the device, priority urgent, to 1/2/5.
    EXPECT_EQ(Bytes({0x29, 0x00, 0xB8, 0xE0, 0x11, 0xFA, 0x0A, 0x05, 0x03, 0x00, 0x40, 0x0C, 0x1A}),
              tunnel.ReceiveIndication());
}

TEST_F(Daemon, AReadThatTheProgramDoesNotAnswerStaysUnanswered) {
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kRead)));
    EXPECT_TRUE(Recorded("read 4"));
    EXPECT_EQ(Bytes(), tunnel.ReceiveIndication(milliseconds(300)));
}

TEST_F(Daemon, WhatTheProgramSendsReachesTunnelsAndItsOtherObjects) {
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(0, 0, 250), kWrite, {4})));
    EXPECT_EQ(Bytes({0x29, 0x00, 0xBC, 0xE0, 0x11, 0xFA, 0x0A, 0x03, 0x01, 0x00, 0x81}),
              tunnel.ReceiveIndication());
    EXPECT_TRUE(Recorded("write 2 01"));
    EXPECT_THAT(m_directory.Read("record"), Not(HasSubstr("write 1 01")))
        << "the sending object hears itself";
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(0, 0, 250), kWrite, {5})));
    EXPECT_EQ(Bytes({0x29, 0x00, 0xBC, 0xE0, 0x11, 0xFA, 0x0A, 0x03, 0x01, 0x00, 0x00}),
              tunnel.ReceiveIndication());
}

TEST_F(Daemon, WhatFitsNoObjectIsReportedOncePerSourceAndCause) {
    RawTunnel tunnel(m_port);
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(tunnel.Send(GroupRequest(Group(5, 5, 5), kWrite | 1)));
        ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 3), kWrite, {1, 2})));
        ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 3), 0x03D5)));
    }
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    ASSERT_TRUE(Recorded("write 4 42"));
    const auto log = m_daemon.Log();
    EXPECT_EQ(1u, CountOf(log, "no group object has this group address")) << log;
    EXPECT_EQ(1u, CountOf(log, "another length than the group object")) << log;
    EXPECT_LT(CountOf(log, "\n"), 20u) << log;
}

TEST_F(Daemon, WhatEveryObjectRefusesByItsFlagsIsReportedOncePerSourceAndCause) {
    RawTunnel tunnel(m_port);
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(tunnel.Send(GroupRequest(Group(0, 0, 250), kRead)));
        ASSERT_TRUE(tunnel.Send(GroupRequest(Group(0, 0, 250), kResponse, {4})));
        ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 3), kRead))); // object 1 takes it, 2 does not
    }
    m_daemon.Signal(SIGTERM);
    ASSERT_EQ(0, m_daemon.WaitForEnd(milliseconds(6000)));
    const auto log = m_daemon.Log();
    EXPECT_EQ(1u, CountOf(log, "1.1.251 -> 0/0/250 GroupValue_Read: no group object with this group address "
                               "answers reads (flags C and R) (reported once)"))
        << log;
    EXPECT_EQ(1u, CountOf(log, "takes responses (flags C and U)")) << log;
    EXPECT_EQ(1u, CountOf(log, "0 telegrams had a group address that no group object has, 10 were refused by "
                               "flags, 0 could not be used"))
        << log;
}

TEST_F(Daemon, AClientThatComesAndGoesDoesNotFillTheLog) {
    for (int i = 0; i < 40; ++i) {
        RawTunnel tunnel(m_port);
        ASSERT_TRUE(tunnel.Disconnect());
    }
    m_daemon.Signal(SIGTERM);
    ASSERT_EQ(0, m_daemon.WaitForEnd(milliseconds(6000)));
    const auto log = m_daemon.Log();
    EXPECT_LE(20u, CountOf(log, "tunnel 1.1.251: ")) << log;
    EXPECT_GE(22u, CountOf(log, "tunnel 1.1.251: ")) << log;
    EXPECT_THAT(log, HasSubstr(" (further lines about this tunnel come once a minute)"));
    EXPECT_THAT(log, HasSubstr(" lines about tunnels were left out"));
}

TEST_F(Daemon, WhatTheProgramThrowsIsOneErrorAndTheNextTelegramIsDelivered) {
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(0, 0, 250), kWrite, {1})));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    EXPECT_TRUE(Recorded("write 4 42"));
    EXPECT_EQ(1u, CountOf(m_daemon.Log(), "ERROR")) << m_daemon.Log();
    EXPECT_THAT(m_daemon.Log(), HasSubstr("told to throw"));
}

TEST_F(Daemon, TellsItsStoryInTheLog) {
    {
        RawTunnel tunnel(m_port);
        ASSERT_TRUE(m_daemon.WaitForLog("tunnel 1.1.251: connected by 127.0.0.1:"));
    }
    EXPECT_TRUE(m_daemon.WaitForLog("the application program is configured and running"));
    m_daemon.Signal(SIGTERM);
    EXPECT_EQ(0, m_daemon.WaitForEnd(milliseconds(6000)));
    std::size_t place = 0;
    for (const char* line :
         {"device 1.1.250 \"test host\" with 5 group objects",
          "KNXnet/IP server listening on 127.0.0.1:", "ready", "received SIGTERM",
          "the application program has ended", "tunnel 1.1.251: closed by the server", "ended"}) {
        const auto found = m_daemon.Log().find(line, place);
        ASSERT_NE(std::string::npos, found) << line << " is missing or out of order in\n" << m_daemon.Log();
        place = found;
    }
}

TEST_F(Daemon, EndsItsTunnelsWhenItIsTerminated) {
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(m_daemon.WaitForLog("configured and running"));
    m_daemon.Signal(SIGINT);
    EXPECT_TRUE(tunnel.WasDisconnected(milliseconds(6000)));
    EXPECT_EQ(0, m_daemon.WaitForEnd(milliseconds(6000)));
    EXPECT_EQ("init\nexit\ndelete\n", m_directory.Read("record"));
}

TEST_F(Daemon, MakesOneThreadBesideItsMainThread) {
    ASSERT_TRUE(m_daemon.WaitForLog("configured and running"));
    // The logging library begins with threads in reserve and lets all but one of them go; ThreadSanitizer has
    // one too.
#ifdef __SANITIZE_THREAD__
    constexpr int kOthers = 3;
#else
    constexpr int kOthers = 2;
#endif
    const std::map<std::string, int> expected = {{"application", 1}, {"knxstackd", kOthers}};
    EXPECT_TRUE(Eventually([&] { return ThreadsOf(m_daemon.Pid()) == expected; }));
}

} // namespace
} // namespace KnxStackHost
