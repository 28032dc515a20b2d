// 4.xxx and 16.xxx: characters.
#include "Convert.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

namespace {

Bytes Padded(std::string_view text) {
    Bytes octets(text.begin(), text.end());
    octets.resize(14);
    return octets;
}

} // namespace

TEST(Text, IsCutAtTheFirstNul) {
    EXPECT_EQ(FromBus("16.000", Padded("KNX is OK")), "KNX is OK");
    EXPECT_EQ(FromBus("16.000", Padded("14 characters.")), "14 characters.");
    EXPECT_EQ(FromBus("16.000", {'a', 0, 'b', 'c', 0, 0, 0, 0, 0, 0, 0, 0, 0, 'z'}), "a");
    EXPECT_EQ(ToBus("16.000", "KNX is OK"), Hex(Padded("KNX is OK")));
}

// ISO 8859-1: ü is FCh, ° is B0h, ÿ is FFh.
TEST(Text, IsLatin1OnTheBusAndUtf8InTheValue) {
    EXPECT_EQ(FromBus("16.001", Padded("K\xFC"
                                       "che 21\xB0")),
              "Küche 21°");
    EXPECT_EQ(ToBus("16.001", "Küche 21°"), Hex(Padded("K\xFC"
                                                       "che 21\xB0")));
    EXPECT_EQ(ToBus("16.001", "ÿÿÿÿÿÿÿÿÿÿÿÿÿÿ"), Hex(Bytes(14, 0xFF)));
    EXPECT_EQ(FromBus("4.002", {0xFC}), "ü");
    EXPECT_EQ(ToBus("4.002", "ü"), "fc");
}

TEST(Text, AnEmptyTextIsNotNull) {
    EXPECT_EQ(FromBus("16.001", Bytes(14, 0)), "\"\"");
    EXPECT_EQ(FromBus("4.001", {0x00}), "\"\"");
    EXPECT_EQ(ToBus("16.001", "\"\""), Hex(Bytes(14, 0)));
    EXPECT_EQ(ToBus("4.001", "\"\""), "00");
    EXPECT_EQ(ToBus("16.001", ""), kRefused);
    EXPECT_EQ(ToBus("4.001", ""), kRefused);
}

TEST(Text, StaysTextWhateverItLooksLike) {
    for (const auto* text :
         {"21.5", "021.50",        "12:00:00", "{}",        "[1]", "0",  "1",  "00",   "true",      "-0",
          "1e3",  "2024-05-01",    "nan",      "{\"c\":1}", " 5 ", "  ", "+5", "0x10", "DPT 9.001", "\\n",
          "'",    "18446744073709"}) {
        EXPECT_EQ(ToBus("16.001", text), Hex(Padded(text))) << text;
        EXPECT_EQ(FromBus("16.001", Padded(text)), text) << text;
    }
}

TEST(Text, QuotesAndControlCharactersAreWrittenAsAJsonString) {
    EXPECT_EQ(FromBus("16.001", Padded("\"hi\"")), R"("\"hi\"")");
    EXPECT_EQ(ToBus("16.001", R"("\"hi\"")"), Hex(Padded("\"hi\"")));
    EXPECT_EQ(FromBus("16.001", Padded("a\nb")), R"("a\u000ab")");
    EXPECT_EQ(ToBus("16.001", R"("a\u000ab")"), Hex(Padded("a\nb")));
    EXPECT_EQ(ToBus("16.001", R"("a\nb")"), Hex(Padded("a\nb")));
}

TEST(Text, RefusesCharactersBeyondItsSet) {
    EXPECT_EQ(ToBus("16.000", "\x7E"), Hex(Padded("\x7E")));
    EXPECT_EQ(ToBus("16.000", "Küche"), kRefused);
    EXPECT_EQ(ToBus("16.001", "Ā"), kRefused); // U+0100
    EXPECT_EQ(ToBus("16.001", "10 €"), kRefused);
    EXPECT_EQ(ToBus("4.001", "ü"), kRefused);
    EXPECT_EQ(ToBus("4.002", "€"), kRefused);
    EXPECT_EQ(ToBus("16.001", R"("a\u0000b")"), kRefused);
    EXPECT_EQ(WhyNotToBus("16.000", "Küche"), "16.000: the character U+00FC is not one of U+0001..U+007F");
    EXPECT_EQ(WhyNotToBus("16.001", "10 €"), "16.001: the character U+20AC is not one of U+0001..U+00FF");
}

TEST(Text, RefusesMoreCharactersThanFit) {
    EXPECT_EQ(ToBus("16.001", "15 characters.."), kRefused);
    EXPECT_EQ(ToBus("16.001", "üüüüüüüüüüüüüüü"), kRefused);
    EXPECT_EQ(ToBus("4.001", "ab"), kRefused);
    EXPECT_EQ(WhyNotToBus("16.001", "15 characters.."),
              "16.001: '15 characters..' has more than 14 characters");
}

TEST(Text, RefusesWhatIsNotUtf8) {
    for (const auto* text :
         {"\xFC", "a\xC3", "\x80", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF0\x80\x80\x80",
          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xE2\x82", "\xC3\x28"}) {
        EXPECT_EQ(ToBus("16.001", text), kRefused) << text;
        EXPECT_EQ(WhyNotToBus("16.001", text), "16.001: the text is not UTF-8");
    }
}

// Whoever sends more than ASCII with an ASCII type means ISO 8859-1; the receiver is told what came.
TEST(Text, DecodesLatin1AlsoWhereAsciiIsDue) {
    EXPECT_EQ(FromBus("16.000", Padded("K\xFC"
                                       "che")),
              "Küche");
    EXPECT_EQ(FromBus("4.001", {0xFC}), "ü");
}

TEST(Text, EveryCharacterSurvivesTheWayToTextAndBack) {
    for (unsigned raw = 0; raw < 256; ++raw) {
        const Bytes octets{static_cast<std::uint8_t>(raw)};
        EXPECT_EQ(ToBus("4.002", FromBus("4.002", octets)), Hex(octets)) << raw;
        if (raw < 0x80) {
            EXPECT_EQ(ToBus("4.001", FromBus("4.001", octets)), Hex(octets)) << raw;
        }
    }
}

TEST(Text, AnUnknownSubNumberTakesLatin1) {
    EXPECT_EQ(ToBus("16.xxx", "ü"), Hex(Padded("\xFC")));
    EXPECT_EQ(ToBus("16.007", "ü"), Hex(Padded("\xFC")));
    EXPECT_EQ(Dpt("16.xxx").sub, 1);
}

TEST(Text, RefusesWrongSizes) {
    EXPECT_EQ(FromBus("16.001", Bytes(13, 'a'), 104), kRefused);
    EXPECT_EQ(FromBus("16.001", Bytes(15, 'a'), 120), kRefused);
    EXPECT_EQ(FromBus("4.001", {'a'}, 7), kRefused);
}
