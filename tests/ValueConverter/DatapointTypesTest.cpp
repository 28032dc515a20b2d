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

// Bits by main number, from the formats B1, B2, B1U3, A8, U8 ... of the KNX Standard 3/7/2.
TEST(DatapointTypes, HaveTheSizeOfTheirMainNumber) {
    const std::map<unsigned, unsigned> sizes{
        {1, 1},   {2, 2},   {3, 4},   {4, 8},   {5, 8},   {6, 8},    {7, 16}, {8, 16}, {9, 16},  {10, 24},
        {11, 24}, {12, 32}, {13, 32}, {14, 32}, {15, 32}, {16, 112}, {17, 8}, {18, 8}, {19, 64}, {20, 8}};
    for (const auto& type : AllTypes()) {
        ASSERT_TRUE(sizes.contains(type.main)) << ToString(type.GetNumber());
        EXPECT_EQ(SizeInBits(type), sizes.at(type.main)) << ToString(type.GetNumber());
        EXPECT_EQ(SizeInBits(*Find({type.main, kAnySub})), sizes.at(type.main));
        EXPECT_EQ(ToKnxDpt(type.GetNumber()).sizeInBits, sizes.at(type.main));
        EXPECT_EQ(ToKnxDpt(type.GetNumber()).main, type.main);
        EXPECT_EQ(ToKnxDpt(type.GetNumber()).sub, type.sub);
    }
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

TEST(DatapointTypes, EveryLimitConvertsAndNothingBeyondIt) {
    for (const auto& type : AllTypes()) {
        if (type.minimum == type.maximum) {
            continue;
        }
        const std::string name = ToString(type.GetNumber());
        EXPECT_NE(
            ConverterTest::ToBus(name, std::to_string(type.maximum) + "e-" + std::to_string(type.decimals)),
            ConverterTest::kRefused)
            << name;
        EXPECT_NE(
            ConverterTest::ToBus(name, std::to_string(type.minimum) + "e-" + std::to_string(type.decimals)),
            ConverterTest::kRefused)
            << name;
        EXPECT_EQ(ConverterTest::ToBus(name, std::to_string(type.maximum + 1) + "e-" +
                                                 std::to_string(type.decimals)),
                  ConverterTest::kRefused)
            << name;
        EXPECT_EQ(ConverterTest::ToBus(name, std::to_string(type.minimum - 1) + "e-" +
                                                 std::to_string(type.decimals)),
                  ConverterTest::kRefused)
            << name;
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
