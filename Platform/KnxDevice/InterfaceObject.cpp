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

void InterfaceObject::Load(const PropertyDefinition& definition) {
    auto& place = m_properties[definition.id];
    if (place == nullptr)
        place = std::make_unique<InterfaceObjectProperty>(m_mutex, definition.dataType, definition.elements,
                                                          true, true);
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
