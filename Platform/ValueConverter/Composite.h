// Values of several fields, which are JSON objects as text. Internal to the converter.
#pragma once

#include "ValueConverter/Layout.h"
#include "ValueConverter/NumberForm.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace Datapoint {

enum class FieldKind : std::uint8_t {
    Number,
    Reserved, ///< ignored from the bus, 0 to the bus
    Digits,   ///< text of one decimal digit per 4 bits
};

enum class FieldPresence : std::uint8_t {
    Required,
    Optional, ///< 0 when the object leaves it out
};

/// A field of a composite value.
struct Field {
    std::string_view name;
    NumberForm form;
    FieldKind kind = FieldKind::Number;
    FieldPresence presence = FieldPresence::Required;
    std::string_view members = {}; ///< the values allowed when they are not all: "1,2,4"
};

constexpr Field UnsignedField(std::string_view name, unsigned bits) {
    return {name, {.bits = bits}};
}

/// A bit that says something about the others.
constexpr Field FlagField(std::string_view name) {
    return {name, {.bits = 1}, FieldKind::Number, FieldPresence::Optional};
}

constexpr Field ReservedField(unsigned bits) {
    return {{}, {.bits = bits}, FieldKind::Reserved};
}

/// A layout made of fields, first the most significant. A new composite type is a list of fields.
struct CompositeLayout : Layout {
    std::span<const Field> fields;
};

Status DecodeComposite(const Type& type, std::span<const std::uint8_t> octets, TAVVALUE& value,
                       Reason reason);
Status EncodeComposite(const Type& type, std::string_view text, Octets& octets, Reason reason);
Status EncodeReceivedComposite(const Type& type, std::string_view text, Octets& octets, Reason reason);

/// A layout of the fields, whose sizes make up its own.
constexpr CompositeLayout MakeComposite(std::span<const Field> fields) {
    unsigned bits = 0;
    for (const Field& field : fields) {
        bits += field.form.bits;
    }
    return {{bits, DecodeComposite, EncodeComposite, false, EncodeReceivedComposite}, fields};
}

} // namespace Datapoint
