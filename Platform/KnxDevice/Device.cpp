#include "KnxDevice/Device.h"

#include "KnxDevice/LoadedTables.h"

#include <algorithm>
#include <map>
#include <utility>

namespace KnxDevice {

namespace {

// Where knxtool and its like expect programming mode: the system state octet of the oldest devices. The
// highest bit makes the parity even.
constexpr std::uint32_t kSystemState = 0x60;
constexpr std::uint8_t kProgrammingBit = 0x01;
constexpr std::uint8_t kParityBit = 0x80;

} // namespace

std::size_t CountInterfaceObjects(std::span<const InterfaceObjectDefinition> definitions) {
    std::map<std::uint16_t, std::size_t> instances; // by type
    for (const auto type : kStandardObjectTypes)
        instances[type] = 1;
    for (const auto& definition : definitions) {
        auto& most = instances[definition.type];
        most = std::max<std::size_t>(most, definition.instance);
    }
    std::size_t count = 0;
    for (const auto& each : instances)
        count += each.second;
    return count;
}

const char* ToString(Erase erase) {
    switch (erase) {
    case Erase::Nothing:
    case Erase::ConfirmedRestart: break;
    case Erase::FactoryReset: return "factory reset";
    case Erase::IndividualAddress: return "reset of the individual address";
    case Erase::ApplicationProgram: return "reset of the application program";
    case Erase::Parameters: return "reset of the parameters";
    case Erase::Links: return "reset of the group addresses";
    case Erase::FactoryResetButAddress: return "factory reset without the individual address";
    }
    return "restart";
}

namespace {

LoadFault AcceptAnything(Octets) {
    return LoadFault::None;
}

} // namespace

const char* ToString(StandardObject object) {
    switch (object) {
    case StandardObject::Device: return "device object";
    case StandardObject::AddressTable: return "group address table";
    case StandardObject::AssociationTable: return "association table";
    case StandardObject::GroupObjectTable: return "group object table";
    case StandardObject::Program1: return "application program";
    case StandardObject::Program2: return "application data";
    case StandardObject::IpParameters: break;
    }
    return "KNXnet/IP parameters";
}

Device::Device(DeviceIdentity identity, InterfaceObjects& objects)
    : m_identity(identity), m_objects(objects), m_address(identity.factoryAddress) {
    std::vector<InterfaceObjectDefinition> standard;
    standard.reserve(kStandardObjects);
    for (const auto type : kStandardObjectTypes)
        standard.push_back({type, 1, {}});
    m_objects.Load(standard);
    const auto allocate = [this](std::size_t size) { return FindRoom(size); };
    for (const auto check :
         {CheckAddressTable, CheckAssociationTable, CheckGroupObjectTable, AcceptAnything, AcceptAnything})
        m_loadables.push_back({LoadableObject(allocate, check), {}});
}

DeviceState Device::State() const {
    DeviceState state;
    state.address = m_address;
    state.keys = m_keys;
    state.hopCount = m_hopCount;
    state.projectInstallation = m_projectInstallation;
    state.friendlyName = m_friendlyName;
    state.downloads = m_downloads;
    state.restartPending = m_restartPending;
    for (std::size_t index = 0; index < m_loadables.size(); ++index) {
        const auto& object = m_loadables[index].object;
        state.loaded[index] = {object.State(), object.Fault(), object.Memory(), m_loadables[index].version};
    }
    state.properties = m_objects.PersistentValues();
    return state;
}

void Device::Restore(const DeviceState& state) {
    m_address = state.address;
    m_keys = state.keys;
    m_hopCount = state.hopCount;
    m_projectInstallation = state.projectInstallation;
    m_friendlyName = state.friendlyName;
    m_downloads = state.downloads;
    m_restartPending = state.restartPending;
    for (std::size_t index = 0; index < m_loadables.size(); ++index) {
        const auto& loaded = state.loaded[index];
        m_loadables[index].object.Restore(loaded.state, loaded.fault, loaded.memory);
        m_loadables[index].version = loaded.version;
    }
    m_objects.Load(state.properties);
}

void Device::Changed(DeviceChange change) const {
    if (m_listener)
        m_listener(change);
}

template <class T>
void Device::Store(T& member, T value) {
    if (member == value)
        return;
    member = std::move(value);
    Changed(DeviceChange::Stored);
}

void Device::SetAddress(IndividualAddress address) {
    if (std::exchange(m_address, address) != address)
        Changed(DeviceChange::Address);
}

void Device::SetProgrammingMode(bool on) {
    if (std::exchange(m_programmingMode, on) != on)
        Changed(DeviceChange::ProgrammingMode);
}

void Device::SetHopCount(std::uint8_t count) {
    Store(m_hopCount, count);
}

void Device::SetProjectInstallation(std::uint16_t number) {
    Store(m_projectInstallation, number);
}

void Device::SetFriendlyName(std::string name) {
    name.resize(std::min(name.size(), kLongestName));
    Store(m_friendlyName, std::move(name));
}

void Device::SetRestartPending(bool pending) {
    Store(m_restartPending, pending);
}

AccessLevel Device::FreeLevel() const {
    return LevelOf(kNoKey);
}

AccessLevel Device::LevelOf(AccessKey key) const {
    for (AccessLevel level = 0; level < kAnybody; ++level)
        if (m_keys[level] == key || m_keys[level] == kNoKey)
            return level;
    return kAnybody;
}

bool Device::SetKey(AccessLevel level, AccessKey key) {
    if (level >= kAnybody)
        return false;
    Store(m_keys[level], key);
    return true;
}

bool Device::IsLoadable(StandardObject object) {
    return object >= StandardObject::AddressTable && object <= StandardObject::Program2;
}

Device::Loadables& Device::At(StandardObject object) {
    return m_loadables.at(static_cast<std::size_t>(object) - 1);
}

const Device::Loadables& Device::At(StandardObject object) const {
    return m_loadables.at(static_cast<std::size_t>(object) - 1);
}

const LoadableObject& Device::Loadable(StandardObject object) const {
    return At(object).object;
}

WriteResult Device::ControlLoading(StandardObject object, Octets octets) {
    auto& loadable = At(object).object;
    const auto former = loadable.State();
    const auto result = loadable.Control(octets);
    const bool completed = former != LoadState::Loaded && loadable.IsLoaded();
    if (completed)
        ++m_downloads;
    std::array<std::uint8_t, 5> version{};
    if (loadable.State() == LoadState::Unloaded)
        std::swap(At(object).version, version);
    if (loadable.State() != former)
        Changed(DeviceChange::LoadState);
    else if (version != std::array<std::uint8_t, 5>{}) // written while nothing was loaded
        Changed(DeviceChange::Stored);
    return result;
}

const std::array<std::uint8_t, 5>& Device::ProgramVersion(StandardObject object) const {
    return At(object).version;
}

void Device::SetProgramVersion(StandardObject object, const std::array<std::uint8_t, 5>& version) {
    Store(At(object).version, version);
}

bool Device::LoadWith(StandardObject object, Octets octets) {
    return At(object).object.LoadWith(octets);
}

void Device::Unload(StandardObject object) {
    At(object).object.Restore(LoadState::Unloaded, LoadFault::None, {});
    At(object).version = {};
}

void Device::ForgetSettings() {
    m_keys = {kNoKey, kNoKey, kNoKey};
    m_hopCount = 6;
    m_projectInstallation = 0;
    m_friendlyName.clear();
}

void Device::Erase(KnxDevice::Erase erase) {
    using enum KnxDevice::Erase;
    using enum StandardObject;
    const bool everything = erase == FactoryReset || erase == FactoryResetButAddress;
    if (erase == Nothing || erase == ConfirmedRestart)
        return;
    if (erase == Links || erase == ApplicationProgram || everything)
        for (const auto object : {AddressTable, AssociationTable})
            Unload(object);
    if (erase == ApplicationProgram || everything)
        Unload(GroupObjectTable);
    if (erase == ApplicationProgram || erase == Parameters || everything)
        for (const auto object : {Program1, Program2})
            Unload(object);
    if (everything)
        ForgetSettings();
    Changed(DeviceChange::LoadState);
    if (erase == FactoryReset || erase == KnxDevice::Erase::IndividualAddress)
        SetAddress(m_identity.factoryAddress);
}

std::vector<GroupObjectDefinition> Device::LoadedGroupObjects() const {
    const auto& addresses = Loadable(StandardObject::AddressTable);
    const auto& associations = Loadable(StandardObject::AssociationTable);
    const auto& objects = Loadable(StandardObject::GroupObjectTable);
    if (!addresses.IsLoaded() || !associations.IsLoaded() || !objects.IsLoaded())
        return {};
    return ReadLoadedTables(addresses.Memory().octets, associations.Memory().octets, objects.Memory().octets);
}

/// The lowest free place, so that most segments are within the two octets of the plain memory services.
std::uint32_t Device::FindRoom(std::size_t size) const {
    if (size > kLargestSegment)
        return 0;
    std::vector<const Segment*> taken;
    for (const auto& each : m_loadables)
        if (!each.object.Memory().IsEmpty())
            taken.push_back(&each.object.Memory());
    std::sort(taken.begin(), taken.end(),
              [](const Segment* a, const Segment* b) { return a->address < b->address; });
    std::uint32_t address = kFirstSegment;
    for (const auto* segment : taken) {
        if (segment->address - address >= size)
            break;
        address = segment->address + static_cast<std::uint32_t>(segment->octets.size());
    }
    return kMemoryEnd - address >= size ? address : 0;
}

std::optional<std::vector<std::uint8_t>> Device::ReadMemory(std::uint32_t address, std::size_t count) const {
    if (address == kSystemState && count == 1)
        return std::vector<std::uint8_t>{
            m_programmingMode ? static_cast<std::uint8_t>(kProgrammingBit | kParityBit) : std::uint8_t{0}};
    const auto* const segment = SegmentAt(address);
    if (segment == nullptr || count > segment->octets.size() - (address - segment->address))
        return std::nullopt;
    const auto begin = segment->octets.begin() + static_cast<std::ptrdiff_t>(address - segment->address);
    return std::vector<std::uint8_t>(begin, begin + static_cast<std::ptrdiff_t>(count));
}

WriteResult Device::WriteMemory(std::uint32_t address, Octets octets) {
    if (address == kSystemState && octets.size() == 1) {
        SetProgrammingMode((octets[0] & kProgrammingBit) != 0);
        return WriteResult::Done;
    }
    if (std::any_of(m_loadables.begin(), m_loadables.end(),
                    [&](Loadables& each) { return each.object.Write(address, octets); }))
        return WriteResult::Done;
    if (!HasMemory(address))
        return WriteResult::NoSuchMemory;
    return ReadMemory(address, octets.size()) ? WriteResult::NotLoading : WriteResult::MemoryEnds;
}

bool Device::HasMemory(std::uint32_t address) const {
    return address == kSystemState || SegmentAt(address) != nullptr;
}

const Segment* Device::SegmentAt(std::uint32_t address) const {
    for (const auto& each : m_loadables) {
        const auto& segment = each.object.Memory();
        if (address >= segment.address && address - segment.address < segment.octets.size())
            return &segment;
    }
    return nullptr;
}

} // namespace KnxDevice
