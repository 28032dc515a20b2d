// What the platform's converter is asked. It is a fake here: the definitions below win over those of
// libKnxValueConverter.so.
#include "KnxHandlerTest.h"

#include "KnxStack/GroupValue.h"
#include "ValueConverter.h"

namespace {

using TestSupport::Octets;

/// The last question, and what the fake answers.
struct Converter {
    KNXDPT dpt;
    std::string text;
    TavValueType type{};
    bool answers = true;
};
Converter* s_converter = nullptr;

constexpr const char* kQuoted = "\"A\""; // a text that the native form writes as a JSON string

} // namespace

bool Vesk::KnxValueConverter::ToKnxValue(KNXDPT& dpt, const TAVVALUE& value,
                                         KnxStack::GroupValue& groupValue) const {
    s_converter->dpt = dpt;
    value.Serialize(s_converter->text, true);
    if (s_converter->answers)
        groupValue = Octets({0xAB});
    return s_converter->answers;
}

bool Vesk::KnxValueConverter::FromKnxValue(KNXDPT& dpt, const KnxStack::GroupValue&, TAVVALUE& value) const {
    s_converter->dpt = dpt;
    s_converter->type = value.GetType();
    s_converter->text = value.ToString();
    if (s_converter->answers)
        value.SetText(kQuoted);
    return s_converter->answers;
}

namespace {

class ConverterQuestionsTest : public KnxHandlerTest {
protected:
    ConverterQuestionsTest() { s_converter = &asked; }
    ~ConverterQuestionsTest() override { s_converter = nullptr; }

    Converter asked;
    KnxStack::GroupValue groupValue;
    const ValueConverter converter{};
};

TEST_F(ConverterQuestionsTest, BySize_NamesTheSizeAndNoType) {
    EXPECT_TRUE(converter.ToKnxValue("21.5", 16, groupValue));
    EXPECT_EQ(asked.dpt, (KNXDPT{16, 0, 0, 0}));
    EXPECT_EQ(asked.text, "21.5");
    EXPECT_EQ(groupValue, Octets({0xAB}));
}

TEST_F(ConverterQuestionsTest, ByType_PassesTheTypeOn) {
    dpt = {16, 1, 9, 1};
    EXPECT_TRUE(converter.ToKnxValue(dpt, std::string("21.5"), groupValue));
    EXPECT_EQ(asked.dpt, (KNXDPT{16, 1, 9, 1}));
    EXPECT_EQ(asked.text, "21.5");
}

TEST_F(ConverterQuestionsTest, ValueForACoWithoutObject_IsAskedForWithSizeZero) {
    SetUpWith({});
    EXPECT_TRUE(handler.GetGroupValueFromValue("5", 6, dpt, groupValue));
    EXPECT_EQ(asked.dpt, KNXDPT{});
    EXPECT_EQ(asked.text, "5");
    EXPECT_EQ(groupValue, Octets({0xAB})); // whatever the converter makes of it
    asked = {};
    EXPECT_TRUE(handler.GetGroupValueFromValue("6", 6, groupValue));
    EXPECT_EQ(asked.dpt, KNXDPT{});
    EXPECT_EQ(asked.text, "6");
}

class ValueOfAType : public ConverterQuestionsTest, public testing::WithParamInterface<TavValueType> {};

TEST_P(ValueOfAType, StartsFreshAndIsWrittenAsTheFlagSays) {
    const std::string fresh = TAVVALUE(GetParam()).ToString();
    std::string text = "before";
    EXPECT_TRUE(converter.FromKnxValue(GetParam(), Octets({1, 0}), text, true));
    EXPECT_EQ(asked.dpt, (KNXDPT{16, 0, 0, 0}));
    EXPECT_EQ(asked.type, GetParam());
    EXPECT_EQ(asked.text, fresh);
    EXPECT_EQ(text, "\"\\\"A\\\"\"");
    EXPECT_TRUE(converter.FromKnxValue(GetParam(), Octets({1, 0}), text, false));
    EXPECT_EQ(text, kQuoted);
}

TEST_P(ValueOfAType, ThatCannotBeConverted_LeavesTheTextAlone) {
    asked.answers = false;
    std::string text = "before";
    EXPECT_FALSE(converter.FromKnxValue(GetParam(), Octets({1, 0}), text, false));
    EXPECT_EQ(asked.type, GetParam());
    EXPECT_EQ(text, "before");
}
INSTANTIATE_TEST_SUITE_P(ConverterQuestionsTest, ValueOfAType,
                         testing::Values(TavValueType::Null, TavValueType::Boolean, TavValueType::Integer,
                                         TavValueType::Unsigned, TavValueType::Float, TavValueType::Double,
                                         TavValueType::Text, TavValueType::Json, TavValueType::Time),
                         [](const auto& row) {
                             return "Tag" + std::to_string(static_cast<std::uint32_t>(row.param));
                         });

} // namespace
