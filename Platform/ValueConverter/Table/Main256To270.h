// Datapoint types 256.xxx to 270.xxx: date and time with a value, sets of three values.
#pragma once

#include "ValueConverter/Table/DateTimeFields.h"
#include "ValueConverter/Table/Rows.h"

namespace Datapoint {

inline constexpr auto s_period =
    Join(DateTimeFields({"start_year", "start_month", "start_day", "start_dow", "start_hour", "start_minute",
                         "start_second", "start_f", "start_wd", "start_nwd", "start_ny", "start_nd",
                         "start_ndow", "start_nt", "start_suti", "start_clq", "start_src"}),
         DateTimeFields({"stop_year", "stop_month", "stop_day", "stop_dow", "stop_hour", "stop_minute",
                         "stop_second", "stop_f", "stop_wd", "stop_nwd", "stop_ny", "stop_nd", "stop_ndow",
                         "stop_nt", "stop_suti", "stop_clq", "stop_src"}));

inline Status CheckPeriod(const std::uint8_t* octets, Allowed, Reason reason) {
    constexpr std::size_t kOctetsOfDateTime = 8;
    const Status start = CheckDateTime(octets, reason);
    return start == Status::Done ? CheckDateTime(octets + kOctetsOfDateTime, reason) : start;
}
inline constexpr CompositeLayout kPeriod = MakeComposite(s_period, CheckPeriod);

inline constexpr auto s_threePhases =
    std::to_array<Field>({FloatField("phase1"), FloatField("phase2"), FloatField("phase3")});
inline constexpr CompositeLayout kThreePhases = MakeComposite(s_threePhases);

inline constexpr auto s_dateTimeBit =
    Join(s_dateTime, std::to_array<Field>({ReservedField(7), UnsignedField("b", 1)}));
inline constexpr CompositeLayout kDateTimeBit = MakeComposite(s_dateTimeBit, CheckDateTimeFields);

inline constexpr auto s_dateTimeFloat = Join(s_dateTime, std::to_array<Field>({FloatField("value")}));
inline constexpr CompositeLayout kDateTimeFloat = MakeComposite(s_dateTimeFloat, CheckDateTimeFields);

inline constexpr auto s_dateTimeText =
    Join(s_dateTime, std::to_array<Field>({TextField("text", FieldKind::Utf8ToTheEnd, 0)}));
inline constexpr CompositeLayout kDateTimeText = MakeComposite(s_dateTimeText, CheckDateTimeFields);

inline constexpr auto s_dateTimeChoice = Join(s_dateTime, std::to_array<Field>({UnsignedField("value", 8)}));
inline constexpr CompositeLayout kDateTimeChoice = MakeComposite(s_dateTimeChoice, CheckDateTimeFields);

inline constexpr auto s_dateTimeTariffEnergy =
    Join(s_dateTime, std::to_array<Field>({SignedField("activeEnergy", 32), UnsignedField("tariff", 8),
                                           ReservedField(6), FlagField("e"), FlagField("t")}));
inline constexpr CompositeLayout kDateTimeTariffEnergy =
    MakeComposite(s_dateTimeTariffEnergy, CheckDateTimeFields);

inline constexpr auto s_dateTimeThreePhases = Join(s_dateTime, s_threePhases);
inline constexpr CompositeLayout kDateTimeThreePhases =
    MakeComposite(s_dateTimeThreePhases, CheckDateTimeFields);

inline constexpr Type s_main256To270[] = {
    // the rule for every sub number that is not listed
    Any(256, kPeriod),
    Any(257, kThreePhases),
    Any(265, kDateTimeBit),
    Any(266, kDateTimeFloat),
    Any(267, kDateTimeText),
    Any(268, kDateTimeChoice),
    Any(269, kDateTimeTariffEnergy),
    Any(270, kDateTimeThreePhases),

    Plain(256, 1, kPeriod, "DPT_DateTime_Period"),

    Plain(257, 1200, kThreePhases, "DPT_Value_Electric_Current_3", "A"),
    Plain(257, 1201, kThreePhases, "DPT_Value_Electric_Potential_3", "V"),
    Plain(257, 1202, kThreePhases, "DPT_Value_ApparentPower_3", "VA"),

    Plain(265, 1, kDateTimeBit, "DPT_DateTime_Switch"),
    Plain(265, 5, kDateTimeBit, "DPT_DateTime_Alarm"),
    Plain(265, 9, kDateTimeBit, "DPT_DateTime_OpenClose"),
    Plain(265, 11, kDateTimeBit, "DPT_DateTime_State"),
    Plain(265, 12, kDateTimeBit, "DPT_DateTime_Invert"),
    Plain(265, 1200, kDateTimeBit, "DPT_DateTime_ConsumerProducer"),
    Plain(265, 1201, kDateTimeBit, "DPT_DateTime_EnergyDirection"),

    Plain(266, 27, kDateTimeFloat, "DPT_DateTime_Value_Electric_Potential", "V"),
    Plain(266, 56, kDateTimeFloat, "DPT_DateTime_Value_Power", "W"),
    Plain(266, 76, kDateTimeFloat, "DPT_DateTime_Value_Volume", "m3"),
    Plain(266, 77, kDateTimeFloat, "DPT_DateTime_Value_Volume_Flux", "m3/s"),
    Plain(266, 80, kDateTimeFloat, "DPT_DateTime_Value_ApparentPower", "VA"),

    Plain(267, 1, kDateTimeText, "DPT_DateTime_UTF-8"),

    Plain(268, 1203, kDateTimeChoice, "DPT_DateTime_Breaker_Status"),
    Plain(268, 1204, kDateTimeChoice, "DPT_DateTime_Euridis_Communication_Interface_Status"),
    Plain(268, 1205, kDateTimeChoice, "DPT_DateTime_PLC_Status"),
    Plain(268, 1206, kDateTimeChoice, "DPT_DateTime_Peak_Notice"),

    Plain(269, 1200, kDateTimeTariffEnergy, "DPT_DateTime_Tariff_ActiveEnergy", "Wh"),

    Plain(270, 1200, kDateTimeThreePhases, "DPT_DateTime_Value_Electric_Current_3", "A"),
    Plain(270, 1201, kDateTimeThreePhases, "DPT_DateTime_Value_Electric_Potential_3", "V"),
    Plain(270, 1202, kDateTimeThreePhases, "DPT_DateTime_Value_ApparentPower_3", "VA"),
};

} // namespace Datapoint
