// Sockets and deadlines on an io_context of the test.
#include "KnxStackHost/Links/Udp.h"

#include "../RawTunnel.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <netinet/in.h>
#include <stdexcept>

namespace KnxStackHost {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;

constexpr std::uint32_t kLoopback = INADDR_LOOPBACK;
const char* const kGroup = "239.192.39.239";

class Udp : public testing::Test {
protected:
    /// Serves until there are `count` entries, or too long.
    void RunUntil(std::size_t count) {
        const auto end = std::chrono::steady_clock::now() + seconds(20);
        while (m_received.size() < count && std::chrono::steady_clock::now() < end)
            m_context.run_one_for(milliseconds(100));
    }

    boost::asio::io_context m_context{1};
    std::vector<int> m_received;
};

TEST_F(Udp, APortIsNobodyElses) {
    UdpSocket socket(m_context, [](const KnxIp::Endpoint&, KnxFrames::Octets) {});
    socket.Open({kLoopback, 0});
    EXPECT_EQ(EADDRINUSE, BindBeside(kLoopback, socket.Local().port));
    EXPECT_EQ(EADDRINUSE, BindBeside(INADDR_ANY, socket.Local().port));
}

TEST_F(Udp, APortThatWasSharedWithAGroupIsNobodyElsesAgain) {
    UdpSocket socket(m_context, [](const KnxIp::Endpoint&, KnxFrames::Octets) {});
    UdpSocket group(m_context, [](const KnxIp::Endpoint&, KnxFrames::Octets) {});
    socket.Open({INADDR_ANY, 0});
    const auto port = socket.Local().port;
    const auto address = EndpointOf(kGroup, port);
    EXPECT_ANY_THROW(UdpSocket(m_context, {}).OpenGroup(address, kLoopback)) << "nothing to share";
    socket.ShareAddress(true);
    group.OpenGroup(address, kLoopback);
    socket.ShareAddress(false);
    EXPECT_EQ(EADDRINUSE, BindBeside(INADDR_ANY, port));
    EXPECT_EQ(EADDRINUSE, BindBeside(kLoopback, port));
}

TEST_F(Udp, AReceiverThatThrowsGetsTheNextDatagramAllTheSame) {
    UdpSocket socket(m_context, [this](const KnxIp::Endpoint&, KnxFrames::Octets datagram) {
        m_received.push_back(datagram[0]);
        if (datagram[0] == 1)
            throw std::runtime_error("no");
        if (datagram[0] == 2)
            throw 42;
    });
    socket.Open({kLoopback, 0});
    socket.Start();
    const RawUdp sender(socket.Local().port);
    for (std::uint8_t first = 1; first <= 3; ++first) {
        sender.Send({first});
        RunUntil(first);
    }
    EXPECT_THAT(m_received, ElementsAre(1, 2, 3));
}

TEST_F(Udp, ADeadlineThatThrowsRingsAgain) {
    Deadline deadline(m_context, [this]() -> std::optional<TimePoint> {
        m_received.push_back(1);
        if (m_received.size() == 1)
            throw std::runtime_error("no");
        return std::nullopt;
    });
    deadline.Set(std::chrono::steady_clock::now());
    RunUntil(2);
    EXPECT_EQ(2u, m_received.size());
}

TEST_F(Udp, ADeadlineRingsWhenItSaidItWould) {
    const auto start = std::chrono::steady_clock::now();
    Deadline deadline(m_context, [&]() -> std::optional<TimePoint> {
        m_received.push_back(1);
        return start + milliseconds(20);
    });
    deadline.Set(start);
    RunUntil(2);
    EXPECT_LE(start + milliseconds(20), std::chrono::steady_clock::now());
}

} // namespace
} // namespace KnxStackHost
