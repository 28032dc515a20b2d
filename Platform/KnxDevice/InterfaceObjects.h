// The interface objects of the device as its application program and its configuration see them.
#pragma once

#include "KnxDevice/InterfaceObject.h"
#include "KnxStack/IPropertyService.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <span>
#include <vector>

namespace KnxDevice {

/// An interface object that the device has of its own accord.
struct InterfaceObjectDefinition {
    std::uint16_t type = 0;
    std::uint16_t instance = 1; ///< counted from 1 within the type
    std::vector<PropertyDefinition> properties;
};

/// What stands behind the hub's property service. Objects are made and never removed, so that what was handed
/// out keeps its address as long as the service, whatever is loaded later.
///
/// Any thread: the service, its objects and its properties share one lock, held for moments.
class InterfaceObjects final : public KnxStack::IPropertyService {
public:
    /// An object is told from the others by one byte on the bus: there is no room for more, those that every
    /// device has included.
    static constexpr std::size_t kMostObjects = 255;

    InterfaceObjects() = default;
    explicit InterfaceObjects(std::span<const InterfaceObjectDefinition> definitions) { Load(definitions); }
    InterfaceObjects(const InterfaceObjects&) = delete;
    InterfaceObjects& operator=(const InterfaceObjects&) = delete;

    KnxStack::IInterfaceObject* CreateInterfaceObject(std::uint16_t type) override;
    KnxStack::IInterfaceObject* GetInterfaceObjectById(std::uint32_t id) override;
    KnxStack::IInterfaceObject* GetInterfaceObject(std::uint16_t type, std::uint16_t instance) override;

    /// Id of an object: its type in the lower 16 bits, and above them how many instances of the type come
    /// before it. `instance` is 1 or more.
    static constexpr std::uint32_t IdOf(std::uint16_t type, std::uint16_t instance) {
        return std::uint32_t{type} | (instance - 1u) << 16;
    }

    /// For the bus: how many objects there are, and each by its index, the order in which they were made;
    /// null beyond the last.
    std::size_t Count() const;
    InterfaceObject* At(std::size_t index) const;
    /// Type and instance, counted from 1, of an object with an index below Count().
    struct Identity {
        std::uint16_t type = 0;
        std::uint16_t instance = 0;
        bool operator==(const Identity&) const = default;
    };
    Identity IdentityAt(std::size_t index) const;

    /// The persistent properties that have a value, to be loaded again.
    std::vector<InterfaceObjectDefinition> PersistentValues() const;

    /// Puts the definitions into force, all at once for whoever reads. What is missing is made, instances up
    /// to the one that is defined included; each property is loaded as InterfaceObject::Load() says. What is
    /// not named stays as it is. Not bound by the limits: the definitions keep to them, what the program made
    /// beside them does not count.
    void Load(std::span<const InterfaceObjectDefinition> definitions);

private:
    using Instances = std::deque<InterfaceObject>; // never moved when another is added

    InterfaceObject& Add(std::uint16_t type);

    mutable std::mutex m_mutex; // guards what follows, and all that is in it
    std::map<std::uint16_t, Instances> m_byType;
    struct Made {
        Identity identity;
        InterfaceObject* object;
    };
    std::vector<Made> m_inOrder;
};

} // namespace KnxDevice
