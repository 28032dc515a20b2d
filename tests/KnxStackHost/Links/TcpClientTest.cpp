// The TCP stream to a server, on an io_context of the test, with a server of ours at the other end.
#include "KnxStackHost/Links/TcpClient.h"

#include "KnxStackHost/Links/Tcp.h"

#include <gmock/gmock.h>

#include <functional>
#include <netinet/in.h>
#include <stdexcept>
#include <string>

namespace KnxStackHost {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;

constexpr std::uint32_t kLoopback = INADDR_LOOPBACK;

class OutgoingStream : public testing::Test, protected TcpStreamUser {
protected:
    OutgoingStream() {
        m_server.Open({kLoopback, 0});
        m_server.Start();
    }

    void OnStreamOpened(KnxIp::StreamId stream, const KnxIp::Endpoint& from) override {
        m_atServer.push_back("opened " + std::to_string(stream));
        m_clientPort = from.port;
    }
    void OnStreamOctets(KnxIp::StreamId stream, KnxFrames::Octets octets) override {
        m_received += octets.size();
        m_server.Send(stream, octets);
    }
    void OnStreamClosed(KnxIp::StreamId stream) override {
        m_atServer.push_back("closed " + std::to_string(stream));
    }

    TcpClient::Events Events() {
        return {[this] { Take("opened"); },
                [this](KnxFrames::Octets octets) {
                    m_echoed += octets.size();
                    if (m_throws)
                        throw std::runtime_error("no");
                },
                [this] { Take("closed"); }};
    }
    void Take(const std::string& event) {
        EXPECT_FALSE(m_isBusy) << event << " inside an operation";
        m_atClient.push_back(event);
    }

    void Open() { Open({kLoopback, m_server.Port()}); }
    void Open(const KnxIp::Endpoint& server) {
        m_isBusy = true;
        m_client.Open(server, kLoopback);
        m_isBusy = false;
    }
    void Send(std::size_t size) {
        const std::vector<std::uint8_t> octets(size, 0x55);
        m_isBusy = true;
        m_client.Send(octets);
        m_isBusy = false;
    }

    bool ServeUntil(const std::function<bool()>& condition) {
        const auto end = std::chrono::steady_clock::now() + seconds(30);
        while (!condition() && std::chrono::steady_clock::now() < end) {
            m_context.restart();
            m_context.run_one_for(milliseconds(20));
        }
        return condition();
    }

    boost::asio::io_context m_context{1};
    std::vector<std::string> m_atServer;
    std::vector<std::string> m_atClient;
    std::size_t m_received = 0;
    std::size_t m_echoed = 0;
    std::uint16_t m_clientPort = 0;
    bool m_throws = false;
    bool m_isBusy = false;
    TcpServer m_server{m_context, 4, static_cast<TcpStreamUser&>(*this)};
    TcpClient m_client{m_context, Events()};
};

TEST_F(OutgoingStream, OctetsGoBothWaysUntilTheServerLeaves) {
    Send(1); // nowhere
    Open();
    ASSERT_TRUE(ServeUntil([&] { return m_atClient.size() == 1; }));
    Send(10'000);
    ASSERT_TRUE(ServeUntil([&] { return m_echoed == 10'000; }));
    m_server.Close(1);
    ASSERT_TRUE(ServeUntil([&] { return m_atClient.size() == 2; }));
    EXPECT_THAT(m_atClient, ElementsAre("opened", "closed"));
    Send(1); // nowhere again
}

TEST_F(OutgoingStream, AServerThatIsNotThereIsTold) {
    const auto port = m_server.Port();
    Open({kLoopback, static_cast<std::uint16_t>(port == 1 ? 2 : 1)}); // nobody may listen there unprivileged
    ASSERT_TRUE(ServeUntil([&] { return !m_atClient.empty(); }));
    EXPECT_THAT(m_atClient, ElementsAre("closed"));
}

TEST_F(OutgoingStream, AnAddressThatIsNotOursIsToldLikewise) {
    m_isBusy = true;
    m_client.Open({kLoopback, m_server.Port()}, 0xCB007101); // 203.0.113.1
    m_isBusy = false;
    ASSERT_TRUE(ServeUntil([&] { return !m_atClient.empty(); }));
    EXPECT_THAT(m_atClient, ElementsAre("closed"));
}

TEST_F(OutgoingStream, AFailureThatNobodyWaitsForAnyMoreIsNotTold) {
    m_client.Open({kLoopback, m_server.Port()}, 0xCB007101); // fails at once
    m_client.Close();
    m_client.Open({kLoopback, m_server.Port()}, 0xCB007101);
    Open();
    ASSERT_TRUE(ServeUntil([&] { return !m_atClient.empty(); }));
    Send(1);
    ASSERT_TRUE(ServeUntil([&] { return m_echoed == 1; }));
    EXPECT_THAT(m_atClient, ElementsAre("opened"));
}

TEST_F(OutgoingStream, WhatIsClosedHereIsToldToTheServerAlone) {
    Open();
    ASSERT_TRUE(ServeUntil([&] { return m_atClient.size() == 1 && m_atServer.size() == 1; }));
    m_client.Close();
    m_client.Close();
    ASSERT_TRUE(ServeUntil([&] { return m_atServer.size() == 2; }));
    EXPECT_THAT(m_atClient, ElementsAre("opened"));
    EXPECT_THAT(m_atServer, ElementsAre("opened 1", "closed 1"));
}

TEST_F(OutgoingStream, OnlyTheLastOneThatWasOpenedCounts) {
    Open({kLoopback, 1});
    Open();
    Open();
    ASSERT_TRUE(ServeUntil([&] { return !m_atClient.empty() && m_atServer.size() >= 1; }));
    Send(5);
    ASSERT_TRUE(ServeUntil([&] { return m_echoed == 5; }));
    EXPECT_THAT(m_atClient, ElementsAre("opened"));
}

TEST_F(OutgoingStream, AReceiverThatThrowsGetsTheNextOctetsAllTheSame) {
    Open();
    ASSERT_TRUE(ServeUntil([&] { return m_atClient.size() == 1; }));
    m_throws = true;
    for (std::size_t count = 1; count <= 2; ++count) {
        Send(1);
        ASSERT_TRUE(ServeUntil([&] { return m_echoed == count; }));
    }
    EXPECT_THAT(m_atClient, ElementsAre("opened"));
}

TEST_F(OutgoingStream, AServerThatDoesNotReadEndsTheStream) {
    Open();
    ASSERT_TRUE(ServeUntil([&] { return m_atClient.size() == 1; }));
    // The server is not served meanwhile; the system's own buffers take some megabytes at most.
    for (int count = 0; count < 20'000; ++count)
        Send(1000);
    ASSERT_TRUE(ServeUntil([&] { return m_atClient.size() == 2; }));
    EXPECT_THAT(m_atClient, ElementsAre("opened", "closed"));
    EXPECT_LT(m_received, 20'000'000U);
}

} // namespace
} // namespace KnxStackHost
