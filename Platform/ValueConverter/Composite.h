// Values of several fields, which are JSON objects as text. Internal to the converter.
#pragma once

#include "ValueConverter/Field.h"
#include "ValueConverter/Layout.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace Datapoint {

/// Refuses octets whose fields do not go together. From the bus they may be whatever the bits hold.
using CompositeCheck = Status (*)(const std::uint8_t* octets, Allowed allowed, Reason reason);

/// A layout made of fields, first the most significant. A new composite type is a list of fields.
struct CompositeLayout : Layout {
    std::span<const Field> fields;
    unsigned fixedBits;             ///< of all fields that have a size
    CompositeCheck check = nullptr; ///< null: every field stands for itself
};

Status DecodeComposite(const Type& type, std::span<const std::uint8_t> octets, TAVVALUE& value,
                       Reason reason);
Status EncodeComposite(const Type& type, std::string_view text, Octets& octets, Reason reason);
Status EncodeReceivedComposite(const Type& type, std::string_view text, Octets& octets, Reason reason);

/// A layout of the fields, whose sizes make up its own.
constexpr CompositeLayout MakeComposite(std::span<const Field> fields, CompositeCheck check = nullptr) {
    unsigned bits = 0;
    for (const Field& field : fields) {
        bits += field.form.bits;
    }
    const bool varies = fields.back().kind == FieldKind::Utf8ToTheEnd;
    return {{varies ? 0 : bits, DecodeComposite, EncodeComposite, false, EncodeReceivedComposite},
            fields,
            bits,
            check};
}

/// The same with whatever the bits hold, for types of which only the main number is known.
constexpr CompositeLayout WithoutLimits(CompositeLayout layout) {
    layout.encode = EncodeReceivedComposite;
    return layout;
}

/// The fields of both, for values that begin or end alike.
template <std::size_t First, std::size_t Second>
constexpr std::array<Field, First + Second> Join(const std::array<Field, First>& first,
                                                 const std::array<Field, Second>& second) {
    std::array<Field, First + Second> joined;
    std::copy(first.begin(), first.end(), joined.begin());
    std::copy(second.begin(), second.end(), joined.begin() + First);
    return joined;
}

} // namespace Datapoint
