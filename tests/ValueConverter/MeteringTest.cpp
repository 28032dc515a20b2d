// 225 to 241: scaling, metering, addresses, tariffs, DALI, blinds; 271 to 276: tariffs, forecasts, channels;
// 277 to 284: energy registers.
#include "Convert.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

// Percent are raw * 100 / 255: 80h is 50.2, FFh is 100, 01h is 0.4. E.g. 236.001: 1 101 0011 is D3h; 237.600:
// ce, bf, lf are bits 2 to 0 of the first octet, rr and ai bits 7 and 6 of the second; 238.001: 1 0 000101.
TEST(Metering, HasTheFieldsInTelegramOrder) {
    ExpectBothWays({
        {"225.001", {0x00, 0x0A, 0x80}, R"({"timePeriod":10,"percent":50.2})"},
        {"225.002", {0xFF, 0xFF, 0x00}, R"({"timePeriod":65535,"percent":0})"},
        {"225.003", {0x00, 0x00, 0xFE}, R"({"delayTime":0,"tariff":254})"},
        {"229.001", {0xFF, 0xFF, 0xFF, 0xFF, 0x83, 0x01}, R"({"countVal":-1,"valInfField":131,"status":1})"},
        {"230.1000",
         {0x2C, 0x2D, 0x00, 0xBC, 0x61, 0x4E, 0x01, 0x07},
         R"({"manufactId":11309,"identNumber":12345678,"version":1,"medium":7})"},
        {"231.001", {'d', 'e', 'A', 'T'}, R"({"language":"de","region":"AT"})"},
        {"232.600", {0xFF, 0x80, 0x00}, R"({"r":255,"g":128,"b":0})"},
        {"235.001", {0x00, 0x00, 0x30, 0x39, 0x02, 0x01}, R"({"activeEnergy":12345,"tariff":2,"e":0,"t":1})"},
        {"235.001", {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x02}, R"({"activeEnergy":-2,"tariff":255,"e":1,"t":0})"},
        {"236.001", {0xD3}, R"({"d":1,"p":5,"m":3})"},
        {"237.600", {0x05, 0x8A}, R"({"ce":1,"bf":0,"lf":1,"rr":1,"ai":0,"addr":10})"},
        {"238.001", {0x85}, R"({"s":1,"sa":0,"scene":5})"},
        {"238.600", {0x7F}, R"({"bf":0,"lf":1,"addr":63})"},
        {"239.001", {0x80, 0x01}, R"({"setvalue":50.2,"ca":1})"},
        {"240.800",
         {0xFF, 0x01, 0x01},
         R"({"heightPosition":100,"slatsPosition":0.4,"validSlatsPos":0,"validHeightPos":1})"},
        {"241.800",
         {0xFF, 0x01, 0xC0, 0x01},
         R"({"heightPosition":100,"slatsPosition":0.4,"attributes":49153})"},
    });
}

TEST(Metering, ReservedBitsAreIgnoredAndSentAsZero) {
    EXPECT_EQ(FromBus("237.600", {0xFD, 0x8A}), R"({"ce":1,"bf":0,"lf":1,"rr":1,"ai":0,"addr":10})");
    EXPECT_EQ(FromBus("239.001", {0x80, 0xFF}), R"({"setvalue":50.2,"ca":1})");
    EXPECT_EQ(FromBus("235.001", {0, 0, 0, 0, 0, 0xFC}), R"({"activeEnergy":0,"tariff":0,"e":0,"t":0})");
}

TEST(Metering, WhatIsLeftOutIsValid) {
    EXPECT_EQ(ToBus("235.001", R"({"activeEnergy":1,"tariff":2})"), "000000010200");
    EXPECT_EQ(ToBus("240.800", R"({"heightPosition":0,"slatsPosition":0})"), "000003");
    EXPECT_EQ(ToBus("235.001", R"({"activeEnergy":1})"), kRefused);
}

// There are 16 groups: with ai = 1 the address ends at 15.
TEST(GearDiagnostic, RefusesAGroupThatThereIsNot) {
    EXPECT_EQ(ToBus("237.600", R"({"ce":0,"bf":0,"lf":0,"rr":0,"ai":1,"addr":15})"), "004f");
    EXPECT_EQ(ToBus("237.600", R"({"ce":0,"bf":0,"lf":0,"rr":0,"ai":1,"addr":16})"), kRefused);
    EXPECT_EQ(ToBus("237.600", R"({"ce":0,"bf":0,"lf":0,"rr":0,"ai":0,"addr":63})"), "003f");
    EXPECT_EQ(FromBus("237.600", {0x00, 0x50}), R"({"ce":0,"bf":0,"lf":0,"rr":0,"ai":1,"addr":16})");
    EXPECT_EQ(WhyNotToBus("237.600", R"({"ce":0,"bf":0,"lf":0,"rr":0,"ai":1,"addr":16})"),
              "237.600: \"addr\": 16 is above 15, the last group");
}

TEST(Locale, HasTwoTextsOfAscii) {
    EXPECT_EQ(FromBus("231.001", {'d', 0, 0, 'x'}), R"({"language":"d","region":""})");
    EXPECT_EQ(FromBus("231.001", {'"', '\\', 0x01, 0xFC}), R"({"language":"\"\\","region":"\u0001ü"})");
    EXPECT_EQ(ToBus("231.001", R"({"language":"\"\\","region":"\u0001"})"), "225c0100");
    EXPECT_EQ(ToBus("231.001", R"({"language":"deu","region":"AT"})"), kRefused);
    EXPECT_EQ(ToBus("231.001", R"({"language":"ü","region":"AT"})"), kRefused);
    EXPECT_EQ(ToBus("231.001", R"({"language":1,"region":"AT"})"), kRefused);
    EXPECT_EQ(ToBus("231.001", R"({"language":"a\u0000","region":"AT"})"), kRefused);
    EXPECT_EQ(AsReceived("231.001", R"({"language":"ü","region":"AT"})"), "fc004154");
    EXPECT_EQ(WhyNotToBus("231.001", R"({"language":"deu","region":"AT"})"),
              "231.001: \"language\": 'deu' has more than 2 octets");
}

// Day 3 (011), 12 hours (01100): 6Ch. Item 2 of 4. Profile 5 (000101), dry contact 3 (11): 17h. vc7 and vc1:
// 41h.
TEST(TariffDayProfile, HasATimeOfDay) {
    const char* text =
        R"({"day":3,"hour":12,"minute":30,"second":15,"itemNumber":2,"totalItems":4,"tariff":1,)"
        R"("dayProfile":5,"dryContact":3,"vc7":1,"vc6":0,"vc5":0,"vc4":0,"vc3":0,"vc2":0,"vc1":1})";
    ExpectBothWays({{"271.1200", {0x6C, 0x1E, 0x0F, 0x24, 0x01, 0x17, 0x41}, text}});
    EXPECT_EQ(FromBus("271.1200", {0x6C, 0xDE, 0xCF, 0x24, 0x01, 0x17, 0xC1}), text);
    EXPECT_EQ(FromBus("271.1200", {0x18, 0x00, 0x00, 0, 0, 0, 0}), kRefused); // 24 hours
    EXPECT_EQ(FromBus("271.1200", {0x00, 0x3C, 0x00, 0, 0, 0, 0}), kRefused); // 60 minutes
    EXPECT_EQ(ToBus("271.1200", With(text, "second", "60")), kRefused);
    EXPECT_EQ(ToBus("271.1200", With(text, "tariff", "255")), kRefused);
}

// Validity is bits 3 to 0: 0Dh leaves out the probability. -3.56 is 869Ch. 40h of 255 steps is 64 * 360 /
// 255.
TEST(Forecast, HasValidityInFront) {
    ExpectBothWays(
        {{"273.001",
          {0x0D, 0x00, 0x3C, 0x80, 0x0C, 0x33, 0x86, 0x9C},
          R"({"validDelay":1,"validProbability":1,"validMax":0,"validMin":1,"delayTime":60,"probability":50.2,"max":21.5,"min":-3.56})"},
         {"273.002",
          {0x00, 0x00, 0x00, 0x00, 0x7F, 0xFF, 0x7F, 0xFF},
          R"({"validDelay":0,"validProbability":0,"validMax":0,"validMin":0,"delayTime":0,"probability":0,"max":null,"min":null})"},
         {"274.001",
          {0x0F, 0xFF, 0xFF, 0xFF, 0xFF, 0x40},
          R"({"validDelay":1,"validProbability":1,"validMax":1,"validMin":1,"delayTime":65535,"probability":100,"max":360,"min":90.4})"}});
    EXPECT_EQ(ToBus("273.001", R"({"delayTime":60,"probability":50.2,"max":21.5,"min":-3.56})"),
              "0f003c800c33869c");
    EXPECT_EQ(
        FromBus("274.001", {0xF1, 0, 0, 0, 0, 0}),
        R"({"validDelay":0,"validProbability":0,"validMax":0,"validMin":1,"delayTime":0,"probability":0,"max":0,"min":0})");
}

TEST(FloatSetpoints, OfFourHaveANullToo) {
    ExpectBothWays({{"275.100",
                     {0x0C, 0x33, 0x7F, 0xFF, 0x00, 0x64, 0x7F, 0xFE},
                     R"({"comfort":21.5,"standby":null,"economy":1,"buildingProtection":670433.28})"}});
}

// ta is bit 4, dca1 bit 0.
TEST(RadioChannelStatus, HasDutyCyclesAndAlarms) {
    ExpectBothWays(
        {{"276.1200",
          {0xFF, 0x80, 0x00, 0x11},
          R"({"dutyCycle1":100,"dutyCycle2":50.2,"dutyCycle3":0,"ta":1,"update":0,"dca3":0,"dca2":0,"dca1":1})"}});
}

TEST(ConverterInfo, HasTwoPeriods) {
    ExpectBothWays({{"272.600",
                     {0x03, 0x00, 0x64, 0x01, 0x00, 0xFE, 0x05},
                     R"({"infoValid":3,"timePeriod1":100,"timePeriod2":256,"emLevel":254,"daliSA":5})"}});
}

namespace {

// Register n has the energy n, the tariff n, and t = 1 when n is even.
Bytes Registers(unsigned count) {
    Bytes octets{'m', 'e', 't', 'e', 'r', ' ', 0xC3, 0xBC, 0, 0, 0, 0};
    for (unsigned n = 1; n <= count; ++n) {
        const auto octet = static_cast<std::uint8_t>(n);
        octets.insert(octets.end(), {0, 0, 0, octet, octet, static_cast<std::uint8_t>(n % 2 == 0)});
    }
    return octets;
}

std::string TextOfRegisters(unsigned count) {
    std::string text = R"({"text":"meter ü")";
    for (unsigned n = 1; n <= count; ++n) {
        const std::string number = std::to_string(n);
        text += ",\"activeEnergy" + number + "\":" + number + ",\"tariff" + number + "\":" + number + ",\"e" +
                number + "\":0,\"t" + number + "\":" + (n % 2 == 0 ? "1" : "0");
    }
    return text + "}";
}

} // namespace

// 12 octets of UTF-8, then 6 octets for each register.
TEST(EnergyRegisters, AreNumberedMembers) {
    const std::pair<const char*, unsigned> types[] = {
        {"277.1200", 4}, {"278.1200", 5}, {"279.1200", 6}, {"280.1200", 11}};
    for (const auto& [dpt, count] : types) {
        EXPECT_EQ(FromBus(dpt, Registers(count)), TextOfRegisters(count));
        EXPECT_EQ(ToBus(dpt, TextOfRegisters(count)), Hex(Registers(count)));
    }
}

// 1 May 2024 is a Wednesday (3); 12:30:00 with day 3 is 6Ch 1Eh 00h; 2024 - 1900 = 124 = 7Ch.
TEST(EnergyRegisters, MayBeginWithDateAndTime) {
    const std::pair<const char*, unsigned> types[] = {
        {"281.1200", 4}, {"282.1200", 5}, {"283.1200", 6}, {"284.1200", 11}};
    for (const auto& [dpt, count] : types) {
        Bytes octets{0x7C, 0x05, 0x01, 0x6C, 0x1E, 0x00, 0x00, 0x80};
        const Bytes registers = Registers(count);
        octets.insert(octets.end(), registers.begin(), registers.end());
        const std::string text =
            R"({"year":2024,"month":5,"day":1,"dow":3,"hour":12,"minute":30,"second":0,"f":0,"wd":0,"nwd":0,)"
            R"("ny":0,"nd":0,"ndow":0,"nt":0,"suti":0,"clq":1,"src":0,)" +
            TextOfRegisters(count).substr(1);
        EXPECT_EQ(FromBus(dpt, octets), text);
        EXPECT_EQ(ToBus(dpt, text), Hex(octets));
        EXPECT_EQ(ToBus(dpt, With(text, "month", "13")), kRefused);
    }
}

// The last of the 12 octets is the NUL.
TEST(EnergyRegisters, HaveATextOfElevenOctets) {
    const std::string text = TextOfRegisters(4);
    const std::string eleven = With(text, "text", "\"12345678901\"");
    EXPECT_EQ(ToBus("277.1200", eleven).substr(0, 24), "313233343536373839303100");
    EXPECT_EQ(ToBus("277.1200", With(text, "text", "\"123456789012\"")), kRefused);
    EXPECT_EQ(ToBus("277.1200", With(text, "text", "\"1234567890ü\"")), kRefused);
    Bytes octets = Registers(4);
    std::fill_n(octets.begin(), 12, std::uint8_t{'x'});
    const std::string shown = With(text, "text", "\"xxxxxxxxxxxx\"");
    EXPECT_EQ(FromBus("277.1200", octets), shown);
    EXPECT_EQ(AsReceived("277.1200", shown), Hex(octets));
    octets[11] = 0xC3; // half a character
    EXPECT_EQ(FromBus("277.1200", octets), kRefused);
}
