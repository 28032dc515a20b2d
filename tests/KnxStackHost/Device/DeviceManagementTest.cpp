// A tool manages the running daemon's device through a tunnel.
#include "../DaemonProcess.h"
#include "../RawTunnel.h"
#include "Downloader.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <csignal>

namespace KnxStackHost {
namespace {

using KnxFrames::Tpdu;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::Not;
using TestSupport::Downloader;
using TestSupport::LoadDescription;

constexpr std::uint16_t kDevice = 0x11FA; // 1.1.250

/// Point to point through a tunnel. Confirmations, and what is for others, are not the tool's.
class TunnelChannel final : public TestSupport::ManagementChannel {
public:
    explicit TunnelChannel(RawTunnel& tunnel, std::uint16_t device = kDevice)
        : m_tunnel(tunnel), m_device(device) {}

    void Send(const Tpdu& tpdu) override {
        Bytes cemi{0x11,
                   0,
                   0xB0,
                   0x60,
                   0,
                   0,
                   static_cast<std::uint8_t>(m_device >> 8),
                   static_cast<std::uint8_t>(m_device),
                   static_cast<std::uint8_t>(tpdu.Size() - 1)};
        if (tpdu.Size() > 16)
            cemi[2] = 0x30; // an extended frame
        cemi.insert(cemi.end(), tpdu.View().begin(), tpdu.View().end());
        EXPECT_TRUE(m_tunnel.Send(cemi));
    }

    std::optional<Tpdu> Receive() override {
        for (;;) {
            const auto cemi = m_tunnel.ReceiveIndication();
            if (cemi.size() < 10)
                return std::nullopt;
            const bool fromDevice = cemi[4] << 8 == (m_device & 0xFF00) && cemi[5] == (m_device & 0xFF);
            if (fromDevice && (cemi[3] & 0x80) == 0)
                return Tpdu(KnxFrames::Octets(cemi).subspan(9));
        }
    }

    /// The answer to a connectionless request; "" for none.
    std::string Ask(const Tpdu& tpdu) {
        Send(tpdu);
        const auto answer = Receive();
        std::string text;
        if (answer)
            for (const auto octet : answer->View())
                text += fmt::format("{:02x}", octet);
        return text;
    }

private:
    RawTunnel& m_tunnel;
    const std::uint16_t m_device;
};

class DeviceManagementOfTheDaemon : public testing::Test {
protected:
    static std::string Configuration(const std::string& settings = "") {
        auto text = TestConfiguration(R"(, "device": "record")" + settings);
        const std::string part = R"("individualAddress")";
        return text.replace(text.find(part), part.size(),
                            R"("image": "state/device.image", "serialNumber": "00fa11223344", )" + part);
    }

    void Start(const std::string& settings = "") {
        m_directory.Write("stderr", ""); // the log of this one alone
        m_daemon.emplace(m_directory, Configuration(settings));
        m_tunnel.emplace(m_daemon->Port());
        ASSERT_TRUE(m_daemon->WaitForLog("configured and running"));
    }
    void Stop() {
        m_tunnel.reset();
        m_daemon->Signal(SIGTERM);
        EXPECT_EQ(0, m_daemon->WaitForEnd(seconds(20)));
        m_daemon.reset();
    }
    void Download() {
        TunnelChannel channel(*m_tunnel);
        Downloader downloader(channel);
        EXPECT_TRUE(downloader.Run(LoadDescription(DOWNLOADS "/two-objects.txt"))) << downloader.Fault();
    }
    bool Recorded(const std::string& line, std::size_t count = 1) const {
        return Eventually(
            [&] { return CountOf("\n" + m_directory.Read("record"), "\n" + line + "\n") >= count; },
            seconds(30));
    }
    std::string LoadedMemory() const {
        std::string text;
        for (unsigned octet = 0; octet < 32; ++octet)
            text += fmt::format("{:02x}", octet);
        return text;
    }

    TemporaryDirectory m_directory;
    std::optional<DaemonProcess> m_daemon;
    std::optional<RawTunnel> m_tunnel;
};

TEST_F(DeviceManagementOfTheDaemon, ADownloadEndsInARestartOfTheProgramAndInLiveGroupObjects) {
    Start();
    Download();
    ASSERT_TRUE(Recorded("restart"));
    ASSERT_TRUE(Recorded(fmt::format("device: pending yes, property none, memory {}, data ", LoadedMemory())))
        << m_directory.Read("record");
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(1, 2, 3), kWrite, {0x0C, 0x1A})));
    EXPECT_TRUE(Recorded("write 1 0c1a"));
    EXPECT_TRUE(m_daemon->WaitForLog("the new device is in force, with 2 group objects"));
    EXPECT_TRUE(m_tunnel->IsAlive());
}

TEST_F(DeviceManagementOfTheDaemon, WhatWasDownloadedIsThereAfterAStartWithTheSameFiles) {
    Start();
    Download();
    ASSERT_TRUE(m_daemon->WaitForLog("the new device is in force"));
    Stop();
    m_directory.Write("record", "");
    Start();
    EXPECT_THAT(m_daemon->Log(), HasSubstr("with 2 group objects"));
    EXPECT_TRUE(Recorded(fmt::format("device: pending no, property none, memory {}, data ", LoadedMemory())))
        << m_directory.Read("record");
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(1, 2, 4), kWrite, {0x0C, 0x1A})));
    EXPECT_TRUE(Recorded("write 1 0c1a"));
    EXPECT_THAT(m_daemon->Log(),
                HasSubstr("state/device.image says: 1.1.250, the application program loaded"));
}

TEST_F(DeviceManagementOfTheDaemon, ARestartThatTheProgramHasNotFinishedWithIsRepeatedAfterTheNextStart) {
    Start(R"(, "restart": "wait")");
    Download();
    ASSERT_TRUE(Recorded("restart"));
    m_daemon->Signal(SIGKILL);
    EXPECT_FALSE(m_daemon->WaitForEnd(seconds(1)) == 0);
    m_daemon.reset();
    m_directory.Write("record", "");
    Start();
    EXPECT_TRUE(Recorded("restart"));
    ASSERT_TRUE(m_daemon->WaitForLog("configured and running", seconds(10), 2));
    Stop();
    m_directory.Write("record", "");
    Start();
    TunnelChannel channel(*m_tunnel);
    EXPECT_EQ("034057b0", channel.Ask({0x03, 0x00}));
    EXPECT_THAT(m_directory.Read("record"), Not(HasSubstr("restart"))) << "the last one was finished";
}

TEST_F(DeviceManagementOfTheDaemon, ADeviceThatIsBeingLoadedTakesNoGroupTelegrams) {
    Start();
    TunnelChannel channel(*m_tunnel);
    EXPECT_EQ("03d60105100100",
              channel.Ask({0x03, 0xD7, 0x01, 0x05, 0x10, 0x01, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(m_daemon->WaitForLog("its group objects rest until a download has ended"));
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(31, 7, 255), kWrite, {1})));
    EXPECT_EQ("034057b0", channel.Ask({0x03, 0x00}));
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(m_daemon->WaitForLog("the new configuration is in force, with 0 group objects"));
    EXPECT_THAT(m_directory.Read("record"), Not(HasSubstr("write")));
}

TEST_F(DeviceManagementOfTheDaemon, ARestartOfADeviceThatNoToolHasChangedLeavesTheConfigurationInForce) {
    Start();
    TunnelChannel channel(*m_tunnel);
    EXPECT_EQ("", channel.Ask({0x03, 0x80}));
    ASSERT_TRUE(Recorded("restart"));
    EXPECT_TRUE(m_daemon->WaitForLog("the new device is in force, with 5 group objects"));
    EXPECT_FALSE(std::filesystem::exists(m_directory.Path() + "/state/device.image"));
    m_directory.Write("knxstackd.json", [] {
        auto text = Configuration();
        const std::string address = "\"31/7/255\"";
        return text.replace(text.find(address), address.size(), "\"30/0/1\"");
    }());
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(m_daemon->WaitForLog("the new configuration is in force"));
    ASSERT_TRUE(m_tunnel->Send(GroupRequest(Group(30, 0, 1), kWrite, {7})));
    EXPECT_TRUE(Recorded("write 4 07"));
}

TEST_F(DeviceManagementOfTheDaemon, AnUnreadableImageIsKeptAsideAndTheDeviceStartsUnloaded) {
    std::filesystem::create_directories(m_directory.Path() + "/state");
    m_directory.Write("state/device.image", "KNXDEVICE\x01 and nothing that was ever an image");
    Start();
    EXPECT_THAT(m_daemon->Log(),
                HasSubstr("its checksum is wrong: it is damaged, or was cut off; it is kept as "));
    EXPECT_THAT(m_daemon->Log(), HasSubstr("with 0 group objects"));
    std::size_t kept = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_directory.Path() + "/state"))
        kept += entry.path().filename().string().starts_with("device.image.unreadable-") ? 1 : 0;
    EXPECT_EQ(1u, kept);
    Download();
    EXPECT_TRUE(m_daemon->WaitForLog("the new device is in force, with 2 group objects"));
}

TEST_F(DeviceManagementOfTheDaemon, ProgrammingModeGoesOnAndOffWithASignal) {
    Start();
    m_daemon->Signal(SIGUSR2);
    ASSERT_TRUE(m_daemon->WaitForLog("programming mode is on"));
    TunnelChannel channel(*m_tunnel);
    EXPECT_EQ("03d60036100101", channel.Ask({0x03, 0xD5, 0x00, 0x36, 0x10, 0x01}));
    m_daemon->Signal(SIGUSR2);
    ASSERT_TRUE(m_daemon->WaitForLog("programming mode is off"));
    EXPECT_EQ("03d60036100100", channel.Ask({0x03, 0xD5, 0x00, 0x36, 0x10, 0x01}));
}

TEST_F(DeviceManagementOfTheDaemon, AnAddressGivenByATelegramIsTheDevicesFromThenOn) {
    Start();
    m_daemon->Signal(SIGUSR2);
    ASSERT_TRUE(m_daemon->WaitForLog("programming mode is on"));
    ASSERT_TRUE(m_tunnel->Send({0x11, 0, 0xB0, 0xE0, 0, 0, 0, 0, 3, 0x00, 0xC0, 0x11, 0xF0})); // 1.1.240
    ASSERT_TRUE(m_daemon->WaitForLog("the device has the individual address 1.1.240 now"));
    TunnelChannel channel(*m_tunnel, 0x11F0);
    EXPECT_EQ("034057b0", channel.Ask({0x03, 0x00}));
    EXPECT_EQ("", TunnelChannel(*m_tunnel).Ask({0x03, 0x00})) << "nobody has the former one";
    Stop();
    Start();
    TunnelChannel again(*m_tunnel, 0x11F0);
    EXPECT_EQ("034057b0", again.Ask({0x03, 0x00}));
}

TEST_F(DeviceManagementOfTheDaemon, ClientsAreToldWhatTheDeviceIs) {
    Start();
    const RawUdp client(m_daemon->Port());
    // Medium, status octet, individual address, project installation, serial number.
    const auto described = [&client] {
        client.Send({0x06, 0x10, 0x02, 0x03, 0x00, 0x0E, 0x08, 0x01, 0, 0, 0, 0, 0, 0});
        const auto answer = client.Receive();
        std::string text;
        for (std::size_t at = 8; at < 20 && at < answer.size(); ++at)
            text += fmt::format("{:02x}", answer[at]);
        return text;
    };
    EXPECT_EQ("200011fa000000fa11223344", described());
    m_daemon->Signal(SIGUSR2);
    ASSERT_TRUE(m_daemon->WaitForLog("programming mode is on"));
    TunnelChannel channel(*m_tunnel);
    EXPECT_EQ("03d6063310011234", channel.Ask({0x03, 0xD7, 0x06, 0x33, 0x10, 0x01, 0x12, 0x34}));
    ASSERT_TRUE(m_tunnel->Send({0x11, 0, 0xB0, 0xE0, 0, 0, 0, 0, 3, 0x00, 0xC0, 0x11, 0xF0}));
    ASSERT_TRUE(m_daemon->WaitForLog("the device has the individual address 1.1.240 now"));
    EXPECT_EQ("200111f0123400fa11223344", described());
    TunnelChannel moved(*m_tunnel, 0x11F0);
    EXPECT_EQ("03d6063910017f000001", moved.Ask({0x03, 0xD5, 0x06, 0x39, 0x10, 0x01})) << "127.0.0.1";
    EXPECT_EQ("03d60635100111fb", moved.Ask({0x03, 0xD5, 0x06, 0x35, 0x10, 0x01})) << "the first tunnel";
}

} // namespace
} // namespace KnxStackHost
