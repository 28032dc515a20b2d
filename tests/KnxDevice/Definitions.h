// Short ways to write group objects in tests.
#pragma once

#include "KnxDevice/GroupObjectTable.h"

#include <string_view>
#include <vector>

namespace KnxDevice {

inline Flags FlagsOf(std::string_view letters) {
    Flags flags;
    for (const auto letter : letters) {
        switch (letter) {
        case 'C': flags = flags.With(Flag::Communication); break;
        case 'R': flags = flags.With(Flag::Read); break;
        case 'W': flags = flags.With(Flag::Write); break;
        case 'T': flags = flags.With(Flag::Transmit); break;
        case 'U': flags = flags.With(Flag::Update); break;
        default: throw std::invalid_argument("no such flag");
        }
    }
    return flags;
}

inline GroupObjectDefinition Define(std::uint16_t number, unsigned sizeInBits, std::string_view flags,
                                    const std::vector<std::uint16_t>& addresses) {
    GroupObjectDefinition definition;
    definition.number = number;
    definition.sizeInBits = sizeInBits;
    definition.flags = FlagsOf(flags);
    for (const auto raw : addresses)
        definition.groupAddresses.emplace_back(raw);
    return definition;
}

inline GroupObjectTable TableOf(const std::vector<GroupObjectDefinition>& definitions) {
    return GroupObjectTable(definitions);
}

} // namespace KnxDevice
