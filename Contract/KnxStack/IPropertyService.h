// Interface objects of the KNX device.
#pragma once

#include <cstdint>

namespace KnxStack {

class IInterfaceObject;

/// Finds and creates interface objects. The stack owns every object; a pointer stays valid as long as the
/// service. Called on the host's lifecycle thread and on the program's start-up thread, never both at once.
class IPropertyService {
public:
    virtual ~IPropertyService() = default;

    /// A new interface object of the type, as the next instance; null when the device has no room.
    virtual IInterfaceObject* CreateInterfaceObject(std::uint16_t type) = 0;

    /// The interface object with the id; null when there is none. An id is the object's type for the first
    /// instance of a type. Ids of further instances are the stack's affair; here they are the type with the
    /// number of instances before it in the upper 16 bits.
    virtual IInterfaceObject* GetInterfaceObjectById(std::uint32_t id) = 0;

    /// The existing object of the type with the instance number, counted from 1; null when there is none.
    virtual IInterfaceObject* GetInterfaceObject(std::uint16_t type, std::uint16_t instance) = 0;
};

} // namespace KnxStack
