// The fields that composite values are made of. Internal to the converter.
#pragma once

#include "ValueConverter/JsonFields.h"
#include "ValueConverter/NumberForm.h"
#include "ValueConverter/TextBuffer.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Datapoint {

enum class FieldKind : std::uint8_t {
    Number,
    Reserved,     ///< ignored from the bus, 0 to the bus
    Digits,       ///< text of one decimal digit per 4 bits
    Float16,      ///< number of 9.xxx; null for 7FFFh, invalid data
    Float32,      ///< number of 14.xxx; a text where it is not finite
    Ascii,        ///< text of one octet per character, cut at the first NUL
    Utf8,         ///< text that ends with a NUL within the field
    Utf8ToTheEnd, ///< the same without a size of its own; only as the last field
};

enum class FieldPresence : std::uint8_t {
    Required,
    Optional, ///< Field::whenLeftOut when the object leaves it out
};

/// A field of a composite value.
struct Field {
    std::string_view name;
    NumberForm form;
    FieldKind kind = FieldKind::Number;
    FieldPresence presence = FieldPresence::Required;
    std::string_view members = {}; ///< the values allowed when they are not all: "1,2,4"
    std::int64_t minimum = 0;      ///< range in units of 10^-decimals; minimum = maximum = 0 where the bits
    std::int64_t maximum = 0;      ///< alone limit the value
    std::uint64_t whenLeftOut = 0; ///< the bits of an optional field that is left out

    constexpr bool IsLimited() const { return minimum != maximum; }
    constexpr bool IsText() const {
        return kind == FieldKind::Ascii || kind == FieldKind::Utf8 || kind == FieldKind::Utf8ToTheEnd;
    }
};

constexpr Field NumberField(std::string_view name, NumberForm form) {
    return {.name = name, .form = form};
}

constexpr Field UnsignedField(std::string_view name, unsigned bits) {
    return NumberField(name, {.bits = bits});
}

constexpr Field SignedField(std::string_view name, unsigned bits) {
    return NumberField(name, {.bits = bits, .isSigned = true});
}

/// 0 to 100 % in 255 steps, as 5.001.
constexpr Field PercentField(std::string_view name) {
    return NumberField(name, {8, false, 100, 255, 1});
}

/// A bit that says something about the others, or none: 0 when it is left out.
constexpr Field FlagField(std::string_view name) {
    return {.name = name, .form = {.bits = 1}, .presence = FieldPresence::Optional};
}

/// A bit that calls another field valid. Whoever leaves it out means what he gives for the other field.
constexpr Field ValidityField(std::string_view name) {
    return {.name = name, .form = {.bits = 1}, .presence = FieldPresence::Optional, .whenLeftOut = 1};
}

/// The octet Z8: how it stands with the value. 0, nothing out of the ordinary, when it is left out.
constexpr Field StatusField() {
    return {.name = "status", .form = {.bits = 8}, .presence = FieldPresence::Optional};
}

constexpr Field ReservedField(unsigned bits) {
    return {.name = {}, .form = {.bits = bits}, .kind = FieldKind::Reserved};
}

constexpr Field FloatField(std::string_view name) {
    return {.name = name, .form = {.bits = 32}, .kind = FieldKind::Float32};
}

constexpr Field HalfFloatField(std::string_view name) {
    return {.name = name, .form = {.bits = 16}, .kind = FieldKind::Float16};
}

constexpr Field TextField(std::string_view name, FieldKind kind, unsigned octets) {
    return {.name = name, .form = {.bits = octets * 8}, .kind = kind};
}

/// The field with a range, in units of 10^-decimals.
constexpr Field Within(Field field, std::int64_t minimum, std::int64_t maximum) {
    field.minimum = minimum;
    field.maximum = maximum;
    return field;
}

/// The field with only those values, "0..17,20".
constexpr Field OneOf(Field field, std::string_view members) {
    field.members = members;
    return field;
}

/// What a field may hold.
enum class Allowed : std::uint8_t {
    OfTheType,
    WhatTheBitsHold, ///< also what only a device would send
};

/// Appends the JSON of the field's bits. For every kind but texts.
void PrintField(const Field& field, std::uint64_t bits, TextBuffer& json);

/// The reverse.
Status ReadField(const Field& field, const JsonField& from, Allowed allowed, std::uint64_t& bits,
                 Reason reason);

/// Appends the JSON string of a text field's octets up to the first NUL. Refuses broken UTF-8.
Status PrintText(const Field& field, std::string_view octets, TextBuffer& json, Reason reason);

/// The reverse, without the NULs that fill the field.
Status ReadText(const Field& field, const JsonField& from, Allowed allowed, TextBuffer& octets,
                Reason reason);

} // namespace Datapoint
