// 24, 28: texts of any length; 234: two characters.
#include "Convert.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

// ISO 8859-1 has FCh for ü; UTF-8 has C3h BCh, and E2h 82h ACh for €. A NUL ends both.
TEST(VaryingText, EndsWithANul) {
    ExpectBothWays({{"24.001", {'K', 0xFC, 'c', 'h', 'e', 0}, "Küche"},
                    {"24.xxx", {'a', 0}, "a"},
                    {"28.001", {'K', 0xC3, 0xBC, 'c', 'h', 'e', 0}, "Küche"},
                    {"28.001", {'1', '0', ' ', 0xE2, 0x82, 0xAC, 0}, "10 €"},
                    {"28.xxx", {'a', 0}, "a"}});
}

TEST(VaryingText, IsCutAtTheFirstNulOrEndsWithTheOctets) {
    EXPECT_EQ(FromBus("24.001", {'a', 0, 'b', 0}), "a");
    EXPECT_EQ(FromBus("28.001", {'a', 0, 0xFF, 0}), "a");
    EXPECT_EQ(FromBus("24.001", {'a', 'b'}), "ab");
    EXPECT_EQ(FromBus("28.001", {'a', 'b'}), "ab");
}

TEST(VaryingText, AnEmptyTextIsNotNull) {
    ExpectBothWays({{"24.001", {0}, "\"\""}, {"28.001", {0}, "\"\""}});
    EXPECT_EQ(ToBus("24.001", ""), kRefused);
    EXPECT_EQ(ToBus("28.001", ""), kRefused);
}

TEST(VaryingText, StaysTextWhateverItLooksLike) {
    for (const auto* text : {"21.5", "12:00:00", "{}", "[1]", "true", " 5 ", "{\"text\":\"a\"}"}) {
        Bytes octets(text, text + std::string_view(text).size() + 1);
        EXPECT_EQ(ToBus("24.001", text), Hex(octets));
        EXPECT_EQ(FromBus("24.001", octets), text);
        EXPECT_EQ(ToBus("28.001", text), Hex(octets));
        EXPECT_EQ(FromBus("28.001", octets), text);
    }
    ExpectBothWays({{"28.001", {'"', 'a', '\n', 0}, R"("\"a\u000a")"}});
}

TEST(VaryingText, HasAsManyOctetsAsItNeeds) {
    Bytes umlauts(3000, 0xFC);
    umlauts.push_back(0);
    const std::string twice = FromBus("24.001", umlauts);
    EXPECT_EQ(twice.size(), 6000U);
    EXPECT_EQ(ToBus("24.001", twice), Hex(umlauts));
    const std::string text(300, 'x');
    Bytes octets(text.begin(), text.end());
    octets.push_back(0);
    EXPECT_EQ(ToBus("24.001", text), Hex(octets));
    EXPECT_EQ(FromBus("24.001", octets), text);
    EXPECT_EQ(ToBus("28.001", text), Hex(octets));
    EXPECT_EQ(FromBus("28.001", octets), text);
}

TEST(VaryingText, EveryLatin1CharacterSurvives) {
    Bytes octets;
    for (unsigned raw = 1; raw < 256; ++raw) {
        octets.push_back(static_cast<std::uint8_t>(raw));
    }
    octets.push_back(0);
    EXPECT_EQ(ToBus("24.001", FromBus("24.001", octets)), Hex(octets));
}

TEST(VaryingText, RefusesCharactersBeyondItsSet) {
    EXPECT_EQ(ToBus("24.001", "10 €"), kRefused);
    EXPECT_EQ(ToBus("24.001", R"("a\u0000b")"), kRefused);
    EXPECT_EQ(ToBus("28.001", R"("a\u0000b")"), kRefused);
    EXPECT_EQ(WhyNotToBus("28.001", R"("a\u0000b")"), "28.001: the character U+0000 would end the text");
    EXPECT_EQ(ToBus("28.001", "\xF4\x8F\xBF\xBF"), "f48fbfbf00"); // U+10FFFF, the last one
}

// Half a character, an octet that begins none, an overlong NUL, a surrogate, one beyond U+10FFFF.
TEST(VaryingText, RefusesBrokenUtf8) {
    for (const Bytes& octets :
         {Bytes{0xC3, 0}, Bytes{0x80, 0}, Bytes{0xC0, 0x80, 0}, Bytes{'a', 0xED, 0xA0, 0x80, 0},
          Bytes{0xF4, 0x90, 0x80, 0x80, 0}, Bytes{0xE2, 0x82}}) {
        EXPECT_EQ(FromBus("28.001", octets), kRefused);
        EXPECT_EQ(WhyNotFromBus("28.001", octets, 0), "28.001: the text is not UTF-8");
        EXPECT_EQ(ToBus("28.001", std::string(octets.begin(), octets.end() - 1)), kRefused);
    }
}

TEST(TwoCharacters, AreAsciiOnTheBus) {
    ExpectBothWays(
        {{"234.001", {'d', 'e'}, "de"}, {"234.002", {'D', 'E'}, "DE"}, {"234.001", {'x', 0}, "x"}});
    EXPECT_EQ(ToBus("234.001", "deu"), kRefused);
    EXPECT_EQ(ToBus("234.001", "ü"), kRefused);
    EXPECT_EQ(WhyNotToBus("234.001", "deu"), "234.001: 'deu' has more than 2 characters");
}

// A NUL ends the text, and what is no ASCII is shown, but not sent.
TEST(TwoCharacters, EveryPairSurvivesOrIsRefused) {
    for (unsigned first = 0; first < 256; ++first) {
        for (unsigned second = 0; second < 256; ++second) {
            const Bytes octets{static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(second)};
            const Bytes kept{octets[0], first == 0 ? std::uint8_t{0} : octets[1]};
            const std::string text = FromBus("234.001", octets);
            const bool ascii = kept[0] < 0x80 && kept[1] < 0x80;
            ASSERT_EQ(ToBus("234.001", text), ascii ? Hex(kept) : kRefused);
            ASSERT_EQ(AsReceived("234.001", text), Hex(kept));
        }
    }
}
