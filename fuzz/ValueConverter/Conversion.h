// What both directions of the value converter's fuzzing share: the input's head, and the conversions with
// whatever must hold for each of them.
#pragma once

#include "Fuzz.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"
#include "Vesk/KnxValueConverter.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Fuzz {

inline constexpr std::size_t kHead = 5;

/// Two octets main number, two sub number, one more. A main number from 8000h on counts through the listed
/// types instead, so that chance meets each of them. The last octet is the size of a value of main number 0;
/// for the others its lowest bit asks for the other resolution of 13.002.
inline KNXDPT ReadType(std::span<const std::uint8_t, kHead> head) {
    KNXDPT dpt;
    dpt.main = static_cast<std::uint16_t>(head[0] << 8 | head[1]);
    dpt.sub = static_cast<std::uint16_t>(head[2] << 8 | head[3]);
    if (dpt.main >= 0x8000) {
        const auto types = Datapoint::AllTypes();
        const auto number = types[(dpt.main - 0x8000U) % types.size()].GetNumber();
        dpt.main = number.main;
        dpt.sub = number.sub;
    }
    if (dpt.main == 0)
        dpt.sizeInBits = head[4];
    else
        dpt.reserved = head[4] & 1U;
    return dpt;
}

inline std::string Text(const TAVVALUE& value) {
    std::string text;
    value.Serialize(text, true);
    return text;
}

inline TAVVALUE Read(std::string_view text) {
    TAVVALUE value;
    value.Deserialize(text);
    return value;
}

inline void CheckReason(const Datapoint::Outcome& outcome) {
    Check(outcome.reason.empty() == bool(outcome));
    Check(outcome || outcome.reason.find(": ") != std::string::npos); // the type, then the words
}

/// The value, or nothing where the converter refuses: then the out-parameter is as before. The converter
/// that gives no reason comes to the same end.
inline std::optional<TAVVALUE> Decode(const KNXDPT& dpt, const KnxStack::GroupValue& groupValue) {
    constexpr std::string_view kBefore = "as before";
    TAVVALUE value = Read(kBefore);
    const auto outcome = Datapoint::Decode(dpt, groupValue, value);
    CheckReason(outcome);
    TAVVALUE same = Read(kBefore);
    KNXDPT copy = dpt;
    Check(Vesk::KnxValueConverter().FromKnxValue(copy, groupValue, same) == bool(outcome));
    Check(copy == dpt && same.GetType() == value.GetType() && Text(same) == Text(value));
    if (outcome)
        return value;
    Check(value.GetType() == TavValueType::Text && Text(value) == kBefore);
    return std::nullopt;
}

inline const KnxStack::GroupValue& GroupValueBefore() {
    static const KnxStack::GroupValue s_value(KnxStack::BinaryData{0xA5, 0x5A, 0xA5}, 24);
    return s_value;
}

/// The reverse, for the bus.
inline std::optional<KnxStack::GroupValue> Encode(const KNXDPT& dpt, const TAVVALUE& value) {
    KnxStack::GroupValue groupValue = GroupValueBefore();
    const auto outcome = Datapoint::Encode(dpt, value, groupValue);
    CheckReason(outcome);
    KnxStack::GroupValue same = GroupValueBefore();
    KNXDPT copy = dpt;
    Check(Vesk::KnxValueConverter().ToKnxValue(copy, value, same) == bool(outcome));
    Check(copy == dpt && same == groupValue);
    if (outcome)
        return groupValue;
    Check(groupValue == GroupValueBefore());
    return std::nullopt;
}

/// The reverse, for what came from the bus.
inline std::optional<KnxStack::GroupValue> EncodeReceived(const KNXDPT& dpt, const TAVVALUE& value) {
    KnxStack::GroupValue groupValue = GroupValueBefore();
    const auto outcome = Datapoint::EncodeReceived(dpt, value, groupValue);
    CheckReason(outcome);
    if (outcome)
        return groupValue;
    Check(groupValue == GroupValueBefore());
    return std::nullopt;
}

} // namespace Fuzz
