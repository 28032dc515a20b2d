#include "KnxDevice/GroupObjectTable.h"

#include <fmt/format.h>

#include <algorithm>

namespace KnxDevice {

const GroupObject GroupObjectTable::s_noObject{};

namespace {

bool IsPossibleSize(unsigned bits) {
    return (bits >= 1 && bits <= 7) ||
           (bits % 8 == 0 && bits >= 8 && bits <= GroupObjectTable::kMaxValueBytes * 8);
}

} // namespace

GroupObjectTable::GroupObjectTable(std::span<const GroupObjectDefinition> definitions) {
    std::uint16_t last = 0;
    for (const auto& definition : definitions)
        last = std::max(last, definition.number);
    m_objects.resize(definitions.empty() ? 0 : last + 1u);
    for (const auto& definition : definitions)
        AddObject(definition);
    CollectAddresses(definitions);
    Associate(definitions);
}

void GroupObjectTable::AddObject(const GroupObjectDefinition& definition) {
    if (definition.number == 0 || definition.number > kMaxObject)
        throw std::invalid_argument(
            fmt::format("group object {}: the number must be 1 to {}", definition.number, kMaxObject));
    auto& object = m_objects[definition.number];
    if (object.Exists())
        throw std::invalid_argument(
            fmt::format("group object {}: the number is used twice", definition.number));
    if (!IsPossibleSize(definition.sizeInBits))
        throw std::invalid_argument(
            fmt::format("group object {}: a value cannot have {} bits, only 1 to 7 or "
                        "whole bytes up to {}",
                        definition.number, definition.sizeInBits, kMaxValueBytes));
    object.sizeInBits = static_cast<std::uint16_t>(definition.sizeInBits);
    object.flags = definition.flags;
    object.priority = definition.priority;
    object.ownTelegrams = definition.ownTelegrams;
    object.fillsUp = definition.fillsUp;
    ++m_count;
}

void GroupObjectTable::CollectAddresses(std::span<const GroupObjectDefinition> definitions) {
    for (const auto& definition : definitions) {
        auto own = definition.groupAddresses;
        std::sort(own.begin(), own.end());
        if (!own.empty() && own.front() == GroupAddress())
            throw std::invalid_argument(
                fmt::format("group object {}: 0/0/0 is the broadcast address", definition.number));
        if (std::adjacent_find(own.begin(), own.end()) != own.end())
            throw std::invalid_argument(
                fmt::format("group object {}: a group address is listed twice", definition.number));
        m_addresses.insert(m_addresses.end(), own.begin(), own.end());
    }
    std::sort(m_addresses.begin(), m_addresses.end());
    m_addresses.erase(std::unique(m_addresses.begin(), m_addresses.end()), m_addresses.end());
    m_addresses.shrink_to_fit();
}

void GroupObjectTable::Associate(std::span<const GroupObjectDefinition> definitions) {
    m_firstAssociation.assign(m_addresses.size() + 1, 0);
    for (const auto& definition : definitions)
        for (const auto address : definition.groupAddresses)
            ++m_firstAssociation[ConnectionOf(address)];
    for (std::size_t i = 1; i < m_firstAssociation.size(); ++i)
        m_firstAssociation[i] += m_firstAssociation[i - 1];

    m_associated.resize(m_firstAssociation.back());
    auto next = m_firstAssociation;
    for (const auto& definition : definitions)
        for (const auto address : definition.groupAddresses)
            m_associated[next[ConnectionOf(address) - 1u]++] = definition.number;
    for (std::size_t i = 0; i + 1 < m_firstAssociation.size(); ++i)
        std::sort(m_associated.begin() + m_firstAssociation[i],
                  m_associated.begin() + m_firstAssociation[i + 1]);

    for (const auto& definition : definitions)
        if (!definition.groupAddresses.empty())
            m_objects[definition.number].sendingConnection = ConnectionOf(definition.groupAddresses.front());
}

std::uint16_t GroupObjectTable::ConnectionOf(GroupAddress address) const {
    const auto found = std::lower_bound(m_addresses.begin(), m_addresses.end(), address);
    if (found == m_addresses.end() || *found != address)
        return 0;
    return static_cast<std::uint16_t>(found - m_addresses.begin() + 1);
}

std::span<const std::uint16_t> GroupObjectTable::ObjectsAt(GroupAddress address) const {
    const auto connection = ConnectionOf(address);
    if (connection == 0)
        return {};
    const auto first = m_firstAssociation[connection - 1u];
    return {m_associated.data() + first, m_firstAssociation[connection] - first};
}

} // namespace KnxDevice
