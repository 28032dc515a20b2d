#include "KnxFrames/CemiManagement.h"

namespace KnxFrames {
namespace {

constexpr std::size_t kHeader = 7; // message code, object type, instance, PID, number and start of elements
constexpr std::size_t kFunctionHeader = 5; // likewise, without elements

bool IsProperty(MessageCode code) {
    switch (code) {
    case MessageCode::MPropReadReq:
    case MessageCode::MPropReadCon:
    case MessageCode::MPropWriteReq:
    case MessageCode::MPropWriteCon:
    case MessageCode::MPropInfoInd: return true;
    default: return false;
    }
}

} // namespace

bool ManagementMessage::IsFunction() const {
    return code == MessageCode::MFuncPropCommandReq || code == MessageCode::MFuncPropStateReadReq ||
           code == MessageCode::MFuncPropCon;
}

ManagementMessage ManagementMessage::Confirmation() const {
    ManagementMessage confirmation = *this;
    confirmation.data.Clear();
    if (IsFunction())
        confirmation.code = MessageCode::MFuncPropCon;
    else if (code == MessageCode::MPropWriteReq)
        confirmation.code = MessageCode::MPropWriteCon;
    else
        confirmation.code = MessageCode::MPropReadCon;
    return confirmation;
}

ManagementMessage ManagementMessage::Refusal(PropertyError error) const {
    ManagementMessage refusal = Confirmation();
    if (IsFunction())
        return refusal;
    refusal.count = 0;
    refusal.data.Append(static_cast<std::uint8_t>(error));
    return refusal;
}

Outcome<ManagementMessage> ParseManagement(Octets octets) {
    if (octets.empty())
        return FrameError::Malformed("the cEMI message is empty", 0);
    ManagementMessage message;
    message.code = static_cast<MessageCode>(octets[0]);
    if (message.IsReset()) {
        if (octets.size() != 1)
            return FrameError::Malformed("something follows an M_Reset", 1);
        return message;
    }
    if (!IsProperty(message.code) && !message.IsFunction())
        return FrameError::Unsupported("the cEMI message is not one of device management", 0);
    const std::size_t header = message.IsFunction() ? kFunctionHeader : kHeader;
    if (octets.size() < header)
        return FrameError::Malformed("the cEMI message ends within its header", octets.size());
    const Octets data = octets.subspan(header);
    if (message.code == MessageCode::MPropReadReq && !data.empty())
        return FrameError::Malformed("an M_PropRead.req has data", kHeader);
    if (data.size() > ManagementMessage::kLongestData)
        return FrameError::Unsupported("the property has more data than are handled", header);
    message.objectType = static_cast<std::uint16_t>(octets[1] << 8 | octets[2]);
    message.instance = octets[3];
    message.property = octets[4];
    if (!message.IsFunction()) {
        message.count = octets[5] >> 4;
        message.start = static_cast<std::uint16_t>((octets[5] & 0x0F) << 8 | octets[6]);
    }
    message.data.Append(data);
    return message;
}

FixedOctets<kLongestManagement> EncodeManagement(const ManagementMessage& message) {
    FixedOctets<kLongestManagement> out;
    out.Append(static_cast<std::uint8_t>(message.code));
    if (message.IsReset())
        return out;
    out.Append16(message.objectType);
    out.Append(message.instance);
    out.Append(message.property);
    if (!message.IsFunction())
        out.Append16(static_cast<std::uint16_t>(message.count << 12 | (message.start & 0x0FFF)));
    out.Append(message.data);
    return out;
}

} // namespace KnxFrames
