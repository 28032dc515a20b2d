#include "KnxStackHost/LocalManagement.h"

namespace KnxStackHost {

using KnxFrames::ManagementMessage;
using KnxFrames::PropertyError;

ManagementMessage AnswerManagement(KnxDevice::PropertyAccess& properties, KnxDevice::AccessLevel level,
                                   const ManagementMessage& request) {
    const auto object = properties.FindObject(request.objectType, request.instance);
    const auto place =
        object && request.property != 0 ? properties.Describe(*object, request.property, 0) : std::nullopt;
    if (!place)
        return request.Refusal(PropertyError::NoSuchProperty);
    const KnxDevice::ElementRange elements{request.start, request.count};
    ManagementMessage answer = request.Confirmation();
    if (request.code == KnxFrames::MessageCode::MPropWriteReq) {
        if (!place->description.writeEnabled || level > place->description.writeLevel)
            return request.Refusal(PropertyError::ReadOnly);
        return properties.Write(*object, request.property, elements, request.data, level)
                   ? answer
                   : request.Refusal(PropertyError::OutOfRange);
    }
    if (level > place->description.readLevel)
        return request.Refusal(PropertyError::NoSuchProperty);
    const auto octets = properties.Read(*object, request.property, elements, level);
    if (!octets || request.count == 0)
        return request.Refusal(PropertyError::IndexRange);
    if (octets->size() > ManagementMessage::kLongestData)
        return request.Refusal(PropertyError::Memory);
    answer.data.Append(KnxFrames::Octets(*octets));
    return answer;
}

} // namespace KnxStackHost
