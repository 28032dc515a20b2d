#include "ValueConverter.h"

#include "FakeGroupValueService.h"
#include "KnxStack/GroupValue.h"

#include <gtest/gtest.h>

namespace {

using TestSupport::Bits;
using TestSupport::Octets;

class ValueConverterTest : public testing::Test {
protected:
    const ValueConverter converter{};
    KnxStack::GroupValue groupValue = Octets({0xAA});
    KNXDPT temperature{16, 0, 9, 1};
};

TEST_F(ValueConverterTest, Text_IsReadByTheDatapointType) {
    EXPECT_TRUE(converter.ToKnxValue(temperature, std::string("21.5"), groupValue));
    EXPECT_EQ(groupValue, Octets({0x0C, 0x33}));
}

TEST_F(ValueConverterTest, Text_ThatDoesNotFit_LeavesTheGroupValueAlone) {
    EXPECT_FALSE(converter.ToKnxValue(temperature, std::string("warm"), groupValue));
    EXPECT_EQ(groupValue, Octets({0xAA}));
}

TEST_F(ValueConverterTest, Value_IsConvertedByTheDatapointType) {
    TAVVALUE value;
    value.SetDouble(21.5);
    EXPECT_TRUE(converter.ToKnxValue(temperature, value, groupValue));
    EXPECT_EQ(groupValue, Octets({0x0C, 0x33}));
}

TEST_F(ValueConverterTest, Null_NeverReachesTheBus) {
    EXPECT_FALSE(converter.ToKnxValue(temperature, std::string(), groupValue));
    EXPECT_FALSE(converter.ToKnxValue(std::string(), 8, groupValue));
}

TEST_F(ValueConverterTest, BySize_TheSizeIsInBits) {
    EXPECT_TRUE(converter.ToKnxValue("5", 16, groupValue));
    EXPECT_EQ(groupValue, Octets({0, 5}));
    EXPECT_TRUE(converter.ToKnxValue("1", 1, groupValue));
    EXPECT_EQ(groupValue, Bits(1, 1));
    EXPECT_FALSE(converter.ToKnxValue("5", 0, groupValue));
    EXPECT_FALSE(converter.ToKnxValue("256", 8, groupValue));
}

TEST_F(ValueConverterTest, GroupValue_IsReadByTheDatapointType) {
    TAVVALUE value;
    EXPECT_TRUE(converter.FromKnxValue(temperature, Octets({0x0C, 0x33}), value));
    EXPECT_EQ(value.ToString(), "21.5");
    EXPECT_FALSE(converter.FromKnxValue(temperature, Octets({0x0C}), value));
    EXPECT_EQ(value.ToString(), "21.5");
}

TEST_F(ValueConverterTest, GroupValue_BySize_BecomesText) {
    std::string text = "before";
    EXPECT_TRUE(converter.FromKnxValue(TavValueType::Null, Octets({1, 0}), text, true));
    EXPECT_EQ(text, "256");
    EXPECT_FALSE(converter.FromKnxValue(TavValueType::Null, KnxStack::GroupValue(), text, true));
    EXPECT_EQ(text, "256"); // untouched
}

TEST_F(ValueConverterTest, SizedDpt_IsModulo256) {
    EXPECT_EQ(SizedDpt(256), KNXDPT{});
    EXPECT_EQ(SizedDpt(264), (KNXDPT{8, 0, 0, 0}));
}

} // namespace
