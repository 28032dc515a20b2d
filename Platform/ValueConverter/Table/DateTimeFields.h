// The fields of 19.001 at the beginning of composites. Internal to the converter.
#pragma once

#include "ValueConverter/CivilTime.h"
#include "ValueConverter/Composite.h"

namespace Datapoint {

/// Names of the fields in telegram order.
using DateTimeNames = std::array<std::string_view, 17>;

constexpr std::array<Field, 22> DateTimeFields(const DateTimeNames& names) {
    std::array<Field, 22> fields = {NumberField(names[0], {.bits = 8, .offset = 1900}),
                                    ReservedField(4),
                                    UnsignedField(names[1], 4), // month
                                    ReservedField(3),
                                    UnsignedField(names[2], 5), // day
                                    UnsignedField(names[3], 3), // day of the week
                                    UnsignedField(names[4], 5), // hour
                                    ReservedField(2),
                                    UnsignedField(names[5], 6), // minute
                                    ReservedField(2),
                                    UnsignedField(names[6], 6)}; // second
    fields[5].presence = FieldPresence::Optional;                // 0 is any day
    for (std::size_t flag = 0; flag < 10; ++flag) {
        fields[11 + flag] = FlagField(names[7 + flag]);
    }
    fields[21] = ReservedField(6);
    return fields;
}

inline constexpr auto s_dateTime =
    DateTimeFields({"year", "month", "day", "dow", "hour", "minute", "second", "f", "wd", "nwd", "ny", "nd",
                    "ndow", "nt", "suti", "clq", "src"});

inline Status CheckDateTimeFields(const std::uint8_t* octets, Allowed, Reason reason) {
    return CheckDateTime(octets, reason);
}

} // namespace Datapoint
