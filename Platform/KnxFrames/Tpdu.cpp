#include "KnxFrames/Tpdu.h"

namespace KnxFrames {
namespace {

// TPCI: bit 7 control (else data), bit 6 numbered, bits 5 to 2 sequence number. In control units the two low
// bits are the service; in data units they begin the APCI.
constexpr std::uint8_t kUnnumberedData = 0x00;
constexpr std::uint8_t kNumberedData = 0x40;
constexpr std::uint8_t kTypeMask = 0xC0;
constexpr std::uint8_t kSequenceMask = 0x3C;
constexpr std::uint8_t kTagGroup = 0x04;

constexpr std::uint16_t kGroupApciMask = 0x3C0;
constexpr std::uint8_t kShortValueMask = 0x3F;

TpduKind ClassifyControl(const Tpdu& tpdu) {
    const std::uint8_t tpci = tpdu[0];
    if (tpdu.Size() != 1)
        return TpduKind::Unknown;
    if (tpci == 0x80)
        return TpduKind::Connect;
    if (tpci == 0x81)
        return TpduKind::Disconnect;
    if ((tpci & ~kSequenceMask) == 0xC2)
        return TpduKind::Ack;
    if ((tpci & ~kSequenceMask) == 0xC3)
        return TpduKind::Nak;
    return TpduKind::Unknown;
}

TpduKind ClassifyGroupData(std::uint8_t tpci, std::uint16_t destination) {
    if ((tpci & kTypeMask) != kUnnumberedData)
        return TpduKind::Unknown;
    switch (tpci & kSequenceMask) {
    case 0: return destination == 0 ? TpduKind::DataBroadcast : TpduKind::DataGroup;
    case kTagGroup: return TpduKind::DataTagGroup;
    default: return TpduKind::Unknown;
    }
}

Tpdu MakeApplicationHeader(GroupServiceKind kind, std::uint8_t low) {
    const auto apci = static_cast<std::uint16_t>(kind);
    return {static_cast<std::uint8_t>(apci >> 8), static_cast<std::uint8_t>((apci & 0xC0) | low)};
}

} // namespace

const char* ToString(TpduKind kind) {
    switch (kind) {
    case TpduKind::DataBroadcast: return "T_Data_Broadcast";
    case TpduKind::DataGroup: return "T_Data_Group";
    case TpduKind::DataTagGroup: return "T_Data_Tag_Group";
    case TpduKind::DataIndividual: return "T_Data_Individual";
    case TpduKind::DataConnected: return "T_Data_Connected";
    case TpduKind::Connect: return "T_Connect";
    case TpduKind::Disconnect: return "T_Disconnect";
    case TpduKind::Ack: return "T_ACK";
    case TpduKind::Nak: return "T_NAK";
    case TpduKind::Unknown: break;
    }
    return "unknown service";
}

const char* ToString(GroupServiceKind kind) {
    switch (kind) {
    case GroupServiceKind::Read: return "GroupValue_Read";
    case GroupServiceKind::Response: return "GroupValue_Response";
    case GroupServiceKind::Write: break;
    }
    return "GroupValue_Write";
}

TpduKind ClassifyTpdu(const Tpdu& tpdu, bool toGroup, std::uint16_t destination) {
    if (tpdu.IsEmpty())
        return TpduKind::Unknown;
    const std::uint8_t tpci = tpdu[0];
    if ((tpci & 0x80) != 0)
        return toGroup ? TpduKind::Unknown : ClassifyControl(tpdu);
    if (tpdu.Size() < 2)
        return TpduKind::Unknown;
    if (toGroup)
        return ClassifyGroupData(tpci, destination);
    if ((tpci & kTypeMask) == kNumberedData)
        return TpduKind::DataConnected;
    return (tpci & kSequenceMask) == 0 ? TpduKind::DataIndividual : TpduKind::Unknown;
}

std::uint8_t TpduSequence(const Tpdu& tpdu) {
    return tpdu.IsEmpty() ? 0 : static_cast<std::uint8_t>((tpdu[0] & kSequenceMask) >> 2);
}

std::uint16_t Apci(const Tpdu& tpdu) {
    if (tpdu.Size() < 2 || (tpdu[0] & 0x80) != 0)
        return 0xFFFF;
    return static_cast<std::uint16_t>((tpdu[0] & 0x03) << 8 | tpdu[1]);
}

Outcome<GroupService> ReadGroupService(const Tpdu& tpdu) {
    if (tpdu.Size() < 2)
        return FrameError::Malformed("a group telegram has fewer than two octets", tpdu.Size());
    if ((tpdu[0] & (kTypeMask | kSequenceMask)) != kUnnumberedData)
        return FrameError::Unsupported("not group data of the transport layer", 0);
    GroupService service;
    switch (Apci(tpdu) & kGroupApciMask) {
    case static_cast<unsigned>(GroupServiceKind::Read): service.kind = GroupServiceKind::Read; break;
    case static_cast<unsigned>(GroupServiceKind::Response): service.kind = GroupServiceKind::Response; break;
    case static_cast<unsigned>(GroupServiceKind::Write): service.kind = GroupServiceKind::Write; break;
    default: return FrameError::Unsupported("not a group service of the application layer", 1);
    }
    service.longValue = tpdu.View().subspan(2);
    if (service.kind == GroupServiceKind::Read) {
        if (!service.longValue.empty())
            return FrameError::Malformed("a group read carries a value", 2);
        return service;
    }
    if (service.longValue.empty())
        service.shortValue = tpdu[1] & kShortValueMask;
    return service;
}

Tpdu MakeGroupRead() {
    return MakeApplicationHeader(GroupServiceKind::Read, 0);
}

Tpdu MakeGroupShortValue(GroupServiceKind kind, std::uint8_t value) {
    return MakeApplicationHeader(kind, value & kShortValueMask);
}

Outcome<Tpdu> MakeGroupLongValue(GroupServiceKind kind, Octets value) {
    if (value.empty())
        return FrameError::Malformed("a group value has no octets", 0);
    if (value.size() > kLongestGroupValue)
        return FrameError::Malformed("a group value has more than 253 octets", kLongestGroupValue);
    Tpdu tpdu = MakeApplicationHeader(kind, 0);
    tpdu.Append(value);
    return tpdu;
}

} // namespace KnxFrames
