// Datapoint types 21.xxx to 31.xxx: sets of bits, small enumerations, texts of any length, 64-bit counters.
#pragma once

#include "ValueConverter/Table/Rows.h"

namespace Datapoint {

inline constexpr auto s_doubleNibble =
    std::to_array<Field>({OneOf(UnsignedField("busy", 4), "0..3"), OneOf(UnsignedField("nak", 4), "0..3")});
inline constexpr CompositeLayout kDoubleNibble = MakeComposite(s_doubleNibble);
inline constexpr CompositeLayout kAnyDoubleNibble = WithoutLimits(kDoubleNibble);

// b = 0: the scene is active. Scenes count from 1, on the bus from 0.
inline constexpr auto s_sceneInfo = std::to_array<Field>(
    {ReservedField(1), UnsignedField("b", 1), NumberField("scene", {.bits = 6, .offset = 1})});
inline constexpr CompositeLayout kSceneInfo = MakeComposite(s_sceneInfo);

// Bit n of the mask calls output n valid; bit n of the state says whether it is on.
inline constexpr auto s_combinedOnOff = std::to_array<Field>(
    {{.name = "mask", .form = {.bits = 16}, .presence = FieldPresence::Optional, .whenLeftOut = 0xFFFF},
     UnsignedField("state", 16)});
inline constexpr CompositeLayout kCombinedOnOff = MakeComposite(s_combinedOnOff);

constexpr Type Action(std::uint16_t sub, std::string_view name, std::int64_t maximum,
                      std::string_view valueNames) {
    return {23, sub, &kU2, name, {}, 0, maximum, 0, "1", valueNames, {}};
}

inline constexpr Type s_main21To31[] = {
    // the rule for every sub number that is not listed
    Any(21, kU8),
    Any(22, kU16),
    Any(23, kU2),
    Any(24, kVaryingLatin1),
    Any(25, kAnyDoubleNibble),
    Any(26, kSceneInfo),
    Any(27, kCombinedOnOff),
    Any(28, kVaryingUtf8),
    Any(29, kV64),
    Any(30, kU24),
    Any(31, kU3),

    BitSet(21, 1, kU8, "DPT_StatusGen", 31, "1=OutOfService;2=Fault;4=Overridden;8=InAlarm;16=AlarmUnAck"),
    BitSet(21, 2, kU8, "DPT_Device_Control", 7, "1=UserStopped;2=OwnIA;4=VerifyMode"),
    BitSet(21, 100, kU8, "DPT_ForceSign", 255,
           "1=ForceRequest;2=Protection;4=Oversupply;8=Overrun;16=DHWNorm;32=DHWLegio;64=RoomHComf;"
           "128=RoomHMax"),
    BitSet(21, 101, kU8, "DPT_ForceSignCool", 1, "1=ForceRequest"),
    BitSet(21, 102, kU8, "DPT_StatusRHC", 255,
           "1=Fault;2=StatusECO;4=TempFlowLimit;8=TempReturnLimit;16=StatusMorningBoost;"
           "32=StatusStartOptim;64=StatusStopOptim;128=SummerMode"),
    BitSet(21, 103, kU8, "DPT_StatusSDHWC", 7, "1=Fault;2=SDHWLoadActive;4=SolarLoadSufficient"),
    BitSet(21, 104, kU8, "DPT_FuelTypeSet", 7, "1=Oil;2=Gas;4=SolidState"),
    BitSet(21, 105, kU8, "DPT_StatusRCC", 1, "1=Fault"),
    BitSet(21, 106, kU8, "DPT_StatusAHU", 15, "1=Fault;2=FanActive;4=Heat;8=Cool"),
    BitSet(21, 601, kU8, "DPT_LightActuatorErrorInfo", 127,
           "1=LoadDetectionError;2=Undervoltage;4=Overcurrent;8=Underload;16=DefectiveLoad;"
           "32=LampFailure;64=Overheat"),
    BitSet(21, 1000, kU8, "DPT_RF_ModeInfo", 7, "1=Asynchronous;2=BiBatMaster;4=BiBatSlave"),
    BitSet(21, 1001, kU8, "DPT_RF_FilterInfo", 7, "1=DoA;2=KNXSN;4=DoAandKNXSN"),
    BitSet(21, 1002, kU8, "DPT_Security_Report", 1, "1=SecurityFailure"),
    BitSet(21, 1010, kU8, "DPT_Channel_Activation_8", 255,
           "1=Ch1;2=Ch2;4=Ch3;8=Ch4;16=Ch5;32=Ch6;64=Ch7;128=Ch8"),
    BitSet(21, 1200, kU8, "DPT_VirtualDryContact", 255,
           "1=Contact1;2=Contact2;4=Contact3;8=Contact4;16=Contact5;32=Contact6;64=Contact7;128=Contact8"),
    BitSet(21, 1201, kU8, "DPT_Phases_Status", 7, "1=Phase0;2=Phase1;4=Phase2"),

    BitSet(22, 100, kU16, "DPT_StatusDHWC", 255,
           "1=Fault;2=DHWLoadActive;4=LegioProtActive;8=DHWPushActive;16=OtherEnergySourceActive;"
           "32=SolarEnergyOnly;64=SolarEnergySupport;128=TempOptimShiftActive"),
    BitSet(22, 101, kU16, "DPT_StatusRHCC", 32767,
           "1=Fault;2=StatusEcoH;4=TempFlowLimit;8=TempReturnLimit;16=StatusMorningBoostH;"
           "32=StatusStartOptim;64=StatusStopOptim;128=HeatingDisabled;256=HeatCoolMode;512=StatusEcoC;"
           "1024=StatusPreCool;2048=CoolingDisabled;4096=DewPointStatus;8192=FrostAlarm;"
           "16384=OverheatAlarm"),
    BitSet(22, 1000, kU16, "DPT_Media", 54, "2=TP1;4=PL110;16=RF;32=KNXIP",
           "0,2,4,6,16,18,20,22,32,34,36,38,48,50,52,54"),
    BitSet(22, 1010, kU16, "DPT_Channel_Activation_16", 65535,
           "1=Ch1;2=Ch2;4=Ch3;8=Ch4;16=Ch5;32=Ch6;64=Ch7;128=Ch8;256=Ch9;512=Ch10;1024=Ch11;2048=Ch12;"
           "4096=Ch13;8192=Ch14;16384=Ch15;32768=Ch16"),

    Action(1, "DPT_OnOff_Action", 3, "0=off;1=on;2=off/on;3=on/off"),
    Action(2, "DPT_Alarm_Reaction", 2, "0=no alarm;1=UP;2=DOWN"),
    Action(3, "DPT_UpDown_Action", 3, "0=Up;1=Down;2=UpDown;3=DownUp"),
    Action(102, "DPT_HVAC_PB_Action", 3, "0=Comfort/Economy;1=Comfort/-;2=Economy/-;3=BldgProt/Auto"),

    Plain(24, 1, kVaryingLatin1, "DPT_VarString_8859_1"),

    Plain(25, 1000, kDoubleNibble, "DPT_DoubleNibble"),

    Plain(26, 1, kSceneInfo, "DPT_SceneInfo"),

    Plain(27, 1, kCombinedOnOff, "DPT_CombinedInfoOnOff"),

    Plain(28, 1, kVaryingUtf8, "DPT_UTF-8"),

    Num(29, 10, kV64, "DPT_ActiveEnergy_V64", "Wh"),
    Num(29, 11, kV64, "DPT_ApparantEnergy_V64", "VAh"),
    Num(29, 12, kV64, "DPT_ReactiveEnergy_V64", "VARh"),

    BitSet(30, 1010, kU24, "DPT_Channel_Activation_24", 16777215,
           "1=Ch1;2=Ch2;4=Ch3;8=Ch4;16=Ch5;32=Ch6;64=Ch7;128=Ch8;256=Ch9;512=Ch10;1024=Ch11;2048=Ch12;"
           "4096=Ch13;8192=Ch14;16384=Ch15;32768=Ch16;65536=Ch17;131072=Ch18;262144=Ch19;524288=Ch20;"
           "1048576=Ch21;2097152=Ch22;4194304=Ch23;8388608=Ch24"),

    Num(31, 101, kU3, "DPT_PB_Action_HVAC_Extended", ""),
};

} // namespace Datapoint
