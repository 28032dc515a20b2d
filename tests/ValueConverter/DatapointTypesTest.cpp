// The table of datapoint types and the spellings of their numbers.
#include "ValueConverter/DatapointTypes.h"

#include "Convert.h"
#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

using namespace Datapoint;

TEST(DatapointTypes, ReadsEverySpelling) {
    for (const auto* text : {"9.001", "9.1", "DPT9.001", "DPT-9.001", "DPT 9.001", "dpt9.001", "DPST-9-1",
                             "dpst-9-1", " 9.001 ", "9-1"}) {
        EXPECT_EQ(Parse(text), (Number{9, 1})) << text;
    }
    for (const auto* text : {"9", "DPT-9", "DPT9", "9.xxx", "9.*", "9.XXX", "DPT9.xxx", "DPT-9.xxx"}) {
        EXPECT_EQ(Parse(text), (Number{9, kAnySub})) << text;
    }
    EXPECT_EQ(Parse("14.000"), (Number{14, 0}));
    EXPECT_EQ(Parse("DPST-1-1201"), (Number{1, 1201}));
    EXPECT_EQ(Parse("275.100"), (Number{275, 100}));
}

TEST(DatapointTypes, RefusesWhatIsNoNumber) {
    for (const auto* text : {"", "DPT", "DPT-", "x", "9.", "9.x1", "9.001x", "9.001.2", "9..1", "9,001", "-9",
                             "0", "0.001", "65536.1", "9.65535", "9.65536", "DPT--9", "DPST 9 1", "9 001"}) {
        EXPECT_EQ(Parse(text), std::nullopt) << text;
    }
}

TEST(DatapointTypes, PrintsThreeDigitsOfTheSubNumber) {
    EXPECT_EQ(ToString({9, 1}), "9.001");
    EXPECT_EQ(ToString({14, 1200}), "14.1200");
    EXPECT_EQ(ToString({9, kAnySub}), "9.xxx");
}

TEST(DatapointTypes, AreInAscendingOrderWithoutDuplicates) {
    const auto types = AllTypes();
    EXPECT_TRUE(std::is_sorted(types.begin(), types.end(), [](const Type& a, const Type& b) {
        return std::pair(a.main, a.sub) < std::pair(b.main, b.sub);
    }));
    std::set<std::pair<unsigned, unsigned>> numbers;
    std::set<std::string_view> names;
    for (const auto& type : types) {
        EXPECT_NE(type.sub, kAnySub);
        EXPECT_TRUE(numbers.insert({type.main, type.sub}).second) << ToString(type.GetNumber());
        EXPECT_TRUE(names.insert(type.name).second) << type.name;
        EXPECT_TRUE(type.name.starts_with("DPT_")) << type.name;
    }
}

TEST(DatapointTypes, AreFoundByTheirNumberAndByItsText) {
    for (const auto& type : AllTypes()) {
        EXPECT_EQ(Find(type.GetNumber()), &type) << ToString(type.GetNumber());
        EXPECT_EQ(Parse(ToString(type.GetNumber())), type.GetNumber());
    }
}

TEST(DatapointTypes, UnknownSubNumbersHaveTheRuleOfTheirMainNumber) {
    const auto* any = Find({9, kAnySub});
    ASSERT_NE(any, nullptr);
    EXPECT_EQ(any->sub, kAnySub);
    EXPECT_EQ(Find({9, 0}), any);
    EXPECT_EQ(Find({9, 999}), any);
    EXPECT_EQ(Find({0, 1}), nullptr);
    EXPECT_EQ(Find({999, 1}), nullptr);
    EXPECT_EQ(Find({65535, 65535}), nullptr);
}

// Bits by main number, from the formats B1, B2, B1U3, A8, U8 ... of the KNX Standard 3/7/2; 0 for A[n].
TEST(DatapointTypes, HaveTheSizeOfTheirMainNumber) {
    const std::map<unsigned, unsigned> sizes{
        {1, 1},     {2, 2},     {3, 4},     {4, 8},     {5, 8},     {6, 8},     {7, 16},    {8, 16},
        {9, 16},    {10, 24},   {11, 24},   {12, 32},   {13, 32},   {14, 32},   {15, 32},   {16, 112},
        {17, 8},    {18, 8},    {19, 64},   {20, 8},    {21, 8},    {22, 16},   {23, 2},    {24, 0},
        {25, 8},    {26, 8},    {27, 32},   {28, 0},    {29, 64},   {30, 24},   {31, 3},    {200, 16},
        {201, 16},  {202, 16},  {203, 24},  {204, 16},  {205, 24},  {206, 24},  {207, 16},  {209, 24},
        {210, 32},  {211, 16},  {212, 48},  {213, 64},  {214, 32},  {215, 40},  {216, 40},  {217, 16},
        {218, 40},  {219, 48},  {220, 32},  {221, 48},  {222, 48},  {223, 24},  {224, 48},  {225, 24},
        {229, 48},  {230, 64},  {231, 32},  {232, 24},  {234, 16},  {235, 48},  {236, 8},   {237, 16},
        {238, 8},   {239, 16},  {240, 24},  {241, 32},  {242, 48},  {243, 64},  {244, 16},  {245, 48},
        {246, 16},  {247, 96},  {248, 40},  {249, 48},  {250, 24},  {251, 48},  {252, 40},  {253, 32},
        {254, 24},  {255, 64},  {256, 128}, {257, 96},  {265, 72},  {266, 96},  {267, 0},   {268, 72},
        {269, 112}, {270, 160}, {271, 56},  {272, 56},  {273, 64},  {274, 48},  {275, 64},  {276, 32},
        {277, 288}, {278, 336}, {279, 384}, {280, 624}, {281, 352}, {282, 400}, {283, 448}, {284, 688}};
    std::set<unsigned> mains;
    for (const auto& type : AllTypes()) {
        ASSERT_TRUE(sizes.contains(type.main)) << ToString(type.GetNumber());
        EXPECT_EQ(SizeInBits(type), sizes.at(type.main)) << ToString(type.GetNumber());
        EXPECT_EQ(SizeInBits(*Find({type.main, kAnySub})), sizes.at(type.main));
        EXPECT_EQ(ToKnxDpt(type.GetNumber()).sizeInBits, sizes.at(type.main) % 256);
        mains.insert(type.main);
        EXPECT_EQ(ToKnxDpt(type.GetNumber()).main, type.main);
        EXPECT_EQ(ToKnxDpt(type.GetNumber()).sub, type.sub);
    }
    EXPECT_EQ(mains.size(), sizes.size());
    EXPECT_EQ(AllTypes().size(), 460U);
}

TEST(DatapointTypes, RangesLieWithinTheRangeOfTheMainNumber) {
    for (const auto& type : AllTypes()) {
        EXPECT_LE(type.minimum, type.maximum) << ToString(type.GetNumber());
        const auto* any = Find({type.main, kAnySub});
        if (type.decimals == any->decimals && type.layout == any->layout && type.minimum != type.maximum) {
            EXPECT_GE(type.minimum, any->minimum) << ToString(type.GetNumber());
            EXPECT_LE(type.maximum, any->maximum) << ToString(type.GetNumber());
        }
    }
}

namespace {

// The number that is `distance` away from a limit, without wrapping at the ends of 64 bits.
std::string Beside(std::int64_t limit, int distance, unsigned decimals) {
    const bool away = (limit < 0) == (distance < 0);
    const auto magnitude =
        limit < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(limit) : static_cast<std::uint64_t>(limit);
    std::string digits = away                          ? std::to_string(magnitude + (distance != 0 ? 1 : 0))
                         : distance != 0 && limit == 0 ? "1"
                                                       : std::to_string(magnitude - (distance != 0 ? 1 : 0));
    const bool negative = limit < 0 || (limit == 0 && distance < 0);
    return (negative ? "-" : "") + digits + "e-" + std::to_string(decimals);
}

} // namespace

TEST(DatapointTypes, EveryLimitConvertsAndNothingBeyondIt) {
    using namespace ConverterTest;
    for (const auto& type : AllTypes()) {
        if (type.minimum == type.maximum) {
            continue;
        }
        const std::string name = ToString(type.GetNumber());
        EXPECT_NE(ToBus(name, Beside(type.maximum, 0, type.decimals)), kRefused) << name;
        EXPECT_NE(ToBus(name, Beside(type.minimum, 0, type.decimals)), kRefused) << name;
        EXPECT_EQ(ToBus(name, Beside(type.maximum, 1, type.decimals)), kRefused) << name;
        EXPECT_EQ(ToBus(name, Beside(type.minimum, -1, type.decimals)), kRefused) << name;
    }
}

TEST(DatapointTypes, TellRangeUnitAndNamesOfValues) {
    EXPECT_EQ(Range(*Find({9, 1})), "-273..670433.28");
    EXPECT_EQ(Range(*Find({5, 1})), "0..100");
    EXPECT_EQ(Range(*Find({8, 10})), "-327.68..327.66");
    EXPECT_EQ(Range(*Find({20, 105})), "0..17,20");
    EXPECT_EQ(Find({9, 1})->unit, "°C");
    EXPECT_EQ(Find({1, 1})->name, "DPT_Switch");
    EXPECT_EQ(ValueName(*Find({1, 1}), 1), "On");
    EXPECT_EQ(ValueName(*Find({1, 1}), 0), "Off");
    EXPECT_EQ(ValueName(*Find({1, 1}), 2), "");
    EXPECT_EQ(ValueName(*Find({20, 102}), 4), "Building protection");
    EXPECT_EQ(ValueName(*Find({7, 1}), 1), "");
    EXPECT_EQ(ValueName(*Find({21, 1}), 4), "Overridden"); // a bit alone
    EXPECT_EQ(ValueName(*Find({21, 1}), 3), "");
    EXPECT_EQ(Find({209, 100})->unit, "°C");
    EXPECT_EQ(Find({209, 100})->resolution, "0.02");
    EXPECT_EQ(Range(*Find({209, 100})), "temp -273..655.34; attributes 0..255");
    EXPECT_EQ(Range(*Find({25, 1000})), "busy 0..3; nak 0..3");
    EXPECT_EQ(Range(*Find({26, 1})), "b 0..1; scene 1..64");
    EXPECT_EQ(Range(*Find({2, 1})), "c 0..1; v 0..1");
    EXPECT_EQ(Range(*Find({231, 1})), "language; region");
    EXPECT_EQ(Range(*Find({222, 100})), "comfort -671088.64..670433.28; standby -671088.64..670433.28; "
                                        "economy -671088.64..670433.28");
}

TEST(DatapointTypes, AMainNumberAloneConvertsByItsWidestRule) {
    EXPECT_EQ(ToKnxDpt({9, kAnySub}), (KNXDPT{16, 0, 9, 0}));
    EXPECT_EQ(ToKnxDpt({9, 999}), (KNXDPT{16, 0, 9, 999}));
    EXPECT_EQ(ToKnxDpt({999, kAnySub}), (KNXDPT{0, 0, 999, 0}));
}

TEST(DatapointTypes, AnUnknownMainNumberIsRefused) {
    EXPECT_EQ(ConverterTest::FromBus("999.001", {0x01}, 8), ConverterTest::kRefused);
    EXPECT_EQ(ConverterTest::ToBus("999.001", "1"), ConverterTest::kRefused);
    EXPECT_EQ(ConverterTest::WhyNotToBus("999.001", "1"), "999.001: the datapoint type is not known");
}

TEST(DatapointTypes, OutcomesSeparateMalformedFromOutOfRange) {
    const auto end = [](std::string_view dpt, std::string_view text) {
        TAVVALUE value;
        value.Deserialize(text);
        KnxStack::GroupValue groupValue;
        return Encode(ConverterTest::Dpt(dpt), value, groupValue).status;
    };
    EXPECT_EQ(end("9.001", "21.5"), Status::Done);
    EXPECT_EQ(end("9.001", "abc"), Status::Malformed);
    EXPECT_EQ(end("9.001", ""), Status::Malformed);
    EXPECT_EQ(end("9.001", "700000"), Status::OutOfRange);
    EXPECT_EQ(end("5.010", "5.5"), Status::OutOfRange);
    EXPECT_EQ(end("999.001", "1"), Status::UnknownType);
    EXPECT_EQ(end("0 bits", "1"), Status::UnknownType);
}

TEST(DatapointTypes, FieldsMakeUpTheSize) {
    std::set<unsigned> withoutFields;
    for (const auto& type : AllTypes()) {
        const auto fields = Fields(type);
        unsigned bits = 0;
        std::string range;
        for (const auto& field : fields) {
            bits += field.sizeInBits;
            if (!field.name.empty()) {
                range += (range.empty() ? "" : "; ") + std::string(field.name);
                range += (field.range.empty() ? "" : " ") + field.range;
            }
        }
        if (fields.empty()) {
            withoutFields.insert(type.main);
        } else {
            EXPECT_EQ(bits, type.main == 267 ? 64 : SizeInBits(type)) << type.name; // 267: and the rest
            EXPECT_EQ(range, Range(type)) << type.name;
        }
    }
    EXPECT_EQ(withoutFields.count(2) + withoutFields.count(225) + withoutFields.count(267), 0U);
    EXPECT_EQ(withoutFields.count(1) + withoutFields.count(9) + withoutFields.count(19), 3U);
}

TEST(DatapointTypes, FieldsAreInTelegramOrderWithTheReservedBits) {
    const auto fields = Fields(*Find({26, 1}));
    ASSERT_EQ(fields.size(), 3U);
    EXPECT_EQ(fields[0].name, "");
    EXPECT_EQ(fields[0].sizeInBits, 1U);
    EXPECT_EQ(fields[0].range, "");
    EXPECT_EQ(fields[1].name, "b");
    EXPECT_EQ(fields[1].range, "0..1");
    EXPECT_EQ(fields[2].name, "scene");
    EXPECT_EQ(fields[2].sizeInBits, 6U);
    EXPECT_EQ(fields[2].range, "1..64");
    EXPECT_EQ(Fields(*Find({267, 1})).back().sizeInBits, 0U);
}
