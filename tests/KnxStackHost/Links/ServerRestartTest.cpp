// What the clients of a server that died meet when it is back.
#include "../DaemonProcess.h"
#include "../RawTunnel.h"

#include <gtest/gtest.h>

#include <csignal>
#include <set>

namespace KnxStackHost {
namespace {

class RestartedServer : public testing::Test {
protected:
    /// The host dies and is started again on its port.
    void Restart() {
        m_daemon->Signal(SIGKILL);
        ASSERT_TRUE(m_daemon->WaitForEnd(milliseconds(10000)));
        m_directory.Write("stderr", ""); // the log of the next one
        m_daemon.emplace(m_directory, TestConfiguration(),
                         std::vector<std::string>{"--knx-port", std::to_string(m_port)});
        ASSERT_EQ(m_port, m_daemon->Port());
    }

    TemporaryDirectory m_directory;
    std::optional<DaemonProcess> m_daemon{std::in_place, m_directory, TestConfiguration()};
    const std::uint16_t m_port = m_daemon->Port();
};

TEST_F(RestartedServer, TellsAFormerClientThatItsTunnelIsGoneAndLeavesTheNewOneAlone) {
    RawTunnel former(m_port);
    ASSERT_TRUE(former.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x41})));
    Restart();
    RawTunnel present(m_port);
    EXPECT_FALSE(former.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    EXPECT_FALSE(former.IsAlive());
    EXPECT_TRUE(present.IsAlive());
    ASSERT_TRUE(present.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x43})));
    EXPECT_TRUE(Eventually([&] { return CountOf(m_directory.Read("record"), "write 4 43\n") == 1; }));
    EXPECT_EQ(0u, CountOf(m_directory.Read("record"), "write 4 42\n"));
}

TEST_F(RestartedServer, BeginsWithAnotherChannel) {
    std::set<std::uint8_t> channels;
    for (int start = 0; start < 6; ++start) {
        channels.insert(RawTunnel(m_port).Channel());
        Restart();
    }
    // By chance alone it would be the same six times in one run of 10^12.
    EXPECT_LT(1u, channels.size());
    EXPECT_FALSE(channels.contains(0));
}

} // namespace
} // namespace KnxStackHost
