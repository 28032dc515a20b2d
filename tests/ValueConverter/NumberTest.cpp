// 5, 6, 7, 8, 12, 13, 20: whole numbers and numbers of a fixed scale.
#include "Convert.h"
#include "ValueConverter/DatapointTypes.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

namespace {

Bytes TwoBytes(unsigned raw) {
    return {static_cast<std::uint8_t>(raw >> 8), static_cast<std::uint8_t>(raw)};
}

} // namespace

// raw * 100 / 255: 128 is 50.196, 1 is 0.392, 51 is 20 exactly.
TEST(Percent, HasOneDecimal) {
    EXPECT_EQ(FromBus("5.001", {0x00}), "0");
    EXPECT_EQ(FromBus("5.001", {0x01}), "0.4");
    EXPECT_EQ(FromBus("5.001", {0x33}), "20");
    EXPECT_EQ(FromBus("5.001", {0x80}), "50.2");
    EXPECT_EQ(FromBus("5.001", {0xFF}), "100");
}

// text * 255 / 100: 50 is 127.5 and goes up, 49.9 is 127.245, 33 is 84.15, 0.19 is 0.4845, 0.2 is 0.51.
TEST(Percent, GoesToTheNearest) {
    EXPECT_EQ(ToBus("5.001", "50"), "80");
    EXPECT_EQ(ToBus("5.001", "49.999999999999"), "7f");
    EXPECT_EQ(ToBus("5.001", "49.9"), "7f");
    EXPECT_EQ(ToBus("5.001", "33"), "54");
    EXPECT_EQ(ToBus("5.001", "0.19"), "00");
    EXPECT_EQ(ToBus("5.001", "0.2"), "01");
    EXPECT_EQ(ToBus("5.001", "1e2"), "ff");
}

TEST(Percent, RefusesWhatIsBeyondTheRange) {
    EXPECT_EQ(ToBus("5.001", "100.0"), "ff");
    EXPECT_EQ(ToBus("5.001", "100.04"), kRefused);
    EXPECT_EQ(ToBus("5.001", "100.000000000000000000001"), kRefused);
    EXPECT_EQ(ToBus("5.001", "-0.0"), "00");
    EXPECT_EQ(ToBus("5.001", "-0.01"), kRefused);
    EXPECT_EQ(WhyNotToBus("5.001", "100.04"), "5.001: 100.04 is above 100 %");
    EXPECT_EQ(WhyNotToBus("5.001", "-1"), "5.001: -1 is below 0 %");
}

// raw * 360 / 255: 1 is 1.412, 128 is 180.706; 180 * 255 / 360 is 127.5 and goes up.
TEST(Angle, HasOneDecimal) {
    EXPECT_EQ(FromBus("5.003", {0x01}), "1.4");
    EXPECT_EQ(FromBus("5.003", {0x80}), "180.7");
    EXPECT_EQ(FromBus("5.003", {0xFF}), "360");
    EXPECT_EQ(ToBus("5.003", "180"), "80");
    EXPECT_EQ(ToBus("5.003", "360"), "ff");
    EXPECT_EQ(ToBus("5.003", "360.1"), kRefused);
}

TEST(Number, EveryOctetSurvivesTheWayToTextAndBack) {
    for (const auto* dpt :
         {"5.001", "5.003", "5.004", "5.010", "5.100", "5.999", "6.001", "6.010", "20.1000", "20"}) {
        for (unsigned raw = 0; raw < 256; ++raw) {
            const Bytes octets{static_cast<std::uint8_t>(raw)};
            const std::string text = FromBus(dpt, octets);
            EXPECT_EQ(ToBus(dpt, text), Hex(octets)) << dpt << ' ' << text;
        }
    }
}

TEST(Number, EveryTwoOctetsSurviveTheWayToTextAndBack) {
    for (const auto* dpt : {"7.001", "7.003", "7.004", "8.001", "8.003", "8.004", "8.010"}) {
        for (unsigned raw = 0; raw < 0x10000; ++raw) {
            if (std::string_view(dpt) == "8.010" && raw == 0x7FFF) {
                continue; // invalid data
            }
            const std::string text = FromBus(dpt, TwoBytes(raw));
            ASSERT_EQ(ToBus(dpt, text), Hex(TwoBytes(raw))) << dpt << ' ' << text;
        }
    }
}

TEST(Number, IsAWholeNumberInTheTypesUnit) {
    EXPECT_EQ(FromBus("5.010", {0xFF}), "255");
    EXPECT_EQ(FromBus("6.010", {0x80}), "-128");
    EXPECT_EQ(FromBus("7.001", {0xFF, 0xFE}), "65534");
    EXPECT_EQ(FromBus("8.001", {0x80, 0x00}), "-32768");
    EXPECT_EQ(FromBus("8.001", {0x7F, 0xFF}), "32767"); // invalid data for 8.010 alone
    EXPECT_EQ(FromBus("12.001", {0xFF, 0xFF, 0xFF, 0xFF}), "4294967295");
    EXPECT_EQ(FromBus("13.001", {0x80, 0x00, 0x00, 0x00}), "-2147483648");
    EXPECT_EQ(FromBus("13.002", {0x00, 0x00, 0x27, 0x10}), "10000");
}

TEST(Number, ReadsEveryWholeNumber) {
    EXPECT_EQ(ToBus("5.010", "5.0"), "05");
    EXPECT_EQ(ToBus("5.010", " +5 "), "05");
    EXPECT_EQ(ToBus("5.010", "2.5e1"), "19");
    EXPECT_EQ(ToBus("5.010", "50e-1"), "05");
    EXPECT_EQ(ToBus("5.010", "5."), "05");
    EXPECT_EQ(ToBus("5.010", "0005"), "05");
    EXPECT_EQ(ToBus("6.010", "-1"), "ff");
    EXPECT_EQ(ToBus("13.010", "-2"), "fffffffe");
}

TEST(Number, RefusesFractionsOfWholeNumbers) {
    for (const auto* text : {"5.5", "5.0000000000000000000000001", "1e-30", "-0.1"}) {
        EXPECT_EQ(ToBus("5.010", text), kRefused) << text;
    }
    EXPECT_EQ(WhyNotToBus("7.001", "5.5"), "7.001: 5.5 is not a whole number");
}

TEST(Number, RefusesTextThatIsNoNumber) {
    for (const auto* text :
         {"",  " ",  "\"\"", "abc", "5 5", "5x",  "0x5", "--5",       "+-5", "5..5",    ".",
          "+", "e5", "5e",   "5e+", "1,5", "nan", "inf", "{\"v\":5}", "5%",  "12:00:00"}) {
        EXPECT_EQ(ToBus("5.010", text), kRefused) << text;
    }
    EXPECT_EQ(WhyNotToBus("5.010", "5%"), "5.010: '5%' is not a number");
}

TEST(Number, RefusesWhatIsOneBeyondTheRange) {
    struct Case {
        const char* dpt;
        const char* lowest;
        const char* lowestOctets;
        const char* below;
        const char* highest;
        const char* highestOctets;
        const char* above;
    };
    const Case cases[] = {
        {"5.004", "0", "00", "-1", "255", "ff", "256"},
        {"5.006", "0", "00", "-1", "254", "fe", "255"},
        {"6.001", "-128", "80", "-129", "127", "7f", "128"},
        {"7.001", "0", "0000", "-1", "65535", "ffff", "65536"},
        {"7.003", "0", "0000", "-1", "655350", "ffff", "655351"},
        {"7.004", "0", "0000", "-1", "6553500", "ffff", "6553501"},
        {"8.001", "-32768", "8000", "-32769", "32767", "7fff", "32768"},
        {"8.003", "-327680", "8000", "-327681", "327670", "7fff", "327671"},
        {"8.004", "-3276800", "8000", "-3276801", "3276700", "7fff", "3276701"},
        {"8.010", "-327.68", "8000", "-327.69", "327.66", "7ffe", "327.67"},
        {"12.001", "0", "00000000", "-1", "4294967295", "ffffffff", "4294967296"},
        {"13.001", "-2147483648", "80000000", "-2147483649", "2147483647", "7fffffff", "2147483648"},
        {"20.102", "0", "00", "-1", "4", "04", "5"},
        {"20.108", "1", "01", "0", "5", "05", "6"},
        {"20.105", "0", "00", "-1", "20", "14", "21"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ToBus(c.dpt, c.lowest), c.lowestOctets) << c.dpt;
        EXPECT_EQ(ToBus(c.dpt, c.highest), c.highestOctets) << c.dpt;
        EXPECT_EQ(ToBus(c.dpt, c.below), kRefused) << c.dpt;
        EXPECT_EQ(ToBus(c.dpt, c.above), kRefused) << c.dpt;
        EXPECT_EQ(ToBus(c.dpt, "1e30"), kRefused) << c.dpt;
        EXPECT_EQ(ToBus(c.dpt, "-99999999999999999999"), kRefused) << c.dpt;
    }
}

// 15 ms is one and a half steps of 10 ms, -14.9 ms one and a bit; 49.99 ms is less than half a step of 100
// ms.
TEST(Number, MillisecondsGoToTheNearestStep) {
    EXPECT_EQ(FromBus("7.003", {0x00, 0x02}), "20");
    EXPECT_EQ(FromBus("8.004", {0xFF, 0xFF}), "-100");
    EXPECT_EQ(ToBus("7.003", "14"), "0001");
    EXPECT_EQ(ToBus("7.003", "15"), "0002");
    EXPECT_EQ(ToBus("7.004", "49.99"), "0000");
    EXPECT_EQ(ToBus("7.004", "50"), "0001");
    EXPECT_EQ(ToBus("8.003", "-14.9"), "ffff");
    EXPECT_EQ(ToBus("8.003", "-15"), "fffe");
}

TEST(PercentV16, HasTwoDecimals) {
    EXPECT_EQ(FromBus("8.010", {0x00, 0x01}), "0.01");
    EXPECT_EQ(FromBus("8.010", {0x27, 0x10}), "100");
    EXPECT_EQ(FromBus("8.010", {0xFF, 0xFF}), "-0.01");
    EXPECT_EQ(ToBus("8.010", "12.344"), "04d2");
    EXPECT_EQ(ToBus("8.010", "12.345"), "04d3");
    EXPECT_EQ(ToBus("8.010", "-12.345"), "fb2d");
}

TEST(PercentV16, InvalidDataIsNull) {
    EXPECT_EQ(FromBus("8.010", {0x7F, 0xFF}), "");
    EXPECT_EQ(ToBus("8.010", ""), kRefused);
    EXPECT_EQ(ToBus("8.010", "327.664"), kRefused);
}

TEST(Enumeration, DecodesReservedValuesAndEncodesNone) {
    EXPECT_EQ(FromBus("20.102", {0xC8}), "200");
    EXPECT_EQ(ToBus("20.102", "200"), kRefused);
    EXPECT_EQ(ToBus("20.999", "200"), "c8");
}

TEST(Enumeration, RefusesTheGapsOfItsRange) {
    for (const auto* text : {"0", "17", "20"}) {
        EXPECT_NE(ToBus("20.105", text), kRefused) << text;
    }
    for (const auto* text : {"18", "19"}) {
        EXPECT_EQ(ToBus("20.105", text), kRefused) << text;
    }
    for (const auto* text : {"8", "10", "13", "32", "33", "40", "41", "255"}) {
        EXPECT_NE(ToBus("20.114", text), kRefused) << text;
    }
    for (const auto* text : {"9", "14", "31", "34", "39", "42", "254"}) {
        EXPECT_EQ(ToBus("20.114", text), kRefused) << text;
    }
    EXPECT_EQ(WhyNotToBus("20.105", "18"), "20.105: 18 is not one of 0..17,20");
}

// Raw 1 is 0.0001 m³/h in the KNX Standard; 12345 is 1.2345 m³/h.
TEST(FlowRate, IsAnIntegerUnlessTheStandardResolutionIsAskedFor) {
    EXPECT_EQ(FromBus("13.002", {0x00, 0x00, 0x30, 0x39}), "12345");
    EXPECT_EQ(ToBus("13.002", "12345"), "00003039");
    EXPECT_EQ(ToBus("13.002", "1.2345"), kRefused);
    auto dpt = Dpt("13.002");
    dpt.reserved = Datapoint::kStandardResolution;
    EXPECT_EQ(FromBus(dpt, {0x00, 0x00, 0x30, 0x39}), "1.2345");
    EXPECT_EQ(FromBus(dpt, {0xFF, 0xFF, 0xFF, 0xFF}), "-0.0001");
    EXPECT_EQ(ToBus(dpt, "1.2345"), "00003039");
    EXPECT_EQ(ToBus(dpt, "1.23455"), "0000303a");
    EXPECT_EQ(ToBus(dpt, "214748.3647"), "7fffffff");
    EXPECT_EQ(ToBus(dpt, "214748.3648"), kRefused);
    EXPECT_EQ(ToBus(dpt, "-214748.3648"), "80000000");
    dpt.sub = 1;
    EXPECT_EQ(ToBus(dpt, "1.2345"), kRefused);
}
