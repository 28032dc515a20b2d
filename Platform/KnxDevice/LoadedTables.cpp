#include "KnxDevice/LoadedTables.h"

#include <algorithm>
#include <set>

namespace KnxDevice {

namespace {

constexpr std::size_t kCountSize = 2;
constexpr std::size_t kAddressSize = 2;
constexpr std::size_t kAssociationSize = 4;
constexpr std::size_t kObjectSize = 2;
constexpr std::size_t kMostEntries = 0xFFFF;

// First octet of a group object.
constexpr std::uint8_t kUpdate = 0x80;
constexpr std::uint8_t kTransmit = 0x40;
constexpr std::uint8_t kReadOnInit = 0x20;
constexpr std::uint8_t kWrite = 0x10;
constexpr std::uint8_t kRead = 0x08;
constexpr std::uint8_t kCommunication = 0x04;
constexpr std::uint8_t kPriority = 0x03;

struct FlagBit {
    Flag flag;
    std::uint8_t bit;
};
constexpr FlagBit kFlagBits[] = {
    {Flag::Communication, kCommunication}, {Flag::Read, kRead},     {Flag::Write, kWrite},
    {Flag::Transmit, kTransmit},           {Flag::Update, kUpdate}, {Flag::ReadOnInit, kReadOnInit}};

// Second octet: 0 to 6 are 1 to 7 bits; then sizes in octets (KNX Standard 3/5/1, type of a group object).
constexpr std::uint8_t kNoObject = 0xFF;
constexpr std::uint8_t kFirstOctetCode = 7;
constexpr std::uint8_t kOctetsOfCode[] = {1, 2, 3, 4, 6, 8, 10, 14, 5, 7, 9, 11, 12, 13}; // codes 7 to 20
constexpr std::uint8_t kFirstLongCode = 21; // from here on, 15 octets and one more for each code
constexpr unsigned kFirstLongOctets = 15;

unsigned BitsOfCode(std::uint8_t code) {
    if (code < kFirstOctetCode)
        return code + 1u;
    if (code < kFirstLongCode)
        return kOctetsOfCode[code - kFirstOctetCode] * 8u;
    return (code - kFirstLongCode + kFirstLongOctets) * 8u;
}

/// kNoObject for a size that no code has.
std::uint8_t CodeOfBits(unsigned bits) {
    for (unsigned code = 0; code < kNoObject; ++code)
        if (BitsOfCode(static_cast<std::uint8_t>(code)) == bits)
            return static_cast<std::uint8_t>(code);
    return kNoObject;
}

std::uint16_t Number16(Octets octets, std::size_t at) {
    return static_cast<std::uint16_t>(octets[at] << 8 | octets[at + 1]);
}

std::size_t CountOf(Octets table) {
    return table.size() < kCountSize ? 0 : Number16(table, 0);
}

bool HoldsItsEntries(Octets table, std::size_t entrySize) {
    return table.empty() ||
           (table.size() >= kCountSize && (table.size() - kCountSize) / entrySize >= CountOf(table));
}

GroupAddress AddressAt(Octets table, std::size_t index) {
    return GroupAddress(Number16(table, kCountSize + index * kAddressSize));
}

struct Association {
    std::uint16_t connection;
    std::uint16_t object;
};

Association AssociationAt(Octets table, std::size_t index) {
    const auto at = kCountSize + index * kAssociationSize;
    return {Number16(table, at), Number16(table, at + 2)};
}

void Append16(std::vector<std::uint8_t>& octets, std::size_t number) {
    octets.push_back(static_cast<std::uint8_t>(number >> 8));
    octets.push_back(static_cast<std::uint8_t>(number));
}

GroupObjectDefinition ObjectAt(Octets table, std::size_t index) {
    const auto descriptor = table[kCountSize + index * kObjectSize];
    GroupObjectDefinition object;
    object.number = static_cast<std::uint16_t>(index + 1);
    const auto code = table[kCountSize + index * kObjectSize + 1];
    object.sizeInBits = code == kNoObject ? 0 : BitsOfCode(code);
    for (const auto& each : kFlagBits)
        if ((descriptor & each.bit) != 0)
            object.flags = object.flags.With(each.flag);
    object.priority = static_cast<Priority>(descriptor & kPriority);
    return object;
}

/// Keeps the first of equal addresses, in order. An object may have all 65,535 addresses.
void RemoveRepeated(std::vector<GroupAddress>& addresses) {
    std::set<GroupAddress> known;
    std::erase_if(addresses, [&](GroupAddress address) { return !known.insert(address).second; });
}

} // namespace

LoadFault CheckAddressTable(Octets table) {
    if (!HoldsItsEntries(table, kAddressSize))
        return LoadFault::TableTooLong;
    GroupAddress last; // 0/0/0 is none
    for (std::size_t index = 0; index < CountOf(table); ++index) {
        const auto address = AddressAt(table, index);
        if (address <= last)
            return LoadFault::AddressesUnsorted;
        last = address;
    }
    return LoadFault::None;
}

LoadFault CheckAssociationTable(Octets table) {
    if (!HoldsItsEntries(table, kAssociationSize))
        return LoadFault::TableTooLong;
    for (std::size_t index = 0; index < CountOf(table); ++index) {
        const auto association = AssociationAt(table, index);
        if (association.connection == 0)
            return LoadFault::InvalidConnection;
        if (association.object == 0 || association.object > GroupObjectTable::kMaxObject)
            return LoadFault::InvalidObject;
    }
    return LoadFault::None;
}

LoadFault CheckGroupObjectTable(Octets table) {
    if (!HoldsItsEntries(table, kObjectSize))
        return LoadFault::TableTooLong;
    if (CountOf(table) > GroupObjectTable::kMaxObject)
        return LoadFault::InvalidObject;
    for (std::size_t index = 0; index < CountOf(table); ++index)
        if (ObjectAt(table, index).sizeInBits > GroupObjectTable::kMaxValueBytes * 8)
            return LoadFault::ObjectTooBig;
    return LoadFault::None;
}

std::vector<GroupObjectDefinition> ReadLoadedTables(Octets addresses, Octets associations, Octets objects) {
    std::vector<GroupObjectDefinition> definitions(CountOf(objects));
    for (std::size_t index = 0; index < definitions.size(); ++index)
        definitions[index] = ObjectAt(objects, index);
    const auto connections = CountOf(addresses);
    for (std::size_t index = 0; index < CountOf(associations); ++index) {
        const auto association = AssociationAt(associations, index);
        if (association.connection > connections || association.object > definitions.size())
            continue;
        definitions[association.object - 1u].groupAddresses.push_back(
            AddressAt(addresses, association.connection - 1u));
    }
    for (auto& definition : definitions)
        RemoveRepeated(definition.groupAddresses);
    std::erase_if(definitions, [](const GroupObjectDefinition& each) { return each.sizeInBits == 0; });
    return definitions;
}

LoadedTables WriteLoadedTables(const std::vector<GroupObjectDefinition>& definitions) {
    std::vector<GroupAddress> addresses;
    std::size_t associations = 0;
    std::size_t objects = 0;
    for (const auto& object : definitions) {
        addresses.insert(addresses.end(), object.groupAddresses.begin(), object.groupAddresses.end());
        associations += object.groupAddresses.size();
        objects = std::max<std::size_t>(objects, object.number);
    }
    std::sort(addresses.begin(), addresses.end());
    addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());

    LoadedTables tables;
    Append16(tables.addresses, addresses.size());
    for (const auto address : addresses)
        Append16(tables.addresses, address.raw);
    Append16(tables.associations, std::min(associations, kMostEntries));
    Append16(tables.objects, objects);
    tables.objects.resize(kCountSize + objects * kObjectSize, 0);
    for (std::size_t index = 0; index < objects; ++index)
        tables.objects[kCountSize + index * kObjectSize + 1] = kNoObject;
    for (const auto& object : definitions) {
        for (const auto address : object.groupAddresses) {
            const auto found = std::lower_bound(addresses.begin(), addresses.end(), address);
            Append16(tables.associations, static_cast<std::size_t>(found - addresses.begin()) + 1);
            Append16(tables.associations, object.number);
        }
        const auto at = kCountSize + (object.number - 1u) * kObjectSize;
        auto descriptor = static_cast<std::uint8_t>(object.priority);
        for (const auto& each : kFlagBits)
            if (object.flags.Has(each.flag))
                descriptor = static_cast<std::uint8_t>(descriptor | each.bit);
        tables.objects[at] = descriptor;
        tables.objects[at + 1] = CodeOfBits(object.sizeInBits);
    }
    return tables;
}

} // namespace KnxDevice
