// Device management connections to the running daemon, over UDP and over TCP.
#include "DaemonProcess.h"
#include "RawTcp.h"

#include <gmock/gmock.h>

#include <csignal>
#include <memory>
#include <optional>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;

constexpr std::uint8_t kUdp = 1; // host protocol
constexpr std::uint8_t kTcp = 2;

/// What both kinds of connections have in common. The messages are cEMI.
class ManagementClient {
public:
    virtual ~ManagementClient() = default;

    virtual bool Send(const Bytes& message) = 0;
    /// The next message of the server; empty when there is none in time.
    virtual Bytes Receive() = 0;
    virtual bool Disconnect() = 0;

    Bytes Ask(const Bytes& message) { return Send(message) ? Receive() : Bytes(); }

protected:
    static Bytes Frame(std::uint8_t service, std::uint8_t number, const Bytes& body) {
        return Joined({{0x06, 0x10, service, number, 0, static_cast<std::uint8_t>(6 + body.size())}, body});
    }
    /// To be answered to where it comes from.
    static Bytes Hpai(std::uint8_t protocol) { return {8, protocol, 0, 0, 0, 0, 0, 0}; }
    static Bytes ConnectRequest(std::uint8_t protocol) {
        return Frame(0x02, 0x05, Joined({Hpai(protocol), Hpai(protocol), {2, 3}}));
    }
    static std::uint8_t ChannelIn(const Bytes& answer) {
        const bool isConnected = answer.size() == 18 && answer[3] == 0x06 && answer[7] == 0;
        EXPECT_TRUE(isConnected) << "no management connection";
        return isConnected ? answer[6] : std::uint8_t{0};
    }
    static Bytes Configuration(std::uint8_t channel, std::uint8_t sequence, const Bytes& message) {
        return Frame(0x03, 0x10, Joined({{4, channel, sequence, 0}, message}));
    }
    static bool IsConfiguration(const Bytes& frame) {
        return frame.size() > 10 && frame[2] == 0x03 && frame[3] == 0x10;
    }
    static Bytes DisconnectRequest(std::uint8_t channel, std::uint8_t protocol) {
        return Frame(0x02, 0x09, Joined({{channel, 0}, Hpai(protocol)}));
    }
};

class OverTcp final : public ManagementClient {
public:
    explicit OverTcp(std::uint16_t port) : m_stream(port) {
        EXPECT_TRUE(m_stream.Send(ConnectRequest(kTcp)));
        m_channel = ChannelIn(m_stream.ReceiveFrame());
    }

    bool Send(const Bytes& message) override { return m_stream.Send(Configuration(m_channel, 0, message)); }
    Bytes Receive() override {
        const auto frame = m_stream.ReceiveFrame();
        return IsConfiguration(frame) ? Bytes(frame.begin() + 10, frame.end()) : Bytes();
    }
    bool Disconnect() override {
        return m_stream.Send(DisconnectRequest(m_channel, kTcp)) &&
               m_stream.ReceiveFrame() == Frame(0x02, 0x0A, {m_channel, 0});
    }

private:
    const RawTcp m_stream;
    std::uint8_t m_channel = 0;
};

/// Acknowledges what the server sends, and counts both ways.
class OverUdp final : public ManagementClient {
public:
    explicit OverUdp(std::uint16_t port) : m_udp(port) {
        m_udp.Send(ConnectRequest(kUdp));
        m_channel = ChannelIn(m_udp.Receive(seconds(20)));
    }

    bool Send(const Bytes& message) override {
        m_udp.Send(Configuration(m_channel, m_sent, message));
        const auto acknowledgement = Frame(0x03, 0x11, {4, m_channel, m_sent, 0});
        ++m_sent;
        return Next() == acknowledgement;
    }
    Bytes Receive() override {
        const auto frame = Next();
        return IsConfiguration(frame) ? Bytes(frame.begin() + 10, frame.end()) : Bytes();
    }
    bool Disconnect() override {
        m_udp.Send(DisconnectRequest(m_channel, kUdp));
        return Next() == Frame(0x02, 0x0A, {m_channel, 0});
    }

private:
    /// The next frame; with a message it is acknowledged, one that is repeated left out.
    Bytes Next() {
        for (;;) {
            auto frame = m_udp.Receive(seconds(20));
            if (!IsConfiguration(frame))
                return frame;
            EXPECT_EQ(m_channel, frame[7]);
            m_udp.Send(Frame(0x03, 0x11, {4, m_channel, frame[8], 0}));
            if (frame[8] == m_received) {
                ++m_received;
                return frame;
            }
        }
    }

    const RawUdp m_udp;
    std::uint8_t m_channel = 0;
    std::uint8_t m_sent = 0;     // sequence number of the next request
    std::uint8_t m_received = 0; // expected one of the server's next
};

class ManagementConnection : public testing::TestWithParam<std::uint8_t> {
protected:
    void SetUp() override {
        if (GetParam() == kTcp)
            m_client = std::make_unique<OverTcp>(m_daemon.Port());
        else
            m_client = std::make_unique<OverUdp>(m_daemon.Port());
    }

    Bytes Ask(const Bytes& message) { return m_client->Ask(message); }

    TemporaryDirectory m_directory;
    DaemonProcess m_daemon{m_directory, TestConfiguration()};
    std::unique_ptr<ManagementClient> m_client;
};

// Object type, instance, PID, number of elements and first element.

TEST_P(ManagementConnection, PropertiesOfTheDeviceAreReadAndWritten) {
    // Object type of the device object, and the number of its elements.
    EXPECT_EQ(Bytes({0xFB, 0, 0, 1, 1, 0x10, 1, 0, 0}), Ask({0xFC, 0, 0, 1, 1, 0x10, 1}));
    EXPECT_EQ(Bytes({0xFB, 0, 0, 1, 1, 0x10, 0, 0, 1}), Ask({0xFC, 0, 0, 1, 1, 0x10, 0}));
    // Programming mode, PID 54.
    EXPECT_EQ(Bytes({0xFB, 0, 0, 1, 54, 0x10, 1, 0}), Ask({0xFC, 0, 0, 1, 54, 0x10, 1}));
    EXPECT_EQ(Bytes({0xF5, 0, 0, 1, 54, 0x10, 1}), Ask({0xF6, 0, 0, 1, 54, 0x10, 1, 1}));
    EXPECT_EQ(Bytes({0xFB, 0, 0, 1, 54, 0x10, 1, 1}), Ask({0xFC, 0, 0, 1, 54, 0x10, 1}))
        << "the confirmation of the write was the only word about it";
    EXPECT_TRUE(m_client->Disconnect());
    EXPECT_TRUE(m_daemon.WaitForLog("has connected to manage the device"));
    EXPECT_TRUE(m_daemon.WaitForLog("does not manage the device any more: closed by the client"));
}

TEST_P(ManagementConnection, WhatIsNotThereOrNotToBeWrittenIsRefused) {
    EXPECT_EQ(Bytes({0xFB, 0, 0, 1, 200, 0x00, 1, 7}), Ask({0xFC, 0, 0, 1, 200, 0x10, 1})) << "property";
    EXPECT_EQ(Bytes({0xFB, 0, 0, 1, 0, 0x00, 1, 7}), Ask({0xFC, 0, 0, 1, 0, 0x10, 1})) << "PID 0";
    EXPECT_EQ(Bytes({0xFB, 0xC0, 0, 1, 1, 0x00, 1, 7}), Ask({0xFC, 0xC0, 0, 1, 1, 0x10, 1})) << "object";
    EXPECT_EQ(Bytes({0xFB, 0, 0, 2, 1, 0x00, 1, 7}), Ask({0xFC, 0, 0, 2, 1, 0x10, 1})) << "instance";
    EXPECT_EQ(Bytes({0xFB, 0, 0, 1, 1, 0x00, 2, 9}), Ask({0xFC, 0, 0, 1, 1, 0x10, 2})) << "element";
    EXPECT_EQ(Bytes({0xF5, 0, 0, 1, 1, 0x00, 1, 5}), Ask({0xF6, 0, 0, 1, 1, 0x10, 1, 0, 9})) << "read only";
    EXPECT_EQ(Bytes({0xF5, 0, 0, 1, 54, 0x00, 2, 1}), Ask({0xF6, 0, 0, 1, 54, 0x10, 2, 1})) << "element";
}

TEST_P(ManagementConnection, AFunctionThatIsNoneIsConfirmedWithoutAReturnCode) {
    EXPECT_EQ(Bytes({0xFA, 0, 0, 1, 54}), Ask({0xF8, 0, 0, 1, 54, 0, 1})) << "a property, but no function";
    EXPECT_EQ(Bytes({0xFA, 0, 0, 1, 200}), Ask({0xF9, 0, 0, 1, 200})) << "no property";
    EXPECT_EQ(Bytes({0xFB, 0, 0, 1, 54, 0x10, 1, 0}), Ask({0xFC, 0, 0, 1, 54, 0x10, 1})) << "as it was";
}

TEST_P(ManagementConnection, WhatChangesInTheDeviceIsAnnounced) {
    ASSERT_TRUE(m_daemon.WaitForLog("configured and running", seconds(20)));
    m_daemon.Signal(SIGUSR2);
    EXPECT_EQ(Bytes({0xF7, 0, 0, 1, 54, 0x10, 1, 1}), m_client->Receive()) << "programming mode";
    // From the bus: A_IndividualAddress_Write of 1.1.240, then "unload" to the address table.
    RawTunnel tunnel(m_daemon.Port());
    ASSERT_TRUE(tunnel.Send({0x11, 0, 0xB0, 0xE0, 0, 0, 0, 0, 3, 0x00, 0xC0, 0x11, 0xF0}));
    EXPECT_EQ(Bytes({0xF7, 0, 11, 1, 52, 0x10, 1, 0x11, 0xF0}), m_client->Receive()) << "address";
    ASSERT_TRUE(tunnel.Send({0x11, 0, 0xB0, 0x60, 0, 0, 0x11, 0xF0, 15, 0x03, 0xD7, 1, 5,
                             0x10, 1, 4,    0,    0, 0, 0,    0,    0,  0,    0,    0}));
    EXPECT_EQ(Bytes({0xF7, 0, 1, 1, 5, 0x10, 1, 0}), m_client->Receive()) << "load state";
    m_daemon.Signal(SIGUSR2);
    EXPECT_EQ(Bytes({0xF7, 0, 0, 1, 54, 0x10, 1, 0}), m_client->Receive()) << "and nothing between";
}

TEST_P(ManagementConnection, AResetRestartsTheDevice) {
    ASSERT_TRUE(m_daemon.WaitForLog("configured and running", seconds(20)));
    ASSERT_TRUE(m_client->Send({0xF1}));
    EXPECT_TRUE(m_daemon.WaitForLog(" asked for a restart of the device", seconds(20)));
    EXPECT_TRUE(Eventually([&] { return CountOf(m_directory.Read("record"), "restart") > 0; }, seconds(20)))
        << m_daemon.Log() << m_directory.Read("record");
}

INSTANTIATE_TEST_SUITE_P(Protocols, ManagementConnection, testing::Values(kUdp, kTcp),
                         [](const auto& each) { return each.param == kUdp ? "udp" : "tcp"; });

} // namespace
} // namespace KnxStackHost
