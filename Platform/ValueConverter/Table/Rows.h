// How rows of the table of datapoint types are written. Internal to the converter.
#pragma once

#include "ValueConverter/Floats.h"
#include "ValueConverter/Layouts.h"

#include <array>

namespace Datapoint {

inline constexpr std::string_view kFloat16Step = "0.01*2^E";

constexpr Type Plain(std::uint16_t main, std::uint16_t sub, const Layout& layout, std::string_view name,
                     std::string_view unit = {}, std::string_view resolution = {}) {
    return {main, sub, &layout, name, unit, 0, 0, 0, resolution, {}, {}};
}

constexpr Type Limited(Type type, std::int64_t minimum, std::int64_t maximum) {
    type.minimum = minimum;
    type.maximum = maximum;
    return type;
}

constexpr Type Any(std::uint16_t main, const Layout& layout, std::int64_t minimum = 0,
                   std::int64_t maximum = 0, std::uint8_t decimals = 0) {
    return {main, kAnySub, &layout, {}, {}, minimum, maximum, decimals, {}, {}, {}};
}

constexpr Type Any(std::uint16_t main, const NumberLayout& layout) {
    const NumberForm& form = layout.form;
    return Any(main, layout, form.Minimum(), form.Maximum(), static_cast<std::uint8_t>(form.decimals));
}

constexpr Type Switch(std::uint16_t sub, std::string_view name, std::string_view valueNames) {
    return {1, sub, &kBoolean, name, {}, 0, 1, 0, {}, valueNames, {}};
}

constexpr Type Num(std::uint16_t main, std::uint16_t sub, const NumberLayout& layout, std::string_view name,
                   std::string_view unit, std::string_view resolution = "1") {
    const auto decimals = static_cast<std::uint8_t>(layout.form.decimals);
    return {main,     sub,        &layout, name, unit, layout.form.Minimum(), layout.form.Maximum(),
            decimals, resolution, {},      {}};
}

constexpr Type Float16(std::uint16_t sub, std::string_view name, std::string_view unit,
                       std::int64_t minimum = kFloat16Minimum) {
    return {9, sub, &kFloat16, name, unit, minimum, kFloat16Maximum, 2, kFloat16Step, {}, {}};
}

constexpr Type Float32(std::uint16_t sub, std::string_view name, std::string_view unit) {
    return {14, sub, &kFloat32, name, unit, 0, 0, 0, {}, {}, {}};
}

constexpr Type Choice(std::uint16_t sub, std::string_view name, std::int64_t minimum, std::int64_t maximum,
                      std::string_view valueNames = {}, std::string_view members = {}) {
    return {20, sub, &kU8, name, {}, minimum, maximum, 0, "1", valueNames, members};
}

/// Bits that each say something of their own. `valueNames` has the name of each bit alone, `members` the sums
/// of bits where not all below the highest have a meaning.
constexpr Type BitSet(std::uint16_t main, std::uint16_t sub, const NumberLayout& layout,
                      std::string_view name, std::int64_t maximum, std::string_view valueNames,
                      std::string_view members = {}) {
    return {main, sub, &layout, name, {}, 0, maximum, 0, {}, valueNames, members};
}

} // namespace Datapoint
