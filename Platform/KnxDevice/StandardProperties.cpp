// The properties that every device has (KNX Standard 3/7/3 and 3/8/3).
#include "KnxDevice/PropertyAccess.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <numeric>
#include <utility>

namespace KnxDevice {

using KnxStack::PropertyId;

namespace {

using Scratch = std::vector<std::uint8_t>;
using Properties = std::vector<StandardProperty>;

// Property data types.
constexpr std::uint8_t kUnsignedChar = 0x02;
constexpr std::uint8_t kUnsignedLong = 0x09;
constexpr std::uint8_t kGeneric02 = 0x12;
constexpr std::uint8_t kGeneric04 = 0x14;
constexpr std::uint8_t kGeneric05 = 0x15;
constexpr std::uint8_t kGeneric06 = 0x16;
constexpr std::uint8_t kGeneric08 = 0x18;
constexpr std::uint8_t kGeneric10 = 0x1A;
constexpr std::uint8_t kBitset8 = 0x33;
constexpr std::uint8_t kBitset16 = 0x34;
constexpr std::uint8_t kEnum8 = 0x35;

// Access levels of what may be written.
constexpr AccessLevel kConfiguration = 2; // whoever may load the device
constexpr std::uint16_t kLongestTable = 0xFFFF;

namespace Id { // of properties that no other file names
constexpr PropertyId kLoadState = 5;
constexpr PropertyId kRunState = 6;
constexpr PropertyId kTableReference = 7;
constexpr PropertyId kFirmwareRevision = 9;
constexpr PropertyId kSerialNumber = 11;
constexpr PropertyId kManufacturer = 12;
constexpr PropertyId kProgramVersion = 13;
constexpr PropertyId kDeviceControl = 14;
constexpr PropertyId kOrderInformation = 15;
constexpr PropertyId kPeiType = 16;
constexpr PropertyId kTable = 23;
constexpr PropertyId kMemoryControlBlocks = 27;
constexpr PropertyId kErrorCode = 28;
constexpr PropertyId kDownloadCounter = 30;
// Device object.
constexpr PropertyId kRoutingCount = 51;
constexpr PropertyId kProgrammingMode = 54;
constexpr PropertyId kMaxApduLength = 56;
constexpr PropertyId kSubnetAddress = 57;
constexpr PropertyId kDeviceAddress = 58;
constexpr PropertyId kObjectList = 71;
constexpr PropertyId kHardwareType = 78;
constexpr PropertyId kDeviceDescriptor = 83;
// KNXnet/IP parameter object.
constexpr PropertyId kProjectInstallation = 51;
constexpr PropertyId kIndividualAddress = 52;
constexpr PropertyId kAdditionalAddresses = 53;
constexpr PropertyId kCurrentAssignment = 54;
constexpr PropertyId kAssignment = 55;
constexpr PropertyId kIpCapabilities = 56;
constexpr PropertyId kCurrentIpAddress = 57;
constexpr PropertyId kCurrentSubnetMask = 58;
constexpr PropertyId kCurrentGateway = 59;
constexpr PropertyId kIpAddress = 60;
constexpr PropertyId kSubnetMask = 61;
constexpr PropertyId kGateway = 62;
constexpr PropertyId kMacAddress = 64;
constexpr PropertyId kSetupMulticast = 65;
constexpr PropertyId kRoutingMulticast = 66;
constexpr PropertyId kTimeToLive = 67;
constexpr PropertyId kCapabilities = 68;
constexpr PropertyId kDeviceState = 69;
constexpr PropertyId kQueueOverflowToIp = 72;
constexpr PropertyId kQueueOverflowToBus = 73;
constexpr PropertyId kSentToIp = 74;
constexpr PropertyId kSentToBus = 75;
constexpr PropertyId kFriendlyName = 76;
constexpr PropertyId kTunnellingAddresses = 79;
} // namespace Id

Octets Put(Scratch& scratch, std::initializer_list<std::uint8_t> octets) {
    scratch.assign(octets);
    return scratch;
}

Octets Put16(Scratch& scratch, unsigned number) {
    return Put(scratch, {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)});
}

Octets Put32(Scratch& scratch, std::uint32_t number) {
    return Put(scratch, {static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
                         static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)});
}

template <class Container>
Octets PutAll(Scratch& scratch, const Container& octets) {
    scratch.assign(octets.begin(), octets.end());
    return scratch;
}

std::uint16_t Number16(Octets octets) {
    return static_cast<std::uint16_t>(octets[0] << 8 | octets[1]);
}

StandardProperty ReadOnly(PropertyId id, std::uint8_t dataType, std::function<Octets(Scratch&)> read,
                          std::uint16_t mostElements = 1) {
    return {{.id = id, .dataType = dataType, .mostElements = mostElements}, std::move(read), {}};
}

StandardProperty Writable(PropertyId id, std::uint8_t dataType, std::function<Octets(Scratch&)> read,
                          std::function<WriteResult(Octets)> write) {
    return {{.id = id, .dataType = dataType, .writeEnabled = true, .writeLevel = kConfiguration},
            std::move(read),
            std::move(write)};
}

StandardProperty Number8Of(PropertyId id, std::uint8_t dataType, std::function<unsigned()> number) {
    return ReadOnly(id, dataType, [number = std::move(number)](Scratch& scratch) {
        return Put(scratch, {static_cast<std::uint8_t>(number())});
    });
}

StandardProperty Number16Of(PropertyId id, std::uint8_t dataType, std::function<unsigned()> number) {
    return ReadOnly(id, dataType,
                    [number = std::move(number)](Scratch& scratch) { return Put16(scratch, number()); });
}

StandardProperty Number32Of(PropertyId id, std::function<std::uint32_t()> number) {
    return ReadOnly(id, kUnsignedLong,
                    [number = std::move(number)](Scratch& scratch) { return Put32(scratch, number()); });
}

StandardProperty ObjectType(StandardObject object) {
    return Number16Of(kObjectType, kUnsignedInt,
                      [object] { return kStandardObjectTypes.at(static_cast<std::size_t>(object)); });
}

StandardProperty ObjectList(Device& device) {
    return ReadOnly(
        Id::kObjectList, kUnsignedInt,
        [&device](Scratch& scratch) -> Octets {
            const auto& objects = device.Objects();
            scratch.clear();
            for (std::size_t index = 0; index < objects.Count(); ++index) {
                const auto type = objects.IdentityAt(index).type;
                scratch.push_back(static_cast<std::uint8_t>(type >> 8));
                scratch.push_back(static_cast<std::uint8_t>(type));
            }
            return scratch;
        },
        InterfaceObjects::kMostObjects);
}

Properties DeviceObject(Device& device) {
    const auto& identity = device.Identity();
    Properties properties;
    properties.push_back(ObjectType(StandardObject::Device));
    properties.push_back(
        Number8Of(Id::kFirmwareRevision, kUnsignedChar, [] { return DeviceIdentity::kFirmwareRevision; }));
    properties.push_back(ReadOnly(Id::kSerialNumber, kGeneric06, [&identity](Scratch& scratch) {
        return PutAll(scratch, identity.serialNumber);
    }));
    properties.push_back(
        Number16Of(Id::kManufacturer, kUnsignedInt, [&identity] { return identity.manufacturer; }));
    properties.push_back(Writable(
        Id::kDeviceControl, kBitset8,
        [&device](Scratch& scratch) { return Put(scratch, {device.DeviceControl()}); },
        [&device](Octets value) {
            device.SetDeviceControl(value[0]);
            return WriteResult::Done;
        }));
    properties.push_back(ReadOnly(Id::kOrderInformation, kGeneric10,
                                  [&identity](Scratch& scratch) { return PutAll(scratch, identity.order); }));
    properties.push_back(
        Number16Of(Id::kDownloadCounter, kUnsignedInt, [&device] { return device.Downloads(); }));
    properties.push_back(Writable(
        Id::kRoutingCount, kUnsignedChar,
        [&device](Scratch& scratch) {
            return Put(scratch, {static_cast<std::uint8_t>(device.HopCount() << 4)}); // bits 6 to 4
        },
        [&device](Octets value) {
            device.SetHopCount(value[0] >> 4 & 0x07);
            return WriteResult::Done;
        }));
    properties.push_back(Writable(
        Id::kProgrammingMode, kBitset8,
        [&device](Scratch& scratch) {
            return Put(scratch, {static_cast<std::uint8_t>(device.IsInProgrammingMode() ? 1 : 0)});
        },
        [&device](Octets value) {
            device.SetProgrammingMode((value[0] & 1) != 0);
            return WriteResult::Done;
        }));
    properties.push_back(
        Number16Of(Id::kMaxApduLength, kUnsignedInt, [] { return KnxFrames::Tpdu::kCapacity - 1; }));
    properties.push_back(
        Number8Of(Id::kSubnetAddress, kUnsignedChar, [&device] { return device.Address().raw >> 8; }));
    properties.push_back(
        Number8Of(Id::kDeviceAddress, kUnsignedChar, [&device] { return device.Address().Device(); }));
    properties.push_back(ObjectList(device));
    properties.push_back(ReadOnly(Id::kHardwareType, kGeneric06, [&identity](Scratch& scratch) {
        return PutAll(scratch, identity.hardwareType);
    }));
    properties.push_back(
        Number16Of(Id::kDeviceDescriptor, kGeneric02, [] { return DeviceIdentity::kDescriptor; }));
    return properties;
}

/// Property 5 is read as the state and written as an event.
StandardProperty LoadControl(Device& device, StandardObject object) {
    return Writable(
        Id::kLoadState, kControl,
        [&device, object](Scratch& scratch) {
            return Put(scratch, {static_cast<std::uint8_t>(device.Loadable(object).State())});
        },
        [&device, object](Octets event) { return device.ControlLoading(object, event); });
}

void AddLoadable(Properties& properties, Device& device, StandardObject object) {
    properties.push_back(LoadControl(device, object));
    properties.push_back(Number32Of(Id::kTableReference,
                                    [&device, object] { return device.Loadable(object).Memory().address; }));
    properties.push_back(ReadOnly(Id::kMemoryControlBlocks, kGeneric08, [&device, object](Scratch& scratch) {
        return PutAll(scratch, device.Loadable(object).MemoryControlBlock());
    }));
    properties.push_back(Number8Of(Id::kErrorCode, kEnum8, [&device, object] {
        return static_cast<unsigned>(device.Loadable(object).Fault());
    }));
}

/// `entrySize` octets per entry.
Properties TableObject(Device& device, StandardObject object, std::uint8_t entryType, std::size_t entrySize) {
    Properties properties;
    properties.push_back(ObjectType(object));
    AddLoadable(properties, device, object);
    properties.push_back(ReadOnly(
        Id::kTable, entryType,
        [&device, object, entrySize](Scratch&) -> Octets {
            const Octets table = device.Loadable(object).Memory().octets;
            if (!device.Loadable(object).IsLoaded() || table.size() < 2)
                return {};
            return table.subspan(2, Number16(table) * entrySize);
        },
        kLongestTable));
    return properties;
}

Properties ProgramObject(Device& device, StandardObject object) {
    Properties properties;
    properties.push_back(ObjectType(object));
    AddLoadable(properties, device, object);
    // Starting and stopping follow the load state; what is written is accepted and changes nothing.
    properties.push_back(Writable(
        Id::kRunState, kControl,
        [&device, object](Scratch& scratch) {
            return Put(scratch, {static_cast<std::uint8_t>(device.Loadable(object).IsLoaded() ? 1 : 0)});
        },
        [](Octets) { return WriteResult::Done; }));
    properties.push_back(Writable(
        Id::kProgramVersion, kGeneric05,
        [&device, object](Scratch& scratch) { return PutAll(scratch, device.ProgramVersion(object)); },
        [&device, object](Octets value) {
            std::array<std::uint8_t, 5> version{};
            std::copy_n(value.begin(), version.size(), version.begin());
            device.SetProgramVersion(object, version);
            return WriteResult::Done;
        }));
    properties.push_back(Number8Of(Id::kPeiType, kUnsignedChar, [] { return 0; }));
    return properties;
}

Properties IpParameterAddresses(Device& device) {
    constexpr unsigned kManual = 1; // assignment method: none of ours, the operating system has the address
    constexpr unsigned kManagementAndTunnelling = 0x0003; // capabilities
    constexpr unsigned kRouting = 0x0004;
    Properties properties;
    const auto add = [&](PropertyId id, std::uint32_t IpPlace::*part) {
        properties.push_back(Number32Of(id, [&device, part] { return device.Ip().place.*part; }));
    };
    properties.push_back(Number8Of(Id::kCurrentAssignment, kUnsignedChar, [] { return kManual; }));
    properties.push_back(Number8Of(Id::kAssignment, kUnsignedChar, [] { return kManual; }));
    properties.push_back(Number8Of(Id::kIpCapabilities, kBitset8, [] { return 0; }));
    add(Id::kCurrentIpAddress, &IpPlace::address);
    add(Id::kCurrentSubnetMask, &IpPlace::subnetMask);
    add(Id::kCurrentGateway, &IpPlace::gateway);
    add(Id::kIpAddress, &IpPlace::address);
    add(Id::kSubnetMask, &IpPlace::subnetMask);
    add(Id::kGateway, &IpPlace::gateway);
    properties.push_back(ReadOnly(Id::kMacAddress, kGeneric06, [&device](Scratch& scratch) {
        return PutAll(scratch, device.Ip().place.mac);
    }));
    properties.push_back(Number32Of(Id::kSetupMulticast, [] { return 0xE000170CU; })); // 224.0.23.12
    properties.push_back(Number32Of(Id::kRoutingMulticast, [&device] { return device.Ip().multicast; }));
    properties.push_back(Number8Of(Id::kTimeToLive, kUnsignedChar, [] { return 16; }));
    properties.push_back(Number16Of(Id::kCapabilities, kBitset16, [&device] {
        return kManagementAndTunnelling | (device.Ip().routes ? kRouting : 0);
    }));
    return properties;
}

/// What passes between bus and IP network. Counters stay at their most.
Properties IpParameterTraffic(Device& device) {
    constexpr unsigned kBusFault = 0x01; // 02h, no way to the IP network, nobody could read
    Properties properties;
    properties.push_back(Number8Of(Id::kDeviceState, kBitset8,
                                   [&device] { return device.Ip().busIsUnreachable ? kBusFault : 0; }));
    const auto count = [&device]<class Number>(std::uint64_t IpFacts::*fact, Number) {
        return [&device, fact] {
            return static_cast<Number>(
                std::min<std::uint64_t>(device.Ip().*fact, std::numeric_limits<Number>::max()));
        };
    };
    properties.push_back(
        Number16Of(Id::kQueueOverflowToIp, kUnsignedInt, count(&IpFacts::lostToIp, std::uint16_t{})));
    properties.push_back(
        Number16Of(Id::kQueueOverflowToBus, kUnsignedInt, count(&IpFacts::lostToBus, std::uint16_t{})));
    properties.push_back(Number32Of(Id::kSentToIp, count(&IpFacts::sentToIp, std::uint32_t{})));
    properties.push_back(Number32Of(Id::kSentToBus, count(&IpFacts::sentToBus, std::uint32_t{})));
    return properties;
}

void Append(Properties& properties, Properties further) {
    std::move(further.begin(), further.end(), std::back_inserter(properties));
}

Properties IpParameterObject(Device& device) {
    Properties properties;
    properties.push_back(ObjectType(StandardObject::IpParameters));
    properties.push_back(Writable(
        Id::kProjectInstallation, kUnsignedInt,
        [&device](Scratch& scratch) { return Put16(scratch, device.ProjectInstallation()); },
        [&device](Octets value) {
            device.SetProjectInstallation(Number16(value));
            return WriteResult::Done;
        }));
    properties.push_back(
        Number16Of(Id::kIndividualAddress, kUnsignedInt, [&device] { return device.Address().raw; }));
    properties.push_back(ReadOnly(
        Id::kAdditionalAddresses, kUnsignedInt,
        [&device](Scratch& scratch) -> Octets {
            scratch.clear();
            for (const auto address : device.Ip().tunnels) {
                scratch.push_back(static_cast<std::uint8_t>(address.raw >> 8));
                scratch.push_back(static_cast<std::uint8_t>(address.raw));
            }
            return scratch;
        },
        0xFF));
    properties.push_back(ReadOnly(
        Id::kTunnellingAddresses, kUnsignedChar, // which of the additional addresses are those of tunnels
        [&device](Scratch& scratch) -> Octets {
            scratch.resize(device.Ip().tunnels.size());
            std::iota(scratch.begin(), scratch.end(), std::uint8_t{1});
            return scratch;
        },
        0xFF));
    Append(properties, IpParameterAddresses(device));
    Append(properties, IpParameterTraffic(device));
    constexpr std::uint16_t kNameSize = 30;
    auto name = Writable(
        Id::kFriendlyName, kUnsignedChar,
        [&device](Scratch& scratch) {
            PutAll(scratch, device.FriendlyName());
            scratch.resize(kNameSize);
            return Octets(scratch);
        },
        [&device](Octets value) {
            device.SetFriendlyName({value.begin(), std::find(value.begin(), value.end(), 0)});
            return WriteResult::Done;
        });
    name.description.mostElements = kNameSize;
    properties.push_back(std::move(name));
    return properties;
}

} // namespace

std::vector<std::vector<StandardProperty>> MakeStandardProperties(Device& device) {
    return {DeviceObject(device),
            TableObject(device, StandardObject::AddressTable, kUnsignedInt, 2),
            TableObject(device, StandardObject::AssociationTable, kGeneric04, 4),
            TableObject(device, StandardObject::GroupObjectTable, kGeneric02, 2),
            ProgramObject(device, StandardObject::Program1),
            ProgramObject(device, StandardObject::Program2),
            IpParameterObject(device)};
}

} // namespace KnxDevice
