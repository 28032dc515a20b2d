// The device that bus management sees, put into the host.
#pragma once

#include "KnxDevice/Device.h"
#include "KnxDevice/Management.h"
#include "KnxStack/BinaryData.h"
#include "KnxStackHost/Configuration/Configuration.h"
#include "KnxStackHost/Device/ImageFile.h"
#include "KnxStackHost/Notices.h"

#include <array>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace KnxStackHost {

/// What of the device its application program works with.
struct LoadedDevice {
    std::vector<KnxDevice::GroupObjectDefinition> groupObjects; ///< none unless all three tables are loaded
    KnxStack::BinaryData memory;
    KnxStack::BinaryData applicationData;
    bool isProgramLoaded = false;
};

/// Holds the device: from its image when there is one, else as the configuration describes it. Whoever
/// manages it over the bus changes it, and every change goes into the image. All calls on the link thread,
/// before it runs on the thread that makes it.
class DeviceManagement final : private KnxDevice::ManagementListener {
public:
    struct Outlets {
        /// To the bus; the source is to be filled in.
        std::function<void(const KnxFrames::LData&)> send;
        /// The device has restarted with what is loaded now, and its image says so. Any thread.
        std::function<void(LoadedDevice)> restarted;
        /// The device has restarted, and is as the configuration describes it.
        std::function<void()> restartedAsConfigured;
        /// A table of group communication is not loaded any more.
        std::function<void()> unloaded;
        /// The device has another individual address, is in programming mode or not, belongs to another
        /// project, or has another load state.
        std::function<void()> changed;
    };

    /// Makes the standard interface objects in `objects`, as their first ones, then those of the
    /// configuration. `objects` outlives this object.
    DeviceManagement(const Configuration& configuration, KnxDevice::InterfaceObjects& objects);
    ~DeviceManagement() override;

    /// To be called once before anything below.
    void Connect(Outlets outlets) { m_outlets = std::move(outlets); }

    LoadedDevice Loaded() const;
    const KnxDevice::Device& Device() const { return m_device; }
    void SetIpFacts(std::function<KnxDevice::IpFacts()> source) { m_device.SetIpFacts(std::move(source)); }
    KnxFrames::IndividualAddress Address() const { return m_device.Address(); }
    bool IsInProgrammingMode() const { return m_device.IsInProgrammingMode(); }
    /// The state of each object that a download loads, by the name of the object.
    std::vector<std::pair<const char*, const char*>> LoadStates() const;
    bool IsRestartPending() const { return m_device.IsRestartPending(); }

    /// True when the device is what its image says, not what the configuration says.
    bool HasImage() const { return m_hasImage; }
    /// The device as another configuration describes it. Nothing while there is an image.
    void Reconfigure(const LoadedDevice& described);

    /// A telegram that is not group communication.
    void OnTelegram(KnxDevice::TimePoint now, const KnxFrames::LData& telegram) {
        m_management.OnTelegram(now, telegram);
    }
    void OnTime(KnxDevice::TimePoint now) { m_management.OnTime(now); }
    std::optional<KnxDevice::TimePoint> NextTime() const { return m_management.NextTime(); }

    /// The properties of the device for other ways to them than telegrams.
    KnxDevice::PropertyAccess& Properties() { return m_management.Properties(); }
    /// As when a tool asks for it over the bus.
    void Restart();

    void SetProgrammingMode(bool on) { m_device.SetProgrammingMode(on); }
    /// Returns when the image is on the disk; nothing more is kept. For the end of the daemon.
    void Finish() { m_image.Finish(); }
    /// The application program has come to a final state after a restart.
    void OnProgramRestarted();

private:
    void SendTelegram(const KnxFrames::LData& telegram) override;
    void OnRestart(KnxDevice::Erase erase, KnxFrames::IndividualAddress by) override;
    void OnConnection(KnxFrames::IndividualAddress tool, bool open) override;
    void OnRefused(KnxFrames::IndividualAddress tool, KnxFrames::Service service,
                   const char* reason) override;

    void OnChanged(KnxDevice::DeviceChange change);
    void ReportLoadStates();
    bool AreTablesLoaded() const;
    void Save();

    KnxDevice::Device m_device;
    KnxDevice::Management m_management;
    ImageFile m_image;
    Outlets m_outlets;
    bool m_hasImage = false;
    bool m_isLoaded = true; // all three tables
    std::array<KnxDevice::LoadState, 5> m_reported{};
    Notices m_refused;
};

} // namespace KnxStackHost
