// 1.xxx: one bit.
#include "Tav/TAVVALUE.h"
#include "ValueConverter/Decimal.h"
#include "ValueConverter/Layouts.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Datapoint {

namespace {

bool EqualsIgnoringCase(std::string_view text, std::string_view lowerCase) {
    return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(), [](char c, char lower) {
        return (c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c) == lower;
    });
}

Status Decode(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason) {
    value.SetBoolean((octets[0] & 1U) != 0);
    return Status::Done;
}

Status EncodeWord(const Type& type, std::string_view text, Octets& octets, Reason reason) {
    constexpr std::array<std::pair<std::string_view, std::uint8_t>, 4> kWords{
        {{"true", 1}, {"on", 1}, {"false", 0}, {"off", 0}}};
    for (const auto& [word, bit] : kWords) {
        if (EqualsIgnoringCase(text, word)) {
            octets[0] = bit;
            return Status::Done;
        }
    }
    std::int64_t raw = 0;
    const Status status = ToRaw({.bits = 1}, type, text, raw, reason);
    octets[0] = static_cast<std::uint8_t>(raw);
    return status;
}

Status Encode(const Type& type, std::string_view text, Octets& octets, Reason reason) {
    if (text.size() == 1 && (text[0] == '0' || text[0] == '1')) {
        octets[0] = static_cast<std::uint8_t>(text[0] - '0');
        return Status::Done;
    }
    return EncodeWord(type, text, octets, reason);
}

} // namespace

constinit const Layout kBoolean{1, Decode, Encode};

} // namespace Datapoint
