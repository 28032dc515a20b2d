// What sockets do when the network changes under them, in a network that nobody else sees.
#include "KnxStackHost/Links/NetworkChanges.h"
#include "KnxStackHost/Links/MissingNetwork.h"
#include "KnxStackHost/Links/Udp.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <sched.h>
#include <string>
#include <thread>

namespace KnxStackHost {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Whether iproute2 did so. In the network of the calling thread, which a child process inherits.
bool Ip(const std::string& arguments) {
    return std::system(("ip " + arguments + " 2>/dev/null").c_str()) == 0;
}

/// Its tests run in a thread in a network namespace of its own, where they may plug an interface in.
class OwnNetwork : public testing::Test {
protected:
    void Run(const std::function<void()>& test) {
        bool isPossible = false;
        std::thread([&] {
            isPossible = ::unshare(CLONE_NEWNET) == 0 && Ip("link set lo up") && PlugIn();
            if (isPossible)
                test();
        }).join();
        if (!isPossible)
            GTEST_SKIP() << "skipped: this user may make no network namespace with a veth pair";
    }

    static bool PlugIn() {
        return Ip("link add knx0 type veth peer name knx1") && Ip("link set knx1 up") &&
               Ip("addr add 192.0.2.1/24 dev knx0") && Ip("link set knx0 up") &&
               Ip("route add 224.0.0.0/4 dev knx0");
    }

    static void PullOut() { EXPECT_TRUE(Ip("link del knx0")); }

    void RunFor(milliseconds time) {
        m_context.restart();
        m_context.run_for(time);
    }

    /// False when it does not come true within 20 s.
    bool RunUntil(const std::function<bool()>& condition) {
        const auto end = std::chrono::steady_clock::now() + seconds(20);
        while (!condition() && std::chrono::steady_clock::now() < end)
            RunFor(milliseconds(10));
        return condition();
    }

    boost::asio::io_context m_context{1};
};

TEST_F(OwnNetwork, ItsChangesAreToldOnceForAllThatHappenTogether) {
    Run([this] {
        int calls = 0;
        NetworkChanges changes(m_context, [&] { ++calls; });
        changes.Start();
        // The kernel tells up to a second late, and more on a busy machine, that the new interfaces are up.
        ASSERT_TRUE(RunUntil([&] {
            const int before = calls;
            RunFor(seconds(2));
            return calls == before;
        })) << "nothing changes any more";
        calls = 0;
        EXPECT_TRUE(Ip("addr add 192.0.2.3/24 dev knx0"));
        EXPECT_TRUE(Ip("addr add 192.0.2.4/24 dev knx0"));
        ASSERT_TRUE(RunUntil([&] { return calls != 0; }));
        RunFor(3 * NetworkChanges::kSettle);
        EXPECT_EQ(1, calls);
        EXPECT_TRUE(Ip("link set knx0 down"));
        EXPECT_TRUE(RunUntil([&] { return calls == 2; }));
    });
}

/// Sends to a group and hears it. On the interface with the address, or the one of the system's choice.
class GroupInOwnNetwork : public OwnNetwork, public testing::WithParamInterface<const char*> {
protected:
    void Open() {
        m_socket.OpenGroup(m_group, EndpointOf(GetParam(), 0).address);
        m_socket.SendToGroups();
        m_socket.Start();
    }

    bool Hears() {
        const int before = m_received;
        return RunUntil([&] {
            Send();
            return m_received != before;
        });
    }

    bool IsDeaf() {
        RunFor(milliseconds(100)); // what was sent before
        const int before = m_received;
        Send();
        RunFor(milliseconds(100));
        return m_received == before;
    }

    bool Send() {
        const std::uint8_t octet = 1;
        return m_socket.Send(m_group, {&octet, 1});
    }

    const KnxIp::Endpoint m_group = EndpointOf("239.192.39.239", 39239);
    int m_received = 0;
    UdpSocket m_socket{m_context, [this](const KnxIp::Endpoint&, KnxFrames::Octets) { ++m_received; }};
};

INSTANTIATE_TEST_SUITE_P(Interfaces, GroupInOwnNetwork, testing::Values("192.0.2.1", ""),
                         [](const auto& each) { return *each.param == '\0' ? "Any" : "Named"; });

TEST_P(GroupInOwnNetwork, IsHeardAgainOnAnInterfaceThatWasGone) {
    Run([this] {
        Open();
        EXPECT_TRUE(Hears());
        PullOut();
        m_socket.RenewGroup();
        EXPECT_TRUE(IsDeaf());
        ASSERT_TRUE(PlugIn());
        EXPECT_TRUE(IsDeaf()) << "the interface is a new one, which nobody has joined a group on";
        m_socket.RenewGroup();
        EXPECT_TRUE(Hears());
    });
}

TEST_P(GroupInOwnNetwork, IsHeardOnAnInterfaceThatWasNotThereWhenItWasOpened) {
    Run([this] {
        PullOut();
        Open();
        EXPECT_TRUE(MayComeYet(m_socket.GroupFault())) << m_socket.GroupFault().message();
        EXPECT_TRUE(IsDeaf());
        m_socket.RenewGroup();
        EXPECT_TRUE(m_socket.GroupFault()) << "still not there";
        ASSERT_TRUE(PlugIn());
        EXPECT_TRUE(IsDeaf());
        m_socket.RenewGroup();
        EXPECT_FALSE(m_socket.GroupFault()) << m_socket.GroupFault().message();
        EXPECT_TRUE(Hears());
        PullOut();
        m_socket.RenewGroup();
        EXPECT_TRUE(m_socket.GroupFault());
    });
}

TEST_F(OwnNetwork, ATelegramToAGroupLeavesByNoOtherInterfaceBeforeItsOwnIsThere) {
    Run([this] {
        const auto group = EndpointOf("239.192.39.239", 39239);
        UdpSocket socket(m_context, {});
        PullOut();
        ASSERT_TRUE(Ip("route add 224.0.0.0/4 dev lo"));
        socket.OpenGroup(group, EndpointOf("192.0.2.1", 0).address);
        socket.SendToGroups();
        const std::uint8_t octet = 1;
        EXPECT_FALSE(socket.Send(group, {&octet, 1}));
        ASSERT_TRUE(Ip("route del 224.0.0.0/4 dev lo") && PlugIn());
        socket.RenewGroup();
        EXPECT_TRUE(socket.Send(group, {&octet, 1}));
    });
}

TEST_F(OwnNetwork, AnAddressThatIsNotThereYetIsServedWhenItComes) {
    Run([this] {
        const auto own = EndpointOf("192.0.2.7", 39240);
        int received = 0;
        UdpSocket socket(m_context, [&](const KnxIp::Endpoint&, KnxFrames::Octets) { ++received; });
        EXPECT_FALSE(IsAddressHere(m_context, own.address));
        socket.Open(own);
        socket.Start();
        const std::uint8_t octet = 1;
        EXPECT_FALSE(socket.Send(own, {&octet, 1})) << "there is nowhere to send from";
        ASSERT_TRUE(Ip("addr add 192.0.2.7/24 dev knx0"));
        EXPECT_TRUE(IsAddressHere(m_context, own.address));
        EXPECT_TRUE(socket.Send(own, {&octet, 1}));
        EXPECT_TRUE(RunUntil([&] { return received == 1; }));
    });
}

TEST_P(GroupInOwnNetwork, MayBeRenewedAsOftenAsTheNetworkChanges) {
    Run([this] {
        Open();
        for (int i = 0; i < 30; ++i) // a socket can be a member of 20 groups
            m_socket.RenewGroup();
        for (int i = 0; i < 25; ++i) {
            PullOut();
            ASSERT_TRUE(PlugIn());
            m_socket.RenewGroup();
        }
        EXPECT_TRUE(Hears());
    });
}

} // namespace
} // namespace KnxStackHost
