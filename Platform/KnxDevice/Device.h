// The KNX device that bus management sees: addresses, keys, memory, and what a download loads.
#pragma once

#include "KnxDevice/GroupObjectTable.h"
#include "KnxDevice/InterfaceObjects.h"
#include "KnxDevice/LoadableObject.h"
#include "KnxFrames/Addresses.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace KnxDevice {

using KnxFrames::IndividualAddress;
using SerialNumber = std::array<std::uint8_t, 6>;

/// What does not change while the device exists.
struct DeviceIdentity {
    /// Device descriptor type 0: KNX IP, System B.
    static constexpr std::uint16_t kDescriptor = 0x57B0;
    static constexpr std::uint8_t kFirmwareRevision = 1;

    SerialNumber serialNumber{};      ///< the first two octets are the manufacturer's
    std::uint16_t manufacturer = 0;   ///< as a download's product must have it
    SerialNumber hardwareType{};      ///< likewise
    std::array<char, 10> order{};     ///< order number, ISO 8859-1, padded with NUL
    IndividualAddress factoryAddress; ///< until somebody writes another one
};

/// A place in the IP network. IPv4 addresses are numbers, 192.168.1.2 is C0A80102h; 0 = there is none, or it
/// is not known.
struct IpPlace {
    std::uint32_t address = 0;
    std::uint32_t subnetMask = 0;
    std::uint32_t gateway = 0;         ///< of the default route
    std::array<std::uint8_t, 6> mac{}; ///< all zeros for loopback
};

/// What the device's KNXnet/IP parameter object says about the IP network.
struct IpFacts {
    IpPlace place;
    std::uint32_t multicast = 0;
    std::vector<IndividualAddress> tunnels;
    bool routes = false;
    bool busIsUnreachable = false;
    std::uint64_t sentToIp = 0; ///< telegrams since the start
    std::uint64_t sentToBus = 0;
    std::uint64_t lostToIp = 0; ///< likewise, because a queue was full
    std::uint64_t lostToBus = 0;
};

/// The interface objects that every device has, by their index.
enum class StandardObject : std::uint8_t {
    Device = 0,
    AddressTable = 1,
    AssociationTable = 2,
    GroupObjectTable = 3,
    Program1 = 4,
    Program2 = 5,
    IpParameters = 6,
};
inline constexpr std::size_t kStandardObjects = 7;

/// Their types (KNX Standard 3/7/3), by index.
inline constexpr std::array<std::uint16_t, kStandardObjects> kStandardObjectTypes = {0, 1, 2, 9, 3, 4, 11};

/// "group address table", ...
const char* ToString(StandardObject object);

/// How many interface objects a device has when these are made in it: a first instance of a standard type is
/// the one that is there already, and an instance needs all before it.
std::size_t CountInterfaceObjects(std::span<const InterfaceObjectDefinition> definitions);

/// An access level: 0 may everything, 3 is anybody.
using AccessLevel = std::uint8_t;
inline constexpr AccessLevel kAnybody = 3;

/// A key of an access level. All ones: the level needs none.
using AccessKey = std::uint32_t;
inline constexpr AccessKey kNoKey = 0xFFFFFFFF;

/// Everything of a device that outlives a restart: what its image holds.
struct DeviceState {
    struct Loaded {
        LoadState state = LoadState::Unloaded;
        LoadFault fault = LoadFault::None;
        Segment memory;
        std::array<std::uint8_t, 5> version{}; ///< of the application program loaded there

        bool operator==(const Loaded&) const = default;
    };

    IndividualAddress address;
    std::array<AccessKey, kAnybody> keys{kNoKey, kNoKey, kNoKey};
    std::uint8_t hopCount = 6;
    std::uint16_t projectInstallation = 0;
    std::string friendlyName; ///< ISO 8859-1, at most 30 octets
    std::uint16_t downloads = 0;
    bool restartPending = false;  ///< a download's restart that the application program has not finished with
    std::array<Loaded, 5> loaded; ///< AddressTable to Program2
    std::vector<InterfaceObjectDefinition> properties;
};

/// What of the device was changed.
enum class DeviceChange : std::uint8_t {
    Stored,          ///< something in DeviceState
    LoadState,       ///< likewise, and it is a load state
    Address,         ///< likewise, and it is the individual address
    ProgrammingMode, ///< not in DeviceState
};

/// What a restart begins with (KNX Standard 3/5/2, master reset); the numbers are the erase codes.
enum class Erase : std::uint8_t {
    Nothing = 0,            ///< a plain restart
    ConfirmedRestart = 1,   ///< likewise, but answered
    FactoryReset = 2,       ///< everything, the individual address too
    IndividualAddress = 3,  ///< back to the factory's
    ApplicationProgram = 4, ///< everything that a download loads
    Parameters = 5,         ///< the application program's memory
    Links = 6,              ///< group addresses and associations
    FactoryResetButAddress = 7,
};

/// "restart", "factory reset", ...
const char* ToString(Erase erase);

/// Not synchronised, except that `objects` may be used by others at the same time.
class Device {
public:
    using OnChanged = std::function<void(DeviceChange)>;

    /// Makes the standard interface objects in `objects`, which outlives the device; they must be the first
    /// ones made in it.
    Device(DeviceIdentity identity, InterfaceObjects& objects);

    /// Called after each change, inside the call that made it.
    void SetListener(OnChanged listener) { m_listener = std::move(listener); }

    const DeviceIdentity& Identity() const { return m_identity; }
    InterfaceObjects& Objects() const { return m_objects; }

    /// The state of the device, and a former one put in its place without a word to the listener.
    DeviceState State() const;
    void Restore(const DeviceState& state);

    IndividualAddress Address() const { return m_address; }
    void SetAddress(IndividualAddress address);

    bool IsInProgrammingMode() const { return m_programmingMode; }
    void SetProgrammingMode(bool on);

    /// Property 14: bit 2 answers memory writes with what is in the memory then. Forgotten at a restart.
    std::uint8_t DeviceControl() const { return m_deviceControl; }
    void SetDeviceControl(std::uint8_t control) { m_deviceControl = control; }
    bool VerifiesMemoryWrites() const { return (m_deviceControl & 0x04) != 0; }

    std::uint8_t HopCount() const { return m_hopCount; }
    void SetHopCount(std::uint8_t count);
    std::uint16_t ProjectInstallation() const { return m_projectInstallation; }
    void SetProjectInstallation(std::uint16_t number);
    const std::string& FriendlyName() const { return m_friendlyName; }
    /// Cut off behind kLongestName octets.
    void SetFriendlyName(std::string name);
    static constexpr std::size_t kLongestName = 30;
    std::uint16_t Downloads() const { return m_downloads; }
    bool IsRestartPending() const { return m_restartPending; }
    void SetRestartPending(bool pending);

    /// A persistent property of the application program was written by the bus.
    void PropertyWritten() { Changed(DeviceChange::Stored); }

    /// Asked anew each time; all unknown without a source.
    IpFacts Ip() const { return m_ip ? m_ip() : IpFacts{}; }
    void SetIpFacts(std::function<IpFacts()> source) { m_ip = std::move(source); }

    // Access.

    /// The level of somebody who has shown no key: the most privileged one that needs none.
    AccessLevel FreeLevel() const;
    /// The most privileged level that the key opens, or FreeLevel() if that is more.
    AccessLevel LevelOf(AccessKey key) const;
    /// False for a level without a key: kAnybody and above.
    bool SetKey(AccessLevel level, AccessKey key);

    // What a download loads. `object` is AddressTable to Program2.

    static bool IsLoadable(StandardObject object);
    const LoadableObject& Loadable(StandardObject object) const;
    /// As LoadableObject::Control().
    WriteResult ControlLoading(StandardObject object, Octets octets);
    const std::array<std::uint8_t, 5>& ProgramVersion(StandardObject object) const;
    void SetProgramVersion(StandardObject object, const std::array<std::uint8_t, 5>& version);
    /// As LoadableObject::LoadWith().
    bool LoadWith(StandardObject object, Octets octets);
    /// What comes before a restart with this erase code. A reset of more than the address also clears the
    /// keys.
    void Erase(KnxDevice::Erase erase);

    /// The group objects of the three tables; none unless all three are loaded.
    std::vector<GroupObjectDefinition> LoadedGroupObjects() const;

    // Memory by address, as the memory services see it: segments of the loadable objects, and the octet at
    // 60h whose lowest bit is programming mode.

    /// Nothing unless every octet is there.
    std::optional<std::vector<std::uint8_t>> ReadMemory(std::uint32_t address, std::size_t count) const;
    /// Nothing is written unless every octet is there and may be written now.
    WriteResult WriteMemory(std::uint32_t address, Octets octets);
    /// True when at least the octet at the address is there.
    bool HasMemory(std::uint32_t address) const;

    /// The most that one segment may hold, in octets.
    static constexpr std::size_t kLargestSegment = std::size_t{1024} * 1024;
    /// Segments lie anywhere in what three octets of the extended memory services reach, behind the addresses
    /// with a meaning of old.
    static constexpr std::uint32_t kFirstSegment = 0x0200;
    /// One behind the last address.
    static constexpr std::uint32_t kMemoryEnd = 0x1000000;

private:
    struct Loadables {
        LoadableObject object;
        std::array<std::uint8_t, 5> version{};
    };

    Loadables& At(StandardObject object);
    void Unload(StandardObject object);
    void ForgetSettings();
    const Loadables& At(StandardObject object) const;
    std::uint32_t FindRoom(std::size_t size) const;
    const Segment* SegmentAt(std::uint32_t address) const;
    void Changed(DeviceChange change) const;
    template <class T>
    void Store(T& member, T value);

    const DeviceIdentity m_identity;
    InterfaceObjects& m_objects;
    OnChanged m_listener;
    std::function<IpFacts()> m_ip;
    IndividualAddress m_address;
    bool m_programmingMode = false;
    std::array<AccessKey, kAnybody> m_keys{kNoKey, kNoKey, kNoKey};
    std::uint8_t m_deviceControl = 0;
    std::uint8_t m_hopCount = 6;
    std::uint16_t m_projectInstallation = 0;
    std::string m_friendlyName;
    std::uint16_t m_downloads = 0;
    bool m_restartPending = false;
    std::vector<Loadables> m_loadables;
};

} // namespace KnxDevice
