// One interface object of the KNX device.
#pragma once

#include <cstdint>

namespace KnxStack {

class IInterfaceObjectProperty;

/// Property identifier, PID, as in the KNX Standard 3/7/3.
using PropertyId = std::uint16_t;

/// An interface object and its properties. Owned by the stack, as is every property it hands out. Threads as
/// for IPropertyService.
class IInterfaceObject {
public:
    virtual ~IInterfaceObject() = default;

    /// A property with one element. `dataType` is the property data type (PDT). `persistent` 1: the value
    /// survives a restart. `writeEnabled` 1: the bus may write it. Null when it cannot be created. A property
    /// that the object has already is given back as it is, value included, when data type and number of
    /// elements are the same, for a program that is made anew asks again; else the result is null and the
    /// property stays.
    virtual IInterfaceObjectProperty* CreateProperty(PropertyId id, std::uint8_t dataType, int persistent,
                                                     int writeEnabled) = 0;

    /// The same with an array of `elementCount` elements.
    virtual IInterfaceObjectProperty* CreateArrayProperty(PropertyId id, std::uint8_t dataType,
                                                          std::uint16_t elementCount, int persistent,
                                                          int writeEnabled) = 0;

    /// The property with the id; null when the object has none.
    virtual IInterfaceObjectProperty* GetProperty(PropertyId id) = 0;
};

} // namespace KnxStack
