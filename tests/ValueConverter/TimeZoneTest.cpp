// Dates and times are what a wall clock shows: the same octets and texts in every time zone, also for a time
// that the zone's clocks skip or show twice.
#include "Convert.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVTIME.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"
#include "Vesk/KnxValueConverter.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <ostream>
#include <set>

using namespace ConverterTest;

namespace {

/// What the clock on a wall shows; weekday and day of the year are from a calendar.
struct Moment {
    int year, month, day, hour, minute, second;
    int dayOfWeek; // 1 is Monday
    int dayOfYear;
};

struct Zone {
    const char* name;
    const char* inJanuary; // what its clocks show at 2024-01-01 12:00 UTC
    const char* inJuly;    // and at 2024-07-01 12:00 UTC
    Moment skipped;        // shown by no clock of the zone; year 0 where there is none
    Moment twice;          // shown twice
};

constexpr Moment kNone{};

// Berlin, New York and St. John's go by an hour at 02:00, Lord Howe goes by half an hour, Sao Paulo went at
// midnight, Apia skipped a day when it crossed the date line. The last two need no zone data.
const Zone kZones[] = {
    {"UTC", "2024-01-01 12:00", "2024-07-01 12:00", kNone, kNone},
    {"Europe/Berlin",
     "2024-01-01 13:00",
     "2024-07-01 14:00",
     {2024, 3, 31, 2, 30, 0, 7, 91},
     {2024, 10, 27, 2, 30, 0, 7, 301}},
    {"America/New_York",
     "2024-01-01 07:00",
     "2024-07-01 08:00",
     {2024, 3, 10, 2, 30, 0, 7, 70},
     {2024, 11, 3, 1, 30, 0, 7, 308}},
    {"America/St_Johns",
     "2024-01-01 08:30",
     "2024-07-01 09:30",
     {2024, 3, 10, 2, 45, 0, 7, 70},
     {2024, 11, 3, 1, 15, 0, 7, 308}},
    {"America/Sao_Paulo",
     "2024-01-01 09:00",
     "2024-07-01 09:00",
     {2018, 11, 4, 0, 30, 0, 7, 308},
     {2018, 2, 17, 23, 30, 0, 6, 48}},
    {"Asia/Kolkata", "2024-01-01 17:30", "2024-07-01 17:30", kNone, kNone},
    {"Australia/Lord_Howe",
     "2024-01-01 23:00",
     "2024-07-01 22:30",
     {2024, 10, 6, 2, 15, 0, 7, 280},
     {2024, 4, 7, 1, 45, 0, 7, 98}},
    {"Pacific/Apia",
     "2024-01-02 01:00",
     "2024-07-02 01:00",
     {2011, 12, 30, 12, 0, 0, 5, 364},
     {2021, 4, 4, 3, 30, 0, 7, 94}},
    {"XXX+12", "2024-01-01 00:00", "2024-07-01 00:00", kNone, kNone},
    {"YYY-14", "2024-01-02 02:00", "2024-07-02 02:00", kNone, kNone},
};

const Moment kEnds[] = {{1900, 1, 1, 0, 0, 0, 1, 1},        {1969, 12, 31, 23, 59, 59, 3, 365},
                        {1970, 1, 1, 0, 0, 0, 4, 1},        {2000, 2, 29, 0, 0, 0, 2, 60},
                        {2024, 12, 31, 23, 59, 59, 2, 366}, {2038, 1, 19, 3, 14, 8, 2, 19},
                        {2155, 12, 31, 23, 59, 59, 3, 365}};

std::vector<Moment> Moments() {
    std::vector<Moment> moments(std::begin(kEnds), std::end(kEnds));
    for (const Zone& zone : kZones) {
        if (zone.skipped.year != 0) {
            moments.insert(moments.end(), {zone.skipped, zone.twice});
        }
    }
    return moments;
}

// Where the C library's clock ends up for the moment, with summer time or without.
std::tm InZone(const Moment& moment, int summer, std::time_t& utc) {
    std::tm local{};
    local.tm_year = moment.year - 1900;
    local.tm_mon = moment.month - 1;
    local.tm_mday = moment.day;
    local.tm_hour = moment.hour;
    local.tm_min = moment.minute;
    local.tm_isdst = summer;
    utc = std::mktime(&local);
    return local;
}

bool Shows(const std::tm& local, const Moment& moment) {
    return local.tm_mday == moment.day && local.tm_hour == moment.hour && local.tm_min == moment.minute;
}

std::string ShownAt(std::time_t utc) {
    std::tm local{};
    char text[32] = {};
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", localtime_r(&utc, &local));
    return text;
}

/// A type, and what stands behind its date and time: nothing but zeros.
struct Composite {
    const char* dpt;
    std::size_t zeros;
    std::string members;
};

std::string Registers(int count) {
    std::string members = R"("text":"")";
    for (int n = 1; n <= count; ++n) {
        members += fmt::format(R"(,"activeEnergy{0}":0,"tariff{0}":0,"e{0}":0,"t{0}":0)", n);
    }
    return members;
}

// 12 octets of text and 6 for each register.
const Composite kComposites[] = {
    {"247.600", 4, R"("timePeriod1":0,"timePeriod2":0)"},
    {"265.001", 1, R"("b":0)"},
    {"266.027", 4, R"("value":0)"},
    {"267.001", 1, R"("text":"")"},
    {"268.1203", 1, R"("value":0)"},
    {"269.1200", 6, R"("activeEnergy":0,"tariff":0,"e":0,"t":0)"},
    {"270.1200", 12, R"("phase1":0,"phase2":0,"phase3":0)"},
    {"281.1200", 12 + 4 * 6, Registers(4)},
    {"282.1200", 12 + 5 * 6, Registers(5)},
    {"283.1200", 12 + 6 * 6, Registers(6)},
    {"284.1200", 12 + 11 * 6, Registers(11)},
};

// year from 1900, month, day; weekday in three bits and hour in five; minute, second, two octets of flags
Bytes DateTimeOctets(const Moment& moment) {
    const auto octet = [](int number) { return static_cast<std::uint8_t>(number); };
    return {octet(moment.year - 1900),
            octet(moment.month),
            octet(moment.day),
            octet(moment.dayOfWeek << 5 | moment.hour),
            octet(moment.minute),
            octet(moment.second),
            0,
            0};
}

std::string DateTimeMembers(const Moment& moment, const std::string& prefix = "") {
    std::string members =
        fmt::format(R"("{0}year":{1},"{0}month":{2},"{0}day":{3},"{0}dow":{4},"{0}hour":{5},"{0}minute":{6},)"
                    R"("{0}second":{7})",
                    prefix, moment.year, moment.month, moment.day, moment.dayOfWeek, moment.hour,
                    moment.minute, moment.second);
    for (const auto* flag : {"f", "wd", "nwd", "ny", "nd", "ndow", "nt", "suti", "clq", "src"}) {
        members += fmt::format(R"(,"{}{}":0)", prefix, flag);
    }
    return members;
}

void ExpectBothWays(const char* dpt, const Bytes& octets, const std::string& text) {
    EXPECT_EQ(FromBus(dpt, octets), text) << dpt;
    EXPECT_EQ(ToBus(dpt, text), Hex(octets)) << dpt << ' ' << WhyNotToBus(dpt, text);
}

// The value itself, without the way over its text.
TAVTIME ExpectValueKeepsOctets(const char* dpt, const Bytes& octets) {
    auto record = Dpt(dpt);
    const unsigned bits = static_cast<unsigned>(octets.size()) * 8;
    TAVVALUE value;
    KnxStack::GroupValue back;
    const Vesk::KnxValueConverter converter;
    EXPECT_TRUE(converter.FromKnxValue(record, {KnxStack::BinaryData(octets), bits}, value)) << dpt;
    EXPECT_TRUE(converter.ToKnxValue(record, value, back)) << dpt;
    EXPECT_EQ(back.GetRawData().ToString(), Hex(octets)) << dpt;
    return TAVTIME(value);
}

std::string NameOf(const testing::TestParamInfo<Zone>& info) {
    std::string name = info.param.name;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char letter) { return std::isalnum(letter) == 0; }, '_');
    return name;
}

void PrintTo(const Zone& zone, std::ostream* stream) {
    *stream << zone.name;
}

/// Lives in one zone, and gives the process its own back.
class InTimeZone : public testing::TestWithParam<Zone> {
protected:
    InTimeZone() {
        const char* before = std::getenv("TZ");
        m_hadZone = before != nullptr;
        m_before = m_hadZone ? before : "";
        Enter(GetParam().name);
    }
    ~InTimeZone() override { m_hadZone ? Enter(m_before.c_str()) : LeaveAll(); }

private:
    static void Enter(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    static void LeaveAll() {
        unsetenv("TZ");
        tzset();
    }

    bool m_hadZone = false;
    std::string m_before;
};

} // namespace

// Without its data (package tzdata) a zone is UTC to the C library, and what follows would prove nothing.
TEST_P(InTimeZone, TheSystemKnowsTheZone) {
    const Zone& zone = GetParam();
    EXPECT_EQ(ShownAt(1704110400), zone.inJanuary);
    EXPECT_EQ(ShownAt(1719835200), zone.inJuly);
    if (zone.skipped.year == 0) {
        return;
    }
    std::time_t utc = 0;
    EXPECT_FALSE(Shows(InZone(zone.skipped, -1, utc), zone.skipped));
    std::time_t summer = 0;
    std::time_t winter = 0;
    EXPECT_TRUE(Shows(InZone(zone.twice, 1, summer), zone.twice));
    EXPECT_TRUE(Shows(InZone(zone.twice, 0, winter), zone.twice));
    EXPECT_LT(summer, winter);
}

TEST_P(InTimeZone, DatesAndTimesAreTheSame) {
    ASSERT_EQ(ShownAt(1719835200), GetParam().inJuly) << "the zone's data are missing";
    constexpr std::array kDays = {"", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    for (const Moment& moment : Moments()) {
        const Bytes dateTime = DateTimeOctets(moment);
        const Bytes time(dateTime.begin() + 3, dateTime.begin() + 6);
        const std::string dateText = fmt::format("{}-{:02}-{:02}", moment.year, moment.month, moment.day);
        const std::string timeText =
            fmt::format("{:02}:{:02}:{:02}", moment.hour, moment.minute, moment.second);
        SCOPED_TRACE(dateText + " " + timeText);

        ExpectBothWays("10.001", time,
                       kDays.at(static_cast<std::size_t>(moment.dayOfWeek)) + (" " + timeText));
        EXPECT_EQ(ToBus("10.001", dateText + "T" + timeText), Hex(time));
        ExpectValueKeepsOctets("10.001", time);
        ExpectBothWays("19.001", dateTime, dateText + "T" + timeText);
        const TAVTIME value = ExpectValueKeepsOctets("19.001", dateTime);
        EXPECT_EQ(value.dayOfWeek, moment.dayOfWeek);
        EXPECT_EQ(value.dayOfYear, moment.dayOfYear);
        EXPECT_EQ(value.Format("%F %T"), dateText + " " + timeText);

        if (moment.year >= 1990 && moment.year <= 2089) {
            const Bytes date{dateTime[2], dateTime[1], static_cast<std::uint8_t>(moment.year % 100)};
            ExpectBothWays("11.001", date, dateText);
            EXPECT_EQ(ToBus("11.001", dateText + "T" + timeText), Hex(date));
            ExpectValueKeepsOctets("11.001", date);
        }
    }
}

TEST_P(InTimeZone, CompositesWithADateOrATimeAreTheSame) {
    ASSERT_EQ(ShownAt(1719835200), GetParam().inJuly) << "the zone's data are missing";
    for (const Moment& moment : Moments()) {
        const Bytes dateTime = DateTimeOctets(moment);
        SCOPED_TRACE(Hex(dateTime));
        for (const auto& [dpt, zeros, members] : kComposites) {
            Bytes octets = dateTime;
            octets.resize(octets.size() + zeros, 0);
            ExpectBothWays(dpt, octets, "{" + DateTimeMembers(moment) + "," + members + "}");
        }
        Bytes period = dateTime;
        period.insert(period.end(), dateTime.begin(), dateTime.end());
        ExpectBothWays("256.001", period,
                       "{" + DateTimeMembers(moment, "start_") + "," + DateTimeMembers(moment, "stop_") +
                           "}");
        ExpectBothWays(
            "271.1200", {dateTime[3], dateTime[4], dateTime[5], 0, 0, 0, 0},
            fmt::format(
                R"({{"day":{},"hour":{},"minute":{},"second":{},"itemNumber":0,"totalItems":0,"tariff":0,)"
                R"("dayProfile":0,"dryContact":0,"vc7":0,"vc6":0,"vc5":0,"vc4":0,"vc3":0,"vc2":0,"vc1":0}})",
                moment.dayOfWeek, moment.hour, moment.minute, moment.second));
    }
}

INSTANTIATE_TEST_SUITE_P(Zones, InTimeZone, testing::ValuesIn(kZones), NameOf);

TEST(TimeZones, EveryTypeWithAnHourIsAmongThoseThatAreTried) {
    std::set<unsigned> tried{10, 11, 19, 256, 271};
    for (const Composite& composite : kComposites) {
        tried.insert(Dpt(composite.dpt).main);
    }
    std::set<unsigned> mains{10, 11, 19};
    for (const auto& type : Datapoint::AllTypes()) {
        if (Datapoint::Range(type).find("hour ") != std::string::npos) {
            mains.insert(type.main);
        }
    }
    EXPECT_EQ(tried, mains);
}
