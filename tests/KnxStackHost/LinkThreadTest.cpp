// The link thread with receivers that throw.
#include "KnxStackHost/LinkThread.h"

#include "Fakes.h"
#include "RawTunnel.h"

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;

Configuration OneTunnel() {
    Configuration configuration;
    configuration.individualAddress = KnxFrames::IndividualAddress(1, 1, 250);
    configuration.deviceName = "test";
    configuration.server.address = "127.0.0.1";
    configuration.server.port = 0;
    configuration.server.tunnels = {KnxFrames::IndividualAddress(1, 1, 251)};
    return configuration;
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

    const Configuration m_configuration = OneTunnel();
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
