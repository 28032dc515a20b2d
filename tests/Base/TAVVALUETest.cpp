#include "Tav/TAVVALUE.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

std::string Native(const TAVVALUE& value) {
    std::string text = "left over";
    value.Serialize(text, true);
    return text;
}

TAVVALUE Read(std::string_view text) {
    TAVVALUE value;
    value.SetText("left over");
    value.Deserialize(text);
    return value;
}

TAVTIME TimeOf(int year, int month, int day, int hour, int minute, int second, int dayOfWeek = 0,
               int dayOfYear = 0) {
    return {.year = static_cast<std::uint16_t>(year),
            .month = static_cast<std::uint8_t>(month),
            .day = static_cast<std::uint8_t>(day),
            .hour = static_cast<std::uint8_t>(hour),
            .minute = static_cast<std::uint8_t>(minute),
            .second = static_cast<std::uint8_t>(second),
            .dayOfWeek = static_cast<std::uint8_t>(dayOfWeek),
            .dayOfYear = static_cast<std::uint16_t>(dayOfYear)};
}

TEST(TAVVALUETest, FreshValueIsNullWithoutTextAndTime) {
    const TAVVALUE value;
    EXPECT_EQ(static_cast<unsigned>(value.GetType()), 1U);
    EXPECT_TRUE(value.IsNull());
    EXPECT_EQ(Native(value), "");
    EXPECT_EQ(value.ToString(), "null");
    EXPECT_EQ(static_cast<TAVTIME>(value), TAVTIME());
    EXPECT_EQ(value.ToInteger(), 0);
    EXPECT_EQ(value.ToDouble(), 0.0);
}

TEST(TAVVALUETest, TimeTagIsThirteen) {
    EXPECT_EQ(static_cast<unsigned>(TavValueType::Time), 13U);
}

TEST(TAVVALUETest, ValueOfAKindStartsEmpty) {
    const std::pair<TavValueType, const char*> expected[] = {
        {TavValueType::Null, ""},
        {TavValueType::Boolean, "0"},
        {TavValueType::Integer, "0"},
        {TavValueType::Unsigned, "0"},
        {TavValueType::Float, "0"},
        {TavValueType::Double, "0"},
        {TavValueType::Text, "\"\""},
        {TavValueType::Json, ""},
        {TavValueType::Time, "0000-00-00T00:00:00"},
    };
    for (const auto& [type, text] : expected) {
        const TAVVALUE value(type);
        EXPECT_EQ(value.GetType(), type);
        EXPECT_EQ(Native(value), text);
        EXPECT_EQ(value.ToInteger(), 0);
        EXPECT_EQ(static_cast<TAVTIME>(value), TAVTIME());
    }
}

TEST(TAVVALUETest, NumbersAreWrittenInTheirShortestExactText) {
    TAVVALUE value;
    value.SetBoolean(true);
    EXPECT_EQ(Native(value), "1");
    value.SetBoolean(false);
    EXPECT_EQ(Native(value), "0");
    value.SetInteger(std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(Native(value), "-9223372036854775808");
    value.SetUnsigned(std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(Native(value), "18446744073709551615");
    value.SetFloat(21.1F);
    EXPECT_EQ(Native(value), "21.1");
    value.SetFloat(std::numeric_limits<float>::denorm_min());
    EXPECT_EQ(Native(value), "1e-45");
    value.SetDouble(0.1);
    EXPECT_EQ(Native(value), "0.1");
    value.SetDouble(1e-07);
    EXPECT_EQ(Native(value), "1e-07");
    value.SetDouble(-0.0);
    EXPECT_EQ(Native(value), "-0");
    value.SetDouble(-std::numeric_limits<double>::infinity());
    EXPECT_EQ(Native(value), "-inf");
    value.SetDecimal("20.47");
    EXPECT_EQ(Native(value), "20.47");
    EXPECT_EQ(value.ToDouble(), 20.47);
    EXPECT_EQ(value.GetType(), TavValueType::Double);
}

TEST(TAVVALUETest, TextIsQuotedOnlyWhereItWouldBeMisread) {
    const std::pair<std::string, std::string> cases[] = {
        {"Küche", "Küche"},
        {"", R"("")"},
        {"say \"hi\"", "say \"hi\""},
        {"\"hi\"", R"("\"hi\"")"},
        {"a\\b", "a\\b"},
        {"a\\b\n", R"("a\\b\u000a")"},
        {"tab\there", R"("tab\u0009here")"},
        {"\x7F", R"("\u007f")"},
        {"\x1F", R"("\u001f")"},
        {std::string("a\0b", 3), R"("a\u0000b")"},
        {"\xC2\x80", "\xC2\x80"}, // U+0080 is none of the characters that are quoted
        {" ", " "},
    };
    for (const auto& [content, native] : cases) {
        TAVVALUE value;
        value.SetText(content);
        EXPECT_EQ(Native(value), native);
        EXPECT_EQ(value.ToString(), content);
        std::string buffer;
        EXPECT_EQ(value.TextView(buffer), content);
        const auto back = Read(native);
        EXPECT_EQ(back.GetType(), TavValueType::Text) << native;
        EXPECT_EQ(back.TextView(buffer), content);
    }
}

TEST(TAVVALUETest, JsonStringsAreReadWithAllTheirEscapes) {
    std::string buffer;
    EXPECT_EQ(Read(R"("\"\\\/\b\f\n\r\t")").TextView(buffer), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(Read(R"("\u0041\u00fC\u20AC\ud83d\uDE00")").TextView(buffer), "Aü€😀");
    EXPECT_EQ(Read("\"caf\xC3\xA9\x7F\"").TextView(buffer), "caf\xC3\xA9\x7F");
}

TEST(TAVVALUETest, WhatIsNoJsonStringIsTextLetterForLetter) {
    for (const std::string text : {
             R"(")",
             R"("a)",
             R"("a"b)",
             R"("a"b")",
             R"("\")",
             R"("\x")",
             R"("\u12")",
             R"("\u12g4")",
             R"("\ud83d")",
             R"("\ud83dx")",
             R"("\ud83d\n")",
             R"("\ud83d\u0041")",
             R"("\ude00")",
             R"("\ud83d\ud83d")",
             "\"a\nb\"",
             R"("\u-123")",
             R"("\u+123")",
             R"("\u 123")",
         }) {
        const auto value = Read(text);
        std::string buffer;
        EXPECT_EQ(value.GetType(), TavValueType::Text);
        EXPECT_EQ(value.TextView(buffer), text);
        EXPECT_EQ(value.ToString(), text);
        EXPECT_EQ(Read(Native(value)).TextView(buffer), text);
    }
}

TEST(TAVVALUETest, TagIsWhatTheTextLooksLike) {
    using enum TavValueType;
    const std::pair<const char*, TavValueType> cases[] = {
        {"", Null},
        {"0", Boolean},
        {"1", Boolean},
        {"2", Integer},
        {"-1", Integer},
        {"9223372036854775807", Integer},
        {"-9223372036854775808", Integer},
        {"9223372036854775808", Unsigned},
        {"18446744073709551615", Unsigned},
        {"18446744073709551616", Double},
        {"-9223372036854775809", Double},
        {"-0", Double},
        {"00", Double},
        {"01", Double},
        {"1.50", Double},
        {".5", Double},
        {"-.5", Double},
        {"5.", Double},
        {"1e5", Double},
        {"1E-05", Double},
        {"1e999", Text},
        {"1e", Text},
        {"-", Text},
        {".", Text},
        {"+1", Text},
        {" 1", Text},
        {"1 ", Text},
        {"0x10", Text},
        {"1,5", Text},
        {"nan", Text},
        {"-nan", Text},
        {"inf", Text},
        {"-inf", Text},
        {"infinity", Text},
        {"true", Text},
        {"{}", Json},
        {"[]", Json},
        {R"({"c":1,"stepcode":3})", Json},
        {R"([1, {"a":[null,true,"x",1e3]}])", Json},
        {"{", Text},
        {"{}{}", Text},
        {"{} ", Text},
        {" {}", Text},
        {"{a:1}", Text},
        {R"({"a":1,})", Text},
        {"{/**/}", Text},
        {"[1}", Text},
        {"{\"a\":\"\\ud83d\"}", Text},
        {"{\"a\":\"\xFF\"}", Text},
        {"plain", Text},
    };
    for (const auto& [text, type] : cases) {
        const auto value = Read(text);
        EXPECT_EQ(value.GetType(), type) << text;
        EXPECT_EQ(static_cast<TAVTIME>(value), TAVTIME()) << text;
        std::string buffer;
        EXPECT_EQ(value.TextView(buffer), text);
    }
}

TEST(TAVVALUETest, DeepJsonIsReadUpToItsLimit) {
    EXPECT_EQ(Read(std::string(255, '[') + std::string(255, ']')).GetType(), TavValueType::Json);
    EXPECT_EQ(Read(std::string(256, '[') + std::string(256, ']')).GetType(), TavValueType::Text);
    EXPECT_EQ(Read(std::string(100000, '[') + std::string(100000, ']')).GetType(), TavValueType::Text);
}

TEST(TAVVALUETest, TimeFormsFillTheTime) {
    const std::pair<const char*, TAVTIME> cases[] = {
        {"2024-05-01T12:34:56", TimeOf(2024, 5, 1, 12, 34, 56, 3, 122)},
        {"2024-05-01", TimeOf(2024, 5, 1, 0, 0, 0, 3, 122)},
        {"12:34:56", TimeOf(0, 0, 0, 12, 34, 56)},
        {"Mon 00:00:00", TimeOf(0, 0, 0, 0, 0, 0, 1)},
        {"Wed 12:34:56", TimeOf(0, 0, 0, 12, 34, 56, 3)},
        {"Sun 23:59:59", TimeOf(0, 0, 0, 23, 59, 59, 7)},
        {"24:00:00", TimeOf(0, 0, 0, 24, 0, 0)},
        {"2024-02-29T24:00:00", TimeOf(2024, 2, 29, 24, 0, 0, 4, 60)},
        {"2023-02-30", TimeOf(2023, 2, 30, 0, 0, 0)},
        {"2023-04-31T01:02:03", TimeOf(2023, 4, 31, 1, 2, 3)},
        {"0000-01-01", TimeOf(0, 1, 1, 0, 0, 0)},
        {"2024-05-01T12:34:56;f=1", TimeOf(2024, 5, 1, 12, 34, 56, 3, 122)},
        {"2024-05-01T12:34:56;f=1;wd=1;clq=1", TimeOf(2024, 5, 1, 12, 34, 56, 3, 122)},
    };
    for (const auto& [text, time] : cases) {
        const auto value = Read(text);
        EXPECT_EQ(value.GetType(), TavValueType::Time) << text;
        EXPECT_EQ(static_cast<TAVTIME>(value), time) << text;
        EXPECT_EQ(Native(value), text);
        EXPECT_EQ(value.ToInteger(), 0) << text;
    }
}

TEST(TAVVALUETest, WhatIsNoTimeFormIsNoTime) {
    for (const auto* text : {
             "99:99:99",
             "25:00:00",
             "12:60:00",
             "12:00:60",
             "12:00",
             "1:00:00",
             "12-00-00",
             "12:00:0x",
             "Mon12:00:00",
             "mon 12:00:00",
             "Xyz 12:00:00",
             "Mon  2:00:00",
             "Mon 25:00:00",
             "2024-13-01",
             "2024-00-01",
             "2024-05-00",
             "2024-05-32",
             "2024/05/01",
             "+024-05-01",
             "24-05-01",
             "2024-05-01 12:00:00",
             "2024-05-01t12:00:00",
             "2024-05-01T12:00",
             "2024-05-01T25:00:00",
             "2024-05-01T12:00:00Z",
             "2024-05-01T12:00:00+02:00",
             "2024-05-01T12:00:00;",
             "2024-05-01T12:00:00;f",
             "2024-05-01T12:00:00;f=",
             "2024-05-01T12:00:00;=1",
             "2024-05-01T12:00:00;f=1;",
             "2024-05-01T12:00:00;f=1,wd=1",
             "2024-05-01T12:00:00;f=1=2",
             "2024-05-01T12:00:00;;f=1",
             "12:00:00;f=1",
             "2024-05-01;f=1",
             "0000-00-00T00:00:00",
             "10000-01-01T00:00:00",
         }) {
        const auto value = Read(text);
        EXPECT_NE(value.GetType(), TavValueType::Time) << text;
        EXPECT_EQ(static_cast<TAVTIME>(value), TAVTIME()) << text;
        EXPECT_EQ(Native(value), text);
    }
}

TEST(TAVVALUETest, AssignedTimeIsWrittenAsDateAndTime) {
    TAVVALUE value;
    value.SetText("before");
    value = TimeOf(2024, 5, 1, 2, 3, 4, 3, 122);
    EXPECT_EQ(value.GetType(), TavValueType::Time);
    EXPECT_EQ(Native(value), "2024-05-01T02:03:04");
    EXPECT_EQ(value.ToString(), "2024-05-01T02:03:04");
    EXPECT_EQ(static_cast<TAVTIME>(value), TimeOf(2024, 5, 1, 2, 3, 4, 3, 122));
    value = TimeOf(7, 1, 1, 0, 0, 0);
    EXPECT_EQ(Native(value), "0007-01-01T00:00:00");
    value = TimeOf(65535, 255, 255, 255, 255, 255);
    EXPECT_EQ(Native(value), "65535-255-255T255:255:255");
}

TEST(TAVVALUETest, TimeWithItsOwnTextKeepsBoth) {
    TAVVALUE value;
    value.SetTime(TimeOf(2024, 5, 1, 0, 0, 0), "2024-05-01");
    EXPECT_EQ(value.GetType(), TavValueType::Time);
    EXPECT_EQ(Native(value), "2024-05-01");
    EXPECT_EQ(static_cast<TAVTIME>(value), TimeOf(2024, 5, 1, 0, 0, 0));
}

TEST(TAVVALUETest, EverySetterClearsWhatStoodBefore) {
    TAVVALUE value;
    const auto start = [&value] { value.SetTime(TimeOf(2024, 5, 1, 0, 0, 0), "2024-05-01"); };
    const auto expect = [&value](TavValueType type, const char* text) {
        EXPECT_EQ(value.GetType(), type);
        EXPECT_EQ(Native(value), text);
        EXPECT_EQ(static_cast<TAVTIME>(value), TAVTIME());
    };
    start(), value.SetNull(), expect(TavValueType::Null, "");
    start(), value.SetBoolean(true), expect(TavValueType::Boolean, "1");
    start(), value.SetInteger(-3), expect(TavValueType::Integer, "-3");
    start(), value.SetUnsigned(3), expect(TavValueType::Unsigned, "3");
    start(), value.SetFloat(0.5F), expect(TavValueType::Float, "0.5");
    start(), value.SetDouble(0.5), expect(TavValueType::Double, "0.5");
    start(), value.SetDecimal("0.25"), expect(TavValueType::Double, "0.25");
    start(), value.SetText("x"), expect(TavValueType::Text, "x");
    start(), value.SetJson("[1]"), expect(TavValueType::Json, "[1]");
    start(), value.Deserialize(""), expect(TavValueType::Null, "");
    start(), value.Deserialize("7"), expect(TavValueType::Integer, "7");
    start(), value.Deserialize("\"\""), expect(TavValueType::Text, "\"\"");
}

TEST(TAVVALUETest, ValueMayBeSetFromItsOwnParts) {
    TAVVALUE value;
    std::string buffer;
    value.Deserialize("2024-05-01T12:34:56;f=1");
    value.Deserialize(value.TextView(buffer).substr(11, 8));
    EXPECT_EQ(value.GetType(), TavValueType::Time);
    EXPECT_EQ(Native(value), "12:34:56");
    value.SetText("\"quoted inside a text that is long\"");
    value.Deserialize(value.TextView(buffer));
    EXPECT_EQ(value.TextView(buffer), "quoted inside a text that is long");
}

TEST(TAVVALUETest, ToIntegerCutsAndLimits) {
    constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
    constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
    const auto of = [](auto set) {
        TAVVALUE value;
        set(value);
        return value.ToInteger();
    };
    EXPECT_EQ(of([](auto& v) { v.SetBoolean(true); }), 1);
    EXPECT_EQ(of([](auto& v) { v.SetInteger(-5); }), -5);
    EXPECT_EQ(of([](auto& v) { v.SetUnsigned(UINT64_MAX); }), kMax);
    EXPECT_EQ(of([](auto& v) { v.SetFloat(-2.75F); }), -2);
    EXPECT_EQ(of([](auto& v) { v.SetDouble(2.999); }), 2);
    EXPECT_EQ(of([](auto& v) { v.SetDouble(1e30); }), kMax);
    EXPECT_EQ(of([](auto& v) { v.SetDouble(-1e30); }), kMin);
    EXPECT_EQ(of([](auto& v) { v.SetDouble(9223372036854775808.0); }), kMax);
    EXPECT_EQ(of([](auto& v) { v.SetDouble(-9223372036854775808.0); }), kMin);
    EXPECT_EQ(of([](auto& v) { v.SetDouble(std::nan("")); }), 0);
    EXPECT_EQ(of([](auto& v) { v.SetDecimal("-20.47"); }), -20);
    EXPECT_EQ(of([](auto& v) { v.SetText("9223372036854775807"); }), kMax);
    EXPECT_EQ(of([](auto& v) { v.SetText("-12.9"); }), -12);
    EXPECT_EQ(of([](auto& v) { v.SetText("twelve"); }), 0);
    EXPECT_EQ(of([](auto& v) { v.SetText("nan"); }), 0);
    EXPECT_EQ(of([](auto& v) { v.SetJson("[5]"); }), 0);
    EXPECT_EQ(of([](auto& v) { v.Deserialize("18446744073709551615"); }), kMax);
    EXPECT_EQ(of([](auto& v) { v.Deserialize("-99999999999999999999"); }), kMin);
    EXPECT_EQ(of([](auto& v) { v.Deserialize("1"); }), 1);
    EXPECT_EQ(of([](auto& v) { v.Deserialize("9007199254740993"); }), 9007199254740993);
}

TEST(TAVVALUETest, ToDoubleDoesNotCut) {
    const auto of = [](auto set) {
        TAVVALUE value;
        set(value);
        return value.ToDouble();
    };
    EXPECT_EQ(of([](auto& v) { v.SetBoolean(true); }), 1.0);
    EXPECT_EQ(of([](auto& v) { v.SetInteger(-5); }), -5.0);
    EXPECT_EQ(of([](auto& v) { v.SetUnsigned(UINT64_MAX); }), 18446744073709551616.0);
    EXPECT_EQ(of([](auto& v) { v.SetFloat(0.1F); }), static_cast<double>(0.1F));
    EXPECT_EQ(of([](auto& v) { v.SetDouble(0.1); }), 0.1);
    EXPECT_EQ(of([](auto& v) { v.SetText("-12.9"); }), -12.9);
    EXPECT_EQ(of([](auto& v) { v.SetText("inf"); }), 0.0);
    EXPECT_EQ(of([](auto& v) { v.Deserialize("21.5"); }), 21.5);
    EXPECT_EQ(of([](auto& v) { v.Deserialize("0"); }), 0.0);
    EXPECT_EQ(of([](auto& v) { v.Deserialize("18446744073709551615"); }), 18446744073709551616.0);
    EXPECT_EQ(of([](auto& v) { v.Deserialize("2024-05-01"); }), 0.0);
    EXPECT_TRUE(std::signbit(of([](auto& v) { v.Deserialize("-0"); })));
}

} // namespace
