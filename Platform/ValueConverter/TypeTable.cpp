#include "ValueConverter/TypeTable.h"

#include "ValueConverter/Layouts.h"

#include <algorithm>
#include <array>

namespace Datapoint {

namespace {

constexpr std::string_view kFloat16Step = "0.01*2^E";

constexpr Type Plain(std::uint16_t main, std::uint16_t sub, const Layout& layout, std::string_view name) {
    return {main, sub, &layout, name, {}, 0, 0, 0, {}, {}, {}};
}

constexpr Type Limited(Type type, std::int64_t minimum, std::int64_t maximum) {
    type.minimum = minimum;
    type.maximum = maximum;
    return type;
}

constexpr Type Any(std::uint16_t main, const Layout& layout, std::int64_t minimum = 0,
                   std::int64_t maximum = 0, std::uint8_t decimals = 0) {
    return {main, kAnySub, &layout, {}, {}, minimum, maximum, decimals, {}, {}, {}};
}

constexpr Type Any(std::uint16_t main, const NumberLayout& layout) {
    const NumberForm& form = layout.form;
    return Any(main, layout, form.Minimum(), form.Maximum(), static_cast<std::uint8_t>(form.decimals));
}

constexpr Type Switch(std::uint16_t sub, std::string_view name, std::string_view valueNames) {
    return {1, sub, &kBoolean, name, {}, 0, 1, 0, {}, valueNames, {}};
}

constexpr Type Num(std::uint16_t main, std::uint16_t sub, const NumberLayout& layout, std::string_view name,
                   std::string_view unit, std::string_view resolution = "1") {
    const auto decimals = static_cast<std::uint8_t>(layout.form.decimals);
    return {main,     sub,        &layout, name, unit, layout.form.Minimum(), layout.form.Maximum(),
            decimals, resolution, {},      {}};
}

constexpr Type Float16(std::uint16_t sub, std::string_view name, std::string_view unit,
                       std::int64_t minimum = kFloat16Minimum) {
    return {9, sub, &kFloat16, name, unit, minimum, kFloat16Maximum, 2, kFloat16Step, {}, {}};
}

constexpr Type Float32(std::uint16_t sub, std::string_view name, std::string_view unit) {
    return {14, sub, &kFloat32, name, unit, 0, 0, 0, {}, {}, {}};
}

constexpr Type Choice(std::uint16_t sub, std::string_view name, std::int64_t minimum, std::int64_t maximum,
                      std::string_view valueNames = {}, std::string_view members = {}) {
    return {20, sub, &kU8, name, {}, minimum, maximum, 0, "1", valueNames, members};
}

// A new type is one more row; a new main number also a row among the first ones.
constexpr Type s_types[] = {
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
    Any(14, kFloat32),
    Any(15, kAccessData),
    Any(16, kStringLatin1),
    Any(17, kSceneNumber, 1, 64, 0),
    Any(18, kSceneControl, -64, 64, 0),
    Any(19, kDateTime),
    Any(20, kU8),

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

    Float32(0, "DPT_Value_Acceleration", "m/s2"),
    Float32(1, "DPT_Value_Acceleration_Angular", "rad/s2"),
    Float32(2, "DPT_Value_Activation_Energy", "J/mol"),
    Float32(3, "DPT_Value_Activity", "1/s"),
    Float32(4, "DPT_Value_Mol", "mol"),
    Float32(5, "DPT_Value_Amplitude", ""),
    Float32(6, "DPT_Value_AngleRad", "rad"),
    Float32(7, "DPT_Value_AngleDeg", "°"),
    Float32(8, "DPT_Value_Angular_Momentum", "Js"),
    Float32(9, "DPT_Value_Angular_Velocity", "rad/s"),
    Float32(10, "DPT_Value_Area", "m2"),
    Float32(11, "DPT_Value_Capacitance", "F"),
    Float32(12, "DPT_Value_Charge_DensitySurface", "C/m2"),
    Float32(13, "DPT_Value_Charge_DensityVolume", "C/m3"),
    Float32(14, "DPT_Value_Compressibility", "m2/N"),
    Float32(15, "DPT_Value_Conductance", "S"),
    Float32(16, "DPT_Value_Electrical_Conductivity", "S/m"),
    Float32(17, "DPT_Value_Density", "kg/m3"),
    Float32(18, "DPT_Value_Electric_Charge", "C"),
    Float32(19, "DPT_Value_Electric_Current", "A"),
    Float32(20, "DPT_Value_Electric_CurrentDensity", "A/m2"),
    Float32(21, "DPT_Value_Electric_DipoleMoment", "Cm"),
    Float32(22, "DPT_Value_Electric_Displacement", "C/m2"),
    Float32(23, "DPT_Value_Electric_FieldStrength", "V/m"),
    Float32(24, "DPT_Value_Electric_Flux", "c"),
    Float32(25, "DPT_Value_Electric_FluxDensity", "C/m2"),
    Float32(26, "DPT_Value_Electric_Polarization", "C/m2"),
    Float32(27, "DPT_Value_Electric_Potential", "V"),
    Float32(28, "DPT_Value_Electric_PotentialDifference", "V"),
    Float32(29, "DPT_Value_ElectromagneticMoment", "Am2"),
    Float32(30, "DPT_Value_Electromotive_Force", "V"),
    Float32(31, "DPT_Value_Energy", "J"),
    Float32(32, "DPT_Value_Force", "N"),
    Float32(33, "DPT_Value_Frequency", "Hz"),
    Float32(34, "DPT_Value_Angular_Frequency", "rad/s"),
    Float32(35, "DPT_Value_Heat_Capacity", "J/K"),
    Float32(36, "DPT_Value_Heat_FlowRate", "W"),
    Float32(37, "DPT_Value_Heat_Quantity", "J"),
    Float32(38, "DPT_Value_Impedance", "Ω"),
    Float32(39, "DPT_Value_Length", "m"),
    Float32(40, "DPT_Value_Light_Quantity", "J or lm s"),
    Float32(41, "DPT_Value_Luminance", "cd/m2"),
    Float32(42, "DPT_Value_Luminous_Flux", "lm"),
    Float32(43, "DPT_Value_Luminous_Intensity", "cd"),
    Float32(44, "DPT_Value_Magnetic_FieldStrength", "A/m"),
    Float32(45, "DPT_Value_Magnetic_Flux", "Wb"),
    Float32(46, "DPT_Value_Magnetic_FluxDensity", "T"),
    Float32(47, "DPT_Value_Magnetic_Moment", "Am2"),
    Float32(48, "DPT_Value_Magnetic_Polarization", "T"),
    Float32(49, "DPT_Value_Magnetization", "A/m"),
    Float32(50, "DPT_Value_MagnetomotiveForce", "A"),
    Float32(51, "DPT_Value_Mass", "kg"),
    Float32(52, "DPT_Value_MassFlux", "kg/s"),
    Float32(53, "DPT_Value_Momentum", "N/s"),
    Float32(54, "DPT_Value_Phase_AngleRad", "rad"),
    Float32(55, "DPT_Value_Phase_AngleDeg", "°"),
    Float32(56, "DPT_Value_Power", "W"),
    Float32(57, "DPT_Value_Power_Factor", ""),
    Float32(58, "DPT_Value_Pressure", "Pa"),
    Float32(59, "DPT_Value_Reactance", "Ω"),
    Float32(60, "DPT_Value_Resistance", "Ω"),
    Float32(61, "DPT_Value_Resistivity", "Ωm"),
    Float32(62, "DPT_Value_SelfInductance", "H"),
    Float32(63, "DPT_Value_SolidAngle", "sr"),
    Float32(64, "DPT_Value_Sound_Intensity", "W/m2"),
    Float32(65, "DPT_Value_Speed", "m/s"),
    Float32(66, "DPT_Value_Stress", "Pa"),
    Float32(67, "DPT_Value_Surface_Tension", "N/m"),
    Float32(68, "DPT_Value_Common_Temperature", "°C"),
    Float32(69, "DPT_Value_Absolute_Temperature", "K"),
    Float32(70, "DPT_Value_TemperatureDifference", "K"),
    Float32(71, "DPT_Value_Thermal_Capacity", "J/K"),
    Float32(72, "DPT_Value_Thermal_Conductivity", "W/mK"),
    Float32(73, "DPT_Value_ThermoelectricPower", "V/K"),
    Float32(74, "DPT_Value_Time", "s"),
    Float32(75, "DPT_Value_Torque", "Nm"),
    Float32(76, "DPT_Value_Volume", "m3"),
    Float32(77, "DPT_Value_Volume_Flux", "m3/s"),
    Float32(78, "DPT_Value_Weight", "N"),
    Float32(79, "DPT_Value_Work", "J"),
    Float32(80, "DPT_Value_ApparentPower", "VA"),
    Float32(1200, "DPT_Volume_Flux_Meter", "m3/h"),
    Float32(1201, "DPT_Volume_Flux_ls", "l/s"),

    Plain(15, 0, kAccessData, "DPT_Access_Data"),

    Plain(16, 0, kStringAscii, "DPT_String_ASCII"),
    Plain(16, 1, kStringLatin1, "DPT_String_8859_1"),

    Limited(Plain(17, 1, kSceneNumber, "DPT_SceneNumber"), 1, 64),

    Limited(Plain(18, 1, kSceneControl, "DPT_SceneControl"), -64, 64),

    Plain(19, 1, kDateTime, "DPT_DateTime"),

    Choice(1, "DPT_SCLOMode", 0, 2, "0=Autonomous;1=Slave;2=Master"),
    Choice(2, "DPT_BuildingMode", 0, 2, "0=Building in use;1=Building not used;2=Building protection"),
    Choice(3, "DPT_OccMode", 0, 2, "0=Occupied;1=Standby;2=Not occupied"),
    Choice(4, "DPT_Priority", 0, 3, "0=High;1=Medium;2=Low;3=Void"),
    Choice(5, "DPT_LightApplicationMode", 0, 2, "0=Normal;1=Presence simulation;2=Night round"),
    Choice(6, "DPT_ApplicationArea", 0, 50, "", "0,1,10..14,20,30,40,50"),
    Choice(7, "DPT_AlarmClassType", 0, 3),
    Choice(8, "DPT_PSUMode", 0, 2, "0=Disabled;1=Enabled;2=Auto"),
    Choice(11, "DPT_ErrorClass_System", 0, 18),
    Choice(12, "DPT_ErrorClass_HVAC", 0, 4),
    Choice(13, "DPT_Time_Delay", 0, 25),
    Choice(14, "DPT_Beaufort_Wind_Force_Scale", 0, 12),
    Choice(17, "DPT_SensorSelect", 0, 4),
    Choice(20, "DPT_ActuatorConnectType", 1, 2),
    Choice(21, "DPT_Cloud_Cover", 0, 9),
    Choice(22, "DPT_PowerReturnMode", 0, 2),
    Choice(100, "DPT_FuelType", 0, 3),
    Choice(101, "DPT_BurnerType", 0, 3),
    Choice(102, "DPT_HVACMode", 0, 4, "0=Auto;1=Comfort;2=Standby;3=Economy;4=Building protection"),
    Choice(103, "DPT_DHWMode", 0, 4, "0=Auto;1=Legio protect;2=Normal;3=Reduced;4=Off/frost protect"),
    Choice(104, "DPT_LoadPriority", 0, 2, "0=None;1=Shift load priority;2=Absolute load priority"),
    Choice(105, "DPT_HVACContrMode", 0, 20, "", "0..17,20"),
    Choice(106, "DPT_HVACEmergMode", 0, 5),
    Choice(107, "DPT_ChangeoverMode", 0, 2, "0=Auto;1=Cooling only;2=Heating only"),
    Choice(108, "DPT_ValveMode", 1, 5),
    Choice(109, "DPT_DamperMode", 1, 4),
    Choice(110, "DPT_HeaterMode", 1, 3),
    Choice(111, "DPT_FanMode", 0, 2),
    Choice(112, "DPT_MasterSlaveMode", 0, 2),
    Choice(113, "DPT_StatusRoomSetp", 0, 2),
    Choice(114, "DPT_Metering_DeviceType", 0, 255, "", "0..8,10..13,32,33,40,41,255"),
    Choice(115, "DPT_HumDehumMode", 0, 2),
    Choice(120, "DPT_ADAType", 1, 2),
    Choice(121, "DPT_BackupMode", 0, 1),
    Choice(122, "DPT_StartSynchronization", 0, 2),
    Choice(600, "DPT_Behaviour_Lock_Unlock", 0, 6),
    Choice(601, "DPT_Behaviour_Bus_Power_Up_Down", 0, 4),
    Choice(602, "DPT_DALI_Fade_Time", 0, 15),
    Choice(603, "DPT_BlinkingMode", 0, 2),
    Choice(604, "DPT_LightControlMode", 0, 1),
    Choice(605, "DPT_SwitchPBModel", 1, 2),
    Choice(606, "DPT_PBAction", 0, 3),
    Choice(607, "DPT_DimmPBModel", 1, 4),
    Choice(608, "DPT_SwitchOnMode", 0, 2),
    Choice(609, "DPT_LoadTypeSet", 0, 8),
    Choice(610, "DPT_LoadTypeDetected", 0, 8),
    Choice(611, "DPT_Converter_Test_Control", 0, 6),
    Choice(612, "DPT_Converter_Control", 0, 4),
    Choice(613, "DPT_Converter_Data_Request", 0, 8),
    Choice(801, "DPT_SABExceptBehaviour", 0, 4),
    Choice(802, "DPT_SABBehaviour_Lock_Unlock", 0, 6),
    Choice(803, "DPT_SSSBMode", 1, 4),
    Choice(804, "DPT_BlindsControlMode", 0, 1),
    Choice(1000, "DPT_CommMode", 0, 255),
    Choice(1001, "DPT_AddInfoTypes", 0, 255, "", "0..7,255"),
    Choice(1002, "DPT_RF_ModeSelect", 0, 2),
    Choice(1003, "DPT_RF_FilterSelect", 0, 3),
    Choice(1004, "DPT_Medium", 0, 5, "", "0..2,5"),
    Choice(1005, "DPT_PB_Function", 1, 55),
    Choice(1200, "DPT_MBus_BreakerValve_State", 0, 255, "", "0..2,255"),
    Choice(1202, "DPT_Gas_Measurement_Condition", 0, 3),
    Choice(1203, "DPT_Breaker_Status", 0, 6),
    Choice(1204, "DPT_Euridis_Communication_Interface_Status", 0, 2),
    Choice(1205, "DPT_PLC_Status", 0, 2),
    Choice(1206, "DPT_Peak_Event_Notice", 0, 3),
    Choice(1207, "DPT_Peak_Event", 0, 3),
    Choice(1208, "DPT_TIC_Type", 0, 1),
    Choice(1209, "DPT_Type_TIC_Channel", 0, 4),
};

// The flow rate as the KNX Standard prints it. Devices and other programs use the raw integers, so this is
// the variant that has to be asked for.
constexpr Type s_flowRateInUnits = Num(13, 2, kV32TenThousandths, "DPT_FlowRate_m3/h", "m3/h", "0.0001");

// Open addressing over all rows, filled when the table is compiled.
constexpr std::size_t kSlots = 2048;
constexpr std::uint16_t kNoRow = 0xFFFF;

constexpr std::size_t SlotOf(std::uint32_t main, std::uint32_t sub) {
    return ((main << 16 | sub) * std::uint32_t{0x9E3779B1}) >> 21;
}

constexpr std::array<std::uint16_t, kSlots> MakeIndex() {
    std::array<std::uint16_t, kSlots> index{};
    index.fill(kNoRow);
    for (std::size_t row = 0; row < std::size(s_types); ++row) {
        std::size_t slot = SlotOf(s_types[row].main, s_types[row].sub);
        while (index[slot] != kNoRow) {
            slot = (slot + 1) % kSlots;
        }
        index[slot] = static_cast<std::uint16_t>(row);
    }
    return index;
}
constexpr auto s_index = MakeIndex();

// The longest way of a look-up to its row or to an empty slot.
constexpr std::size_t LongestSearch() {
    std::size_t longest = 0;
    std::size_t run = 0;
    for (const std::uint16_t row : s_index) {
        run = row == kNoRow ? 0 : run + 1;
        longest = std::max(longest, run);
    }
    return longest + 1;
}
static_assert(std::size(s_types) < kSlots / 2 && LongestSearch() <= 10, "look-ups take constant time");

const Type* FindRow(std::uint16_t main, std::uint16_t sub) {
    for (std::size_t slot = SlotOf(main, sub); s_index[slot] != kNoRow; slot = (slot + 1) % kSlots) {
        const Type& type = s_types[s_index[slot]];
        if (type.main == main && type.sub == sub) {
            return &type;
        }
    }
    return nullptr;
}

constexpr std::size_t kMainNumbers = static_cast<std::size_t>(std::count_if(
    std::begin(s_types), std::end(s_types), [](const Type& type) { return type.sub == kAnySub; }));

} // namespace

std::span<const Type> AllTypes() {
    return std::span(s_types).subspan(kMainNumbers);
}

const Type* Find(Number number) {
    const Type* type = FindRow(number.main, number.sub);
    return type != nullptr ? type : FindRow(number.main, kAnySub);
}

const Type* FindRule(const KNXDPT& dpt) {
    const bool asked = dpt.reserved == kStandardResolution && dpt.main == s_flowRateInUnits.main &&
                       dpt.sub == s_flowRateInUnits.sub;
    return asked ? &s_flowRateInUnits : Find({dpt.main, dpt.sub});
}

} // namespace Datapoint
