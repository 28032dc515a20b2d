// Conversion between group values and data point values.
#pragma once

#include "Tav/Export.h"
#include "Vesk/KNXDPT.h"

class TAVVALUE;
namespace KnxStack {
class GroupValue;
}

namespace Vesk {

/// Converts between the bus form and the value form of every KNX datapoint type that the project's table
/// lists; docs/datapoint-types.md describes the text of each. A known main number with an unknown sub number
/// converts by the rule of the main number. Main number 0 converts by size: up to 64 bits an unsigned decimal
/// integer, longer values lower-case hexadecimal digits; size 0 is refused.
///
/// Nothing is clipped, wrapped or cut: a value that does not fit is refused. On false the out-parameter is
/// untouched. Stateless; any thread.
class TAV_EXPORT KnxValueConverter {
public:
    /// Value to bus. The value's text counts, read by `dpt`; its type tag does not. Null never reaches the
    /// bus: false. By size, `dpt.sizeInBits` is the size of the result.
    bool ToKnxValue(KNXDPT& dpt, const TAVVALUE& value, KnxStack::GroupValue& groupValue) const;

    /// Bus to value. False when the size of the group value is not that of the datapoint type, or its fields
    /// are out of range. Data that the type marks as invalid (7FFFh of 9.xxx) succeeds with the null value.
    /// The TAVTIME of a 10, 11 or 19.xxx holds what the telegram says, also 30 February and 24:00:00; parts
    /// that a flag of 19.xxx calls not valid, with a fault all of them, are such that IsValidDate() and
    /// IsValidTime() refuse them. The text holds everything.
    bool FromKnxValue(KNXDPT& dpt, const KnxStack::GroupValue& groupValue, TAVVALUE& value) const;
};

} // namespace Vesk
