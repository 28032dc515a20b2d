#include "KnxStackHost/Device/LocalManagement.h"

#include <iterator>
#include <utility>

namespace KnxStackHost {

using KnxFrames::ManagementMessage;
using KnxFrames::PropertyError;

namespace {

struct PropertyName {
    std::uint16_t objectType;
    std::uint8_t property;
};

constexpr std::uint8_t kLoadState = 5;

/// Of the first object of the type each.
constexpr PropertyName kToldOf[] = {{0, 54},  // programming mode
                                    {11, 52}, // individual address
                                    {11, 69}, // device state
                                    {1, kLoadState}, {2, kLoadState}, {9, kLoadState},
                                    {3, kLoadState}, {4, kLoadState}};

/// There is none for a right that is missing: it is read only then.
PropertyError ErrorOf(KnxDevice::WriteResult result) {
    using KnxDevice::WriteResult;
    switch (result) {
    case WriteResult::NoSuchProperty: return PropertyError::NoSuchProperty;
    case WriteResult::ReadOnly:
    case WriteResult::Denied: return PropertyError::ReadOnly;
    case WriteResult::NoSuchElement: return PropertyError::IndexRange;
    case WriteResult::WrongLength: return PropertyError::TypeConflict;
    case WriteResult::UnknownEvent: return PropertyError::IllegalCommand;
    case WriteResult::WrongState: return PropertyError::NotNow;
    case WriteResult::InvalidLoad: return PropertyError::OutOfRange;
    case WriteResult::NoRoom: return PropertyError::Memory;
    default: return PropertyError::Unspecified; // of memory: it is no property
    }
}

} // namespace

ManagementMessage AnswerManagement(KnxDevice::PropertyAccess& properties, KnxDevice::AccessLevel level,
                                   const ManagementMessage& request) {
    if (request.IsFunction())
        return request.Refusal(PropertyError::NoSuchProperty);
    const auto object = properties.FindObject(request.objectType, request.instance);
    const auto place =
        object && request.property != 0 ? properties.Describe(*object, request.property, 0) : std::nullopt;
    if (!place)
        return request.Refusal(PropertyError::NoSuchProperty);
    const KnxDevice::ElementRange elements{request.start, request.count};
    ManagementMessage answer = request.Confirmation();
    if (request.code == KnxFrames::MessageCode::MPropWriteReq) {
        const auto result = properties.Write(*object, request.property, elements, request.data, level);
        return result == KnxDevice::WriteResult::Done ? answer : request.Refusal(ErrorOf(result));
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

std::vector<ManagementMessage> PropertyNews::Take(const KnxDevice::PropertyAccess& properties,
                                                  KnxDevice::AccessLevel level) {
    std::vector<ManagementMessage> news;
    for (std::size_t place = 0; place < std::size(kToldOf); ++place) {
        const auto& [objectType, property] = kToldOf[place];
        const auto object = properties.FindObject(objectType, 1);
        auto value = object ? properties.Read(*object, property, {}, level) : std::nullopt;
        if (!value)
            continue;
        const auto known = m_values.find(place);
        if (known != m_values.end() && known->second != *value) {
            auto& message = news.emplace_back();
            message.code = KnxFrames::MessageCode::MPropInfoInd;
            message.objectType = objectType;
            message.property = property;
            message.data.Append(KnxFrames::Octets(*value));
        }
        m_values[place] = std::move(*value);
    }
    return news;
}

} // namespace KnxStackHost
