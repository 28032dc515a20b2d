// Values of communication objects.
#include "KnxHandlerTest.h"

#include "KnxStack/GroupValue.h"

namespace {

using TestSupport::Bits;
using TestSupport::FakeGroupObject;
using TestSupport::Octets;

class ConversionTest : public KnxHandlerTest {
protected:
    KnxStack::GroupValue groupValue;
};

TEST_F(ConversionTest, TypedValue_NeverAsksForTheObjectsSize) {
    service.objects[6] = FakeGroupObject(1);
    SetUpWith({});
    dpt = {16, 0, 9, 1};
    EXPECT_TRUE(handler.GetGroupValueFromValue("21.5", 6, dpt, groupValue));
    EXPECT_EQ(groupValue, Octets({0x0C, 0x33}));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(21.5, 6, 0c33) - ToKnxValue(16:9.1, 21.5, 0c33) succeeded (2).
    )");
}

TEST_F(ConversionTest, TypedValue_ThatDoesNotFit_FailsSilently) {
    SetUpWith({});
    dpt = {16, 0, 9, 1};
    EXPECT_FALSE(handler.GetGroupValueFromValue("warm", 6, dpt, groupValue));
    ExpectRecord("host", "");
}

TEST_F(ConversionTest, SizedValue_UsesTheGivenSize) {
    service.objects[6] = FakeGroupObject(8);
    SetUpWith({});
    dpt = {16, 0, 0, 0};
    EXPECT_TRUE(handler.GetGroupValueFromValue("5", 6, dpt, groupValue));
    EXPECT_EQ(groupValue, Octets({0, 5}));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(5, 6, 0005) - ToKnxValue(5, 16, 0005) succeeded (3).
    )");
}

TEST_F(ConversionTest, SizedValue_WithoutSize_UsesTheObjectsAndLogsTheGivenOne) {
    service.objects[6] = FakeGroupObject(8);
    SetUpWith({});
    EXPECT_TRUE(handler.GetGroupValueFromValue("5", 6, dpt, groupValue));
    EXPECT_EQ(groupValue, Octets({5}));
    EXPECT_EQ(dpt, KNXDPT{});
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(5, 6, 05) - ToKnxValue(5, 0, 05) succeeded (3).
    )");
}

TEST_F(ConversionTest, SizedValue_OfAnObjectThatDoesNotExist_FailsSilently) {
    SetUpWith({});
    EXPECT_FALSE(handler.GetGroupValueFromValue("5", 6, dpt, groupValue));
    EXPECT_FALSE(handler.GetGroupValueFromValue("5", 6, groupValue));
    ExpectRecord("host", "");
}

TEST_F(ConversionTest, ValueOfAnObject_IsSized) {
    service.objects[6] = FakeGroupObject(8);
    SetUpWith({});
    EXPECT_TRUE(handler.GetGroupValueFromValue("5", 6, groupValue));
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(5, 6, 05) - ToKnxValue(5, 8, 05) succeeded (3).
    )");
}

TEST_F(ConversionTest, GroupValue_BecomesText) {
    dpt = {16, 0, 9, 1};
    EXPECT_EQ(handler.GetValueFromGroupValue(dpt, Octets({0x0C, 0x33})), "21.5");
    ExpectRecord("host", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetValueFromGroupValue(0c33) - FromKnxValue(0c33, 21.5, true) succeeded.
    )");
}

struct FallbackCase {
    const char* name;
    KnxStack::GroupValue value;
    const char* text;
};

void PrintTo(const FallbackCase& row, std::ostream* out) {
    *out << row.name;
}

class GroupValueFallback : public ConversionTest, public testing::WithParamInterface<FallbackCase> {};

TEST_P(GroupValueFallback, OfATypeThatCannotBeConverted_GoesByTheSizeWithoutALog) {
    dpt = {24, 0, 10, 1}; // a time of day: of another size than every row
    EXPECT_EQ(handler.GetValueFromGroupValue(dpt, GetParam().value), GetParam().text);
    ExpectRecord("host", "");
}
INSTANTIATE_TEST_SUITE_P(ConversionTest, GroupValueFallback,
                         testing::Values(FallbackCase{"False", Bits(1, 0), "0"},
                                         FallbackCase{"True", Bits(1, 1), "1"},
                                         FallbackCase{"ByteZero", Octets({0}), "0"},
                                         FallbackCase{"ByteFull", Octets({255}), "1"},
                                         FallbackCase{"ByteHalf", Octets({128}), "0.5019607843137255"},
                                         FallbackCase{"Float", Octets({0x0C, 0x33}), "21.5"},
                                         FallbackCase{"FloatZero", Octets({0, 0}), "0"},
                                         FallbackCase{"FloatHundredth", Octets({0, 1}), "0.01"},
                                         FallbackCase{"FloatShortest", Octets({0x0C, 0x34}), "21.52"},
                                         FallbackCase{"FloatNegative", Octets({0x86, 0x0C}), "-5"},
                                         FallbackCase{"FloatLargest", Octets({0x7F, 0xFF}), "670760.96"},
                                         FallbackCase{"ByteOne", Octets({1}), "0.00392156862745098"},
                                         FallbackCase{"SevenBits", Bits(7, 1), ""},
                                         FallbackCase{"FourBytes", Octets({0, 0, 0, 1}), ""},
                                         FallbackCase{"TwoBits", Bits(2, 3), ""},
                                         FallbackCase{"Nothing", KnxStack::GroupValue(), ""}),
                         [](const auto& row) { return row.param.name; });

TEST_F(ConversionTest, SizeOfACo_IsInBitsModulo256) {
    service.objects = {{1, FakeGroupObject(1)},   {2, FakeGroupObject(7)},   {3, FakeGroupObject(8)},
                       {4, FakeGroupObject(16)},  {5, FakeGroupObject(112)}, {6, FakeGroupObject(248)},
                       {7, FakeGroupObject(256)}, {8, FakeGroupObject(264)}};
    EXPECT_EQ(handler.GetValueSizeFromCO(1), 0); // before there is a service
    SetUpWith({});
    EXPECT_EQ(handler.GetValueSizeFromCO(1), 1);
    EXPECT_EQ(handler.GetValueSizeFromCO(2), 7);
    EXPECT_EQ(handler.GetValueSizeFromCO(3), 8);
    EXPECT_EQ(handler.GetValueSizeFromCO(4), 16);
    EXPECT_EQ(handler.GetValueSizeFromCO(5), 112);
    EXPECT_EQ(handler.GetValueSizeFromCO(6), 248);
    EXPECT_EQ(handler.GetValueSizeFromCO(7), 0);
    EXPECT_EQ(handler.GetValueSizeFromCO(8), 8);
    EXPECT_EQ(handler.GetValueSizeFromCO(9), 0);
}

TEST_F(ConversionTest, Descriptor_OfACo) {
    service.objects = {{1, FakeGroupObject(1)}, {2, FakeGroupObject(1, false)}};
    using Descriptor = Vesk::KnxAppPrg::CoDescriptorData;
    EXPECT_EQ(handler.GetCoDescriptorData(1), (Descriptor{0, 0})); // before there is a service
    SetUpWith({});
    EXPECT_EQ(handler.GetCoDescriptorData(1), (Descriptor{1, 1}));
    EXPECT_EQ(handler.GetCoDescriptorData(2), (Descriptor{2, 0}));
    EXPECT_EQ(handler.GetCoDescriptorData(0), (Descriptor{0, 0}));
    EXPECT_EQ(handler.GetCoDescriptorData(3), (Descriptor{0, 0}));
}

} // namespace
