// Whatever a value writes in the native form, reading and writing it again gives the same text.
#include "Tav/TAVVALUE.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>

namespace {

using Random = std::mt19937_64;

std::string Native(const TAVVALUE& value) {
    std::string text;
    value.Serialize(text, true);
    return text;
}

std::string Again(const std::string& text) {
    TAVVALUE value;
    value.Deserialize(text);
    return Native(value);
}

unsigned Below(Random& random, unsigned limit) {
    return static_cast<unsigned>(random() % limit);
}

// Text of pieces that mean something somewhere, so that near misses of every form come up.
std::string Pieces(Random& random) {
    static const std::string kPieces[] = {
        "\"",
        "\\",
        "\\u",
        "\\ud83d",
        "\\ude00",
        "00",
        "-",
        "-0",
        "+1",
        " 1",
        "1.50",
        "1e5",
        "nan",
        "inf",
        "{",
        "}",
        "[",
        "]",
        ":",
        ",",
        ";f=1",
        "T",
        "12",
        "12:00:00",
        "2024-05-01",
        "2023-02-30",
        "24:00:00",
        "99:99:99",
        "Mon ",
        "0",
        "1",
        "9223372036854775808",
        "99999999999999999999999999",
        "\n",
        "\t",
        "\x7F",
        "\x1F",
        "ü",
        "€",
        "😀",
        "\xFF",
        "\xC2",
        std::string(1, '\0'),
        "a",
        "/",
        "'",
        "null",
        "true",
        "\"a\"",
        "{\"a\":1}",
    };
    std::string text;
    for (auto count = Below(random, 6); count > 0; --count) {
        text += kPieces[Below(random, static_cast<unsigned>(std::size(kPieces)))];
    }
    return text;
}

std::string Bytes(Random& random) {
    std::string text(Below(random, 24), '\0');
    for (auto& c : text) {
        c = static_cast<char>(random());
    }
    return text;
}

std::string Json(Random& random, unsigned depth) {
    static const char* const kScalars[] = {"null",  "true", "-0.5e-3", "12", R"("x\u0000\n\ud83d\ude00")",
                                           "\"ü\"", "{}",   "[]"};
    static const char* const kSpaces[] = {"", "", " ", "\n", "\t\r"};
    const auto space = [&] { return kSpaces[Below(random, 5)]; };
    if (depth == 0) {
        return kScalars[Below(random, 8)];
    }
    const bool object = Below(random, 2) == 0;
    std::string text = object ? "{" : "[";
    const auto count = Below(random, 4);
    for (unsigned i = 0; i < count; ++i) {
        text += i == 0 ? "" : ",";
        text += space();
        text += object ? "\"k" + std::to_string(i) + "\"" + space() + ":" + space() : "";
        text += Json(random, Below(random, depth));
        text += space();
    }
    return text + (object ? '}' : ']');
}

TAVTIME AnyTime(Random& random) {
    TAVTIME time;
    time.year = static_cast<std::uint16_t>(random());
    time.month = static_cast<std::uint8_t>(Below(random, 14));
    time.day = static_cast<std::uint8_t>(Below(random, 33));
    time.hour = static_cast<std::uint8_t>(Below(random, 26));
    time.minute = static_cast<std::uint8_t>(Below(random, 62));
    time.second = static_cast<std::uint8_t>(Below(random, 62));
    return time;
}

TAVVALUE AnyValue(Random& random) {
    TAVVALUE value;
    const auto bits = random() >> Below(random, 64);
    switch (Below(random, 12)) {
    case 0: value.SetNull(); break;
    case 1: value.SetBoolean(bits % 2 == 1); break;
    case 2: value.SetInteger(static_cast<std::int64_t>(bits)); break;
    case 3: value.SetInteger(-static_cast<std::int64_t>(bits >> 1)); break;
    case 4: value.SetUnsigned(bits); break;
    case 5: value.SetFloat(std::bit_cast<float>(static_cast<std::uint32_t>(bits))); break;
    case 6: value.SetDouble(std::bit_cast<double>(bits)); break;
    case 7: value.SetText(Pieces(random)); break;
    case 8: value.SetText(Bytes(random)); break;
    case 9: value.SetJson(Json(random, 4)); break;
    case 10: value = AnyTime(random); break;
    default: value = TAVVALUE(static_cast<TavValueType>(Below(random, 15))); break;
    }
    return value;
}

TEST(TAVVALUERoundTripTest, WrittenTextReadsAndWritesTheSame) {
    Random random(20240501);
    for (int round = 0; round < 200000; ++round) {
        const auto text = Native(AnyValue(random));
        ASSERT_EQ(Again(text), text) << "round " << round;
    }
}

TEST(TAVVALUERoundTripTest, AnyTextIsWrittenTheSameFromTheSecondTimeOn) {
    Random random(7);
    for (int round = 0; round < 200000; ++round) {
        const auto once = Again(round % 2 == 0 ? Pieces(random) : Bytes(random));
        ASSERT_EQ(Again(once), once) << "round " << round;
    }
}

TEST(TAVVALUERoundTripTest, TextContentSurvives) {
    Random random(99);
    for (int round = 0; round < 200000; ++round) {
        const auto content = round % 2 == 0 ? Pieces(random) : Bytes(random);
        TAVVALUE value;
        value.SetText(content);
        TAVVALUE back;
        back.Deserialize(Native(value));
        std::string text;
        back.Serialize(text, false);
        ASSERT_EQ(text, content) << "round " << round;
        std::string buffer;
        ASSERT_EQ(back.TextView(buffer), content) << "round " << round;
    }
}

TEST(TAVVALUERoundTripTest, FloatsReadBackBitForBit) {
    Random random(3);
    for (int round = 0; round < 200000; ++round) {
        const auto single = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
        const auto real = std::bit_cast<double>(random());
        TAVVALUE value;
        TAVVALUE back;
        if (std::isfinite(single)) {
            value.SetFloat(single);
            back.Deserialize(Native(value));
            ASSERT_EQ(std::bit_cast<std::uint32_t>(static_cast<float>(back.ToDouble())),
                      std::bit_cast<std::uint32_t>(single));
        }
        if (std::isfinite(real)) {
            value.SetDouble(real);
            back.Deserialize(Native(value));
            ASSERT_EQ(std::bit_cast<std::uint64_t>(back.ToDouble()), std::bit_cast<std::uint64_t>(real));
        }
    }
}

TEST(TAVVALUERoundTripTest, DelicateTextsStayAsTheyAre) {
    for (const std::string text : {
             "-0",
             "00",
             "1.50",
             "1e5",
             "+1",
             " 1",
             "nan",
             "inf",
             "-inf",
             "18446744073709551616",
             "123456789012345678901234567890",
             "2023-02-30",
             "24:00:00",
             "99:99:99",
             R"("")",
             R"("\u0000")",
             R"("\u007f")",
             R"("\"\\")",
             R"({"a" : 1})",
             "a\"b",
             "a\\u0041",
         }) {
        EXPECT_EQ(Again(text), text);
    }
}

} // namespace
