#include "Tools/dsctl/TypeText.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"

#include <gtest/gtest.h>

#include <map>

using namespace Dsctl;

namespace {

/// What the example's octets are as a value.
std::string ValueOf(const Rule& rule, const Example& example) {
    TAVVALUE value;
    const auto outcome = Datapoint::Decode(rule.dpt, ToGroupValue(rule, ReadOctets({example.octets})), value);
    std::string text;
    value.Serialize(text, true);
    return outcome ? text : outcome.reason;
}

/// What the example's text is on the bus.
std::string OctetsOf(const Rule& rule, const Example& example) {
    TAVVALUE value;
    value.Deserialize(example.value);
    KnxStack::GroupValue octets;
    const auto outcome = Datapoint::Encode(rule.dpt, value, octets);
    return outcome ? octets.GetRawData().ToString() : outcome.reason;
}

} // namespace

TEST(DsctlTypeText, EveryTypeHasAnExampleThatConvertsBothWays) {
    for (const auto& type : Datapoint::AllTypes()) {
        const auto rule = RuleOf(type.GetNumber());
        const auto example = ExampleOf(rule);
        EXPECT_NE(example.value, "") << rule.name;
        EXPECT_EQ(ValueOf(rule, example), example.value) << rule.name;
        EXPECT_EQ(OctetsOf(rule, example), example.octets) << rule.name;
    }
}

TEST(DsctlTypeText, SoDoesAMainNumber) {
    std::map<unsigned, Example> examples;
    for (const auto& type : Datapoint::AllTypes())
        examples[type.main] = ExampleOf(RuleOf({type.main, Datapoint::kAnySub}));
    for (const auto& [main, example] : examples)
        EXPECT_NE(example.value, "") << main;
    EXPECT_EQ(examples[9].value, "21");
    EXPECT_EQ(examples[10].value, "Wed 12:00:00");
    EXPECT_EQ(examples[16].value, "KNX");
}

TEST(DsctlTypeText, NamesOfValuesAreAllThatTheTableHas) {
    for (const auto& type : Datapoint::AllTypes()) {
        EXPECT_EQ(ValueNames(type).empty(), type.valueNames.empty());
        for (const auto& [value, name] : ValueNames(type)) {
            EXPECT_NE(name, "") << type.name;
            EXPECT_EQ(Datapoint::ValueName(type, std::stoll(std::string(value))), name) << type.name;
        }
    }
}
