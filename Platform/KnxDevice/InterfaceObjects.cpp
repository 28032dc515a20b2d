#include "KnxDevice/InterfaceObjects.h"

#include <utility>

namespace KnxDevice {

KnxStack::IInterfaceObject* InterfaceObjects::CreateInterfaceObject(std::uint16_t type) {
    const std::lock_guard lock(m_mutex);
    return m_inOrder.size() < kMostObjects ? &Add(type) : nullptr;
}

KnxStack::IInterfaceObject* InterfaceObjects::GetInterfaceObjectById(std::uint32_t id) {
    constexpr std::uint32_t kMostBefore = 0xFFFE; // so that the instance is a number of 16 bits
    const auto before = id >> 16;
    if (before > kMostBefore)
        return nullptr;
    return GetInterfaceObject(static_cast<std::uint16_t>(id), static_cast<std::uint16_t>(before + 1));
}

KnxStack::IInterfaceObject* InterfaceObjects::GetInterfaceObject(std::uint16_t type, std::uint16_t instance) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_byType.find(type);
    if (found == m_byType.end() || instance == 0 || instance > found->second.size())
        return nullptr;
    return &found->second[instance - 1u];
}

void InterfaceObjects::Load(std::span<const InterfaceObjectDefinition> definitions) {
    const std::lock_guard lock(m_mutex);
    for (const auto& definition : definitions) {
        auto& instances = m_byType[definition.type];
        while (instances.size() < definition.instance)
            Add(definition.type);
        for (const auto& property : definition.properties)
            instances[definition.instance - 1u].Load(property);
    }
}

InterfaceObject& InterfaceObjects::Add(std::uint16_t type) {
    auto& instances = m_byType[type];
    auto& made = instances.emplace_back(m_mutex);
    m_inOrder.push_back({{type, static_cast<std::uint16_t>(instances.size())}, &made});
    return made;
}

std::size_t InterfaceObjects::Count() const {
    const std::lock_guard lock(m_mutex);
    return m_inOrder.size();
}

InterfaceObject* InterfaceObjects::At(std::size_t index) const {
    const std::lock_guard lock(m_mutex);
    return index < m_inOrder.size() ? m_inOrder[index].object : nullptr;
}

InterfaceObjects::Identity InterfaceObjects::IdentityAt(std::size_t index) const {
    const std::lock_guard lock(m_mutex);
    return m_inOrder.at(index).identity;
}

std::vector<InterfaceObjectDefinition> InterfaceObjects::PersistentValues() const {
    std::vector<InterfaceObjectDefinition> definitions;
    for (std::size_t index = 0; index < Count(); ++index) {
        auto values = At(index)->PersistentValues();
        const auto [type, instance] = IdentityAt(index);
        if (!values.empty())
            definitions.push_back({type, instance, std::move(values)});
    }
    return definitions;
}

} // namespace KnxDevice
