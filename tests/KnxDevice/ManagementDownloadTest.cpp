// A download as a tool plays it, whole and broken off after every telegram.
#include "Downloader.h"

#include "KnxDevice/DeviceImage.h"
#include "KnxDevice/Management.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <deque>

namespace KnxDevice {
namespace {

using KnxFrames::LData;
using KnxFrames::Tpdu;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::Downloader;
using TestSupport::DownloadStep;
using TestSupport::LoadDescription;
using Bytes = std::vector<std::uint8_t>;

constexpr IndividualAddress kOwn(1, 1, 250);
constexpr IndividualAddress kTool(1, 1, 20);

/// A device that keeps its image at every change, as the host does, and the way of a tool to it.
class RunningDevice final : public TestSupport::ManagementChannel, private ManagementListener {
public:
    explicit RunningDevice(const std::optional<Bytes>& image) {
        if (image)
            m_device.Restore(ReadDeviceImage(*image));
        m_device.SetListener([this](DeviceChange) { m_image = WriteDeviceImage(m_device.State()); });
        m_image = WriteDeviceImage(m_device.State());
    }

    void Send(const Tpdu& tpdu) override {
        LData telegram;
        telegram.control2 = 0x60;
        telegram.source = kTool;
        telegram.destination = kOwn.raw;
        telegram.tpdu = tpdu;
        m_management.OnTelegram(m_now, telegram);
    }
    std::optional<Tpdu> Receive() override {
        if (m_sent.empty())
            return std::nullopt;
        const auto tpdu = m_sent.front();
        m_sent.pop_front();
        return tpdu;
    }

    /// The tool is gone: the connection ends by itself.
    void BecomeSilent() {
        while (const auto next = m_management.NextTime()) {
            m_now = *next;
            m_management.OnTime(m_now);
        }
        m_sent.clear();
    }

    const KnxDevice::Device& Device() const { return m_device; }
    /// What is on the disk now.
    const Bytes& Image() const { return m_image; }
    unsigned Restarts() const { return m_restarts; }
    bool IsConnected() const { return m_connected; }

private:
    void SendTelegram(const LData& telegram) override { m_sent.push_back(telegram.tpdu); }
    void OnRestart(Erase, IndividualAddress) override { ++m_restarts; }
    void OnConnection(IndividualAddress, bool open) override { m_connected = open; }
    void OnRefused(IndividualAddress, KnxFrames::Service, const char*) override {}

    TimePoint m_now{seconds(1000)};
    InterfaceObjects m_objects;
    KnxDevice::Device m_device{{.factoryAddress = kOwn}, m_objects};
    Management m_management{m_device, *this};
    std::deque<Tpdu> m_sent;
    Bytes m_image;
    unsigned m_restarts = 0;
    bool m_connected = false;
};

class Download : public testing::Test {
protected:
    const std::vector<DownloadStep> m_steps = LoadDescription(DOWNLOADS "/two-objects.txt");

    /// What the description loads into the object.
    Bytes Described(std::size_t object) const {
        for (const auto& step : m_steps)
            if (step.kind == DownloadStep::Kind::Load && step.object == object)
                return step.octets;
        return {};
    }
    /// A device with other content in every object that the description loads.
    static Bytes FormerImage() {
        RunningDevice device(std::nullopt);
        const std::vector<DownloadStep> former = {{DownloadStep::Kind::Load, 1, 0, {0, 1, 0x10, 0x01}},
                                                  {DownloadStep::Kind::Load, 2, 0, {0, 1, 0, 1, 0, 7}},
                                                  {DownloadStep::Kind::Load, 3, 0, {0, 0}},
                                                  {DownloadStep::Kind::Load, 4, 0, {0xAA}}};
        Downloader downloader(device);
        EXPECT_TRUE(downloader.Run(former)) << downloader.Fault();
        return device.Image();
    }

    void ExpectDescribed(const KnxDevice::Device& device) const {
        for (std::size_t object = 1; object <= 4; ++object) {
            const auto& loadable = device.Loadable(static_cast<StandardObject>(object));
            EXPECT_TRUE(loadable.IsLoaded()) << object;
            EXPECT_EQ(Described(object), loadable.Memory().octets) << object;
        }
        EXPECT_THAT(device.ProgramVersion(StandardObject::Program1), ElementsAre(0, 0xFA, 0, 1, 1));
        const auto objects = device.LoadedGroupObjects();
        ASSERT_EQ(2u, objects.size());
        EXPECT_THAT(objects[0].groupAddresses, ElementsAre(GroupAddress(1, 2, 4), GroupAddress(1, 2, 3)));
        EXPECT_THAT(objects[1].groupAddresses, ElementsAre(GroupAddress(1, 2, 5)));
    }
};

TEST_F(Download, LoadsTheDeviceWhichThenRestarts) {
    RunningDevice device(std::nullopt);
    Downloader downloader(device);
    EXPECT_TRUE(downloader.Run(m_steps)) << downloader.Fault();
    EXPECT_EQ(1u, device.Restarts());
    EXPECT_FALSE(device.IsConnected());
    ExpectDescribed(device.Device());
    ExpectDescribed(RunningDevice(device.Image()).Device());
}

TEST_F(Download, ReplacesAFormerOne) {
    RunningDevice device(FormerImage());
    Downloader downloader(device);
    EXPECT_TRUE(downloader.Run(m_steps)) << downloader.Fault();
    ExpectDescribed(device.Device());
}

TEST_F(Download, BrokenOffAfterAnyTelegramNothingHalfLoadedIsEverUsedAndTheNextOneSucceeds) {
    const auto former = FormerImage();
    std::size_t telegrams = 0;
    {
        RunningDevice device(former);
        Downloader whole(device);
        ASSERT_TRUE(whole.Run(m_steps)) << whole.Fault();
        telegrams = whole.TelegramsSent();
    }
    ASSERT_GT(telegrams, 80u);
    for (std::size_t most = 0; most < telegrams; ++most) {
        SCOPED_TRACE(fmt::format("broken off after {} telegrams", most));
        RunningDevice device(former);
        const RunningDevice untouched(former);
        Downloader downloader(device);
        downloader.BreakOffAfter(most);
        ASSERT_FALSE(downloader.Run(m_steps));
        ASSERT_EQ("broken off", downloader.Fault());
        device.BecomeSilent();
        EXPECT_FALSE(device.IsConnected());

        RunningDevice restarted(device.Image()); // the power fails
        for (std::size_t index = 1; index <= 4; ++index) {
            const auto object = static_cast<StandardObject>(index);
            const auto& loadable = restarted.Device().Loadable(object);
            EXPECT_EQ(device.Device().Loadable(object).State(), loadable.State()) << index;
            EXPECT_NE(LoadState::Error, loadable.State()) << index;
            if (loadable.IsLoaded()) {
                const bool isFormer = loadable.Memory() == untouched.Device().Loadable(object).Memory();
                EXPECT_TRUE(isFormer || loadable.Memory().octets == Described(index)) << index;
            }
        }
        EXPECT_THAT(restarted.Device().LoadedGroupObjects(), testing::AnyOf(IsEmpty(), testing::SizeIs(2)));

        Downloader again(restarted);
        EXPECT_TRUE(again.Run(m_steps)) << again.Fault();
        ExpectDescribed(restarted.Device());
    }
}

} // namespace
} // namespace KnxDevice
