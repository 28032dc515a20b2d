// One value of every main type, with how its octets are worked out: the page to look at when in doubt.
#include "Convert.h"

#include "ValueConverter/DatapointTypes.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <set>

using namespace ConverterTest;

namespace {

struct Worked {
    const char* dpt;
    std::string octets; // in hexadecimal
    std::string text;
    const char* how;
};

// 2023 - 1900 = 7Bh, month 12, day 31; day of the week 7 * 32 + 23 h = 247, F7h; 59 min, 58 s; bit 6 of
// either octet of flags: working day, reliable source.
const std::string s_dateTime = "7b0c1ff73b3a4040";

std::string DateTimeMembers(const char* prefix) {
    return fmt::format(
        R"("{0}year":2023,"{0}month":12,"{0}day":31,"{0}dow":7,"{0}hour":23,"{0}minute":59,"{0}second":58,)"
        R"("{0}f":0,"{0}wd":1,"{0}nwd":0,"{0}ny":0,"{0}nd":0,"{0}ndow":0,"{0}nt":0,"{0}suti":0,"{0}clq":0,)"
        R"("{0}src":1)",
        prefix);
}

// A m, filled up to 12 octets; then for each register its number in four octets, tariff 2, and bit 1: e.
std::string Registers(int count) {
    std::string octets = "6d0000000000000000000000";
    for (int n = 1; n <= count; ++n) {
        octets += fmt::format("{:08x}0202", n);
    }
    return octets;
}

std::string RegisterMembers(int count) {
    std::string members = R"("text":"m")";
    for (int n = 1; n <= count; ++n) {
        members += fmt::format(R"(,"activeEnergy{0}":{0},"tariff{0}":2,"e{0}":1,"t{0}":0)", n);
    }
    return members;
}

const Worked s_worked[] = {
    {"1.001", "01", "1", "the one bit"},
    {"2.001", "02", R"({"c":1,"v":0})", "control is bit 1, value bit 0"},
    {"3.007", "0d", R"({"c":1,"stepcode":5})", "control is bit 3: 1 101"},
    {"4.001", "7a", "z", "z is 122, 7Ah"},
    {"5.001", "40", "25.1", "64 * 100 / 255 = 25.098"},
    {"6.010", "9c", "-100", "9Ch = 156, less 256"},
    {"7.001", "1234", "4660", "18 * 256 + 52"},
    {"8.001", "fc18", "-1000", "FC18h = 64536, less 65536"},
    {"9.001", "832e", "-12.34", "sign, exponent 0, mantissa 32Eh = 814, less 2048: -1234 hundredths"},
    {"10.001", "b71e00", "Fri 23:30:00", "day 5 * 32 + 23 h = 183, B7h; 30 min; 0 s"},
    {"11.001", "1f0c63", "1999-12-31", "day 31, month 12; year 99, from 90 on of the 20th century"},
    {"12.001", "89abcdef", "2309737967", "89ABh = 35243; 35243 * 65536 + CDEFh, 52719"},
    {"13.010", "ff676980", "-10000000", "00989680h = 10000000, all bits turned, and one more"},
    {"14.056", "c2f60000", "-123", "sign, exponent 85h = 133, fraction 76h / 80h: -1.921875 * 2^6"},
    {"15.000", "00123453", R"({"code":"001234","e":0,"p":1,"d":0,"c":1,"index":3})", "six digits; 0101 0011"},
    {"16.001", "4bfc636865000000000000000000", "Küche", "FCh is ü in ISO 8859-1; filled up to 14 octets"},
    {"17.001", "0f", "16", "the 16th scene, counted from 0"},
    {"18.001", "8f", "-16", "bit 7: learn; the 16th scene, counted from 0"},
    {"19.001", s_dateTime, "2023-12-31T23:59:58;wd=1;src=1",
     "see s_dateTime; 31 December 2023 was a Sunday, so that dow is left out"},
    {"20.102", "03", "3", "the number itself"},
    {"21.001", "18", "24", "bits 4 and 3: 16 + 8"},
    {"22.101", "2001", "8193", "bits 13 and 0: 8192 + 1"},
    {"23.001", "02", "2", "two bits: 10"},
    {"24.001", "e900", "é", "E9h is é in ISO 8859-1; a NUL"},
    {"25.1000", "12", R"({"busy":1,"nak":2})", "the upper and the lower half"},
    {"26.001", "4a", R"({"b":1,"scene":11})", "0 1 001010: scene 10, counted from 0"},
    {"27.001", "80010001", R"({"mask":32769,"state":1})",
     "bits 15 and 0 of the first two octets: 32768 + 1; bit 0 of the others"},
    {"28.001", "e282ac00", "€", "U+20AC is 0010 000010 101100: 1110 0010, 10 000010, 10 101100; a NUL"},
    {"29.010", "fffffffdabf41c00", "-10000000000",
     "2540BE400h = 2 * 2^32 + 1410065408, all bits turned, and one more"},
    {"30.1010", "400002", "4194306", "bits 22 and 1: 4194304 + 2"},
    {"31.101", "05", "5", "three bits: 101"},
    {"200.100", "0103", R"({"value":1,"status":3})", "bit 0; the status behind it"},
    {"201.100", "0301", R"({"mode":3,"status":1})", "two octets"},
    {"202.001", "6400", R"({"value":100,"status":0})", "64h = 100"},
    {"203.002", "012c01", R"({"value":300,"status":1})", "256 + 44"},
    {"204.001", "ce00", R"({"value":-50,"status":0})", "CEh = 206, less 256"},
    {"205.100", "fc1801", R"({"value":-20,"status":1})", "-1000 / 50"},
    {"206.100", "005a02", R"({"delayTime":90,"mode":2})", "5Ah = 90"},
    {"207.100", "3205", R"({"value":50,"attributes":5})", "32h = 50"},
    {"209.100", "03e801", R"({"temp":20,"attributes":1})", "1000 / 50"},
    {"210.100", "0bb80102", R"({"temp":60,"attributes":258})", "3000 / 50; 256 + 2"},
    {"211.100", "1402", R"({"energyDem":20,"contrModeAct":2})", "14h = 20"},
    {"212.100", "0064ffceff38", R"({"comfort":2,"standby":-1,"economy":-4})",
     "100 / 50, -50 / 50, -200 / 50"},
    {"213.100", "041a03e803840190", R"({"comfort":21,"standby":20,"economy":18,"buildingProtection":8})",
     "1050, 1000, 900 and 400 / 50"},
    {"214.100", "0dac5003", R"({"temp":70,"relDemLimit":80,"attributes":3})", "3500 / 50; 50h = 80"},
    {"215.100", "0dac500103", R"({"temp":70,"relPower":80,"attributes":259})",
     "3500 / 50; 50h = 80; 256 + 3"},
    {"216.100", "00f0640201", R"({"pnom":240,"bStageLimit":100,"burnerType":2,"fuelType":1})",
     "F0h = 240, 64h = 100"},
    {"217.001", "1105", R"({"magic":2,"version":4,"revision":5})", "00010 00100 000101"},
    {"218.001", "ffffff9c02", R"({"value":-100,"status":2})", "9Ch = 156, less 256"},
    {"219.001", "010203040506",
     R"({"logNumber":1,"alarmPriority":2,"applicationArea":3,"errorClass":4,"attributes":5,"alarmStatusAttributes":6})",
     "an octet each"},
    {"220.100", "003c03e8", R"({"delayTime":60,"temp":20})", "3Ch = 60; 1000 / 50"},
    {"221.001", "008300010203", R"({"manufacturerCode":131,"incrementedNumber":66051})",
     "83h = 131; 65536 + 2 * 256 + 3"},
    {"222.100", "07d0076c7fff", R"({"comfort":20,"standby":19,"economy":null})",
     "exponent 0: 2000 and 1900 hundredths; 7FFFh is no value"},
    {"223.100", "ce0102", R"({"energyDem":-50,"contrModeAct":1,"hvacEmergMode":2})", "CEh = 206, less 256"},
    {"224.100", "051403e80102",
     R"({"tempSetpCooling":26,"tempSetpHeating":20,"contrModeAct":1,"hvacEmergMode":2})",
     "1300 and 1000 / 50"},
    {"225.001", "0032ff", R"({"timePeriod":50,"percent":100})", "32h = 50; 255 * 100 / 255"},
    {"229.001", "00bc614e0501", R"({"countVal":12345678,"valInfField":5,"status":1})",
     "BCh = 188; 188 * 65536 + 614Eh, 24910"},
    {"230.1000", "1234000100000203", R"({"manufactId":4660,"identNumber":65536,"version":2,"medium":3})",
     "18 * 256 + 52; 2^16"},
    {"231.001", "656e4742", R"({"language":"en","region":"GB"})", "e n G B in ASCII"},
    {"232.600", "102030", R"({"r":16,"g":32,"b":48})", "an octet each"},
    {"234.001", "6672", "fr", "f r in ASCII"},
    {"235.001", "fffffc180102", R"({"activeEnergy":-1000,"tariff":1,"e":1,"t":0})",
     "FC18h = 64536, less 65536; e is bit 1"},
    {"236.001", "a5", R"({"d":1,"p":2,"m":5})", "1 010 0101"},
    {"237.600", "048a", R"({"ce":1,"bf":0,"lf":0,"rr":1,"ai":0,"addr":10})", "00000 1 0 0, 1 0 001010"},
    {"238.001", "4c", R"({"s":0,"sa":1,"scene":12})", "0 1 001100"},
    {"239.001", "3301", R"({"setvalue":20,"ca":1})", "51 * 100 / 255; bit 0"},
    {"240.800", "336602", R"({"heightPosition":20,"slatsPosition":40,"validSlatsPos":1,"validHeightPos":0})",
     "51 and 102 * 100 / 255; bit 1 is the slats"},
    {"241.800", "33660102", R"({"heightPosition":20,"slatsPosition":40,"attributes":258})",
     "51 and 102 * 100 / 255; 256 + 2"},
    {"242.600", "400080003301", R"({"x":0.25,"y":0.50001,"brightness":20,"c":0,"b":1})",
     "16384 / 65535 = 0.250004, 32768 / 65535 = 0.500008; 51 * 100 / 255; b is bit 0"},
    {"243.600", "000a800040003302", R"({"timePeriod":1000,"y":0.50001,"x":0.25,"brightness":20,"c":1,"b":0})",
     "10 * 100 ms; y is in front; the rest as 242.600"},
    {"244.600", "5249", R"({"cm":5,"hs":2,"fp":1,"dp":0,"pp":2,"cf":1})", "0101 0010 01 00 10 01"},
    {"245.600", "123060012c32", R"({"ltrf":1,"ltrd":2,"ltrp":3,"sf":1,"sd":2,"sp":0,"ldtr":300,"lpdtr":50})",
     "halves 1 2 3 and 0; 01 10 00 00; 256 + 44; 32h = 50"},
    {"246.600", "0280", R"({"bs":2,"bcl":128})", "00000 010; 80h = 128"},
    {"247.600", s_dateTime + "000a0014",
     std::string("{") + DateTimeMembers("") + R"(,"timePeriod1":10,"timePeriod2":20})",
     "see s_dateTime; 10 and 20"},
    {"248.600", "030aff3c01",
     R"({"infoValid":3,"emMinLevel":10,"emMaxLevel":255,"ratedDur":60,"gearFeat":1})", "an octet each"},
    {"249.600", "000a0fa03305",
     R"({"timePeriod":1000,"colourTemperature":4000,"brightness":20,"validTime":1,"validColourTemperature":0,"validBrightness":1})",
     "10 * 100 ms; FA0h = 4000; 51 * 100 / 255; 1 0 1"},
    {"250.600", "0a0402", R"({"cCT":1,"stepCT":2,"cB":0,"stepB":4,"validCT":1,"validB":0})",
     "1 010, 0 100, 1 0"},
    {"251.600", "102030400005", R"({"r":16,"g":32,"b":48,"w":64,"mR":0,"mG":1,"mB":0,"mW":1})",
     "an octet each; a reserved one; 0101"},
    {"252.600", "0901020b0c",
     R"({"cR":1,"stepR":1,"cG":0,"stepG":1,"cB":0,"stepB":2,"cW":1,"stepW":3,"mR":1,"mG":1,"mB":0,"mW":0})",
     "1 001, 0 001, 0 010, 1 011; 1100"},
    {"253.600", "0a030c02", R"({"cS":1,"stepS":2,"cC":0,"stepC":3,"cB":1,"stepB":4,"mS":0,"mC":1,"mB":0})",
     "1 010, 0 011, 1 100; 010"},
    {"254.600", "0b0104", R"({"cR":1,"stepR":3,"cG":0,"stepG":1,"cB":0,"stepB":4})", "1 011, 0 001, 0 100"},
    {"255.001", "41800000c1200000", R"({"longitude":16,"latitude":-10})",
     "exponent 83h = 131: 1 * 2^4; sign, exponent 82h, fraction 1/4: -1.25 * 2^3"},
    {"256.001", s_dateTime + s_dateTime,
     std::string("{") + DateTimeMembers("start_") + "," + DateTimeMembers("stop_") + "}",
     "see s_dateTime, twice"},
    {"257.1200", "3f8000004000000040400000", R"({"phase1":1,"phase2":2,"phase3":3})",
     "exponents 7Fh, 80h, 80h; fractions 0, 0, 1/2"},
    {"265.001", s_dateTime + "01", std::string("{") + DateTimeMembers("") + R"(,"b":1})",
     "see s_dateTime; bit 0"},
    {"266.027", s_dateTime + "c2f60000", std::string("{") + DateTimeMembers("") + R"(,"value":-123})",
     "see s_dateTime; as 14.056"},
    {"267.001", s_dateTime + "e282ac00", std::string("{") + DateTimeMembers("") + R"(,"text":"€"})",
     "see s_dateTime; as 28.001"},
    {"268.1203", s_dateTime + "02", std::string("{") + DateTimeMembers("") + R"(,"value":2})",
     "see s_dateTime; the number itself"},
    {"269.1200", s_dateTime + "000003e80201",
     std::string("{") + DateTimeMembers("") + R"(,"activeEnergy":1000,"tariff":2,"e":0,"t":1})",
     "see s_dateTime; 3E8h = 1000; t is bit 0"},
    {"270.1200", s_dateTime + "3f8000004000000040400000",
     std::string("{") + DateTimeMembers("") + R"(,"phase1":1,"phase2":2,"phase3":3})",
     "see s_dateTime; as 257.1200"},
    {"271.1200", "b71e0012031705",
     R"({"day":5,"hour":23,"minute":30,"second":0,"itemNumber":1,"totalItems":2,"tariff":3,"dayProfile":5,"dryContact":3,"vc7":0,"vc6":0,"vc5":0,"vc4":0,"vc3":1,"vc2":0,"vc1":1})",
     "as 10.001; halves 1 2; 000101 11; bits 2 and 0"},
    {"272.600", "01000a00141e05",
     R"({"infoValid":1,"timePeriod1":10,"timePeriod2":20,"emLevel":30,"daliSA":5})", "1Eh = 30"},
    {"273.001", "0f003c3307d0076c",
     R"({"validDelay":1,"validProbability":1,"validMax":1,"validMin":1,"delayTime":60,"probability":20,"max":20,"min":19})",
     "1111; 3Ch = 60; 51 * 100 / 255; 2000 and 1900 hundredths"},
    {"274.001", "0e003c338000",
     R"({"validDelay":1,"validProbability":1,"validMax":1,"validMin":0,"delayTime":60,"probability":20,"max":180.7,"min":0})",
     "1110; as 273.001; 128 * 360 / 255 = 180.706"},
    {"275.100", "07d0076c06a402bc", R"({"comfort":20,"standby":19,"economy":17,"buildingProtection":7})",
     "exponent 0: 2000, 1900, 1700 and 700 hundredths"},
    {"276.1200", "33660014",
     R"({"dutyCycle1":20,"dutyCycle2":40,"dutyCycle3":0,"ta":1,"update":0,"dca3":1,"dca2":0,"dca1":0})",
     "51 and 102 * 100 / 255; 000 1 0 1 0 0"},
    {"277.1200", Registers(4), std::string("{") + RegisterMembers(4) + "}", "see Registers()"},
    {"278.1200", Registers(5), std::string("{") + RegisterMembers(5) + "}", "see Registers()"},
    {"279.1200", Registers(6), std::string("{") + RegisterMembers(6) + "}", "see Registers()"},
    {"280.1200", Registers(11), std::string("{") + RegisterMembers(11) + "}", "see Registers()"},
    {"281.1200", s_dateTime + Registers(4),
     std::string("{") + DateTimeMembers("") + "," + RegisterMembers(4) + "}",
     "see s_dateTime and Registers()"},
    {"282.1200", s_dateTime + Registers(5),
     std::string("{") + DateTimeMembers("") + "," + RegisterMembers(5) + "}",
     "see s_dateTime and Registers()"},
    {"283.1200", s_dateTime + Registers(6),
     std::string("{") + DateTimeMembers("") + "," + RegisterMembers(6) + "}",
     "see s_dateTime and Registers()"},
    {"284.1200", s_dateTime + Registers(11),
     std::string("{") + DateTimeMembers("") + "," + RegisterMembers(11) + "}",
     "see s_dateTime and Registers()"},
};

Bytes OctetsOf(const std::string& hex) {
    Bytes octets;
    for (std::size_t at = 0; at < hex.size(); at += 2) {
        octets.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(at, 2), nullptr, 16)));
    }
    return octets;
}

} // namespace

TEST(WorkedVectors, GoBothWays) {
    for (const auto& [dpt, octets, text, how] : s_worked) {
        EXPECT_EQ(FromBus(dpt, OctetsOf(octets)), text) << dpt << ": " << how;
        EXPECT_EQ(ToBus(dpt, text), octets) << dpt << ": " << how << WhyNotToBus(dpt, text);
    }
}

TEST(WorkedVectors, EveryMainTypeHasOne) {
    std::set<unsigned> worked;
    for (const Worked& row : s_worked) {
        EXPECT_TRUE(worked.insert(Dpt(row.dpt).main).second) << row.dpt;
        EXPECT_STRNE(row.how, "") << row.dpt;
    }
    std::set<unsigned> mains;
    for (const auto& type : Datapoint::AllTypes()) {
        mains.insert(type.main);
    }
    EXPECT_EQ(worked, mains);
}
