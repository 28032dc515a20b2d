#include "KnxDevice/DeviceImage.h"

#include "KnxDevice/LoadedTables.h"
#include "KnxDevice/PropertyDataTypes.h"

#include <boost/crc.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
#include <type_traits>
#include <utility>

namespace KnxDevice {

namespace {

constexpr std::string_view kMagic = "KNXDEVICE";
constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kChecksumSize = 4;
constexpr std::uint8_t kMostHops = 7;

std::uint32_t Checksum(Octets octets) {
    boost::crc_32_type crc;
    crc.process_bytes(octets.data(), octets.size());
    return crc.checksum();
}

class Writer {
public:
    template <class T>
    void Number(T number) {
        static_assert(std::is_unsigned_v<T>);
        for (std::size_t octet = sizeof number; octet-- > 0;)
            m_octets.push_back(static_cast<std::uint8_t>(std::uint64_t{number} >> 8 * octet));
    }
    template <class Container>
    void All(const Container& octets) {
        m_octets.insert(m_octets.end(), octets.begin(), octets.end());
    }
    /// Size in four octets, then the octets.
    template <class Container>
    void Block(const Container& octets) {
        Number(static_cast<std::uint32_t>(octets.size()));
        All(octets);
    }
    std::vector<std::uint8_t> Take() { return std::move(m_octets); }
    Octets View() const { return m_octets; }

private:
    std::vector<std::uint8_t> m_octets;
};

class Reader {
public:
    explicit Reader(Octets octets) : m_rest(octets) {}

    template <class T>
    T Number() {
        std::uint64_t number = 0;
        for (const auto octet : Next(sizeof(T)))
            number = number << 8 | octet;
        return static_cast<T>(number);
    }
    template <class Container>
    void All(Container& octets) {
        const auto next = Next(octets.size());
        std::copy(next.begin(), next.end(), octets.begin());
    }
    Octets Block() {
        const auto size = Number<std::uint32_t>();
        return Next(size);
    }
    /// A number that is 0 or 1.
    bool Boolean() {
        const auto number = Number<std::uint8_t>();
        if (number > 1)
            throw ImageError("there is neither yes nor no where one of them must be");
        return number == 1;
    }
    bool IsAtEnd() const { return m_rest.empty(); }

private:
    Octets Next(std::size_t count) {
        if (count > m_rest.size())
            throw ImageError("it ends too early");
        const auto next = m_rest.first(count);
        m_rest = m_rest.subspan(count);
        return next;
    }

    Octets m_rest;
};

void WriteProperties(Writer& writer, const std::vector<InterfaceObjectDefinition>& objects) {
    writer.Number(static_cast<std::uint16_t>(objects.size()));
    for (const auto& object : objects) {
        writer.Number(object.type);
        writer.Number(object.instance);
        writer.Number(static_cast<std::uint16_t>(object.properties.size()));
        for (const auto& property : object.properties) {
            writer.Number(property.id);
            writer.Number(property.dataType);
            writer.Number(property.elements);
            writer.Number(static_cast<std::uint8_t>(property.writeEnabled ? 1 : 0));
            writer.Block(property.value->Bytes());
        }
    }
}

PropertyDefinition ReadProperty(Reader& reader) {
    PropertyDefinition property;
    property.id = reader.Number<std::uint16_t>();
    property.dataType = reader.Number<std::uint8_t>();
    property.elements = reader.Number<std::uint16_t>();
    property.writeEnabled = reader.Boolean();
    const auto value = reader.Block();
    const auto size = SizeOfPropertyElement(property.dataType);
    if (!size.IsUsable() || property.elements == 0 || !size.Fits(value.size(), property.elements))
        throw ImageError(fmt::format("property {} has a value that its data type cannot have", property.id));
    property.value.emplace(std::vector<std::uint8_t>(value.begin(), value.end()));
    return property;
}

InterfaceObjectDefinition ReadObject(Reader& reader) {
    InterfaceObjectDefinition object;
    object.type = reader.Number<std::uint16_t>();
    object.instance = reader.Number<std::uint16_t>();
    if (object.instance == 0 || object.instance > InterfaceObjects::kMostObjects)
        throw ImageError(
            fmt::format("there cannot be an instance {} of an interface object", object.instance));
    std::set<KnxStack::PropertyId> known;
    for (auto properties = reader.Number<std::uint16_t>(); properties > 0; --properties) {
        object.properties.push_back(ReadProperty(reader));
        if (!known.insert(object.properties.back().id).second)
            throw ImageError(fmt::format("property {} is there twice", object.properties.back().id));
    }
    if (known.empty() || known.size() > InterfaceObject::kMostProperties)
        throw ImageError(fmt::format("an interface object cannot have {} properties", known.size()));
    return object;
}

std::vector<InterfaceObjectDefinition> ReadProperties(Reader& reader) {
    std::vector<InterfaceObjectDefinition> objects;
    std::set<std::pair<std::uint16_t, std::uint16_t>> known;
    for (auto left = reader.Number<std::uint16_t>(); left > 0; --left) {
        objects.push_back(ReadObject(reader));
        const auto& [type, instance, properties] = objects.back();
        if (!known.emplace(type, instance).second)
            throw ImageError(
                fmt::format("instance {} of interface object type {} is there twice", instance, type));
    }
    if (const auto count = CountInterfaceObjects(objects); count > InterfaceObjects::kMostObjects)
        throw ImageError(fmt::format("no device can have {} interface objects", count));
    return objects;
}

void WriteLoaded(Writer& writer, const DeviceState::Loaded& loaded) {
    writer.Number(static_cast<std::uint8_t>(loaded.state));
    writer.Number(static_cast<std::uint8_t>(loaded.fault));
    writer.All(loaded.version);
    writer.Number(loaded.memory.address);
    writer.Block(loaded.memory.octets);
}

DeviceState::Loaded ReadLoaded(Reader& reader) {
    DeviceState::Loaded loaded;
    loaded.state = static_cast<LoadState>(reader.Number<std::uint8_t>());
    if (loaded.state > LoadState::Error)
        throw ImageError("there is a load state that does not exist");
    loaded.fault = static_cast<LoadFault>(reader.Number<std::uint8_t>());
    reader.All(loaded.version);
    loaded.memory.address = reader.Number<std::uint32_t>();
    const auto octets = reader.Block();
    if (octets.size() > Device::kLargestSegment ||
        loaded.memory.address > Device::kMemoryEnd - octets.size() ||
        (octets.empty() ? loaded.memory.address != 0 : loaded.memory.address < Device::kFirstSegment))
        throw ImageError("there is a segment that the memory has no room for");
    loaded.memory.octets.assign(octets.begin(), octets.end());
    if ((loaded.state == LoadState::Error) != (loaded.fault != LoadFault::None) ||
        (loaded.state == LoadState::Unloaded && !loaded.memory.IsEmpty()))
        throw ImageError("there is a load state that does not go with the rest of its object");
    return loaded;
}

/// Otherwise what is written to one would change another.
void CheckOverlap(const DeviceState& state) {
    std::map<std::uint32_t, std::size_t> segments; // size by address
    for (const auto& loaded : state.loaded)
        if (!loaded.memory.IsEmpty() &&
            !segments.emplace(loaded.memory.address, loaded.memory.octets.size()).second)
            throw ImageError("two segments share memory");
    std::size_t free = 0;
    for (const auto& [address, size] : segments) {
        if (address < free)
            throw ImageError("two segments share memory");
        free = address + size;
    }
}

/// Tables count as good from now on: nobody looks at them again.
void CheckTables(const DeviceState& state) {
    constexpr LoadFault (*kChecks[])(Octets) = {CheckAddressTable, CheckAssociationTable,
                                                CheckGroupObjectTable};
    for (std::size_t index = 0; index < std::size(kChecks); ++index) {
        const auto& loaded = state.loaded[index];
        const auto fault = kChecks[index](loaded.memory.octets);
        if (loaded.state == LoadState::Loaded && fault != LoadFault::None)
            throw ImageError(fmt::format("a table in it cannot be used: {}", ToString(fault)));
    }
}

DeviceState ReadState(Reader& reader) {
    DeviceState state;
    state.address = IndividualAddress(reader.Number<std::uint16_t>());
    for (auto& key : state.keys)
        key = reader.Number<std::uint32_t>();
    state.hopCount = reader.Number<std::uint8_t>();
    if (state.hopCount > kMostHops)
        throw ImageError("there is a hop count that does not exist");
    state.projectInstallation = reader.Number<std::uint16_t>();
    const auto name = reader.Block();
    if (name.size() > Device::kLongestName)
        throw ImageError("its friendly name is too long");
    state.friendlyName.assign(name.begin(), name.end());
    state.downloads = reader.Number<std::uint16_t>();
    state.restartPending = reader.Boolean();
    for (auto& loaded : state.loaded)
        loaded = ReadLoaded(reader);
    CheckOverlap(state);
    CheckTables(state);
    state.properties = ReadProperties(reader);
    return state;
}

} // namespace

std::vector<std::uint8_t> WriteDeviceImage(const DeviceState& state) {
    Writer writer;
    writer.All(kMagic);
    writer.Number(kVersion);
    writer.Number(state.address.raw);
    for (const auto key : state.keys)
        writer.Number(key);
    writer.Number(state.hopCount);
    writer.Number(state.projectInstallation);
    writer.Block(state.friendlyName);
    writer.Number(state.downloads);
    writer.Number(static_cast<std::uint8_t>(state.restartPending ? 1 : 0));
    for (const auto& loaded : state.loaded)
        WriteLoaded(writer, loaded);
    WriteProperties(writer, state.properties);
    writer.Number(Checksum(writer.View()));
    return writer.Take();
}

DeviceState ReadDeviceImage(Octets image) {
    if (image.size() < kMagic.size() + 1 + kChecksumSize ||
        !std::equal(kMagic.begin(), kMagic.end(), image.begin()))
        throw ImageError("it is no device image");
    if (const auto version = image[kMagic.size()]; version != kVersion)
        throw ImageError(
            fmt::format("it has version {}, and only version {} can be read", version, kVersion));
    const auto content = image.first(image.size() - kChecksumSize);
    if (Reader(image.last(kChecksumSize)).Number<std::uint32_t>() != Checksum(content))
        throw ImageError("its checksum is wrong: it is damaged, or was cut off");
    Reader reader(content.subspan(kMagic.size() + 1));
    auto state = ReadState(reader);
    if (!reader.IsAtEnd())
        throw ImageError("it has more behind its end");
    return state;
}

} // namespace KnxDevice
