// Group address table, association table and group object table as they stand in the device's memory.
#pragma once

#include "KnxDevice/GroupObjectTable.h"
#include "KnxDevice/LoadableObject.h"

#include <cstdint>
#include <vector>

namespace KnxDevice {

// The formats of System B (KNX Standard 3/5/1). Each table begins with the number of its entries in two
// octets. Group addresses: two octets each, ascending. Associations: connection number and group object
// number, two octets each; the first association of an object names its sending address. Group objects: from
// object 1 on, one octet of flags and priority and one with the code of the size; a size code FFh is an
// object that does not exist. What is behind the last entry is not looked at; a table without any octet is
// empty.

/// Judge what a download has written; each for one table by itself.
LoadFault CheckAddressTable(Octets table);
LoadFault CheckAssociationTable(Octets table);
LoadFault CheckGroupObjectTable(Octets table);

/// The group objects of three tables that passed the checks above. An association with a connection or an
/// object that the other tables do not have is left out, as is the second one of the same pair.
std::vector<GroupObjectDefinition> ReadLoadedTables(Octets addresses, Octets associations, Octets objects);

struct LoadedTables {
    std::vector<std::uint8_t> addresses;
    std::vector<std::uint8_t> associations;
    std::vector<std::uint8_t> objects;
};

/// The reverse. `ownTelegrams` has no place in the tables, nor have sizes above 248 octets, which are written
/// as objects that do not exist, and associations beyond 65,535.
LoadedTables WriteLoadedTables(const std::vector<GroupObjectDefinition>& definitions);

} // namespace KnxDevice
