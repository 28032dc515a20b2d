// Every number field of the composites from 25 on, at its limits and one step beyond them.
#include "Convert.h"

#include "ValueConverter/DatapointTypes.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

using namespace ConverterTest;

namespace {

struct Limits {
    const char* below;
    const char* lowest;
    const char* highest;
    const char* above;
};

// By the encodings of the KNX Standard: U1, U8, V16, V16 / 50 ...
const std::map<std::string_view, Limits> s_limits{
    {"U1", {"-1", "0", "1", "2"}},
    {"U2", {"-1", "0", "3", "4"}},
    {"U2..2", {"-1", "0", "2", "3"}},
    {"U3", {"-1", "0", "7", "8"}},
    {"U4", {"-1", "0", "15", "16"}},
    {"U4..3", {"-1", "0", "3", "4"}},
    {"U4..5", {"-1", "0", "5", "6"}},
    {"U4..9", {"-1", "0", "9", "10"}},
    {"U5", {"-1", "0", "31", "32"}},
    {"U6", {"-1", "0", "63", "64"}},
    {"scene", {"0", "1", "64", "65"}},
    {"U8", {"-1", "0", "255", "256"}},
    {"U8..100", {"-1", "0", "100", "101"}},
    {"U8..254", {"-1", "0", "254", "255"}},
    {"percent", {"-0.1", "0", "100", "100.1"}},
    {"percent>0", {"0.3", "0.4", "100", "100.1"}},
    {"angle", {"-0.1", "0", "360", "360.1"}},
    {"V8..100", {"-101", "-100", "100", "101"}},
    {"U16", {"-1", "0", "65535", "65536"}},
    {"U16>0", {"0", "1", "65535", "65536"}},
    {"U16..510", {"-1", "0", "510", "511"}},
    {"U16*10", {"-1", "0", "655350", "655351"}},
    {"U16*100", {"-1", "0", "6553500", "6553501"}},
    {"U16/100", {"-0.01", "0", "655.35", "655.36"}},
    {"U16/20", {"-0.01", "0", "3276.75", "3276.76"}},
    {"U16/65535", {"-0.00001", "0", "1", "1.00001"}},
    {"V16", {"-32769", "-32768", "32767", "32768"}},
    {"V16*10", {"-327681", "-327680", "327670", "327671"}},
    {"V16*100", {"-3276801", "-3276800", "3276700", "3276701"}},
    {"V16/100", {"-327.69", "-327.68", "327.67", "327.68"}},
    {"V16/50", {"-655.37", "-655.36", "655.34", "655.35"}},
    {"temp", {"-273.01", "-273", "655.34", "655.35"}},
    {"shift", {"-655.35", "-655.34", "655.34", "655.35"}},
    {"F16", {"-671088.65", "-671088.64", "670433.28", "670433.29"}},
    {"U32", {"-1", "0", "4294967295", "4294967296"}},
    {"V32", {"-2147483649", "-2147483648", "2147483647", "2147483648"}},
    {"V32/10000", {"-214748.3649", "-214748.3648", "214748.3647", "214748.3648"}},
    {"F32", {"-3.5e+38", "-3.4028235e+38", "3.4028235e+38", "3.5e+38"}},
};

struct Fields {
    const char* dpt;
    const char* list; // "busy:U4..3 nak:U4..3"
};

const Fields s_fields[] = {
    {"25.1000", "busy:U4..3 nak:U4..3"},
    {"26.001", "b:U1 scene:scene"},
    {"27.001", "mask:U16 state:U16"},
    {"200.100", "value:U1 status:U8"},
    {"201.100", "mode:U8 status:U8"},
    {"202.002", "value:U8 status:U8"},
    {"203.002", "value:U16 status:U8"},
    {"203.003", "value:U16*10 status:U8"},
    {"203.004", "value:U16*100 status:U8"},
    {"203.011", "value:U16/100 status:U8"},
    {"203.012", "value:U16 status:U8"},
    {"203.013", "value:U16/100 status:U8"},
    {"203.014", "value:U16 status:U8"},
    {"203.015", "value:U16/20 status:U8"},
    {"203.017", "value:U16/100 status:U8"},
    {"203.101", "value:U16/100 status:U8"},
    {"203.102", "value:U16/20 status:U8"},
    {"204.001", "value:V8..100 status:U8"},
    {"205.002", "value:V16 status:U8"},
    {"205.003", "value:V16*10 status:U8"},
    {"205.004", "value:V16*100 status:U8"},
    {"205.017", "value:V16/100 status:U8"},
    {"205.100", "value:V16/50 status:U8"},
    {"205.101", "value:V16/50 status:U8"},
    {"205.102", "value:V16 status:U8"},
    {"206.100", "delayTime:U16 mode:U8"},
    {"207.100", "value:U8..100 attributes:U8"},
    {"207.600", "actualValue:percent attributes:U8"},
    {"209.100", "temp:temp attributes:U8"},
    {"210.100", "temp:temp attributes:U16"},
    {"211.100", "energyDem:U8..100 contrModeAct:U8"},
    {"212.100", "comfort:shift standby:shift economy:shift"},
    {"212.101", "comfort:temp standby:temp economy:temp"},
    {"213.100", "comfort:temp standby:temp economy:temp buildingProtection:temp"},
    {"213.101", "legioProtect:temp normal:temp reduced:temp offFrostProtect:temp"},
    {"213.102", "comfort:shift standby:shift economy:shift buildingProtection:shift"},
    {"214.101", "temp:V16/50 relDemLimit:U8 attributes:U8"},
    {"215.100", "temp:V16/50 relPower:U8 attributes:U16"},
    {"216.100", "pnom:U16 bStageLimit:U8 burnerType:U8 fuelType:U8"},
    {"217.001", "magic:U5 version:U5 revision:U6"},
    {"218.001", "value:V32 status:U8"},
    {"218.002", "value:V32/10000 status:U8"},
    {"219.001", "logNumber:U8 alarmPriority:U8 applicationArea:U8 errorClass:U8 attributes:U8 "
                "alarmStatusAttributes:U8"},
    {"220.100", "delayTime:U16 temp:V16/50"},
    {"221.001", "manufacturerCode:U16 incrementedNumber:U32"},
    {"222.100", "comfort:F16 standby:F16 economy:F16"},
    {"223.100", "energyDem:V8..100 contrModeAct:U8 hvacEmergMode:U8"},
    {"224.100", "tempSetpCooling:temp tempSetpHeating:temp contrModeAct:U8 hvacEmergMode:U8"},
    {"225.001", "timePeriod:U16>0 percent:percent>0"},
    {"225.002", "timePeriod:U16>0 percent:percent"},
    {"225.003", "delayTime:U16 tariff:U8..254"},
    {"229.001", "countVal:V32 valInfField:U8 status:U8"},
    {"230.1000", "manufactId:U16 identNumber:U32 version:U8 medium:U8"},
    {"231.001", ""},
    {"232.600", "r:U8 g:U8 b:U8"},
    {"235.001", "activeEnergy:V32 tariff:U8 e:U1 t:U1"},
    {"236.001", "d:U1 p:U3 m:U4"},
    {"237.600", "ce:U1 bf:U1 lf:U1 rr:U1 ai:U1 addr:U6"},
    {"238.001", "s:U1 sa:U1 scene:U6"},
    {"238.600", "bf:U1 lf:U1 addr:U6"},
    {"239.001", "setvalue:percent ca:U1"},
    {"240.800", "heightPosition:percent slatsPosition:percent validSlatsPos:U1 validHeightPos:U1"},
    {"241.800", "heightPosition:percent slatsPosition:percent attributes:U16"},
    {"242.600", "x:U16/65535 y:U16/65535 brightness:percent c:U1 b:U1"},
    {"243.600", "timePeriod:U16*100 y:U16/65535 x:U16/65535 brightness:percent c:U1 b:U1"},
    {"244.600", "cm:U4..9 hs:U4..3 fp:U2..2 dp:U2..2 pp:U2..2 cf:U2..2"},
    {"245.600", "ltrf:U4..5 ltrd:U4..5 ltrp:U4..5 sf:U2..2 sd:U2..2 sp:U2..2 ldtr:U16..510 lpdtr:U8"},
    {"246.600", "bs:U3 bcl:U8"},
    {"247.600", "timePeriod1:U16 timePeriod2:U16"},
    {"248.600", "infoValid:U8 emMinLevel:U8 emMaxLevel:U8 ratedDur:U8 gearFeat:U8"},
    {"249.600", "timePeriod:U16*100 colourTemperature:U16 brightness:percent validTime:U1 "
                "validColourTemperature:U1 validBrightness:U1"},
    {"250.600", "cCT:U1 stepCT:U3 cB:U1 stepB:U3 validCT:U1 validB:U1"},
    {"251.600", "r:U8 g:U8 b:U8 w:U8 mR:U1 mG:U1 mB:U1 mW:U1"},
    {"252.600", "cR:U1 stepR:U3 cG:U1 stepG:U3 cB:U1 stepB:U3 cW:U1 stepW:U3 mR:U1 mG:U1 mB:U1 mW:U1"},
    {"253.600", "cS:U1 stepS:U3 cC:U1 stepC:U3 cB:U1 stepB:U3 mS:U1 mC:U1 mB:U1"},
    {"254.600", "cR:U1 stepR:U3 cG:U1 stepG:U3 cB:U1 stepB:U3"},
    {"255.001", "longitude:F32 latitude:F32"},
    {"256.001", "start_dow:U3 start_f:U1 stop_dow:U3 stop_src:U1"},
    {"257.1201", "phase1:F32 phase2:F32 phase3:F32"},
    {"265.001", "dow:U3 f:U1 wd:U1 nwd:U1 ny:U1 nd:U1 ndow:U1 nt:U1 suti:U1 clq:U1 src:U1 b:U1"},
    {"266.056", "value:F32"},
    {"267.001", "clq:U1"},
    {"268.1203", "value:U8"},
    {"269.1200", "activeEnergy:V32 tariff:U8 e:U1 t:U1"},
    {"270.1202", "phase1:F32 phase2:F32 phase3:F32"},
    {"271.1200",
     "day:U3 itemNumber:U4 totalItems:U4 tariff:U8..254 dayProfile:U6 dryContact:U2 vc7:U1 vc6:U1 "
     "vc5:U1 vc4:U1 vc3:U1 vc2:U1 vc1:U1"},
    {"272.600", "infoValid:U8 timePeriod1:U16 timePeriod2:U16 emLevel:U8 daliSA:U8"},
    {"273.001", "validDelay:U1 validProbability:U1 validMax:U1 validMin:U1 delayTime:U16 probability:percent "
                "max:F16 min:F16"},
    {"274.001", "validDelay:U1 validProbability:U1 validMax:U1 validMin:U1 delayTime:U16 probability:percent "
                "max:angle min:angle"},
    {"275.100", "comfort:F16 standby:F16 economy:F16 buildingProtection:F16"},
    {"276.1200", "dutyCycle1:percent dutyCycle2:percent dutyCycle3:percent ta:U1 update:U1 dca3:U1 dca2:U1 "
                 "dca1:U1"},
    {"277.1200", "activeEnergy1:V32 tariff1:U8 e1:U1 t1:U1 activeEnergy4:V32 tariff4:U8 e4:U1 t4:U1"},
    {"278.1200", "activeEnergy5:V32 tariff5:U8 e5:U1 t5:U1"},
    {"279.1200", "activeEnergy6:V32 tariff6:U8 e6:U1 t6:U1"},
    {"280.1200", "activeEnergy11:V32 tariff11:U8 e11:U1 t11:U1"},
    {"281.1200", "activeEnergy4:V32 t4:U1"},
    {"282.1200", "activeEnergy5:V32 t5:U1"},
    {"283.1200", "activeEnergy6:V32 t6:U1"},
    {"284.1200", "activeEnergy11:V32 t11:U1"},
};

// A legal value of the type: every octet is 1, but the text is empty, because 12 octets have no place for a
// NUL.
std::string AnyValue(const char* dpt) {
    const unsigned bits = Datapoint::SizeInBits(*Datapoint::Find(*Datapoint::Parse(dpt)));
    const std::string value = FromBus(dpt, Bytes(bits == 0 ? 10 : bits / 8, 0x01));
    return value.starts_with('{') && value.find("\"text\"") != std::string::npos ? With(value, "text", "\"\"")
                                                                                 : value;
}

void ExpectLimits(const char* dpt, std::string_view field, const Limits& limits) {
    const std::string value = AnyValue(dpt);
    ASSERT_NE(ToBus(dpt, value), kRefused) << dpt << ' ' << value;
    for (const auto* inside : {limits.lowest, limits.highest}) {
        const std::string text = With(value, field, inside);
        const std::string octets = ToBus(dpt, text);
        ASSERT_NE(octets, kRefused) << dpt << ' ' << text;
        Bytes back;
        for (std::size_t at = 0; at < octets.size(); at += 2) {
            back.push_back(static_cast<std::uint8_t>(std::stoul(octets.substr(at, 2), nullptr, 16)));
        }
        EXPECT_EQ(FromBus(dpt, back), text);
    }
    for (const auto* outside : {limits.below, limits.above}) {
        EXPECT_EQ(ToBus(dpt, With(value, field, outside)), kRefused) << dpt << ' ' << field << ' ' << outside;
    }
}

} // namespace

TEST(FieldLimits, EndAtTheLastValueOfTheBits) {
    for (const auto& [dpt, list] : s_fields) {
        for (std::string_view rest = list; !rest.empty();) {
            const std::string_view entry = rest.substr(0, rest.find(' '));
            rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
            const auto colon = entry.find(':');
            const auto limits = s_limits.find(entry.substr(colon + 1));
            ASSERT_NE(limits, s_limits.end()) << entry;
            ExpectLimits(dpt, entry.substr(0, colon), limits->second);
        }
    }
}

TEST(FieldLimits, AreTestedForEveryMainNumberWithFields) {
    std::set<unsigned> tested;
    for (const auto& [dpt, list] : s_fields) {
        tested.insert(Datapoint::Parse(dpt)->main);
    }
    for (const auto& type : Datapoint::AllTypes()) {
        if (type.main > 20 && AnyValue(Datapoint::ToString(type.GetNumber()).c_str()).starts_with('{')) {
            EXPECT_TRUE(tested.contains(type.main)) << type.name;
        }
    }
}
