// One interface object of the device with its properties.
#pragma once

#include "KnxStack/BinaryData.h"
#include "KnxStack/IInterfaceObject.h"
#include "KnxStack/IInterfaceObjectProperty.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace KnxDevice {

/// A property that the device has of its own accord.
struct PropertyDefinition {
    KnxStack::PropertyId id = 0;
    std::uint8_t dataType = 0; ///< PDT; one that SizeOfPropertyElement() calls usable
    std::uint16_t elements = 1;
    std::optional<KnxStack::BinaryData> value; ///< fits data type and elements; none: left as it is
    bool persistent = true;
    bool writeEnabled = true; ///< for the bus
};

/// What the bus is told of a property, and by which numbers it may reach it.
struct PropertyDescription {
    KnxStack::PropertyId id = 0;
    std::uint8_t dataType = 0;
    std::uint16_t mostElements = 1;
    bool writeEnabled = false;
    std::uint8_t readLevel = 3; ///< access level that reading needs: 0 the most privileged, 3 anybody
    std::uint8_t writeLevel = 2;
};

/// A property and its value. All that the objects of a device hold is guarded by one lock of its owner, so
/// that a restart replaces all values at once.
class InterfaceObjectProperty final : public KnxStack::IInterfaceObjectProperty {
public:
    /// `mutex` outlives the property.
    InterfaceObjectProperty(std::mutex& mutex, std::uint8_t dataType, std::uint16_t elements, bool persistent,
                            bool writeEnabled)
        : m_mutex(mutex), m_persistent(persistent), m_writeEnabled(writeEnabled), m_dataType(dataType),
          m_elements(elements) {}

    void SetActive(int active) override;
    KnxStack::BinaryData GetValue() const override;
    void SetValue(const KnxStack::BinaryData& value) override;

    /// True once it was shown to the bus. Any thread.
    bool IsActive() const;
    /// Any thread.
    PropertyDescription Describe(KnxStack::PropertyId id) const;
    bool IsPersistent() const { return m_persistent; }
    bool IsWriteEnabled() const { return m_writeEnabled; }

private:
    friend class InterfaceObject;

    std::mutex& m_mutex;
    const bool m_persistent;
    const bool m_writeEnabled;
    // Guarded by m_mutex.
    std::uint8_t m_dataType;
    std::uint16_t m_elements;
    bool m_active = false;
    KnxStack::BinaryData m_value;
};

/// An interface object. Properties are made and never removed. Any thread.
class InterfaceObject final : public KnxStack::IInterfaceObject {
public:
    /// A property is told from the others of its object by one byte on the bus: there is no room for more.
    static constexpr std::size_t kMostProperties = 255;

    /// `mutex` outlives the object.
    explicit InterfaceObject(std::mutex& mutex) : m_mutex(mutex) {}

    /// Null for a data type that SizeOfPropertyElement() does not call usable, without elements, and when
    /// there is no room; else as the interface says.
    KnxStack::IInterfaceObjectProperty* CreateProperty(KnxStack::PropertyId id, std::uint8_t dataType,
                                                       int persistent, int writeEnabled) override;
    KnxStack::IInterfaceObjectProperty* CreateArrayProperty(KnxStack::PropertyId id, std::uint8_t dataType,
                                                            std::uint16_t elementCount, int persistent,
                                                            int writeEnabled) override;
    KnxStack::IInterfaceObjectProperty* GetProperty(KnxStack::PropertyId id) override;

    /// The same for the bus; null also for one that is hidden.
    InterfaceObjectProperty* FindShown(KnxStack::PropertyId id);
    /// The ids of those that are shown, ascending.
    std::vector<KnxStack::PropertyId> ShownIds() const;
    /// The persistent properties that have a value, to be loaded again.
    std::vector<PropertyDefinition> PersistentValues() const;

    /// Makes the property when it is missing. One with another data
    /// type or number of elements keeps its place, is as defined from now on, and loses its value. A named
    /// value replaces the former one. The caller holds the mutex.
    void Load(const PropertyDefinition& definition);

private:
    std::mutex& m_mutex;
    std::map<KnxStack::PropertyId, std::unique_ptr<InterfaceObjectProperty>> m_properties; // guarded by it
};

} // namespace KnxDevice
