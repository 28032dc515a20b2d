#include "KnxDevice/InterfaceObject.h"

#include "KnxDevice/PropertyDataTypes.h"

namespace KnxDevice {

void InterfaceObjectProperty::SetActive(int active) {
    const std::lock_guard lock(m_mutex);
    m_active = active != 0;
}

KnxStack::BinaryData InterfaceObjectProperty::GetValue() const {
    const std::lock_guard lock(m_mutex);
    return m_value;
}

void InterfaceObjectProperty::SetValue(const KnxStack::BinaryData& value) {
    const std::lock_guard lock(m_mutex);
    if (SizeOfPropertyElement(m_dataType).Fits(value.GetSize(), m_elements))
        m_value = value;
}

bool InterfaceObjectProperty::IsActive() const {
    const std::lock_guard lock(m_mutex);
    return m_active;
}

PropertyDescription InterfaceObjectProperty::Describe(KnxStack::PropertyId id) const {
    const std::lock_guard lock(m_mutex);
    return {.id = id, .dataType = m_dataType, .mostElements = m_elements, .writeEnabled = m_writeEnabled};
}

KnxStack::IInterfaceObjectProperty* InterfaceObject::CreateProperty(KnxStack::PropertyId id,
                                                                    std::uint8_t dataType, int persistent,
                                                                    int writeEnabled) {
    return CreateArrayProperty(id, dataType, 1, persistent, writeEnabled);
}

KnxStack::IInterfaceObjectProperty* InterfaceObject::CreateArrayProperty(KnxStack::PropertyId id,
                                                                         std::uint8_t dataType,
                                                                         std::uint16_t elementCount,
                                                                         int persistent, int writeEnabled) {
    if (!SizeOfPropertyElement(dataType).IsUsable() || elementCount == 0)
        return nullptr;
    const std::lock_guard lock(m_mutex);
    const auto found = m_properties.find(id);
    if (found != m_properties.end()) {
        auto& known = *found->second;
        return known.m_dataType == dataType && known.m_elements == elementCount ? &known : nullptr;
    }
    if (m_properties.size() >= kMostProperties)
        return nullptr;
    auto made = std::make_unique<InterfaceObjectProperty>(m_mutex, dataType, elementCount, persistent != 0,
                                                          writeEnabled != 0);
    return m_properties.emplace(id, std::move(made)).first->second.get();
}

KnxStack::IInterfaceObjectProperty* InterfaceObject::GetProperty(KnxStack::PropertyId id) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_properties.find(id);
    return found == m_properties.end() ? nullptr : found->second.get();
}

InterfaceObjectProperty* InterfaceObject::FindShown(KnxStack::PropertyId id) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_properties.find(id);
    return found == m_properties.end() || !found->second->m_active ? nullptr : found->second.get();
}

std::vector<KnxStack::PropertyId> InterfaceObject::ShownIds() const {
    const std::lock_guard lock(m_mutex);
    std::vector<KnxStack::PropertyId> ids;
    for (const auto& [id, property] : m_properties)
        if (property->m_active)
            ids.push_back(id);
    return ids;
}

std::vector<PropertyDefinition> InterfaceObject::PersistentValues() const {
    const std::lock_guard lock(m_mutex);
    std::vector<PropertyDefinition> values;
    for (const auto& [id, property] : m_properties)
        if (property->m_persistent && property->m_value.GetSize() != 0)
            values.push_back({id, property->m_dataType, property->m_elements, property->m_value, true,
                              property->m_writeEnabled});
    return values;
}

void InterfaceObject::Load(const PropertyDefinition& definition) {
    auto& place = m_properties[definition.id];
    if (place == nullptr)
        place = std::make_unique<InterfaceObjectProperty>(m_mutex, definition.dataType, definition.elements,
                                                          definition.persistent, definition.writeEnabled);
    auto& property = *place;
    if (property.m_dataType != definition.dataType || property.m_elements != definition.elements) {
        property.m_dataType = definition.dataType;
        property.m_elements = definition.elements;
        property.m_value = {};
    }
    if (definition.value)
        property.m_value = *definition.value;
}

} // namespace KnxDevice
