// Datapoint types 225.xxx to 241.xxx: metering, addresses, tariffs, DALI, positions of blinds.
#pragma once

#include "ValueConverter/Table/Rows.h"

namespace Datapoint {

inline constexpr auto s_scalingSpeed = std::to_array<Field>(
    {Within(UnsignedField("timePeriod", 16), 1, 65535), Within(PercentField("percent"), 4, 1000)});
inline constexpr CompositeLayout kScalingSpeed = MakeComposite(s_scalingSpeed);
inline constexpr CompositeLayout kAnyScalingSpeed = WithoutLimits(kScalingSpeed);

inline constexpr auto s_scalingStepTime =
    std::to_array<Field>({Within(UnsignedField("timePeriod", 16), 1, 65535), PercentField("percent")});
inline constexpr CompositeLayout kScalingStepTime = MakeComposite(s_scalingStepTime);

inline constexpr auto s_tariffNext =
    std::to_array<Field>({UnsignedField("delayTime", 16), Within(UnsignedField("tariff", 8), 0, 254)});
inline constexpr CompositeLayout kTariffNext = MakeComposite(s_tariffNext);

inline constexpr auto s_meteringValue =
    std::to_array<Field>({SignedField("countVal", 32), UnsignedField("valInfField", 8), StatusField()});
inline constexpr CompositeLayout kMeteringValue = MakeComposite(s_meteringValue);

inline constexpr auto s_mbusAddress =
    std::to_array<Field>({UnsignedField("manufactId", 16), UnsignedField("identNumber", 32),
                          UnsignedField("version", 8), UnsignedField("medium", 8)});
inline constexpr CompositeLayout kMbusAddress = MakeComposite(s_mbusAddress);

inline constexpr auto s_locale = std::to_array<Field>(
    {TextField("language", FieldKind::Ascii, 2), TextField("region", FieldKind::Ascii, 2)});
inline constexpr CompositeLayout kLocale = MakeComposite(s_locale);

inline constexpr auto s_colourRgb =
    std::to_array<Field>({UnsignedField("r", 8), UnsignedField("g", 8), UnsignedField("b", 8)});
inline constexpr CompositeLayout kColourRgb = MakeComposite(s_colourRgb);

// e and t are 0 when energy and tariff are valid.
inline constexpr auto s_tariffEnergy =
    std::to_array<Field>({SignedField("activeEnergy", 32), UnsignedField("tariff", 8), ReservedField(6),
                          FlagField("e"), FlagField("t")});
inline constexpr CompositeLayout kTariffEnergy = MakeComposite(s_tariffEnergy);

inline constexpr auto s_prioritisedMode =
    std::to_array<Field>({UnsignedField("d", 1), UnsignedField("p", 3), UnsignedField("m", 4)});
inline constexpr CompositeLayout kPrioritisedMode = MakeComposite(s_prioritisedMode);

// There are 16 groups of control gear, and 64 of it: with ai = 1 the address is a group's.
inline Status CheckGroupOfGear(const std::uint8_t* octets, Allowed allowed, Reason reason) {
    const unsigned address = octets[1] & 0x3FU;
    return allowed == Allowed::OfTheType && (octets[1] & 0x40U) != 0 && address > 15
               ? Refuse(Status::OutOfRange, reason, "\"addr\": {} is above 15, the last group", address)
               : Status::Done;
}

inline constexpr auto s_gearDiagnostic = std::to_array<Field>(
    {ReservedField(5), UnsignedField("ce", 1), UnsignedField("bf", 1), UnsignedField("lf", 1),
     UnsignedField("rr", 1), UnsignedField("ai", 1), UnsignedField("addr", 6)});
inline constexpr CompositeLayout kGearDiagnostic = MakeComposite(s_gearDiagnostic, CheckGroupOfGear);

// s = 0: storing is enabled; sa = 0: the scene is active. The scene is the number on the bus, from 0.
inline constexpr auto s_sceneConfig =
    std::to_array<Field>({UnsignedField("s", 1), UnsignedField("sa", 1), UnsignedField("scene", 6)});
inline constexpr CompositeLayout kSceneConfig = MakeComposite(s_sceneConfig);

inline constexpr auto s_daliDiagnostics =
    std::to_array<Field>({UnsignedField("bf", 1), UnsignedField("lf", 1), UnsignedField("addr", 6)});
inline constexpr CompositeLayout kDaliDiagnostics = MakeComposite(s_daliDiagnostics);

inline constexpr auto s_flaggedScaling =
    std::to_array<Field>({PercentField("setvalue"), ReservedField(7), UnsignedField("ca", 1)});
inline constexpr CompositeLayout kFlaggedScaling = MakeComposite(s_flaggedScaling);

inline constexpr auto s_combinedPosition =
    std::to_array<Field>({PercentField("heightPosition"), PercentField("slatsPosition"), ReservedField(6),
                          ValidityField("validSlatsPos"), ValidityField("validHeightPos")});
inline constexpr CompositeLayout kCombinedPosition = MakeComposite(s_combinedPosition);

inline constexpr auto s_statusOfBlinds = std::to_array<Field>(
    {PercentField("heightPosition"), PercentField("slatsPosition"), UnsignedField("attributes", 16)});
inline constexpr CompositeLayout kStatusOfBlinds = MakeComposite(s_statusOfBlinds);

inline constexpr Type s_main225To241[] = {
    // the rule for every sub number that is not listed
    Any(225, kAnyScalingSpeed),
    Any(229, kMeteringValue),
    Any(230, kMbusAddress),
    Any(231, kLocale),
    Any(232, kColourRgb),
    Any(234, kTwoCharacters),
    Any(235, kTariffEnergy),
    Any(236, kPrioritisedMode),
    Any(237, kGearDiagnostic),
    Any(238, kSceneConfig),
    Any(239, kFlaggedScaling),
    Any(240, kCombinedPosition),
    Any(241, kStatusOfBlinds),

    Plain(225, 1, kScalingSpeed, "DPT_ScalingSpeed", "100 ms;%", "100 ms;~0.4 %"),
    Plain(225, 2, kScalingStepTime, "DPT_Scaling_Step_Time", "ms;%", "1 ms;~0.4 %"),
    Plain(225, 3, kTariffNext, "DPT_TariffNext", "min", "1"),

    Plain(229, 1, kMeteringValue, "DPT_MeteringValue"),

    Plain(230, 1000, kMbusAddress, "DPT_MBus_Address"),

    Plain(231, 1, kLocale, "DPT_Locale_ASCII"),

    Plain(232, 600, kColourRgb, "DPT_Colour_RGB"),

    Plain(234, 1, kTwoCharacters, "DPT_LanguageCodeAlpha2_ASCII"),
    Plain(234, 2, kTwoCharacters, "DPT_RegionCodeAlpha2_ASCII"),

    Plain(235, 1, kTariffEnergy, "DPT_Tariff_ActiveEnergy", "Wh", "1"),

    Plain(236, 1, kPrioritisedMode, "DPT_Prioritised_Mode_Control"),

    Plain(237, 600, kGearDiagnostic, "DPT_DALI_Control_Gear_Diagnostic"),

    Plain(238, 1, kSceneConfig, "DPT_SceneConfig"),
    Plain(238, 600, kDaliDiagnostics, "DPT_DALI_Diagnostics"),

    Plain(239, 1, kFlaggedScaling, "DPT_FlaggedScaling", "%", "~0.4"),

    Plain(240, 800, kCombinedPosition, "DPT_CombinedPosition", "%", "~0.4"),

    Plain(241, 800, kStatusOfBlinds, "DPT_StatusSAB", "%", "~0.4"),
};

} // namespace Datapoint
