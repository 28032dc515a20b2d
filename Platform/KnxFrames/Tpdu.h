// Transport layer of a telegram, and the application layer of group communication.
#pragma once

#include "KnxFrames/FixedOctets.h"
#include "KnxFrames/Outcome.h"

#include <cstdint>

namespace KnxFrames {

/// Transport layer protocol data unit as it follows the length octet of a cEMI frame: one octet of transport
/// control information (TPCI), whose two low bits begin the APCI of a data unit, and what comes behind it.
/// 1 to 255 octets; the value part of a group telegram is at most 253.
using Tpdu = FixedOctets<255>;

/// Longest TPDU that fits into a standard frame: 16 octets, 14 of them value.
inline constexpr std::size_t kStandardTpduSize = 16;
inline constexpr std::size_t kLongestGroupValue = Tpdu::kCapacity - 2;

/// Transport layer services (KNX Standard 3/3/4). Only group data is interpreted further here; a host relays
/// the others as they are.
enum class TpduKind : std::uint8_t {
    DataBroadcast,  ///< T_Data_Broadcast: group address 0
    DataGroup,      ///< T_Data_Group
    DataTagGroup,   ///< T_Data_Tag_Group
    DataIndividual, ///< T_Data_Individual, connectionless point to point
    DataConnected,  ///< T_Data_Connected, with a sequence number
    Connect,        ///< T_Connect
    Disconnect,     ///< T_Disconnect
    Ack,            ///< T_ACK
    Nak,            ///< T_NAK
    Unknown,        ///< none of these: reserved bits, or a size that the service does not have
};

/// "T_Data_Group", "T_Connect", ...; "unknown service"
const char* ToString(TpduKind kind);

/// The service of a TPDU that was sent to a group address (`toGroup`, with `destination` 0 for broadcast) or
/// to an individual address.
TpduKind ClassifyTpdu(const Tpdu& tpdu, bool toGroup, std::uint16_t destination);

/// Sequence number 0 to 15 of DataConnected, Ack and Nak; meaningless for the others.
std::uint8_t TpduSequence(const Tpdu& tpdu);

/// The 10 bits of application layer control information of a data TPDU of at least two octets, else 0xFFFF.
/// Of the group services only the upper four bits are the service, see ReadGroupService().
std::uint16_t Apci(const Tpdu& tpdu);

/// A_GroupValue_Read, A_GroupValue_Response, A_GroupValue_Write; the numbers are their APCI.
enum class GroupServiceKind : std::uint16_t { Read = 0x000, Response = 0x040, Write = 0x080 };

/// "GroupValue_Read", ...
const char* ToString(GroupServiceKind kind);

/// A group service as read from a TPDU. A value of up to 6 bits travels inside the APCI octet and has no
/// octets of its own; every longer value has one octet or more.
struct GroupService {
    GroupServiceKind kind = GroupServiceKind::Read;
    std::uint8_t shortValue = 0; ///< the 6 bits when IsShort(), else 0
    Octets longValue;            ///< points into the TPDU that was read; valid as long as that

    /// True for a value of up to 6 bits. A read carries no value, and is not short.
    bool IsShort() const { return kind != GroupServiceKind::Read && longValue.empty(); }
};

/// Reads the application layer of a group telegram. Malformed: fewer than two octets, a read with a value.
/// Unsupported: any other application service, a TPDU that is not unnumbered data.
Outcome<GroupService> ReadGroupService(const Tpdu& tpdu);

/// A_GroupValue_Read.
Tpdu MakeGroupRead();

/// A response or write with a value of up to 6 bits; the two upper bits of `value` are ignored.
Tpdu MakeGroupShortValue(GroupServiceKind kind, std::uint8_t value);

/// A response or write with a value of its own octets: 1 to kLongestGroupValue, in telegram order. Malformed
/// when `value` is empty or longer.
Outcome<Tpdu> MakeGroupLongValue(GroupServiceKind kind, Octets value);

} // namespace KnxFrames
