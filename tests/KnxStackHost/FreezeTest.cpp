// The bus goes on whatever the program and strangers do.
#include "DaemonProcess.h"
#include "RawTunnel.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <random>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

/// Twelve objects of one byte at 2/0/1 to 2/0/12 and the command object.
std::string TwelveObjects() {
    std::string objects;
    for (int i = 1; i <= 12; ++i)
        objects += R"({"number": )" + std::to_string(i) +
                   R"(, "size": 8, "flags": "CRWTU", "addresses": ["2/0/)" + std::to_string(i) + "\"]},\n";
    return R"({"device": {"individualAddress": "1.1.250"},
        "server": {"address": "127.0.0.1", "port": 0, "tunnels": ["1.1.251", "1.1.252"]},
        "groupObjects": [)" +
           objects + R"({"number": 250, "size": 8, "flags": "CW", "addresses": ["0/0/250"]}],
        "applicationProgram": {"library": ")" TEST_PROGRAM R"(", "settings": {"record": "record"}}})";
}

long ResidentKilobytes(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:"))
            return std::stol(line.substr(6));
    return 0;
}

TEST(FrozenProgram, TunnelsLiveOnAndTheLastValuesArriveAfterItThaws) {
    const TemporaryDirectory directory;
    DaemonProcess daemon(directory, TwelveObjects());
    const auto port = daemon.Port();
    RawTunnel sender(port);
    RawTunnel listener(port);
    ASSERT_TRUE(sender.Send(GroupRequest(Group(0, 0, 250), kWrite, {2})));
    ASSERT_TRUE(Eventually([&] { return CountOf(directory.Read("record"), "write 250 02") == 1; }));

    // 30 s of 20 telegrams a second over 12 data points.
    std::array<std::uint8_t, 13> last{};
    const auto start = steady_clock::now();
    for (unsigned i = 0; i < 600; ++i) {
        const auto object = 1 + i % 12;
        last[object] = static_cast<std::uint8_t>(i * 7);
        ASSERT_TRUE(sender.Send(GroupRequest(Group(2, 0, object), kWrite, {last[object]})))
            << "telegram " << i;
        ASSERT_EQ(12u, listener.ReceiveIndication().size())
            << "telegram " << i << " did not reach the other tunnel";
        if (i % 100 == 0) {
            ASSERT_TRUE(sender.IsAlive());
            ASSERT_TRUE(listener.IsAlive());
        }
        while (steady_clock::now() < start + (i + 1) * milliseconds(50))
            Pause(milliseconds(1));
    }
    EXPECT_EQ(1u, CountOf(directory.Read("record"), "write 250")) << "the program was not frozen";
    EXPECT_EQ(0u, CountOf(directory.Read("record"), "write 1 "));

    directory.Write("record.release", "");
    const auto lastLineOf = [&](unsigned object) {
        const auto text = directory.Read("record");
        const auto found = text.rfind("write " + std::to_string(object) + " ");
        return found == std::string::npos ? std::string()
                                          : text.substr(found, text.find('\n', found) - found);
    };
    for (unsigned object = 1; object <= 12; ++object) {
        char expected[32];
        std::snprintf(expected, sizeof expected, "write %u %02x", object, last[object]);
        EXPECT_TRUE(Eventually([&] { return lastLineOf(object) == expected; }, seconds(5)))
            << expected << " expected, " << lastLineOf(object) << " seen";
    }
    EXPECT_TRUE(sender.IsAlive());
    EXPECT_TRUE(listener.IsAlive());
}

TEST(Strangers, AMillionGarbageDatagramsGiveFewLinesAndTakeNoMemory) {
    const TemporaryDirectory directory;
    // AddressSanitizer keeps what was freed, which would look like growth.
    DaemonProcess daemon(directory, TestConfiguration(), {}, {"ASAN_OPTIONS=quarantine_size_mb=1"});
    const auto port = daemon.Port();
    RawTunnel tunnel(port);
    const RawUdp stranger(port);
    std::minstd_rand random(4711);
    long settled = 0;
    for (unsigned i = 0; i < 1'000'000; ++i) {
        // Some are noise, some begin like KNXnet/IP and go on wrong.
        Bytes datagram(random() % 40);
        for (auto& byte : datagram)
            byte = static_cast<std::uint8_t>(random());
        if (i % 2 == 0 && datagram.size() >= 6) {
            const std::uint8_t header[] = {0x06,
                                           0x10,
                                           static_cast<std::uint8_t>(i % 4 == 0 ? 0x02 : 0x04),
                                           static_cast<std::uint8_t>(random() % 0x22),
                                           0,
                                           static_cast<std::uint8_t>(datagram.size())};
            std::copy(std::begin(header), std::end(header), datagram.begin());
        }
        stranger.Send(datagram);
        if (i == 100'000)
            settled = ResidentKilobytes(daemon.Pid());
        if (i % 100 == 0) { // no faster than they are read
            ASSERT_TRUE(tunnel.IsAlive());
        }
    }
    EXPECT_LT(CountOf(daemon.Log(), "\n"), 100u) << daemon.Log();
    EXPECT_LT(ResidentKilobytes(daemon.Pid()), settled + 512);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    EXPECT_TRUE(Eventually([&] { return CountOf(directory.Read("record"), "write 4 42") == 1; }));
    daemon.Signal(SIGTERM);
    ASSERT_EQ(0, daemon.WaitForEnd(seconds(6)));
    const auto log = daemon.Log();
    const auto end = log.find(" datagrams were refused");
    ASSERT_NE(std::string::npos, end) << log;
    EXPECT_GT(std::stol(log.substr(log.rfind(' ', end - 1))), 990'000) << "a few are right by chance";
}

} // namespace
} // namespace KnxStackHost
