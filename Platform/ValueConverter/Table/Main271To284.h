// Datapoint types 271.xxx to 284.xxx: tariffs, forecasts, set points as 2-byte floats, energy registers.
#pragma once

#include "ValueConverter/Table/DateTimeFields.h"
#include "ValueConverter/Table/Rows.h"

namespace Datapoint {

inline Status CheckTimeFields(const std::uint8_t* octets, Allowed, Reason reason) {
    return CheckTimeOfDay(octets, reason);
}

// The time as in 10.001, the tariff as in 5.006; vc1 to vc7 are virtual contacts, 1 = closed.
inline constexpr auto s_tariffDayProfile = std::to_array<Field>(
    {UnsignedField("day", 3), UnsignedField("hour", 5), ReservedField(2), UnsignedField("minute", 6),
     ReservedField(2), UnsignedField("second", 6), UnsignedField("itemNumber", 4),
     UnsignedField("totalItems", 4), Within(UnsignedField("tariff", 8), 0, 254),
     UnsignedField("dayProfile", 6), UnsignedField("dryContact", 2), ReservedField(1),
     UnsignedField("vc7", 1), UnsignedField("vc6", 1), UnsignedField("vc5", 1), UnsignedField("vc4", 1),
     UnsignedField("vc3", 1), UnsignedField("vc2", 1), UnsignedField("vc1", 1)});
inline constexpr CompositeLayout kTariffDayProfile = MakeComposite(s_tariffDayProfile, CheckTimeFields);
inline constexpr CompositeLayout kAnyTariffDayProfile = WithoutLimits(kTariffDayProfile);

inline constexpr auto s_converterInfo = std::to_array<Field>(
    {UnsignedField("infoValid", 8), UnsignedField("timePeriod1", 16), UnsignedField("timePeriod2", 16),
     UnsignedField("emLevel", 8), UnsignedField("daliSA", 8)});
inline constexpr CompositeLayout kConverterInfo = MakeComposite(s_converterInfo);

inline constexpr auto s_forecast = std::to_array<Field>(
    {ReservedField(4), ValidityField("validDelay"), ValidityField("validProbability"),
     ValidityField("validMax"), ValidityField("validMin"), UnsignedField("delayTime", 16),
     PercentField("probability"), HalfFloatField("max"), HalfFloatField("min")});
inline constexpr CompositeLayout kForecast = MakeComposite(s_forecast);

constexpr Field AngleField(std::string_view name) {
    return NumberField(name, {8, false, 360, 255, 1});
}
inline constexpr auto s_forecastOfWind = std::to_array<Field>(
    {ReservedField(4), ValidityField("validDelay"), ValidityField("validProbability"),
     ValidityField("validMax"), ValidityField("validMin"), UnsignedField("delayTime", 16),
     PercentField("probability"), AngleField("max"), AngleField("min")});
inline constexpr CompositeLayout kForecastOfWind = MakeComposite(s_forecastOfWind);

inline constexpr auto s_floatSetpoints4 =
    std::to_array<Field>({HalfFloatField("comfort"), HalfFloatField("standby"), HalfFloatField("economy"),
                          HalfFloatField("buildingProtection")});
inline constexpr CompositeLayout kFloatSetpoints4 = MakeComposite(s_floatSetpoints4);

// Duty cycles of three radio channels and their alarms; ta: the meter's own interface is not received.
inline constexpr auto s_radioChannelStatus =
    std::to_array<Field>({PercentField("dutyCycle1"), PercentField("dutyCycle2"), PercentField("dutyCycle3"),
                          ReservedField(3), UnsignedField("ta", 1), UnsignedField("update", 1),
                          UnsignedField("dca3", 1), UnsignedField("dca2", 1), UnsignedField("dca1", 1)});
inline constexpr CompositeLayout kRadioChannelStatus = MakeComposite(s_radioChannelStatus);

// As 235.001.
constexpr std::array<Field, 5> EnergyRegister(std::string_view energy, std::string_view tariff,
                                              std::string_view e, std::string_view t) {
    return {SignedField(energy, 32), UnsignedField(tariff, 8), ReservedField(6), FlagField(e), FlagField(t)};
}

inline constexpr std::array<Field, 5> s_registers[] = {
    EnergyRegister("activeEnergy1", "tariff1", "e1", "t1"),
    EnergyRegister("activeEnergy2", "tariff2", "e2", "t2"),
    EnergyRegister("activeEnergy3", "tariff3", "e3", "t3"),
    EnergyRegister("activeEnergy4", "tariff4", "e4", "t4"),
    EnergyRegister("activeEnergy5", "tariff5", "e5", "t5"),
    EnergyRegister("activeEnergy6", "tariff6", "e6", "t6"),
    EnergyRegister("activeEnergy7", "tariff7", "e7", "t7"),
    EnergyRegister("activeEnergy8", "tariff8", "e8", "t8"),
    EnergyRegister("activeEnergy9", "tariff9", "e9", "t9"),
    EnergyRegister("activeEnergy10", "tariff10", "e10", "t10"),
    EnergyRegister("activeEnergy11", "tariff11", "e11", "t11")};

inline constexpr std::array<Field, 1> s_registersText = {TextField("text", FieldKind::Utf8, 12)};

// The text, and the first `Count` registers.
template <std::size_t Count>
constexpr auto Registers() {
    if constexpr (Count == 0) {
        return s_registersText;
    } else {
        return Join(Registers<Count - 1>(), s_registers[Count - 1]);
    }
}

inline constexpr auto s_registers4 = Registers<4>();
inline constexpr auto s_registers5 = Registers<5>();
inline constexpr auto s_registers6 = Registers<6>();
inline constexpr auto s_registers11 = Registers<11>();
inline constexpr CompositeLayout kRegisters4 = MakeComposite(s_registers4);
inline constexpr CompositeLayout kRegisters5 = MakeComposite(s_registers5);
inline constexpr CompositeLayout kRegisters6 = MakeComposite(s_registers6);
inline constexpr CompositeLayout kRegisters11 = MakeComposite(s_registers11);

inline constexpr auto s_dateTimeRegisters4 = Join(s_dateTime, s_registers4);
inline constexpr auto s_dateTimeRegisters5 = Join(s_dateTime, s_registers5);
inline constexpr auto s_dateTimeRegisters6 = Join(s_dateTime, s_registers6);
inline constexpr auto s_dateTimeRegisters11 = Join(s_dateTime, s_registers11);
inline constexpr CompositeLayout kDateTimeRegisters4 =
    MakeComposite(s_dateTimeRegisters4, CheckDateTimeFields);
inline constexpr CompositeLayout kDateTimeRegisters5 =
    MakeComposite(s_dateTimeRegisters5, CheckDateTimeFields);
inline constexpr CompositeLayout kDateTimeRegisters6 =
    MakeComposite(s_dateTimeRegisters6, CheckDateTimeFields);
inline constexpr CompositeLayout kDateTimeRegisters11 =
    MakeComposite(s_dateTimeRegisters11, CheckDateTimeFields);

inline constexpr Type s_main271To284[] = {
    // the rule for every sub number that is not listed
    Any(271, kAnyTariffDayProfile),
    Any(272, kConverterInfo),
    Any(273, kForecast),
    Any(274, kForecastOfWind),
    Any(275, kFloatSetpoints4),
    Any(276, kRadioChannelStatus),
    Any(277, kRegisters4),
    Any(278, kRegisters5),
    Any(279, kRegisters6),
    Any(280, kRegisters11),
    Any(281, kDateTimeRegisters4),
    Any(282, kDateTimeRegisters5),
    Any(283, kDateTimeRegisters6),
    Any(284, kDateTimeRegisters11),

    Plain(271, 1200, kTariffDayProfile, "DPT_TariffDayProfile"),

    Plain(272, 600, kConverterInfo, "DPT_Converter_Info", "h"),

    Plain(273, 1, kForecast, "DPT_Forecast_Temperature", "°C"),
    Plain(273, 2, kForecast, "DPT_Forecast_WindSpeed", "m/s"),
    Plain(273, 3, kForecast, "DPT_Forecast_RelativeHumidity", "%"),
    Plain(273, 4, kForecast, "DPT_Forecast_AbsoluteHumidity", "%"),
    Plain(273, 5, kForecast, "DPT_Forecast_CO2", "ppm"),
    Plain(273, 6, kForecast, "DPT_Forecast_AirPollutants", "µg/m3"),
    Plain(273, 7, kForecast, "DPT_Forecast_SunIntensity", "W/m2"),

    Plain(274, 1, kForecastOfWind, "DPT_Forecast_Wind_Direction", "°"),

    Plain(275, 100, kFloatSetpoints4, "DPT_TempRoomSetpSetF16[4]", "°C", "0.01*2^E"),
    Plain(275, 101, kFloatSetpoints4, "DPT_TempRoomSetpSetShiftF16[4]", "K", "0.01*2^E"),

    Plain(276, 1200, kRadioChannelStatus, "DPT_ERL_Status"),

    Plain(277, 1200, kRegisters4, "DPT_4_EnergyRegisters"),

    Plain(278, 1200, kRegisters5, "DPT_5_EnergyRegisters"),

    Plain(279, 1200, kRegisters6, "DPT_6_EnergyRegisters"),

    Plain(280, 1200, kRegisters11, "DPT_11_EnergyRegisters"),

    Plain(281, 1200, kDateTimeRegisters4, "DPT_DateTime_4_EnergyRegisters"),

    Plain(282, 1200, kDateTimeRegisters5, "DPT_DateTime_5_EnergyRegisters"),

    Plain(283, 1200, kDateTimeRegisters6, "DPT_DateTime_6_EnergyRegisters"),

    Plain(284, 1200, kDateTimeRegisters11, "DPT_DateTime_11_EnergyRegisters"),
};

} // namespace Datapoint
