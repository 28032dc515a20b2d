// Datapoint types 242.xxx to 255.xxx: colours and their transitions, emergency lighting, places on earth.
#pragma once

#include "ValueConverter/Table/DateTimeFields.h"
#include "ValueConverter/Table/Rows.h"

namespace Datapoint {

// Raw 65535 is 1; five digits tell every raw number from its neighbours.
constexpr Field ChromaticityField(std::string_view name) {
    return NumberField(name, {16, false, 1, 65535, 5});
}
constexpr Field TimePeriodField() {
    return NumberField("timePeriod", {16, false, 100}); // milliseconds
}

inline constexpr auto s_colourXyY =
    std::to_array<Field>({ChromaticityField("x"), ChromaticityField("y"), PercentField("brightness"),
                          ReservedField(6), ValidityField("c"), ValidityField("b")});
inline constexpr CompositeLayout kColourXyY = MakeComposite(s_colourXyY);

// kept: y before x, as the KNX Standard prints this type and no other.
inline constexpr auto s_colourTransition = std::to_array<Field>(
    {TimePeriodField(), ChromaticityField("y"), ChromaticityField("x"), PercentField("brightness"),
     ReservedField(6), ValidityField("c"), ValidityField("b")});
inline constexpr CompositeLayout kColourTransition = MakeComposite(s_colourTransition);

inline constexpr auto s_converterStatus =
    std::to_array<Field>({OneOf(UnsignedField("cm", 4), "0..9"), OneOf(UnsignedField("hs", 4), "0..3"),
                          OneOf(UnsignedField("fp", 2), "0..2"), OneOf(UnsignedField("dp", 2), "0..2"),
                          OneOf(UnsignedField("pp", 2), "0..2"), OneOf(UnsignedField("cf", 2), "0..2")});
inline constexpr CompositeLayout kConverterStatus = MakeComposite(s_converterStatus);
inline constexpr CompositeLayout kAnyConverterStatus = WithoutLimits(kConverterStatus);

inline constexpr auto s_converterTestResult = std::to_array<Field>(
    {OneOf(UnsignedField("ltrf", 4), "0..5"), OneOf(UnsignedField("ltrd", 4), "0..5"),
     OneOf(UnsignedField("ltrp", 4), "0..5"), ReservedField(4), OneOf(UnsignedField("sf", 2), "0..2"),
     OneOf(UnsignedField("sd", 2), "0..2"), OneOf(UnsignedField("sp", 2), "0..2"), ReservedField(2),
     Within(UnsignedField("ldtr", 16), 0, 510), UnsignedField("lpdtr", 8)});
inline constexpr CompositeLayout kConverterTestResult = MakeComposite(s_converterTestResult);
inline constexpr CompositeLayout kAnyConverterTestResult = WithoutLimits(kConverterTestResult);

inline constexpr auto s_batteryInfo =
    std::to_array<Field>({ReservedField(5), UnsignedField("bs", 3), UnsignedField("bcl", 8)});
inline constexpr CompositeLayout kBatteryInfo = MakeComposite(s_batteryInfo);

inline constexpr auto s_converterTestInfo = Join(
    s_dateTime, std::to_array<Field>({UnsignedField("timePeriod1", 16), UnsignedField("timePeriod2", 16)}));
inline constexpr CompositeLayout kConverterTestInfo = MakeComposite(s_converterTestInfo, CheckDateTimeFields);

inline constexpr auto s_converterInfoFix = std::to_array<Field>(
    {UnsignedField("infoValid", 8), UnsignedField("emMinLevel", 8), UnsignedField("emMaxLevel", 8),
     UnsignedField("ratedDur", 8), UnsignedField("gearFeat", 8)});
inline constexpr CompositeLayout kConverterInfoFix = MakeComposite(s_converterInfoFix);

inline constexpr auto s_whiteTransition = std::to_array<Field>(
    {TimePeriodField(), UnsignedField("colourTemperature", 16), PercentField("brightness"), ReservedField(5),
     ValidityField("validTime"), ValidityField("validColourTemperature"), ValidityField("validBrightness")});
inline constexpr CompositeLayout kWhiteTransition = MakeComposite(s_whiteTransition);

inline constexpr auto s_whiteControl =
    std::to_array<Field>({ReservedField(4), UnsignedField("cCT", 1), UnsignedField("stepCT", 3),
                          ReservedField(4), UnsignedField("cB", 1), UnsignedField("stepB", 3),
                          ReservedField(6), ValidityField("validCT"), ValidityField("validB")});
inline constexpr CompositeLayout kWhiteControl = MakeComposite(s_whiteControl);

inline constexpr auto s_colourRgbw =
    std::to_array<Field>({UnsignedField("r", 8), UnsignedField("g", 8), UnsignedField("b", 8),
                          UnsignedField("w", 8), ReservedField(8), ReservedField(4), ValidityField("mR"),
                          ValidityField("mG"), ValidityField("mB"), ValidityField("mW")});
inline constexpr CompositeLayout kColourRgbw = MakeComposite(s_colourRgbw);

inline constexpr auto s_rgbwControl = std::to_array<Field>(
    {ReservedField(4), UnsignedField("cR", 1), UnsignedField("stepR", 3), ReservedField(4),
     UnsignedField("cG", 1), UnsignedField("stepG", 3), ReservedField(4), UnsignedField("cB", 1),
     UnsignedField("stepB", 3), ReservedField(4), UnsignedField("cW", 1), UnsignedField("stepW", 3),
     ReservedField(4), ValidityField("mR"), ValidityField("mG"), ValidityField("mB"), ValidityField("mW")});
inline constexpr CompositeLayout kRgbwControl = MakeComposite(s_rgbwControl);

// Saturation, colour, brightness.
inline constexpr auto s_xyYControl =
    std::to_array<Field>({ReservedField(4), UnsignedField("cS", 1), UnsignedField("stepS", 3),
                          ReservedField(4), UnsignedField("cC", 1), UnsignedField("stepC", 3),
                          ReservedField(4), UnsignedField("cB", 1), UnsignedField("stepB", 3),
                          ReservedField(5), ValidityField("mS"), ValidityField("mC"), ValidityField("mB")});
inline constexpr CompositeLayout kXyYControl = MakeComposite(s_xyYControl);

inline constexpr auto s_rgbControl =
    std::to_array<Field>({ReservedField(4), UnsignedField("cR", 1), UnsignedField("stepR", 3),
                          ReservedField(4), UnsignedField("cG", 1), UnsignedField("stepG", 3),
                          ReservedField(4), UnsignedField("cB", 1), UnsignedField("stepB", 3)});
inline constexpr CompositeLayout kRgbControl = MakeComposite(s_rgbControl);

inline constexpr auto s_location = std::to_array<Field>({FloatField("longitude"), FloatField("latitude")});
inline constexpr CompositeLayout kLocation = MakeComposite(s_location);

inline constexpr Type s_main242To255[] = {
    // the rule for every sub number that is not listed
    Any(242, kColourXyY),
    Any(243, kColourTransition),
    Any(244, kAnyConverterStatus),
    Any(245, kAnyConverterTestResult),
    Any(246, kBatteryInfo),
    Any(247, kConverterTestInfo),
    Any(248, kConverterInfoFix),
    Any(249, kWhiteTransition),
    Any(250, kWhiteControl),
    Any(251, kColourRgbw),
    Any(252, kRgbwControl),
    Any(253, kXyYControl),
    Any(254, kRgbControl),
    Any(255, kLocation),

    Plain(242, 600, kColourXyY, "DPT_Colour_xyY"),

    Plain(243, 600, kColourTransition, "DPT_Colour_Transition_xyY", "ms", "100 ms"),

    Plain(244, 600, kConverterStatus, "DPT_Converter_Status"),

    Plain(245, 600, kConverterTestResult, "DPT_Converter_Test_Result", "min"),

    Plain(246, 600, kBatteryInfo, "DPT_Battery_Info"),

    Plain(247, 600, kConverterTestInfo, "DPT_Converter_Test_Info", "h;s"),

    Plain(248, 600, kConverterInfoFix, "DPT_Converter_Info_Fix"),

    Plain(249, 600, kWhiteTransition, "DPT_Brightness_Colour_Temperature_Transition", "ms;K;%",
          "100 ms;1 K;~0.4 %"),

    Plain(250, 600, kWhiteControl, "DPT_Brightness_Colour_Temperature_Control"),

    Plain(251, 600, kColourRgbw, "DPT_Colour_RGBW", "raw 0..255 (= 0..100 %)", "1/255"),

    Plain(252, 600, kRgbwControl, "DPT_Relative_Control_RGBW"),

    Plain(253, 600, kXyYControl, "DPT_Relative_Control_xyY"),

    Plain(254, 600, kRgbControl, "DPT_Relative_Control_RGB"),

    Plain(255, 1, kLocation, "DPT_GeographicalLocation", "°"),
};

} // namespace Datapoint
