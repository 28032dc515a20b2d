// A client of device management made of bytes.
#pragma once

#include "RawTcp.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace KnxStackHost {

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
    static constexpr std::uint8_t kUdp = 1; // host protocol
    static constexpr std::uint8_t kTcp = 2;

    /// To be answered to where it comes from.
    static Bytes Hpai(std::uint8_t protocol) { return {8, protocol, 0, 0, 0, 0, 0, 0}; }
    static Bytes ConnectRequest(std::uint8_t protocol) {
        return Frame(0x0205, Joined({Hpai(protocol), Hpai(protocol), {2, 3}}));
    }
    static std::uint8_t ChannelIn(const Bytes& answer) {
        const bool isConnected = answer.size() == 18 && answer[3] == 0x06 && answer[7] == 0;
        EXPECT_TRUE(isConnected) << "no management connection";
        return isConnected ? answer[6] : std::uint8_t{0};
    }
    static Bytes Configuration(std::uint8_t channel, std::uint8_t sequence, const Bytes& message) {
        return Frame(0x0310, Joined({{4, channel, sequence, 0}, message}));
    }
    static bool IsConfiguration(const Bytes& frame) {
        return frame.size() > 10 && frame[2] == 0x03 && frame[3] == 0x10;
    }
    static Bytes DisconnectRequest(std::uint8_t channel, std::uint8_t protocol) {
        return Frame(0x0209, Joined({{channel, 0}, Hpai(protocol)}));
    }
};

class ManagementOverTcp final : public ManagementClient {
public:
    explicit ManagementOverTcp(std::uint16_t port) : m_stream(port) {
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
               m_stream.ReceiveFrame() == Frame(0x020A, {m_channel, 0});
    }

private:
    const RawTcp m_stream;
    std::uint8_t m_channel = 0;
};

/// Acknowledges what the server sends, and counts both ways.
class ManagementOverUdp final : public ManagementClient {
public:
    explicit ManagementOverUdp(std::uint16_t port) : m_udp(port) {
        m_udp.Send(ConnectRequest(kUdp));
        m_channel = ChannelIn(m_udp.Receive(std::chrono::seconds(20)));
    }

    bool Send(const Bytes& message) override {
        m_udp.Send(Configuration(m_channel, m_sent, message));
        const auto acknowledgement = Frame(0x0311, {4, m_channel, m_sent, 0});
        ++m_sent;
        return Next() == acknowledgement;
    }
    Bytes Receive() override {
        const auto frame = Next();
        return IsConfiguration(frame) ? Bytes(frame.begin() + 10, frame.end()) : Bytes();
    }
    bool Disconnect() override {
        m_udp.Send(DisconnectRequest(m_channel, kUdp));
        return Next() == Frame(0x020A, {m_channel, 0});
    }

private:
    /// The next frame; with a message it is acknowledged, one that is repeated left out.
    Bytes Next() {
        for (;;) {
            auto frame = m_udp.Receive(std::chrono::seconds(20));
            if (!IsConfiguration(frame))
                return frame;
            EXPECT_EQ(m_channel, frame[7]);
            m_udp.Send(Frame(0x0311, {4, m_channel, frame[8], 0}));
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

/// Connects; fails the test when that is refused. `protocol` is "udp" or "tcp".
inline std::unique_ptr<ManagementClient> ConnectToManage(std::uint16_t port, const std::string& protocol) {
    if (protocol == "tcp")
        return std::make_unique<ManagementOverTcp>(port);
    return std::make_unique<ManagementOverUdp>(port);
}

} // namespace KnxStackHost
