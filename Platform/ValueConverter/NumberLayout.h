// 5, 6, 7, 8, 12, 13, 20 to 23, 29 to 31: layouts of whole numbers and numbers of a fixed scale. Internal to
// the converter.
#pragma once

#include "Tav/TAVVALUE.h"
#include "ValueConverter/Layout.h"
#include "ValueConverter/NumberForm.h"

namespace Datapoint {

template <NumberForm Form>
Status DecodeNumber(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason) {
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
Status EncodeNumber(const Type& type, std::string_view text, Octets& octets, Reason reason) {
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

/// Within what the octets hold, whatever the type allows of it.
template <NumberForm Form>
Status EncodeReceivedNumber(const Type&, std::string_view text, Octets& octets, Reason reason) {
    constexpr Type kLimits = Limits(Form.Minimum(), Form.Maximum(), Form.decimals);
    return EncodeNumber<Form>(kLimits, text, octets, reason);
}

/// A layout with the form that it was made for. The form is a constant of the two functions, which makes them
/// fast.
struct NumberLayout : Layout {
    NumberForm form;
};

template <NumberForm Form>
constexpr NumberLayout MakeNumber() {
    return {{Form.bits, DecodeNumber<Form>, EncodeNumber<Form>, false, EncodeReceivedNumber<Form>}, Form};
}

inline constexpr NumberLayout kU2 = MakeNumber<NumberForm{2}>();
inline constexpr NumberLayout kU3 = MakeNumber<NumberForm{3}>();
inline constexpr NumberLayout kU8 = MakeNumber<NumberForm{8}>();
inline constexpr NumberLayout kPercent = MakeNumber<NumberForm{8, false, 100, 255, 1}>();
inline constexpr NumberLayout kAngle = MakeNumber<NumberForm{8, false, 360, 255, 1}>();
inline constexpr NumberLayout kV8 = MakeNumber<NumberForm{8, true}>();
inline constexpr NumberLayout kU16 = MakeNumber<NumberForm{16}>();
inline constexpr NumberLayout kU16Times10 = MakeNumber<NumberForm{16, false, 10}>();
inline constexpr NumberLayout kU16Times100 = MakeNumber<NumberForm{16, false, 100}>();
inline constexpr NumberLayout kV16 = MakeNumber<NumberForm{16, true}>();
inline constexpr NumberLayout kV16Times10 = MakeNumber<NumberForm{16, true, 10}>();
inline constexpr NumberLayout kV16Times100 = MakeNumber<NumberForm{16, true, 100}>();
inline constexpr NumberLayout kV16Hundredths = MakeNumber<NumberForm{16, true, 1, 100, 2, true}>();
inline constexpr NumberLayout kU24 = MakeNumber<NumberForm{24}>();
inline constexpr NumberLayout kU32 = MakeNumber<NumberForm{32}>();
inline constexpr NumberLayout kV32 = MakeNumber<NumberForm{32, true}>();
inline constexpr NumberLayout kV32TenThousandths = MakeNumber<NumberForm{32, true, 1, 10000, 4}>();
inline constexpr NumberLayout kV64 = MakeNumber<NumberForm{64, true}>();

} // namespace Datapoint
