// Device management connections to the running daemon, over UDP and over TCP.
#include "../DaemonProcess.h"
#include "../RawManagement.h"

#include <gmock/gmock.h>

#include <csignal>
#include <memory>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;

class ManagementConnection : public testing::TestWithParam<const char*> {
protected:
    Bytes Ask(const Bytes& message) { return m_client->Ask(message); }

    TemporaryDirectory m_directory;
    DaemonProcess m_daemon{m_directory, TestConfiguration()};
    const std::unique_ptr<ManagementClient> m_client = ConnectToManage(m_daemon.Port(), GetParam());
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
    EXPECT_EQ(Bytes({0xF5, 0, 0, 1, 200, 0x00, 1, 7}), Ask({0xF6, 0, 0, 1, 200, 0x10, 1, 1})) << "property";
    EXPECT_EQ(Bytes({0xF5, 0, 0, 1, 54, 0x00, 2, 9}), Ask({0xF6, 0, 0, 1, 54, 0x10, 2, 1})) << "element";
    EXPECT_EQ(Bytes({0xF5, 0, 0, 1, 54, 0x00, 1, 8}), Ask({0xF6, 0, 0, 1, 54, 0x10, 1, 1, 1})) << "length";
}

TEST_P(ManagementConnection, ALoadEventThatIsNotDoneIsRefusedWithItsReason) {
    const auto control = [this](Bytes event) {
        Bytes request{0xF6, 0, 2, 1, 5, 0x10, 1}; // the association table's
        request.insert(request.end(), event.begin(), event.end());
        return Ask(request);
    };
    const Bytes done{0xF5, 0, 2, 1, 5, 0x10, 1};
    const auto refused = [](std::uint8_t error) { return Bytes{0xF5, 0, 2, 1, 5, 0x00, 1, error}; };
    const Bytes unload{4};
    EXPECT_EQ(done, control(unload));
    EXPECT_EQ(refused(6), control({5})) << "no such event";
    EXPECT_EQ(refused(10), control({1})) << "the state is error now";
    EXPECT_EQ(done, control(unload));
    EXPECT_EQ(done, control({1}));
    EXPECT_EQ(refused(4), control({3, 0x0B, 0xFF, 0, 0, 0, 1, 0, 0, 0})) << "so much memory";
    EXPECT_EQ(done, control(unload));
    EXPECT_EQ(done, control({1}));
    EXPECT_EQ(refused(1), control({3, 0x0B, 0, 0, 0, 0, 1, 0, 0, 0})) << "no memory at all";
    EXPECT_EQ(refused(8), control({})) << "no event";
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

INSTANTIATE_TEST_SUITE_P(Protocols, ManagementConnection, testing::Values("udp", "tcp"),
                         [](const auto& each) { return std::string(each.param); });

} // namespace
} // namespace KnxStackHost
