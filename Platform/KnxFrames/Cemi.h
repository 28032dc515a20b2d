// cEMI frames: how telegrams travel between a host and an interface.
#pragma once

#include "KnxFrames/Addresses.h"
#include "KnxFrames/Tpdu.h"

#include <cstdint>
#include <string>
#include <variant>

namespace KnxFrames {

/// cEMI message codes (KNX Standard 3/6/3).
enum class MessageCode : std::uint8_t {
    LDataReq = 0x11,
    LDataCon = 0x2E,
    LDataInd = 0x29,
    LRawReq = 0x10,
    LRawInd = 0x2D,
    LRawCon = 0x2F,
    LPollDataReq = 0x13,
    LPollDataCon = 0x25,
    LBusmonInd = 0x2B,
    TDataIndividualReq = 0x4A,
    TDataIndividualInd = 0x94,
    TDataConnectedReq = 0x41,
    TDataConnectedInd = 0x89,
    MPropReadReq = 0xFC,
    MPropReadCon = 0xFB,
    MPropWriteReq = 0xF6,
    MPropWriteCon = 0xF5,
    MPropInfoInd = 0xF7,
    MFuncPropCommandReq = 0xF8,
    MFuncPropStateReadReq = 0xF9,
    MFuncPropCon = 0xFA,
    MResetReq = 0xF1,
    MResetInd = 0xF0,
};

/// Name as in the KNX Standard, "L_Data.req"; "unknown" for a number that is none of the above.
const char* ToString(MessageCode code);

/// Priority of a telegram; the numbers are the bits of control field 1. In order of precedence: System,
/// Urgent, Normal, Low.
enum class Priority : std::uint8_t { System = 0, Normal = 1, Urgent = 2, Low = 3 };

/// A link layer telegram: L_Data.req (to the bus), .con (was sent) or .ind (was received). Both control
/// fields are kept bit for bit, so that a telegram that is passed on stays as it came; additional information
/// of a received frame is dropped. A value type without allocation.
struct LData {
    /// Control field 1: bit 7 standard frame, bit 5 do not repeat on errors, bit 4 broadcast (0: system
    /// broadcast), bits 3 and 2 priority, bit 1 acknowledge requested, bit 0 error (in a confirmation).
    static constexpr std::uint8_t kStandardFrame = 0x80;
    static constexpr std::uint8_t kDoNotRepeat = 0x20;
    static constexpr std::uint8_t kBroadcast = 0x10;
    static constexpr std::uint8_t kConfirmError = 0x01;
    /// Control field 2: bit 7 group address, bits 6 to 4 hop count (7 is never counted down), bits 3 to 0
    /// extended frame format.
    static constexpr std::uint8_t kToGroup = 0x80;

    MessageCode code = MessageCode::LDataInd; ///< one of LDataReq, LDataCon, LDataInd
    std::uint8_t control1 = kStandardFrame | kDoNotRepeat | kBroadcast | 0x0C; ///< BCh: priority low
    std::uint8_t control2 = kToGroup | 0x60;                                   ///< E0h: to a group, 6 hops
    IndividualAddress source;
    std::uint16_t destination = 0; ///< a group or an individual address, see IsToGroup()
    Tpdu tpdu;

    Priority GetPriority() const { return static_cast<Priority>(control1 >> 2 & 0x03); }
    bool HasConfirmError() const { return (control1 & kConfirmError) != 0; }
    bool IsToGroup() const { return (control2 & kToGroup) != 0; }
    GroupAddress GroupDestination() const { return GroupAddress(destination); }
    IndividualAddress IndividualDestination() const { return IndividualAddress(destination); }

    void SetPriority(Priority priority);
    void SetConfirmError(bool error);

    TpduKind Kind() const { return ClassifyTpdu(tpdu, IsToGroup(), destination); }

    /// True for a telegram of group communication, the only kind whose content a host looks into.
    bool IsGroupData() const { return Kind() == TpduKind::DataGroup; }

    bool operator==(const LData& other) const = default;
};

/// A telegram of group communication with hop count 6, as L_Data.req. `destination` is not 0/0/0.
LData MakeGroupTelegram(IndividualAddress source, GroupAddress destination, const Tpdu& tpdu,
                        Priority priority = Priority::Low);

/// A message of another cEMI service than L_Data: recognised, not looked into.
struct OtherCemi {
    MessageCode code;
};

using CemiFrame = std::variant<LData, OtherCemi>;

/// Size of the longest L_Data that EncodeCemi() makes: message code, length of no additional information, two
/// control fields, two addresses, length, TPDU.
inline constexpr std::size_t kLongestCemi = 9 + Tpdu::kCapacity;
using CemiOctets = FixedOctets<kLongestCemi>;

/// Reads one cEMI message; `octets` is exactly the message. Unsupported: an unknown message code. Malformed:
/// an L_Data whose octets do not add up. A standard frame whose TPDU only fits into an extended one is
/// accepted and marked extended, since several interfaces leave that bit set.
Outcome<CemiFrame> ParseCemi(Octets octets);

/// As ParseCemi(), for callers that can only use an L_Data: everything else is Unsupported.
Outcome<LData> ParseLData(Octets octets);

/// Appends the message without additional information; `out` must have room for 9 octets and the TPDU. A TPDU
/// of more than kStandardTpduSize octets is always written as an extended frame. The TPDU must not be empty.
template <std::size_t Capacity>
void EncodeCemi(const LData& frame, FixedOctets<Capacity>& out) {
    const bool extended = frame.tpdu.Size() > kStandardTpduSize;
    out.Append(static_cast<std::uint8_t>(frame.code));
    out.Append(0);
    out.Append(
        static_cast<std::uint8_t>(extended ? frame.control1 & ~LData::kStandardFrame : frame.control1));
    out.Append(frame.control2);
    out.Append16(frame.source.raw);
    out.Append16(frame.destination);
    out.Append(static_cast<std::uint8_t>(frame.tpdu.Size() - 1));
    out.Append(frame.tpdu.View());
}

/// One line for logs and monitors: "1.1.4 -> 1/2/3 GroupValue_Write 01", or the transport service and the
/// TPDU in hexadecimal for everything that is not a group service.
std::string Describe(const LData& frame);

} // namespace KnxFrames
