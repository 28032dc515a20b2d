// The link thread with tunnels, and with receivers that throw.
#include "KnxStackHost/Links/LinkThread.h"

#include "../Fakes.h"
#include "../RawTunnel.h"

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;

Configuration ThreeTunnels() {
    Configuration configuration;
    configuration.individualAddress = KnxFrames::IndividualAddress(1, 1, 250);
    configuration.deviceName = "test";
    configuration.server.address = "127.0.0.1";
    configuration.server.port = 0;
    for (const std::uint8_t device : {251, 252, 253})
        configuration.server.tunnels.emplace_back(1, 1, device);
    return configuration;
}

/// L_Data.req: T_Connect.
Bytes Connect(std::uint16_t source, std::uint16_t destination) {
    const auto high = [](std::uint16_t address) { return static_cast<std::uint8_t>(address >> 8); };
    const auto low = [](std::uint16_t address) { return static_cast<std::uint8_t>(address & 0xFF); };
    return {0x11, 0, 0xB0, 0x60, high(source), low(source), high(destination), low(destination), 0, 0x80};
}

/// The same as others hear it.
Bytes Heard(Bytes request) {
    request[0] = 0x29;
    return request;
}

class Link : public testing::Test {
protected:
    void Serve() {
        m_link.Open(m_objects, m_management,
                    [this](const Callback& callback) {
                        ++m_callbacks;
                        if (callback.value.GetAsUnsigned8() == 1)
                            throw 42;
                    },
                    {[this] {
                         if (++m_reloads == 1)
                             throw std::runtime_error("no");
                     },
                     [this] { ++m_restarts; }, [this] { m_link.Close(); }});
        m_link.Start();
        m_thread = std::thread([this] { m_link.Run(); });
    }

    ~Link() override {
        m_link.Close();
        if (m_thread.joinable())
            m_thread.join();
    }

    static bool Eventually(const std::function<bool()>& condition) {
        const auto end = std::chrono::steady_clock::now() + seconds(20);
        while (!condition() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return condition();
    }

    const Configuration m_configuration = ThreeTunnels();
    KnxDevice::GroupObjects m_objects{TestTable()};
    KnxDevice::InterfaceObjects m_interfaceObjects;
    DeviceManagement m_management{m_configuration, m_interfaceObjects};
    LinkThread m_link{m_configuration};
    std::atomic<int> m_callbacks{0};
    std::atomic<int> m_reloads{0};
    std::atomic<int> m_restarts{0};
    std::thread m_thread;
};

TEST_F(Link, ASignalIsHeardAfterOneWhoseHandlerThrew) {
    Serve();
    for (int count = 1; count <= 2; ++count) {
        ASSERT_EQ(0, ::kill(::getpid(), SIGHUP));
        ASSERT_TRUE(Eventually([&] { return m_reloads == count; }));
    }
    ASSERT_EQ(0, ::kill(::getpid(), SIGTERM));
    m_thread.join();
}

TEST_F(Link, EachSignalHasItsRequest) {
    Serve();
    ASSERT_EQ(0, ::kill(::getpid(), SIGUSR1));
    ASSERT_TRUE(Eventually([&] { return m_restarts == 1; }));
    EXPECT_EQ(0, m_reloads);
    ASSERT_EQ(0, ::kill(::getpid(), SIGHUP));
    ASSERT_TRUE(Eventually([&] { return m_reloads == 1; }));
    EXPECT_EQ(1, m_restarts);
    ASSERT_EQ(0, ::kill(::getpid(), SIGINT));
    m_thread.join();
}

TEST_F(Link, ADeviceBehindATunnelIsReachedThroughItUntilTheTunnelIsClosed) {
    constexpr std::uint16_t kTool = 0x1150;
    constexpr std::uint16_t kBehind = 0x114D;
    constexpr std::uint16_t kElsewhere = 0x114E;
    Serve();
    RawTunnel gateway(m_link.Port());
    RawTunnel tool(m_link.Port());
    RawTunnel bystander(m_link.Port());
    ASSERT_TRUE(gateway.Send(Connect(kBehind, kTool)));
    EXPECT_EQ(Heard(Connect(kBehind, kTool)), bystander.ReceiveIndication()) << "nobody knows the tool yet";
    EXPECT_EQ(Heard(Connect(kBehind, kTool)), tool.ReceiveIndication());
    ASSERT_TRUE(tool.Send(Connect(kTool, kBehind)));
    EXPECT_EQ(Heard(Connect(kTool, kBehind)), gateway.ReceiveIndication());
    ASSERT_TRUE(tool.Send(Connect(kTool, kElsewhere)));
    EXPECT_EQ(Heard(Connect(kTool, kElsewhere)), bystander.ReceiveIndication()) << "and not the one before";
    ASSERT_TRUE(gateway.Disconnect());
    ASSERT_TRUE(tool.Send(Connect(kTool, kBehind)));
    EXPECT_EQ(Heard(Connect(kTool, kBehind)), bystander.ReceiveIndication());
}

TEST_F(Link, ATelegramIsTakenAfterOneWhoseReceiverThrew) {
    Serve();
    RawTunnel tunnel(m_link.Port());
    for (std::uint8_t value = 1; value <= 2; ++value)
        EXPECT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 4), kWrite, {value})));
    EXPECT_TRUE(Eventually([&] { return m_callbacks == 2; }));
}

TEST_F(Link, WhatTheProgramSendsIsPassedOnBehindATelegramWhoseReceiverThrew) {
    Serve();
    RawTunnel tunnel(m_link.Port());
    for (std::uint8_t value = 1; value <= 3; ++value) {
        const std::uint8_t octets[] = {value};
        auto telegram = KnxFrames::MakeGroupTelegram(
            {}, KnxFrames::GroupAddress(1, 2, 4),
            *KnxFrames::MakeGroupLongValue(KnxFrames::GroupServiceKind::Write, octets));
        EXPECT_TRUE(m_link.Submit(telegram, 1));
    }
    for (std::uint8_t value = 1; value <= 3; ++value) {
        const auto indication = tunnel.ReceiveIndication();
        ASSERT_EQ(12u, indication.size());
        EXPECT_EQ(value, indication[11]);
    }
    EXPECT_TRUE(Eventually([&] { return m_callbacks == 3; }));
}

TEST_F(Link, EndsAlthoughAReceiverThrowsOnTheWay) {
    Serve();
    const std::uint8_t octets[] = {1};
    EXPECT_TRUE(m_link.Submit(KnxFrames::MakeGroupTelegram(
                                  {}, KnxFrames::GroupAddress(1, 2, 4),
                                  *KnxFrames::MakeGroupLongValue(KnxFrames::GroupServiceKind::Write, octets)),
                              1));
    m_link.Close();
    m_thread.join();
    EXPECT_EQ(1, m_callbacks);
}

} // namespace
} // namespace KnxStackHost
