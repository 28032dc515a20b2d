// TCP streams on an io_context of the test.
#include "KnxStackHost/Links/Tcp.h"

#include "../RawTcp.h"

#include <gmock/gmock.h>

#include <boost/system/system_error.hpp>

#include <functional>
#include <netinet/in.h>
#include <stdexcept>
#include <string>

namespace KnxStackHost {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;

/// A server of two streams; what happens to them is written down.
class Tcp : public testing::Test, protected TcpStreamUser {
protected:
    Tcp() {
        m_server.Open({INADDR_LOOPBACK, 0});
        m_port = m_server.Port();
        m_server.Start();
    }

    void OnStreamOpened(KnxIp::StreamId stream, const KnxIp::Endpoint& from) override {
        EXPECT_EQ(from.address, std::uint32_t{INADDR_LOOPBACK});
        m_events.push_back("opened " + std::to_string(stream));
    }
    void OnStreamOctets(KnxIp::StreamId stream, KnxFrames::Octets octets) override {
        m_octets += octets.size();
        if (m_onOctets)
            m_onOctets(stream, octets);
    }
    void OnStreamClosed(KnxIp::StreamId stream) override {
        EXPECT_FALSE(m_isSending) << "inside an operation of the server";
        m_events.push_back("closed " + std::to_string(stream));
    }

    /// Serves until the condition holds; false when it never does.
    bool ServeUntil(const std::function<bool()>& condition) {
        const auto end = std::chrono::steady_clock::now() + seconds(30);
        while (!condition() && std::chrono::steady_clock::now() < end) {
            m_context.restart();
            m_context.run_one_for(milliseconds(20));
        }
        return condition();
    }
    bool ServeUntilEvents(std::size_t count) {
        return ServeUntil([&] { return m_events.size() >= count; });
    }

    void Send(KnxIp::StreamId stream, const Bytes& octets) {
        m_isSending = true;
        m_server.Send(stream, octets);
        m_isSending = false;
    }

    boost::asio::io_context m_context{1};
    std::vector<std::string> m_events;
    std::size_t m_octets = 0;
    std::function<void(KnxIp::StreamId, KnxFrames::Octets)> m_onOctets;
    bool m_isSending = false;
    std::uint16_t m_port = 0;
    TcpServer m_server{m_context, 2, static_cast<TcpStreamUser&>(*this)};
};

TEST_F(Tcp, OctetsGoBothWaysUntilTheClientLeaves) {
    m_onOctets = [this](KnxIp::StreamId stream, KnxFrames::Octets octets) {
        Send(stream, Bytes(octets.begin(), octets.end()));
    };
    {
        const RawTcp client(m_port);
        ASSERT_TRUE(client.Send({1, 2, 3}));
        ASSERT_TRUE(ServeUntil([&] { return m_octets == 3; }));
        EXPECT_EQ(client.Receive(3), (Bytes{1, 2, 3}));
    }
    ASSERT_TRUE(ServeUntilEvents(2));
    EXPECT_THAT(m_events, ElementsAre("opened 1", "closed 1"));
}

TEST_F(Tcp, WhoComesWhenAllStreamsAreInUseIsTurnedAway) {
    const RawTcp one(m_port);
    auto two = std::make_unique<RawTcp>(m_port);
    ASSERT_TRUE(ServeUntilEvents(2));
    const RawTcp three(m_port);
    ASSERT_TRUE(ServeUntil([&] { return m_server.Refused() == 1; }));
    EXPECT_TRUE(three.HasEnded());
    two.reset();
    ASSERT_TRUE(ServeUntilEvents(3));
    const RawTcp four(m_port);
    ASSERT_TRUE(ServeUntilEvents(4)) << "there is room again";
    EXPECT_THAT(m_events, ElementsAre("opened 1", "opened 2", "closed 2", "opened 3"));
}

TEST_F(Tcp, AClientThatDoesNotReadLosesItsStreamAndNoOther) {
    const RawTcp silent(m_port, 4096);
    const RawTcp reader(m_port);
    ASSERT_TRUE(ServeUntilEvents(2));
    const Bytes block(1000, 0x55);
    // The system's own buffers take some megabytes at most.
    std::size_t sent = 0;
    for (; sent < 20'000 && m_server.GivenUp() == 0; ++sent)
        Send(1, block);
    EXPECT_EQ(m_server.GivenUp(), 1U) << "after " << sent << " KB";
    Send(1, block); // to nobody
    ASSERT_TRUE(ServeUntilEvents(3));
    EXPECT_THAT(m_events, ElementsAre("opened 1", "opened 2", "closed 1"));
    EXPECT_TRUE(silent.HasEnded());
    Send(2, {7});
    EXPECT_EQ(reader.Receive(1), Bytes{7});
}

TEST_F(Tcp, WhatAClientReadsLateArrivesWholeAndInOrder) {
    const RawTcp client(m_port, 4096);
    ASSERT_TRUE(ServeUntilEvents(1));
    // More than the system takes, less than a stream may have waiting: one block goes at a time.
    std::size_t sent = 0;
    Bytes expected;
    for (; m_server.Unsent(1) < 100'000 && sent < 20'000; ++sent) {
        const Bytes block(1000, static_cast<std::uint8_t>(sent));
        Send(1, block);
        expected.insert(expected.end(), block.begin(), block.end());
    }
    ASSERT_GE(m_server.Unsent(1), 100'000U);
    Bytes received;
    while (received.size() < expected.size()) {
        m_context.restart();
        m_context.run_for(milliseconds(1));
        const auto more = client.Receive(std::min<std::size_t>(65536, expected.size() - received.size()),
                                         m_server.Unsent(1) != 0 ? milliseconds(5) : milliseconds(20000));
        if (more.empty() && m_server.Unsent(1) == 0)
            break;
        received.insert(received.end(), more.begin(), more.end());
    }
    EXPECT_TRUE(received == expected) << received.size() << " of " << expected.size();
    EXPECT_EQ(m_server.GivenUp(), 0U);
}

TEST_F(Tcp, AStreamThatIsClosedHereIsOverForTheClientAndNotReported) {
    const RawTcp client(m_port);
    ASSERT_TRUE(ServeUntilEvents(1));
    Send(1, {1, 2, 3});
    m_server.Close(1);
    m_server.Close(1);
    EXPECT_EQ(client.Receive(4), (Bytes{1, 2, 3})) << "what was sent before has gone out";
    EXPECT_TRUE(client.HasEnded());
    const RawTcp next(m_port);
    ASSERT_TRUE(ServeUntilEvents(2));
    EXPECT_THAT(m_events, ElementsAre("opened 1", "opened 2"));
}

TEST_F(Tcp, AStreamMayBeClosedWhileItsOctetsAreTaken) {
    m_onOctets = [this](KnxIp::StreamId stream, KnxFrames::Octets) { m_server.Close(stream); };
    const RawTcp client(m_port);
    ASSERT_TRUE(client.Send(Bytes(100'000, 1)));
    EXPECT_TRUE(ServeUntil([&] { return m_octets != 0; }));
    EXPECT_TRUE(client.HasEnded());
    EXPECT_LE(m_octets, 4096U) << "nothing comes from a stream that is closed";
}

TEST_F(Tcp, AUserThatThrowsGetsTheNextOctetsAllTheSame) {
    m_onOctets = [this](KnxIp::StreamId, KnxFrames::Octets) {
        if (m_octets == 1)
            throw std::runtime_error("no");
        if (m_octets == 2)
            throw 42;
    };
    const RawTcp client(m_port);
    for (std::size_t count = 1; count <= 3; ++count) {
        ASSERT_TRUE(client.Send({1}));
        ASSERT_TRUE(ServeUntil([&] { return m_octets == count; }));
    }
    EXPECT_THAT(m_events, ElementsAre("opened 1"));
}

TEST_F(Tcp, APortIsNobodyElses) {
    TcpServer other(m_context, 2, static_cast<TcpStreamUser&>(*this));
    EXPECT_THROW(other.Open({INADDR_LOOPBACK, m_port}), boost::system::system_error);
    EXPECT_THROW(other.Open({INADDR_ANY, m_port}), boost::system::system_error);
    other.Open({INADDR_LOOPBACK, 0}); // it may try again elsewhere
}

TEST_F(Tcp, APortWithLingeringConnectionsMayBeTakenAgain) {
    const RawTcp client(m_port);
    ASSERT_TRUE(ServeUntilEvents(1));
    boost::asio::io_context context{1};
    std::uint16_t port = 0;
    {
        TcpServer former(context, 2, static_cast<TcpStreamUser&>(*this));
        former.Open({INADDR_LOOPBACK, 0});
        former.Start();
        port = former.Port();
        const RawTcp lingering(port);
        m_events.clear();
        const auto end = std::chrono::steady_clock::now() + seconds(30);
        while (m_events.empty() && std::chrono::steady_clock::now() < end)
            context.run_one_for(milliseconds(20));
        former.Close(1); // this side first: it is the one that lingers
        EXPECT_TRUE(lingering.HasEnded());
    }
    TcpServer next(context, 2, static_cast<TcpStreamUser&>(*this));
    EXPECT_NO_THROW(next.Open({INADDR_LOOPBACK, port}));
}

} // namespace
} // namespace KnxStackHost
