// Group object table, group address table and association table of a device.
#pragma once

#include "KnxFrames/Cemi.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace KnxDevice {

using KnxFrames::GroupAddress;
using KnxFrames::Priority;

/// Communication flags of a group object; letters as ETS shows them.
enum class Flag : std::uint8_t {
    Communication = 0x01, ///< C: takes part in group communication at all
    Read = 0x02,          ///< R: answers A_GroupValue_Read
    Write = 0x04,         ///< W: takes A_GroupValue_Write
    Transmit = 0x08,      ///< T: sends writes and read requests of its own
    Update = 0x10,        ///< U: takes A_GroupValue_Response
    ReadOnInit = 0x20,    ///< I: its value is read from the bus when the device starts
};

/// A set of flags.
struct Flags {
    std::uint8_t bits = 0;

    constexpr bool Has(Flag flag) const { return (bits & static_cast<std::uint8_t>(flag)) != 0; }
    constexpr Flags With(Flag flag) const {
        return {static_cast<std::uint8_t>(bits | static_cast<std::uint8_t>(flag))};
    }
    constexpr bool operator==(const Flags&) const = default;
};

/// One group object as it is configured.
struct GroupObjectDefinition {
    std::uint16_t number = 0;          ///< 1 to 65,534
    unsigned sizeInBits = 0;           ///< 1 to 7, or whole bytes up to kMaxValueBytes
    Flags flags;                       ///< what it takes part in
    Priority priority = Priority::Low; ///< of what it sends
    bool ownTelegrams = true;          ///< takes what other objects of this device send
    bool fillsUp = false; ///< a shorter value, of whole bytes, is filled up with NULs: a text of any length
    std::vector<GroupAddress> groupAddresses; ///< none is 0/0/0; the first sends, all listen
};

/// What the group object table says of one object; size 0 is an object that does not exist.
struct GroupObject {
    std::uint16_t sizeInBits = 0;
    std::uint16_t sendingConnection = 0; ///< connection number of its sending address, 0 = it has none
    Flags flags;
    Priority priority = Priority::Low;
    bool ownTelegrams = true;
    bool fillsUp = false;

    bool Exists() const { return sizeInBits != 0; }
    unsigned Bytes() const { return (sizeInBits + 7u) / 8u; }

    /// 1 to 6 bits travel in the last byte of the APCI; 7 bits and more in bytes of their own.
    bool TravelsInApci() const { return sizeInBits <= 6; }

    bool operator==(const GroupObject&) const = default;
};

/// The three tables of group communication, as one immutable value: group objects by number, group addresses
/// in ascending order (the place of an address, counted from 1, is its connection number), and associations
/// of connections with objects, ordered by connection and object number. An object may have several
/// addresses, an address several objects. At most 65,534 objects. Receiving costs one binary search over the
/// addresses. Any thread.
class GroupObjectTable {
public:
    static constexpr std::uint16_t kMaxObject = 65534;
    static constexpr unsigned kMaxValueBytes = KnxFrames::kLongestGroupValue;

    /// No objects at all.
    GroupObjectTable() = default;

    /// Throws std::invalid_argument, naming the object, when a number is 0, 65,535 or used twice, a size is
    /// not possible, or a group address is 0 or listed twice in one object.
    explicit GroupObjectTable(std::span<const GroupObjectDefinition> definitions);

    /// The object with the number; one that does not exist for every other number.
    const GroupObject& Object(std::uint16_t number) const {
        return number < m_objects.size() ? m_objects[number] : s_noObject;
    }

    /// Numbers of the objects associated with the group address, ascending; empty for an unknown address.
    std::span<const std::uint16_t> ObjectsAt(GroupAddress address) const;

    /// The group address that the object sends to; 0/0/0 when it has none.
    GroupAddress SendingAddress(const GroupObject& object) const {
        return object.sendingConnection == 0 ? GroupAddress() : m_addresses[object.sendingConnection - 1u];
    }

    /// Number of existing objects.
    std::size_t Count() const { return m_count; }

    /// Equal when each number means the same object with the same addresses.
    bool operator==(const GroupObjectTable&) const = default;

private:
    static const GroupObject s_noObject;

    void AddObject(const GroupObjectDefinition& definition);
    void CollectAddresses(std::span<const GroupObjectDefinition> definitions);
    void Associate(std::span<const GroupObjectDefinition> definitions);
    std::uint16_t ConnectionOf(GroupAddress address) const;

    std::vector<GroupObject> m_objects;            // by number; [0] does not exist
    std::vector<GroupAddress> m_addresses;         // by connection number - 1
    std::vector<std::uint32_t> m_firstAssociation; // by connection number - 1, and one behind the last
    std::vector<std::uint16_t> m_associated;       // object numbers, grouped by connection
    std::size_t m_count = 0;
};

} // namespace KnxDevice
