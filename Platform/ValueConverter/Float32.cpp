// 14.xxx: IEEE 754 single precision.
#include "Tav/TAVVALUE.h"
#include "ValueConverter/Floats.h"
#include "ValueConverter/Layouts.h"

#include <bit>
#include <charconv>
#include <cmath>

namespace Datapoint {

namespace {

Status Decode(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason) {
    value.SetFloat(std::bit_cast<float>(static_cast<std::uint32_t>(ReadRaw(kU32.form, octets.data()))));
    return Status::Done;
}

Status Encode(const Type&, std::string_view text, Octets& octets, Reason reason) {
    float number = 0;
    const Status status = ReadFloat32(text, number, reason);
    if (status == Status::Done) {
        WriteRaw(kU32.form, std::bit_cast<std::uint32_t>(number), octets.Data());
    }
    return status;
}

} // namespace

Status ReadFloat32(std::string_view text, float& number, Reason reason) {
    const std::string_view digits = text.starts_with('+') && !text.starts_with("+-") ? text.substr(1) : text;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (result.ec == std::errc::invalid_argument || result.ptr != digits.data() + digits.size()) {
        return RefuseNotANumber(text, reason);
    }
    const auto decimal = Decimal::Read(digits);
    if (!decimal || (result.ec == std::errc() && std::isfinite(number))) {
        return Status::Done;
    }
    const Scaled scaled = decimal->InUnits(0);
    if (!scaled.overflow && scaled.magnitude == 0) {
        number = scaled.negative ? -0.0F : 0.0F; // nearer to nothing than to the smallest number
        return Status::Done;
    }
    return Refuse(Status::OutOfRange, reason, "{} is beyond single precision", Excerpt(text));
}

constinit const Layout kFloat32{32, Decode, Encode};

} // namespace Datapoint
