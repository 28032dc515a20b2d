// The running daemon reads the values of group objects with flag I.
#include "../DaemonProcess.h"
#include "../RawTunnel.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <csignal>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;

class StartupReadsOfTheDaemon : public testing::Test {
protected:
    /// Objects 11 to 14 at 2/0/1 to 2/0/4 want to be read.
    static std::string Configuration() {
        std::string objects;
        for (int number = 1; number <= 4; ++number)
            objects +=
                fmt::format(R"({{"number": {}, "size": 8, "flags": "CUI", "addresses": ["2/0/{}"]}}, )",
                            10 + number, number);
        auto text = TestConfiguration();
        const std::string part = R"("groupObjects": [)";
        return text.insert(text.find(part) + part.size(), objects);
    }

    /// The group address of the next read request, as a sub group of 2/0; 0 for none in time.
    static int NextRead(RawTunnel& tunnel, milliseconds patience) {
        for (;;) {
            const auto cemi = tunnel.ReceiveIndication(patience);
            if (cemi.size() < 11)
                return 0;
            if (cemi[6] == 0x10 && cemi[10] == 0x00)
                return cemi[7];
        }
    }

    TemporaryDirectory m_directory;
    DaemonProcess m_daemon{m_directory, Configuration()};
};

TEST_F(StartupReadsOfTheDaemon, WaitForSomebodyOnTheBusAndAskForEachValueOnce) {
    ASSERT_TRUE(m_daemon.WaitForLog("configured and running"));
    RawTunnel tunnel(m_daemon.Port());
    for (int number = 1; number <= 4; ++number) {
        ASSERT_EQ(number, NextRead(tunnel, seconds(10)));
        const auto value = static_cast<std::uint8_t>(0x11 * number);
        ASSERT_TRUE(
            tunnel.Send(GroupRequest(Group(2, 0, static_cast<unsigned>(number)), kResponse, {value})));
        EXPECT_TRUE(Eventually([&] {
            return CountOf(m_directory.Read("record"),
                           fmt::format("response {} {:02x}", 10 + number, value)) == 1;
        }));
    }
    EXPECT_TRUE(m_daemon.WaitForLog("of 4 values to be read at the start, "));
    EXPECT_EQ(0, NextRead(tunnel, milliseconds(500)));

    RawTunnel another(m_daemon.Port());
    EXPECT_EQ(0, NextRead(another, milliseconds(1500))) << "a client that comes later brings no reads";
    m_daemon.Signal(SIGHUP);
    ASSERT_TRUE(m_daemon.WaitForLog("configured and running", seconds(20), 2));
    EXPECT_EQ(0, NextRead(tunnel, milliseconds(1500))) << "nor does a reload of the same objects";
}

} // namespace
} // namespace KnxStackHost
