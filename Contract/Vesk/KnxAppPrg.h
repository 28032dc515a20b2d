// Records shared by the application program and its plug-ins.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace KnxStack {
class IInterfaceObject;
}

namespace Vesk::KnxAppPrg {

/// One communication object as the group object table has it.
struct CoDescriptorData {
    std::uint16_t co = 0;                  ///< number of the object; 0 = no such object
    std::uint8_t communicationEnabled = 0; ///< 1 when the communication flag is set

    bool operator==(const CoDescriptorData& other) const = default;
};

using CoDescriptorDataMap = std::map<std::uint16_t, CoDescriptorData>;

/// A KNX property that a plug-in wants registered on interface objects of a type.
struct ExtendedProperty {
    std::string name;                ///< for messages only
    std::uint16_t propertyId = 0;    ///< PID
    std::uint8_t dataType = 0;       ///< PDT, handed to the stack unchanged
    std::uint16_t elementCount = 0;  ///< 0 or 1: one element; more: an array
    std::uint16_t objectType = 0;    ///< interface object type
    std::uint16_t instanceCount = 0; ///< number of interface objects of that type that are to exist
};

/// Interface objects by key: the id of the program's own object, or the type of further ones. The stack owns
/// the objects.
using InterfaceObjectMap = std::map<std::uint32_t, std::vector<KnxStack::IInterfaceObject*>>;

} // namespace Vesk::KnxAppPrg
