// Datapoint types 200.xxx to 205.xxx: a value and the octet Z8, which says how it stands with it.
#pragma once

#include "ValueConverter/Table/Rows.h"

namespace Datapoint {

constexpr std::array<Field, 2> WithStatus(NumberForm form) {
    return {NumberField("value", form), StatusField()};
}

inline constexpr auto s_bitZ =
    std::to_array<Field>({ReservedField(7), UnsignedField("value", 1), StatusField()});
inline constexpr CompositeLayout kBitZ = MakeComposite(s_bitZ);

inline constexpr auto s_modeZ = std::to_array<Field>({UnsignedField("mode", 8), StatusField()});
inline constexpr CompositeLayout kModeZ = MakeComposite(s_modeZ);

inline constexpr auto s_u8Z = WithStatus({8});
inline constexpr CompositeLayout kU8Z = MakeComposite(s_u8Z);

inline constexpr auto s_u16Z = WithStatus({16});
inline constexpr auto s_u16Times10Z = WithStatus({16, false, 10});
inline constexpr auto s_u16Times100Z = WithStatus({16, false, 100});
inline constexpr auto s_u16HundredthsZ = WithStatus({16, false, 1, 100, 2});
inline constexpr auto s_u16TwentiethsZ = WithStatus({16, false, 1, 20, 2});
inline constexpr CompositeLayout kU16Z = MakeComposite(s_u16Z);
inline constexpr CompositeLayout kU16Times10Z = MakeComposite(s_u16Times10Z);
inline constexpr CompositeLayout kU16Times100Z = MakeComposite(s_u16Times100Z);
inline constexpr CompositeLayout kU16HundredthsZ = MakeComposite(s_u16HundredthsZ);
inline constexpr CompositeLayout kU16TwentiethsZ = MakeComposite(s_u16TwentiethsZ);

inline constexpr auto s_v8Z =
    std::to_array<Field>({Within(SignedField("value", 8), -100, 100), StatusField()});
inline constexpr CompositeLayout kV8Z = MakeComposite(s_v8Z);
inline constexpr CompositeLayout kAnyV8Z = WithoutLimits(kV8Z);

inline constexpr auto s_v16Z = WithStatus({16, true});
inline constexpr auto s_v16Times10Z = WithStatus({16, true, 10});
inline constexpr auto s_v16Times100Z = WithStatus({16, true, 100});
inline constexpr auto s_v16HundredthsZ = WithStatus({16, true, 1, 100, 2});
inline constexpr auto s_v16FiftiethsZ = WithStatus({16, true, 1, 50, 2});
inline constexpr CompositeLayout kV16Z = MakeComposite(s_v16Z);
inline constexpr CompositeLayout kV16Times10Z = MakeComposite(s_v16Times10Z);
inline constexpr CompositeLayout kV16Times100Z = MakeComposite(s_v16Times100Z);
inline constexpr CompositeLayout kV16HundredthsZ = MakeComposite(s_v16HundredthsZ);
inline constexpr CompositeLayout kV16FiftiethsZ = MakeComposite(s_v16FiftiethsZ);

inline constexpr Type s_main200To205[] = {
    // the rule for every sub number that is not listed
    Any(200, kBitZ),
    Any(201, kModeZ),
    Any(202, kU8Z),
    Any(203, kU16Z),
    Any(204, kAnyV8Z),
    Any(205, kV16Z),

    Plain(200, 100, kBitZ, "DPT_Heat/Cool_Z"),
    Plain(200, 101, kBitZ, "DPT_BinaryValue_Z"),

    Plain(201, 100, kModeZ, "DPT_HVACMode_Z"),
    Plain(201, 102, kModeZ, "DPT_DHWMode_Z"),
    Plain(201, 104, kModeZ, "DPT_HVACContrMode_Z"),
    Plain(201, 105, kModeZ, "DPT_EnablH/Cstage_Z"),
    Plain(201, 107, kModeZ, "DPT_BuildingMode_Z"),
    Plain(201, 108, kModeZ, "DPT_OccMode_Z"),
    Plain(201, 109, kModeZ, "DPT_HVACEmergMode_Z"),

    Plain(202, 1, kU8Z, "DPT_RelValue_Z", "%", "1"),
    Plain(202, 2, kU8Z, "DPT_UCountValue8_Z"),

    Plain(203, 2, kU16Z, "DPT_TimePeriodMsec_Z", "ms", "1"),
    Plain(203, 3, kU16Times10Z, "DPT_TimePeriod10Msec_Z", "ms", "10"),
    Plain(203, 4, kU16Times100Z, "DPT_TimePeriod100Msec_Z", "ms", "100"),
    Plain(203, 5, kU16Z, "DPT_TimePeriodSec_Z", "s", "1"),
    Plain(203, 6, kU16Z, "DPT_TimePeriodMin_Z", "min", "1"),
    Plain(203, 7, kU16Z, "DPT_TimePeriodHrs_Z", "h", "1"),
    Plain(203, 11, kU16HundredthsZ, "DPT_UFlowRateLiter/h_Z", "l/h", "0.01"),
    Plain(203, 12, kU16Z, "DPT_UCountValue16_Z", "", "1"),
    Plain(203, 13, kU16HundredthsZ, "DPT_UElCurrentµA_Z", "µA", "0.01"),
    Plain(203, 14, kU16Z, "DPT_PowerKW_Z", "kW", "1"),
    Plain(203, 15, kU16TwentiethsZ, "DPT_AtmPressureAbs_Z", "mbar", "0.05"),
    Plain(203, 17, kU16HundredthsZ, "DPT_PercentU16_Z", "%", "0.01"),
    Plain(203, 100, kU16Z, "DPT_HVACAirQual_Z", "ppm", "1"),
    Plain(203, 101, kU16HundredthsZ, "DPT_WindSpeed_Z", "m/s", "0.01"),
    Plain(203, 102, kU16TwentiethsZ, "DPT_SunIntensity_Z", "W/m2", "0.05"),
    Plain(203, 104, kU16Z, "DPT_HVACAirFlowAbs_Z", "m3/h", "1"),

    Plain(204, 1, kV8Z, "DPT_RelSignedValue_Z", "%", "1"),

    Plain(205, 2, kV16Z, "DPT_DeltaTimeMsec_Z", "ms", "1"),
    Plain(205, 3, kV16Times10Z, "DPT_DeltaTime10Msec_Z", "ms", "10"),
    Plain(205, 4, kV16Times100Z, "DPT_DeltaTime100Msec_Z", "ms", "100"),
    Plain(205, 5, kV16Z, "DPT_DeltaTimeSec_Z", "s", "1"),
    Plain(205, 6, kV16Z, "DPT_DeltaTimeMin_Z", "min", "1"),
    Plain(205, 7, kV16Z, "DPT_DeltaTimeHrs_Z", "h", "1"),
    Plain(205, 17, kV16HundredthsZ, "DPT_Percent_V16_Z", "%", "0.01"),
    Plain(205, 100, kV16FiftiethsZ, "DPT_TempHVACAbs_Z", "°C", "0.02"),
    Plain(205, 101, kV16FiftiethsZ, "DPT_TempHVACRel_Z", "K", "0.02"),
    Plain(205, 102, kV16Z, "DPT_HVACAirFlowRel_Z", "m3/h", "1"),
    Plain(205, 103, kV16Z, "DPT_HVACAirQualRel_Z", "ppm", "1"),
};

} // namespace Datapoint
