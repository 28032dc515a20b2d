// 17.xxx and 18.xxx: scenes count from 1, on the bus from 0.
#include "Tav/TAVVALUE.h"
#include "ValueConverter/Layouts.h"

namespace Datapoint {

namespace {

constexpr unsigned kSceneMask = 0x3F;
constexpr unsigned kLearn = 0x80;
constexpr NumberForm kFormScene{.bits = 8, .isSigned = true};

Status DecodeNumber(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason) {
    value.SetUnsigned((octets[0] & kSceneMask) + 1U);
    return Status::Done;
}

Status EncodeNumber(const Type& type, std::string_view text, Octets& octets, Reason reason) {
    std::int64_t scene = 0;
    const Status status = ToRaw(kFormScene, type, text, scene, reason);
    if (status == Status::Done) {
        octets[0] = static_cast<std::uint8_t>(scene - 1);
    }
    return status;
}

// Negative: the scene is to be learned.
Status DecodeControl(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason) {
    const auto scene = static_cast<std::int64_t>(octets[0] & kSceneMask) + 1;
    value.SetInteger((octets[0] & kLearn) != 0 ? -scene : scene);
    return Status::Done;
}

Status EncodeControl(const Type& type, std::string_view text, Octets& octets, Reason reason) {
    std::int64_t scene = 0;
    const Status status = ToRaw(kFormScene, type, text, scene, reason);
    if (status != Status::Done) {
        return status;
    }
    if (scene == 0) {
        return Refuse(Status::OutOfRange, reason, "there is no scene 0");
    }
    octets[0] = static_cast<std::uint8_t>(scene > 0 ? scene - 1 : kLearn | (-scene - 1));
    return Status::Done;
}

} // namespace

constinit const Layout kSceneNumber{8, DecodeNumber, EncodeNumber};
constinit const Layout kSceneControl{8, DecodeControl, EncodeControl};

} // namespace Datapoint
