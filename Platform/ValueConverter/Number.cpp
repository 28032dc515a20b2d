// 5, 6, 7, 8, 12, 13, 20: whole numbers and numbers of a fixed scale.
#include "Tav/TAVVALUE.h"
#include "ValueConverter/Layouts.h"

#include <charconv>

namespace Datapoint {

namespace {

template <NumberForm Form>
Status Decode(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason) {
    const std::int64_t raw = ReadRaw(Form, octets.data());
    if (Form.highestIsInvalid && raw == Form.HighestRaw()) {
        value.SetNull();
    } else if constexpr (Form.decimals > 0) {
        value.SetDecimal(DecimalText(Form.ToUnits(raw), Form.decimals));
    } else if constexpr (Form.isSigned) {
        value.SetInteger(Form.ToUnits(raw));
    } else {
        value.SetUnsigned(static_cast<std::uint64_t>(Form.ToUnits(raw)));
    }
    return Status::Done;
}

template <NumberForm Form>
Status Encode(const Type& type, std::string_view text, Octets& octets, Reason reason) {
    std::int64_t raw = 0;
    const Status status = ToRaw(Form, type, text, raw, reason);
    if (status != Status::Done) {
        return status;
    }
    if (!type.members.empty() && !IsMember(type.members, raw)) {
        return Refuse(Status::OutOfRange, reason, "{} is not one of {}", text, type.members);
    }
    WriteRaw(Form, raw, octets.Data());
    return Status::Done;
}

template <NumberForm Form>
constexpr Layout MakeLayout() {
    return {Form.bits, Decode<Form>, Encode<Form>};
}

} // namespace

constinit const Layout kU8 = MakeLayout<kFormU8>();
constinit const Layout kPercent = MakeLayout<kFormPercent>();
constinit const Layout kAngle = MakeLayout<kFormAngle>();
constinit const Layout kV8 = MakeLayout<kFormV8>();
constinit const Layout kU16 = MakeLayout<kFormU16>();
constinit const Layout kU16Times10 = MakeLayout<kFormU16Times10>();
constinit const Layout kU16Times100 = MakeLayout<kFormU16Times100>();
constinit const Layout kV16 = MakeLayout<kFormV16>();
constinit const Layout kV16Times10 = MakeLayout<kFormV16Times10>();
constinit const Layout kV16Times100 = MakeLayout<kFormV16Times100>();
constinit const Layout kV16Hundredths = MakeLayout<kFormV16Hundredths>();
constinit const Layout kU32 = MakeLayout<kFormU32>();
constinit const Layout kV32 = MakeLayout<kFormV32>();
constinit const Layout kV32TenThousandths = MakeLayout<kFormV32TenThousandths>();

bool IsMember(std::string_view members, std::int64_t value) {
    const char* at = members.data();
    const char* const end = at + members.size();
    while (at < end) {
        std::int64_t first = 0;
        at = std::from_chars(at, end, first).ptr;
        std::int64_t last = first;
        if (end - at > 2 && at[0] == '.') {
            at = std::from_chars(at + 2, end, last).ptr;
        }
        if (value >= first && value <= last) {
            return true;
        }
        ++at; // the comma
    }
    return false;
}

Status RefuseNotANumber(std::string_view text, Reason reason) {
    return text.empty() ? Refuse(Status::Malformed, reason, "an empty text is no value")
                        : Refuse(Status::Malformed, reason, "'{}' is not a number", Excerpt(text));
}

Status RefuseRange(const Scaled& value, std::string_view text, const Type& type, Reason reason) {
    const bool above = value.Compare(type.maximum) > 0;
    const DecimalText limit(above ? type.maximum : type.minimum, type.decimals);
    return Refuse(Status::OutOfRange, reason, "{} is {} {}{}{}", Excerpt(text), above ? "above" : "below",
                  limit.View(), type.unit.empty() ? "" : " ", type.unit);
}

Status RefuseNotWhole(std::string_view text, Reason reason) {
    return Refuse(Status::OutOfRange, reason, "{} is not a whole number", Excerpt(text));
}

} // namespace Datapoint
