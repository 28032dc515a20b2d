// 247, 256, 265 to 270: values with the fields of 19.001.
#include "Convert.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

namespace {

// 2024 - 1900 = 7Ch; 1 May is a Wednesday, 3 * 32 + 12 = 6Ch; 30 and 15 are 1Eh and 0Fh; suti is bit 0 of the
// seventh octet, clq bit 7 of the eighth.
const Bytes s_octets{0x7C, 0x05, 0x01, 0x6C, 0x1E, 0x0F, 0x01, 0x80};
const std::string s_text =
    R"({"year":2024,"month":5,"day":1,"dow":3,"hour":12,"minute":30,"second":15,"f":0,"wd":0,"nwd":0,)"
    R"("ny":0,"nd":0,"ndow":0,"nt":0,"suti":1,"clq":1,"src":0)";

Bytes Join(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

void ExpectAfterDateTime(const char* dpt, const Bytes& octets, const std::string& members) {
    const std::string text = s_text + "," + members + "}";
    EXPECT_EQ(FromBus(dpt, Join(s_octets, octets)), text) << dpt;
    EXPECT_EQ(ToBus(dpt, text), Hex(Join(s_octets, octets))) << dpt << WhyNotToBus(dpt, text);
}

} // namespace

// 230.5 is 4366h 8000h; 3.3333333 is 4055h 5555h.
TEST(DateTimeFields, AreFollowedByAValue) {
    ExpectAfterDateTime("247.600", {0x00, 0x64, 0xFF, 0xFF}, R"("timePeriod1":100,"timePeriod2":65535)");
    ExpectAfterDateTime("265.001", {0x01}, R"("b":1)");
    ExpectAfterDateTime("265.1201", {0x00}, R"("b":0)");
    ExpectAfterDateTime("266.027", {0x43, 0x66, 0x80, 0x00}, R"("value":230.5)");
    ExpectAfterDateTime("266.076", {0x40, 0x55, 0x55, 0x55}, R"("value":3.3333333)");
    ExpectAfterDateTime("267.001", {'K', 0xC3, 0xBC, 'c', 'h', 'e', 0}, R"("text":"Küche")");
    ExpectAfterDateTime("267.001", {0}, R"("text":"")");
    ExpectAfterDateTime("267.001", {'"', '\\', '\n', 0x7F, 0}, R"("text":"\"\\\u000a\u007f")");
    ExpectAfterDateTime("268.1203", {0x06}, R"("value":6)");
    ExpectAfterDateTime("269.1200", {0, 0, 0x30, 0x39, 0x02, 0x02},
                        R"("activeEnergy":12345,"tariff":2,"e":1,"t":0)");
    ExpectAfterDateTime("270.1200", {0x41, 0xAC, 0x00, 0x00, 0xBF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
                        R"("phase1":21.5,"phase2":-0.5,"phase3":0)");
}

TEST(DateTimeFields, ReservedBitsAreIgnored) {
    Bytes octets = s_octets;
    octets[1] |= 0xF0;
    octets[2] |= 0xE0;
    octets[4] |= 0xC0;
    octets[5] |= 0xC0;
    octets[7] |= 0x3F;
    EXPECT_EQ(FromBus("265.001", Join(octets, {0xFF})), s_text + R"(,"b":1})");
}

TEST(DateTimeFields, FlagsAndDayOfTheWeekMayBeLeftOut) {
    EXPECT_EQ(
        ToBus("268.1206", R"({"year":2024,"month":5,"day":1,"hour":12,"minute":30,"second":15,"value":3})"),
        "7c05010c1e0f000003");
    EXPECT_EQ(ToBus("268.1206", R"({"year":2024,"month":5,"day":1,"hour":12,"minute":30,"value":3})"),
              kRefused);
}

TEST(DateTimeFields, RefuseWhatIsNoDateAndNoTime) {
    const std::string text = s_text + R"(,"b":1})";
    const std::pair<const char*, const char*> refused[] = {
        {"year", "1899"}, {"year", "2156"}, {"month", "0"},   {"month", "13"},
        {"month", "16"},  {"day", "0"},     {"day", "32"},    {"dow", "8"},
        {"hour", "24"},   {"hour", "32"},   {"minute", "60"}, {"minute", "64"},
        {"second", "60"}, {"second", "64"}, {"src", "2"},     {"b", "2"}};
    for (const auto& [field, value] : refused) {
        EXPECT_EQ(ToBus("265.001", With(text, field, value)), kRefused) << field << value;
    }
    EXPECT_EQ(WhyNotToBus("265.001", With(text, "month", "13")), "265.001: month 13, day 01 is no date");
    for (const Bytes& octets :
         {Bytes{0x7C, 0x00, 0x01, 0, 0, 0, 0, 0, 0}, Bytes{0x7C, 0x0D, 0x01, 0, 0, 0, 0, 0, 0},
          Bytes{0x7C, 0x05, 0x00, 0, 0, 0, 0, 0, 0}, Bytes{0x7C, 0x05, 0x01, 25, 0, 0, 0, 0, 0},
          Bytes{0x7C, 0x05, 0x01, 24, 1, 0, 0, 0, 0}, Bytes{0x7C, 0x05, 0x01, 0, 60, 0, 0, 0, 0},
          Bytes{0x7C, 0x05, 0x01, 0, 0, 60, 0, 0, 0}}) {
        EXPECT_EQ(FromBus("265.001", octets), kRefused) << Hex(octets);
    }
}

// The calendar is not asked, and 24:00:00 is the end of the day.
TEST(DateTimeFields, TakeWhatTheirBitsHoldAsInADateTime) {
    const std::string text = s_text + R"(,"b":1})";
    EXPECT_EQ(ToBus("265.001", With(With(text, "month", "2"), "day", "30")), "7c021e6c1e0f018001");
    const std::string endOfDay = With(With(With(text, "hour", "24"), "minute", "0"), "second", "0");
    EXPECT_EQ(ToBus("265.001", endOfDay), "7c050178000001"
                                          "8001");
    EXPECT_EQ(FromBus("265.001", {0x7C, 0x05, 0x01, 0x78, 0, 0, 0x01, 0x80, 1}), endOfDay);
}

TEST(DateTimeFields, MayHoldAnythingWhereTheirFlagCallsThemInvalid) {
    const std::string text = With(With(s_text + R"(,"b":0})", "nd", "1"), "nt", "1");
    const std::string anything =
        With(With(With(With(With(text, "month", "15"), "day", "0"), "hour", "31"), "minute", "63"), "second",
             "61");
    // dow 3 and hour 31: 7Fh; nd is bit 3, nt bit 1
    EXPECT_EQ(ToBus("265.001", anything), "7c0f007f3f3d0b8000");
    EXPECT_EQ(FromBus("265.001", {0x7C, 0x0F, 0x00, 0x7F, 0x3F, 0x3D, 0x0B, 0x80, 0x00}), anything);
}

TEST(DateTimePeriod, HasABeginAndAnEnd) {
    std::string text = "{";
    for (const std::string prefix : {"start_", "stop_"}) {
        std::string part = s_text.substr(1);
        for (std::size_t at = 0; (at = part.find("\"", at)) != std::string::npos; at = part.find(",", at)) {
            part.insert(at + 1, prefix);
            if (part.find(",", at) == std::string::npos) {
                break;
            }
        }
        text += (text.size() > 1 ? "," : "") + part;
    }
    text += "}";
    ExpectBothWays({{"256.001", Join(s_octets, s_octets), text.c_str()}});
    EXPECT_EQ(ToBus("256.001", With(text, "start_month", "13")), kRefused);
    EXPECT_EQ(ToBus("256.001", With(text, "stop_month", "13")), kRefused);
    EXPECT_EQ(ToBus("256.001", With(text, "stop_month", "12")), Hex(Join(s_octets, [] {
                  Bytes stop = s_octets;
                  stop[1] = 12;
                  return stop;
              }())));
}

TEST(DateTimeText, HasAnyLengthButEndsWithANul) {
    const std::string letters(2000, 'x');
    Bytes octets = Join(s_octets, Bytes(letters.begin(), letters.end()));
    EXPECT_EQ(FromBus("267.001", octets), s_text + R"(,"text":")" + letters + "\"}");
    octets.push_back(0);
    EXPECT_EQ(ToBus("267.001", s_text + R"(,"text":")" + letters + "\"}"), Hex(octets));
    EXPECT_EQ(FromBus("267.001", Join(octets, {'y'})), s_text + R"(,"text":")" + letters + "\"}");
}

TEST(DateTimeText, RefusesBrokenUtf8AndTooFewOctets) {
    EXPECT_EQ(FromBus("267.001", Join(s_octets, {0xC3, 0})), kRefused);
    EXPECT_EQ(FromBus("267.001", s_octets), kRefused);
    EXPECT_EQ(WhyNotFromBus("267.001", s_octets, 0),
              "267.001: 8 octets are fewer than the 9 of the shortest value");
    EXPECT_EQ(FromBus("267.001", {0x7C}), kRefused);
    EXPECT_EQ(ToBus("267.001", s_text + "}"), kRefused);
    EXPECT_EQ(ToBus("267.001", s_text + R"(,"text":5})"), kRefused);
    EXPECT_EQ(ToBus("267.001", s_text + R"(,"text":"a\u0000"})"), kRefused);
}
