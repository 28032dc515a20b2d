// The properties of the device's interface objects, as bus management reaches them.
#pragma once

#include "KnxDevice/Device.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace KnxDevice {

// Property data types (KNX Standard 3/7/3) and identifiers that are looked at by more than one file.
inline constexpr std::uint8_t kControl = 0x00;     // PDT_CONTROL
inline constexpr std::uint8_t kUnsignedInt = 0x04; // PDT_UNSIGNED_INT
inline constexpr KnxStack::PropertyId kObjectType = 1;

/// A property that the device itself answers for.
struct StandardProperty {
    PropertyDescription description;
    /// All elements one after the other: octets kept elsewhere, or put into `scratch`.
    std::function<Octets(std::vector<std::uint8_t>& scratch)> read;
    /// The new octets of all elements. Empty for what is read only.
    std::function<WriteResult(Octets)> write;
};

/// How elements of a property are named: `count` of them from number `start` on, counted from 1. Element 0 is
/// the number of elements that there are, in two octets.
struct ElementRange {
    std::uint16_t start = 1;
    std::uint16_t count = 1;
};

/// Finds, describes, reads and writes properties of a device: those of StandardProperties.cpp, and behind
/// them those that the application program has made and shown. Objects are named by their index.
class PropertyAccess {
public:
    /// `device` outlives this object.
    explicit PropertyAccess(Device& device);

    /// The elements' octets; nothing when there is no such object, property or element, or when `level` may
    /// not read it.
    std::optional<std::vector<std::uint8_t>> Read(std::size_t object, KnxStack::PropertyId id,
                                                  ElementRange elements, AccessLevel level) const;

    /// Writes all of the elements or none.
    WriteResult Write(std::size_t object, KnxStack::PropertyId id, ElementRange elements, Octets octets,
                      AccessLevel level);

    struct Place {
        PropertyDescription description;
        std::uint8_t index = 0; ///< of the property in its object
    };
    /// By id, or by index when `id` is 0.
    std::optional<Place> Describe(std::size_t object, KnxStack::PropertyId id, std::uint8_t index) const;

    /// Index of the object of the type with the instance, counted from 1.
    std::optional<std::size_t> FindObject(std::uint16_t type, std::uint16_t instance) const;

private:
    const StandardProperty* FindStandard(std::size_t object, KnxStack::PropertyId id) const;

    Device& m_device;
    std::vector<std::vector<StandardProperty>> m_standard; // by object index
};

/// The properties that the standard objects have, by object index. `device` outlives them.
std::vector<std::vector<StandardProperty>> MakeStandardProperties(Device& device);

} // namespace KnxDevice
