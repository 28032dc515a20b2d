// Datapoint types 206.xxx to 224.xxx: demands, set points and states of heating and cooling; versions,
// alarms.
#pragma once

#include "ValueConverter/Table/Rows.h"

namespace Datapoint {

// Temperatures in steps of 0.02 °C or K: what the bits hold, not below absolute zero, and a difference.
constexpr Field FiftiethsField(std::string_view name) {
    return NumberField(name, {16, true, 1, 50, 2});
}
constexpr Field TemperatureField(std::string_view name) {
    return Within(FiftiethsField(name), -27300, 65534);
}
constexpr Field ShiftField(std::string_view name) {
    return Within(FiftiethsField(name), -65534, 65534);
}
constexpr Field WholePercentField(std::string_view name) {
    return Within(UnsignedField(name, 8), 0, 100);
}

inline constexpr auto s_modeNext =
    std::to_array<Field>({UnsignedField("delayTime", 16), UnsignedField("mode", 8)});
inline constexpr CompositeLayout kModeNext = MakeComposite(s_modeNext);

inline constexpr auto s_percentAndAttributes =
    std::to_array<Field>({WholePercentField("value"), UnsignedField("attributes", 8)});
inline constexpr CompositeLayout kPercentAndAttributes = MakeComposite(s_percentAndAttributes);
inline constexpr CompositeLayout kAnyPercentAndAttributes = WithoutLimits(kPercentAndAttributes);

inline constexpr auto s_lightingActuator =
    std::to_array<Field>({PercentField("actualValue"), UnsignedField("attributes", 8)});
inline constexpr CompositeLayout kLightingActuator = MakeComposite(s_lightingActuator);

inline constexpr auto s_temperatureB8 =
    std::to_array<Field>({TemperatureField("temp"), UnsignedField("attributes", 8)});
inline constexpr CompositeLayout kTemperatureB8 = MakeComposite(s_temperatureB8);
inline constexpr CompositeLayout kAnyTemperatureB8 = WithoutLimits(kTemperatureB8);

inline constexpr auto s_temperatureB16 =
    std::to_array<Field>({TemperatureField("temp"), UnsignedField("attributes", 16)});
inline constexpr CompositeLayout kTemperatureB16 = MakeComposite(s_temperatureB16);
inline constexpr CompositeLayout kAnyTemperatureB16 = WithoutLimits(kTemperatureB16);

inline constexpr auto s_energyDemandWater =
    std::to_array<Field>({WholePercentField("energyDem"), UnsignedField("contrModeAct", 8)});
inline constexpr CompositeLayout kEnergyDemandWater = MakeComposite(s_energyDemandWater);
inline constexpr CompositeLayout kAnyEnergyDemandWater = WithoutLimits(kEnergyDemandWater);

inline constexpr auto s_shifts3 =
    std::to_array<Field>({ShiftField("comfort"), ShiftField("standby"), ShiftField("economy")});
inline constexpr CompositeLayout kShifts3 = MakeComposite(s_shifts3);
inline constexpr CompositeLayout kAnySetpoints3 = WithoutLimits(kShifts3);

inline constexpr auto s_setpoints3 = std::to_array<Field>(
    {TemperatureField("comfort"), TemperatureField("standby"), TemperatureField("economy")});
inline constexpr CompositeLayout kSetpoints3 = MakeComposite(s_setpoints3);

inline constexpr auto s_setpoints4 =
    std::to_array<Field>({TemperatureField("comfort"), TemperatureField("standby"),
                          TemperatureField("economy"), TemperatureField("buildingProtection")});
inline constexpr CompositeLayout kSetpoints4 = MakeComposite(s_setpoints4);
inline constexpr CompositeLayout kAnySetpoints4 = WithoutLimits(kSetpoints4);

inline constexpr auto s_hotWaterSetpoints =
    std::to_array<Field>({TemperatureField("legioProtect"), TemperatureField("normal"),
                          TemperatureField("reduced"), TemperatureField("offFrostProtect")});
inline constexpr CompositeLayout kHotWaterSetpoints = MakeComposite(s_hotWaterSetpoints);

inline constexpr auto s_shifts4 = std::to_array<Field>(
    {ShiftField("comfort"), ShiftField("standby"), ShiftField("economy"), ShiftField("buildingProtection")});
inline constexpr CompositeLayout kShifts4 = MakeComposite(s_shifts4);

inline constexpr auto s_flowWaterDemand = std::to_array<Field>(
    {FiftiethsField("temp"), UnsignedField("relDemLimit", 8), UnsignedField("attributes", 8)});
inline constexpr CompositeLayout kFlowWaterDemand = MakeComposite(s_flowWaterDemand);

inline constexpr auto s_heatProducer = std::to_array<Field>(
    {FiftiethsField("temp"), UnsignedField("relPower", 8), UnsignedField("attributes", 16)});
inline constexpr CompositeLayout kHeatProducer = MakeComposite(s_heatProducer);

inline constexpr auto s_heatProducerData =
    std::to_array<Field>({UnsignedField("pnom", 16), UnsignedField("bStageLimit", 8),
                          UnsignedField("burnerType", 8), UnsignedField("fuelType", 8)});
inline constexpr CompositeLayout kHeatProducerData = MakeComposite(s_heatProducerData);

inline constexpr auto s_version = std::to_array<Field>(
    {UnsignedField("magic", 5), UnsignedField("version", 5), UnsignedField("revision", 6)});
inline constexpr CompositeLayout kVersion = MakeComposite(s_version);

inline constexpr auto s_volume = std::to_array<Field>({SignedField("value", 32), StatusField()});
inline constexpr CompositeLayout kVolume = MakeComposite(s_volume);

inline constexpr auto s_flowRate =
    std::to_array<Field>({NumberField("value", {32, true, 1, 10000, 4}), StatusField()});
inline constexpr CompositeLayout kFlowRate = MakeComposite(s_flowRate);

inline constexpr auto s_alarmInfo =
    std::to_array<Field>({UnsignedField("logNumber", 8), UnsignedField("alarmPriority", 8),
                          UnsignedField("applicationArea", 8), UnsignedField("errorClass", 8),
                          UnsignedField("attributes", 8), UnsignedField("alarmStatusAttributes", 8)});
inline constexpr CompositeLayout kAlarmInfo = MakeComposite(s_alarmInfo);

inline constexpr auto s_temperatureNext =
    std::to_array<Field>({UnsignedField("delayTime", 16), FiftiethsField("temp")});
inline constexpr CompositeLayout kTemperatureNext = MakeComposite(s_temperatureNext);

inline constexpr auto s_serialNumber =
    std::to_array<Field>({UnsignedField("manufacturerCode", 16), UnsignedField("incrementedNumber", 32)});
inline constexpr CompositeLayout kSerialNumber = MakeComposite(s_serialNumber);

inline constexpr auto s_floatSetpoints3 =
    std::to_array<Field>({HalfFloatField("comfort"), HalfFloatField("standby"), HalfFloatField("economy")});
inline constexpr CompositeLayout kFloatSetpoints3 = MakeComposite(s_floatSetpoints3);

inline constexpr auto s_energyDemandAir =
    std::to_array<Field>({Within(SignedField("energyDem", 8), -100, 100), UnsignedField("contrModeAct", 8),
                          UnsignedField("hvacEmergMode", 8)});
inline constexpr CompositeLayout kEnergyDemandAir = MakeComposite(s_energyDemandAir);
inline constexpr CompositeLayout kAnyEnergyDemandAir = WithoutLimits(kEnergyDemandAir);

inline constexpr auto s_supplyAirSetpoints =
    std::to_array<Field>({TemperatureField("tempSetpCooling"), TemperatureField("tempSetpHeating"),
                          UnsignedField("contrModeAct", 8), UnsignedField("hvacEmergMode", 8)});
inline constexpr CompositeLayout kSupplyAirSetpoints = MakeComposite(s_supplyAirSetpoints);
inline constexpr CompositeLayout kAnySupplyAirSetpoints = WithoutLimits(kSupplyAirSetpoints);

inline constexpr Type s_main206To224[] = {
    // the rule for every sub number that is not listed
    Any(206, kModeNext),
    Any(207, kAnyPercentAndAttributes),
    Any(209, kAnyTemperatureB8),
    Any(210, kAnyTemperatureB16),
    Any(211, kAnyEnergyDemandWater),
    Any(212, kAnySetpoints3),
    Any(213, kAnySetpoints4),
    Any(214, kFlowWaterDemand),
    Any(215, kHeatProducer),
    Any(216, kHeatProducerData),
    Any(217, kVersion),
    Any(218, kVolume),
    Any(219, kAlarmInfo),
    Any(220, kTemperatureNext),
    Any(221, kSerialNumber),
    Any(222, kFloatSetpoints3),
    Any(223, kAnyEnergyDemandAir),
    Any(224, kAnySupplyAirSetpoints),

    Plain(206, 100, kModeNext, "DPT_HVACModeNext", "min"),
    Plain(206, 102, kModeNext, "DPT_DHWModeNext", "min"),
    Plain(206, 104, kModeNext, "DPT_OccModeNext", "min"),
    Plain(206, 105, kModeNext, "DPT_BuildingModeNext", "min"),

    Plain(207, 100, kPercentAndAttributes, "DPT_StatusBUC", "%", "1"),
    Plain(207, 101, kPercentAndAttributes, "DPT_LockSign", "%", "1"),
    Plain(207, 102, kPercentAndAttributes, "DPT_ValueDemBOC", "%", "1"),
    Plain(207, 104, kPercentAndAttributes, "DPT_ActPosDemAbs", "%", "1"),
    Plain(207, 105, kPercentAndAttributes, "DPT_StatusAct", "%", "1"),
    Plain(207, 600, kLightingActuator, "DPT_StatusLightingActuator", "%", "~0.4"),

    Plain(209, 100, kTemperatureB8, "DPT_StatusHPM", "°C", "0.02"),
    Plain(209, 101, kTemperatureB8, "DPT_TempRoomDemAbs", "°C", "0.02"),
    Plain(209, 102, kTemperatureB8, "DPT_StatusCPM", "°C", "0.02"),
    Plain(209, 103, kTemperatureB8, "DPT_StatusWTC", "°C", "0.02"),

    Plain(210, 100, kTemperatureB16, "DPT_TempFlowWaterDemAbs", "°C", "0.02"),

    Plain(211, 100, kEnergyDemandWater, "DPT_EnergyDemWater", "%", "1"),

    Plain(212, 100, kShifts3, "DPT_TempRoomSetpSetShift[3]", "K", "0.02"),
    Plain(212, 101, kSetpoints3, "DPT_TempRoomSetpSet[3]", "°C", "0.02"),

    Plain(213, 100, kSetpoints4, "DPT_TempRoomSetpSet[4]", "°C", "0.02"),
    Plain(213, 101, kHotWaterSetpoints, "DPT_TempDHWSetpSet[4]", "°C", "0.02"),
    Plain(213, 102, kShifts4, "DPT_TempRoomSetpSetShift[4]", "K", "0.02"),

    Plain(214, 100, kFlowWaterDemand, "DPT_PowerFlowWaterDemHPM", "°C;%", "0.02;1"),
    Plain(214, 101, kFlowWaterDemand, "DPT_PowerFlowWaterDemCPM", "°C;%", "0.02;1"),

    Plain(215, 100, kHeatProducer, "DPT_StatusBOC", "°C;%", "0.02;1"),
    Plain(215, 101, kHeatProducer, "DPT_StatusCC", "°C;%", "0.02;1"),

    Plain(216, 100, kHeatProducerData, "DPT_SpecHeatProd", "kW;%"),

    Plain(217, 1, kVersion, "DPT_Version"),

    Plain(218, 1, kVolume, "DPT_VolumeLiter_Z", "l", "1"),
    Plain(218, 2, kFlowRate, "DPT_FlowRate_m3/h_Z", "m3/h", "0.0001"),

    Plain(219, 1, kAlarmInfo, "DPT_AlarmInfo"),

    Plain(220, 100, kTemperatureNext, "DPT_TempHVACAbsNext", "min;°C", "1;0.02"),

    Plain(221, 1, kSerialNumber, "DPT_SerNum"),

    Plain(222, 100, kFloatSetpoints3, "DPT_TempRoomSetpSetF16[3]", "°C", "0.01*2^E"),
    Plain(222, 101, kFloatSetpoints3, "DPT_TempRoomSetpSetShiftF16[3]", "K", "0.01*2^E"),

    Plain(223, 100, kEnergyDemandAir, "DPT_EnergyDemAir", "%", "1"),

    Plain(224, 100, kSupplyAirSetpoints, "DPT_TempSupplyAirSetpSet", "°C", "0.02"),
};

} // namespace Datapoint
