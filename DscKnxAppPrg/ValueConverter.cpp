#include "ValueConverter.h"

#include "KnxStack/GroupValue.h"

bool ValueConverter::ToKnxValue(KNXDPT& dpt, const std::string& text,
                                KnxStack::GroupValue& groupValue) const {
    TAVVALUE value;
    value.Deserialize(text);
    return m_converter.ToKnxValue(dpt, value, groupValue);
}

bool ValueConverter::ToKnxValue(KNXDPT& dpt, const TAVVALUE& value, KnxStack::GroupValue& groupValue) const {
    return m_converter.ToKnxValue(dpt, value, groupValue);
}

bool ValueConverter::ToKnxValue(const std::string& text, unsigned char size,
                                KnxStack::GroupValue& groupValue) const {
    KNXDPT dpt = SizedDpt(size);
    return ToKnxValue(dpt, text, groupValue);
}

bool ValueConverter::FromKnxValue(KNXDPT& dpt, const KnxStack::GroupValue& groupValue,
                                  TAVVALUE& value) const {
    return m_converter.FromKnxValue(dpt, groupValue, value);
}

bool ValueConverter::FromKnxValue(TavValueType type, const KnxStack::GroupValue& groupValue,
                                  std::string& text, bool flag) const {
    KNXDPT dpt = SizedDpt(groupValue.GetDefinedSize());
    TAVVALUE value(type);
    if (!FromKnxValue(dpt, groupValue, value))
        return false;
    value.Serialize(text, flag);
    return true;
}
