// Datapoint types 1.xxx to 13.xxx: bits, numbers, characters, 2-byte floats, time and date.
#pragma once

#include "ValueConverter/Table/Rows.h"

namespace Datapoint {

inline constexpr auto s_control = std::to_array<Field>({UnsignedField("c", 1), UnsignedField("v", 1)});
inline constexpr CompositeLayout kControl = MakeComposite(s_control);

inline constexpr auto s_stepControl =
    std::to_array<Field>({UnsignedField("c", 1), UnsignedField("stepcode", 3)});
inline constexpr CompositeLayout kStepControl = MakeComposite(s_stepControl);

inline constexpr auto s_statusMode = std::to_array<Field>(
    {UnsignedField("a", 1), UnsignedField("b", 1), UnsignedField("c", 1), UnsignedField("d", 1),
     UnsignedField("e", 1), OneOf(UnsignedField("f", 3), "1,2,4")});
inline constexpr CompositeLayout kStatusMode = MakeComposite(s_statusMode);

inline constexpr Type s_main1To13[] = {
    // the rule for every sub number that is not listed
    Any(1, kBoolean, 0, 1),
    Any(2, kControl),
    Any(3, kStepControl),
    Any(4, kCharacterLatin1),
    Any(5, kU8),
    Any(6, kV8),
    Any(7, kU16),
    Any(8, kV16),
    Any(9, kFloat16, kFloat16Minimum, kFloat16Maximum, 2),
    Any(10, kTimeOfDay),
    Any(11, kDate),
    Any(12, kU32),
    Any(13, kV32),

    Switch(1, "DPT_Switch", "0=Off;1=On"),
    Switch(2, "DPT_Bool", "0=False;1=True"),
    Switch(3, "DPT_Enable", "0=Disable;1=Enable"),
    Switch(4, "DPT_Ramp", "0=No ramp;1=Ramp"),
    Switch(5, "DPT_Alarm", "0=No alarm;1=Alarm"),
    Switch(6, "DPT_BinaryValue", "0=Low;1=High"),
    Switch(7, "DPT_Step", "0=Decrease;1=Increase"),
    Switch(8, "DPT_UpDown", "0=Up;1=Down"),
    Switch(9, "DPT_OpenClose", "0=Open;1=Close"),
    Switch(10, "DPT_Start", "0=Stop;1=Start"),
    Switch(11, "DPT_State", "0=Inactive;1=Active"),
    Switch(12, "DPT_Invert", "0=Not inverted;1=Inverted"),
    Switch(13, "DPT_DimSendStyle", "0=Start/stop;1=Cyclically"),
    Switch(14, "DPT_InputSource", "0=Fixed;1=Calculated"),
    Switch(15, "DPT_Reset", "0=no action;1=reset command"),
    Switch(16, "DPT_Ack", "0=no action;1=acknowledge command"),
    Switch(17, "DPT_Trigger", "0=trigger;1=trigger"),
    Switch(18, "DPT_Occupancy", "0=not occupied;1=occupied"),
    Switch(19, "DPT_Window_Door", "0=closed;1=open"),
    Switch(21, "DPT_LogicalFunction", "0=OR;1=AND"),
    Switch(22, "DPT_Scene_AB", "0=scene A;1=scene B"),
    Switch(23, "DPT_ShutterBlinds_Mode", "0=only move Up/Down;1=move Up/Down + StepStop"),
    Switch(24, "DPT_DayNight", "0=Day;1=Night"),
    Switch(100, "DPT_Heat/Cool", "0=cooling;1=heating"),
    Switch(1200, "DPT_ConsumerProducer", "0=Consumer;1=Producer"),
    Switch(1201, "DPT_EnergyDirection", "0=Positive;1=Negative"),

    Plain(2, 1, kControl, "DPT_Switch_Control"),
    Plain(2, 2, kControl, "DPT_Bool_Control"),
    Plain(2, 3, kControl, "DPT_Enable_Control"),
    Plain(2, 4, kControl, "DPT_Ramp_Control"),
    Plain(2, 5, kControl, "DPT_Alarm_Control"),
    Plain(2, 6, kControl, "DPT_BinaryValue_Control"),
    Plain(2, 7, kControl, "DPT_Step_Control"),
    Plain(2, 8, kControl, "DPT_Direction1_Control"),
    Plain(2, 9, kControl, "DPT_Direction2_Control"),
    Plain(2, 10, kControl, "DPT_Start_Control"),
    Plain(2, 11, kControl, "DPT_State_Control"),
    Plain(2, 12, kControl, "DPT_Invert_Control"),

    Plain(3, 7, kStepControl, "DPT_Control_Dimming"),
    Plain(3, 8, kStepControl, "DPT_Control_Blinds"),

    Plain(4, 1, kCharacterAscii, "DPT_Char_ASCII"),
    Plain(4, 2, kCharacterLatin1, "DPT_Char_8859_1"),

    Num(5, 1, kPercent, "DPT_Scaling", "%", "100/255"),
    Num(5, 3, kAngle, "DPT_Angle", "°", "360/255"),
    Num(5, 4, kU8, "DPT_Percent_U8", "%"),
    Num(5, 5, kU8, "DPT_DecimalFactor", "ratio"),
    Limited(Num(5, 6, kU8, "DPT_Tariff", ""), 0, 254),
    Num(5, 10, kU8, "DPT_Value_1_Ucount", "counter pulses"),
    Num(5, 100, kU8, "DPT_FanStage", "fan stage"),

    Num(6, 1, kV8, "DPT_Percent_V8", "%"),
    Num(6, 10, kV8, "DPT_Value_1_Count", "counter pulses"),
    Plain(6, 20, kStatusMode, "DPT_Status_Mode3"),

    Num(7, 1, kU16, "DPT_Value_2_Ucount", "pulses"),
    Num(7, 2, kU16, "DPT_TimePeriodMsec", "ms"),
    Num(7, 3, kU16Times10, "DPT_TimePeriod10MSec", "ms", "10"),
    Num(7, 4, kU16Times100, "DPT_TimePeriod100MSec", "ms", "100"),
    Num(7, 5, kU16, "DPT_TimePeriodSec", "s"),
    Num(7, 6, kU16, "DPT_TimePeriodMin", "min"),
    Num(7, 7, kU16, "DPT_TimePeriodHrs", "h"),
    Num(7, 10, kU16, "DPT_PropDataType", ""),
    Num(7, 11, kU16, "DPT_Length_mm", "mm"),
    Num(7, 12, kU16, "DPT_UElCurrentmA", "mA"),
    Num(7, 13, kU16, "DPT_Brightness", "lux"),
    Num(7, 600, kU16, "DPT_Absolute_Colour_Temperature", "K"),

    Num(8, 1, kV16, "DPT_Value_2_Count", "pulses"),
    Num(8, 2, kV16, "DPT_DeltaTimeMsec", "ms"),
    Num(8, 3, kV16Times10, "DPT_DeltaTime10Msec", "ms", "10"),
    Num(8, 4, kV16Times100, "DPT_DeltaTime100Msec", "ms", "100"),
    Num(8, 5, kV16, "DPT_DeltaTimeSec", "s"),
    Num(8, 6, kV16, "DPT_DeltaTimeMin", "min"),
    Num(8, 7, kV16, "DPT_DeltaTimeHrs", "h"),
    Num(8, 10, kV16Hundredths, "DPT_Percent_V16", "%", "0.01"),
    Num(8, 11, kV16, "DPT_Rotation_Angle", "°"),
    Num(8, 12, kV16, "DPT_Length_m", "m"),

    Float16(1, "DPT_Value_Temp", "°C", -27300),
    Float16(2, "DPT_Value_Tempd", "K"),
    Float16(3, "DPT_Value_Tempa", "K/h"),
    Float16(4, "DPT_Value_Lux", "Lux", 0),
    Float16(5, "DPT_Value_Wsp", "m/s", 0),
    Float16(6, "DPT_Value_Pres", "Pa", 0),
    Float16(7, "DPT_Value_Humidity", "%", 0),
    Float16(8, "DPT_Value_AirQuality", "ppm", 0),
    Float16(9, "DPT_Value_AirFlow", "m3/h"),
    Float16(10, "DPT_Value_Time1", "s"),
    Float16(11, "DPT_Value_Time2", "ms"),
    Float16(20, "DPT_Value_Volt", "mV"),
    Float16(21, "DPT_Value_Curr", "mA"),
    Float16(22, "DPT_PowerDensity", "W/m2"),
    Float16(23, "DPT_KelvinPerPercent", "K/%"),
    Float16(24, "DPT_Power", "kW"),
    Float16(25, "DPT_Value_Volume_Flow", "l/h"),
    Float16(26, "DPT_Rain_Amount", "l/m2"),
    Float16(27, "DPT_Value_Temp_F", "°F", -45960),
    Float16(28, "DPT_Value_Wsp_kmh", "km/h", 0),
    Float16(29, "DPT_Value_Absolute_Humidity", "g/m3", 0),
    Float16(30, "DPT_Concentration_µgm3", "µg/m3", 0),
    Float16(31, "DPT_Coefficient", "", 0),

    Plain(10, 1, kTimeOfDay, "DPT_TimeOfDay"),

    Plain(11, 1, kDate, "DPT_Date"),

    Num(12, 1, kU32, "DPT_Value_4_Ucount", "counter pulses"),
    Num(12, 100, kU32, "DPT_LongTimePeriod_Sec", "s"),
    Num(12, 101, kU32, "DPT_LongTimePeriod_Min", "min"),
    Num(12, 102, kU32, "DPT_LongTimePeriod_Hrs", "h"),
    Num(12, 1200, kU32, "DPT_VolumeLiquid_Litre", "l"),
    Num(12, 1201, kU32, "DPT_Volume_m3", "m3"),

    Num(13, 1, kV32, "DPT_Value_4_Count", "counter pulses"),
    Num(13, 2, kV32, "DPT_FlowRate_m3/h", "m3/h"),
    Num(13, 10, kV32, "DPT_ActiveEnergy", "Wh"),
    Num(13, 11, kV32, "DPT_ApparantEnergy", "VAh"),
    Num(13, 12, kV32, "DPT_ReactiveEnergy", "VARh"),
    Num(13, 13, kV32, "DPT_ActiveEnergy_kWh", "kWh"),
    Num(13, 14, kV32, "DPT_ApparantEnergy_kVAh", "kVAh"),
    Num(13, 15, kV32, "DPT_ReactiveEnergy_kVARh", "kVARh"),
    Num(13, 16, kV32, "DPT_ActiveEnergy_MWh", "MWh"),
    Num(13, 100, kV32, "DPT_LongDeltaTimeSec", "s"),
    Num(13, 1200, kV32, "DPT_DeltaVolumeLiquid_Litre", "l"),
    Num(13, 1201, kV32, "DPT_DeltaVolume_m3", "m3"),
};

} // namespace Datapoint
