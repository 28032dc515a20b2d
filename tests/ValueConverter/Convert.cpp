#include "Convert.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"
#include "Vesk/KnxValueConverter.h"

#include <gtest/gtest.h>

#include <charconv>

namespace ConverterTest {

namespace {

// What an out-parameter holds before a conversion.
constexpr std::string_view kBefore = "as before";
const KnxStack::GroupValue s_groupValueBefore(KnxStack::BinaryData{0xA5, 0x5A, 0xA5}, 24);

std::string Serialize(const TAVVALUE& value) {
    std::string text;
    value.Serialize(text, true);
    return text;
}

TAVVALUE ValueBefore() {
    TAVVALUE value;
    value.SetText(kBefore);
    return value;
}

void ExpectUntouched(const TAVVALUE& value) {
    EXPECT_EQ(value.GetType(), TavValueType::Text);
    EXPECT_EQ(Serialize(value), kBefore);
}

unsigned Size(const KNXDPT& dpt, const Bytes& octets) {
    const auto* type = Datapoint::Find({dpt.main, dpt.sub});
    const unsigned size = type != nullptr ? Datapoint::SizeInBits(*type) : dpt.sizeInBits;
    return size != 0 ? size : static_cast<unsigned>(octets.size()) * 8;
}

KnxStack::GroupValue MakeGroupValue(const KNXDPT& dpt, const Bytes& octets, unsigned bits) {
    return {KnxStack::BinaryData(octets), bits != 0 ? bits : Size(dpt, octets)};
}

} // namespace

KNXDPT Dpt(std::string_view name) {
    if (const auto at = name.find(" bit"); at != std::string_view::npos) {
        KNXDPT dpt;
        std::from_chars(name.data(), name.data() + at, dpt.sizeInBits);
        return dpt;
    }
    const auto number = Datapoint::Parse(name);
    EXPECT_TRUE(number) << name;
    return Datapoint::ToKnxDpt(*number);
}

std::string FromBus(const KNXDPT& dpt, const Bytes& octets, unsigned bits) {
    const auto groupValue = MakeGroupValue(dpt, octets, bits);
    auto value = ValueBefore();
    auto valueWithReason = ValueBefore();
    auto dptCopy = dpt;
    const bool done = Vesk::KnxValueConverter().FromKnxValue(dptCopy, groupValue, value);
    const auto outcome = Datapoint::Decode(dpt, groupValue, valueWithReason);
    EXPECT_EQ(dptCopy, dpt);
    EXPECT_EQ(done, bool(outcome));
    EXPECT_EQ(outcome.reason.empty(), done);
    EXPECT_EQ(Serialize(value), Serialize(valueWithReason));
    if (!done) {
        ExpectUntouched(value);
        ExpectUntouched(valueWithReason);
        return std::string(kRefused);
    }
    return Serialize(value);
}

std::string FromBus(std::string_view dpt, const Bytes& octets, unsigned bits) {
    return FromBus(Dpt(dpt), octets, bits);
}

std::string ToBus(const KNXDPT& dpt, std::string_view text) {
    TAVVALUE value;
    value.Deserialize(text);
    auto groupValue = s_groupValueBefore;
    auto groupValueWithReason = s_groupValueBefore;
    auto dptCopy = dpt;
    const bool done = Vesk::KnxValueConverter().ToKnxValue(dptCopy, value, groupValue);
    const auto outcome = Datapoint::Encode(dpt, value, groupValueWithReason);
    EXPECT_EQ(dptCopy, dpt);
    EXPECT_EQ(done, bool(outcome)) << text;
    EXPECT_EQ(outcome.reason.empty(), done) << text;
    EXPECT_EQ(groupValue, groupValueWithReason) << text;
    if (!done) {
        EXPECT_EQ(groupValue, s_groupValueBefore) << text;
        return std::string(kRefused);
    }
    const auto octets = groupValue.GetRawData().Bytes();
    EXPECT_EQ(groupValue.GetDefinedSize(), Size(dpt, Bytes(octets.begin(), octets.end()))) << text;
    EXPECT_EQ(octets.size(), (groupValue.GetDefinedSize() + 7) / 8) << text;
    return groupValue.GetRawData().ToString();
}

std::string ToBus(std::string_view dpt, std::string_view text) {
    return ToBus(Dpt(dpt), text);
}

std::string WhyNotToBus(std::string_view dpt, std::string_view text) {
    TAVVALUE value;
    value.Deserialize(text);
    KnxStack::GroupValue groupValue;
    return Datapoint::Encode(Dpt(dpt), value, groupValue).reason;
}

std::string WhyNotFromBus(std::string_view dpt, const Bytes& octets, unsigned bits) {
    TAVVALUE value;
    const auto record = Dpt(dpt);
    return Datapoint::Decode(record, MakeGroupValue(record, octets, bits), value).reason;
}

std::string Hex(const Bytes& octets) {
    return KnxStack::BinaryData(octets).ToString();
}

void ExpectBothWays(std::initializer_list<Vector> vectors) {
    for (const auto& [dpt, octets, text] : vectors) {
        EXPECT_EQ(FromBus(dpt, octets), text) << dpt;
        EXPECT_EQ(ToBus(dpt, text), Hex(octets)) << dpt << ' ' << WhyNotToBus(dpt, text);
    }
}

std::string With(std::string object, std::string_view member, std::string_view value) {
    const std::string key = "\"" + std::string(member) + "\":";
    const auto at = object.find(key);
    EXPECT_NE(at, std::string::npos) << object << ' ' << member;
    if (at != std::string::npos) {
        const auto begin = at + key.size();
        object.replace(begin, object.find_first_of(",}", begin) - begin, value);
    }
    return object;
}

std::string AsReceived(std::string_view dpt, std::string_view text) {
    TAVVALUE value;
    value.Deserialize(text);
    KnxStack::GroupValue groupValue;
    const auto outcome = Datapoint::EncodeReceived(Dpt(dpt), value, groupValue);
    return outcome ? groupValue.GetRawData().ToString() : outcome.reason;
}

} // namespace ConverterTest
