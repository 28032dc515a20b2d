#include "KnxFrames/Cemi.h"

#include <algorithm>
#include <array>

namespace KnxFrames {
namespace {

struct CodeName {
    MessageCode code;
    const char* name;
};

constexpr std::array kCodeNames = {
    CodeName{MessageCode::LDataReq, "L_Data.req"},
    CodeName{MessageCode::LDataCon, "L_Data.con"},
    CodeName{MessageCode::LDataInd, "L_Data.ind"},
    CodeName{MessageCode::LRawReq, "L_Raw.req"},
    CodeName{MessageCode::LRawInd, "L_Raw.ind"},
    CodeName{MessageCode::LRawCon, "L_Raw.con"},
    CodeName{MessageCode::LPollDataReq, "L_Poll_Data.req"},
    CodeName{MessageCode::LPollDataCon, "L_Poll_Data.con"},
    CodeName{MessageCode::LBusmonInd, "L_Busmon.ind"},
    CodeName{MessageCode::TDataIndividualReq, "T_Data_Individual.req"},
    CodeName{MessageCode::TDataIndividualInd, "T_Data_Individual.ind"},
    CodeName{MessageCode::TDataConnectedReq, "T_Data_Connected.req"},
    CodeName{MessageCode::TDataConnectedInd, "T_Data_Connected.ind"},
    CodeName{MessageCode::MPropReadReq, "M_PropRead.req"},
    CodeName{MessageCode::MPropReadCon, "M_PropRead.con"},
    CodeName{MessageCode::MPropWriteReq, "M_PropWrite.req"},
    CodeName{MessageCode::MPropWriteCon, "M_PropWrite.con"},
    CodeName{MessageCode::MPropInfoInd, "M_PropInfo.ind"},
    CodeName{MessageCode::MFuncPropCommandReq, "M_FuncPropCommand.req"},
    CodeName{MessageCode::MFuncPropStateReadReq, "M_FuncPropStateRead.req"},
    CodeName{MessageCode::MFuncPropCon, "M_FuncProp.con"},
    CodeName{MessageCode::MResetReq, "M_Reset.req"},
    CodeName{MessageCode::MResetInd, "M_Reset.ind"},
};

const CodeName* Find(MessageCode code) {
    const auto* found = std::find_if(kCodeNames.begin(), kCodeNames.end(),
                                     [code](const CodeName& each) { return each.code == code; });
    return found == kCodeNames.end() ? nullptr : found;
}

bool IsLData(MessageCode code) {
    return code == MessageCode::LDataReq || code == MessageCode::LDataCon || code == MessageCode::LDataInd;
}

std::uint16_t Read16(Octets octets, std::size_t offset) {
    return static_cast<std::uint16_t>(octets[offset] << 8 | octets[offset + 1]);
}

/// Octets from control field 1 to the length, both included.
constexpr std::size_t kServiceHeader = 7;

Outcome<CemiFrame> ReadLData(Octets octets) {
    if (octets.size() < 2)
        return FrameError::Malformed("the length of the additional information is missing", octets.size());
    // Additional information (busmonitor time stamps, radio data) says nothing about the telegram.
    const std::size_t start = 2U + octets[1];
    if (octets.size() < start + kServiceHeader)
        return FrameError::Malformed("the L_Data message ends within its header", octets.size());
    const std::size_t length = octets[start + 6];
    if (length == 0xFF)
        return FrameError::Malformed("the length octet is the escape code FFh", start + 6);
    const std::size_t tpduStart = start + kServiceHeader;
    if (octets.size() < tpduStart + length + 1)
        return FrameError::Malformed("the TPDU is shorter than its length octet says", octets.size());
    if (octets.size() > tpduStart + length + 1)
        return FrameError::Malformed("octets follow the TPDU", tpduStart + length + 1);

    CemiFrame result(std::in_place_type<LData>);
    LData& frame = std::get<LData>(result);
    frame.code = static_cast<MessageCode>(octets[0]);
    frame.control1 = octets[start];
    frame.control2 = octets[start + 1];
    frame.source = IndividualAddress(Read16(octets, start + 2));
    frame.destination = Read16(octets, start + 4);
    frame.tpdu.Append(octets.subspan(tpduStart));
    if (frame.tpdu.Size() > kStandardTpduSize)
        frame.control1 &= static_cast<std::uint8_t>(~LData::kStandardFrame);
    return result;
}

void AppendHexadecimal(Octets octets, std::string& text) {
    constexpr const char* kDigits = "0123456789abcdef";
    for (const std::uint8_t octet : octets) {
        text += kDigits[octet >> 4];
        text += kDigits[octet & 0x0F];
    }
}

} // namespace

const char* ToString(MessageCode code) {
    const CodeName* known = Find(code);
    return known != nullptr ? known->name : "unknown";
}

void LData::SetPriority(Priority priority) {
    control1 = static_cast<std::uint8_t>((control1 & ~0x0C) | static_cast<unsigned>(priority) << 2);
}

void LData::SetConfirmError(bool error) {
    control1 = static_cast<std::uint8_t>(error ? control1 | kConfirmError : control1 & ~kConfirmError);
}

LData MakeGroupTelegram(IndividualAddress source, GroupAddress destination, const Tpdu& tpdu,
                        Priority priority) {
    LData frame;
    frame.code = MessageCode::LDataReq;
    frame.source = source;
    frame.destination = destination.raw;
    frame.tpdu = tpdu;
    frame.SetPriority(priority);
    if (tpdu.Size() > kStandardTpduSize)
        frame.control1 &= static_cast<std::uint8_t>(~LData::kStandardFrame);
    return frame;
}

Outcome<CemiFrame> ParseCemi(Octets octets) {
    if (octets.empty())
        return FrameError::Malformed("the cEMI message is empty", 0);
    const auto code = static_cast<MessageCode>(octets[0]);
    if (IsLData(code))
        return ReadLData(octets);
    if (Find(code) == nullptr)
        return FrameError::Unsupported("the cEMI message code is not known", 0);
    return CemiFrame(OtherCemi{code});
}

Outcome<LData> ParseLData(Octets octets) {
    auto parsed = ParseCemi(octets);
    if (!parsed)
        return parsed.Error();
    if (const auto* frame = std::get_if<LData>(&*parsed))
        return *frame;
    return FrameError::Unsupported("the cEMI message is not L_Data", 0);
}

std::string Describe(const LData& frame) {
    std::string text = frame.source.ToString();
    text += " -> ";
    text +=
        frame.IsToGroup() ? frame.GroupDestination().ToString() : frame.IndividualDestination().ToString();
    text += ' ';
    const TpduKind kind = frame.Kind();
    if (kind == TpduKind::DataGroup) {
        if (const auto service = ReadGroupService(frame.tpdu)) {
            text += ToString(service->kind);
            if (service->kind == GroupServiceKind::Read)
                return text;
            text += ' ';
            AppendHexadecimal(service->IsShort() ? Octets{&service->shortValue, 1} : service->longValue,
                              text);
            return text;
        }
    }
    text += ToString(kind);
    text += ' ';
    AppendHexadecimal(frame.tpdu, text);
    return text;
}

} // namespace KnxFrames
