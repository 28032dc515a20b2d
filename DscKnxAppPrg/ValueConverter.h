// Conversion of data point texts, a thin layer over the platform's converter.
#pragma once

#include "Tav/TAVVALUE.h"
#include "Vesk/KnxValueConverter.h"

#include <string>

namespace KnxStack {
class GroupValue;
}

/// All results: true when the conversion succeeded; otherwise the out-parameter is untouched. Any thread.
class ValueConverter {
public:
    bool ToKnxValue(KNXDPT& dpt, const std::string& text, KnxStack::GroupValue& groupValue) const;
    bool ToKnxValue(KNXDPT& dpt, const TAVVALUE& value, KnxStack::GroupValue& groupValue) const;

    /// By size only, in bits.
    bool ToKnxValue(const std::string& text, unsigned char size, KnxStack::GroupValue& groupValue) const;

    bool FromKnxValue(KNXDPT& dpt, const KnxStack::GroupValue& groupValue, TAVVALUE& value) const;

    /// By the size of the group value, into a value of `type`; `flag` is handed to TAVVALUE::Serialize.
    bool FromKnxValue(TavValueType type, const KnxStack::GroupValue& groupValue, std::string& text,
                      bool flag) const;

private:
    Vesk::KnxValueConverter m_converter;
};

/// A datapoint type of which only the size in bits is known.
inline KNXDPT SizedDpt(unsigned sizeInBits) {
    KNXDPT dpt;
    dpt.sizeInBits = static_cast<std::uint8_t>(sizeInBits);
    return dpt;
}
