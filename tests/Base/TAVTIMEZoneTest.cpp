#include "Tav/TAVTIME.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string>

namespace {

struct Case {
    const char* zone;
    long utc;
    const char* local; // %F %T %u %j
};

// The last part of a test's name.
std::string NameOf(const testing::TestParamInfo<Case>& info) {
    auto name = std::string(info.param.zone) + '_' + std::to_string(info.param.utc);
    std::replace_if(
        name.begin(), name.end(), [](unsigned char letter) { return std::isalnum(letter) == 0; }, '_');
    return name;
}

// One process per case: TZ belongs to the process.
class TAVTIMEZoneTest : public testing::TestWithParam<Case> {};

TEST_P(TAVTIMEZoneTest, UtcSecondsBecomeLocalFields) {
    ASSERT_EQ(setenv("TZ", GetParam().zone, 1), 0);
    TAVTIME time;
    time.Set(GetParam().utc, true);
    EXPECT_EQ(time.Format("%F %T %u %j"), GetParam().local);
    TAVTIME computed = time;
    computed.SetWeekYearDay();
    EXPECT_EQ(time, computed);
}

// Expected texts come from the zones' published rules: Berlin CET/CEST switches at 01:00 UTC; New York at
// 02:00 local; Lord Howe moves by half an hour between UTC+10:30 and +11; Kolkata is UTC+5:30 all year; Apia
// skipped 30 December 2011 when it crossed the date line.
const Case kCases[] = {
    {"UTC", 0, "1970-01-01 00:00:00 4 001"},
    {"UTC", -1, "1969-12-31 23:59:59 3 365"},
    {"UTC", 951782400, "2000-02-29 00:00:00 2 060"},
    {"UTC", 1714564800, "2024-05-01 12:00:00 3 122"},
    {"UTC", 253402300800, "10000-01-01 00:00:00 6 001"},
    {"Europe/Berlin", 1711846799, "2024-03-31 01:59:59 7 091"},
    {"Europe/Berlin", 1711846800, "2024-03-31 03:00:00 7 091"},
    {"Europe/Berlin", 1729990799, "2024-10-27 02:59:59 7 301"},
    {"Europe/Berlin", 1729990800, "2024-10-27 02:00:00 7 301"},
    {"Europe/Berlin", 1735685999, "2024-12-31 23:59:59 2 366"},
    {"Europe/Berlin", 1735686000, "2025-01-01 00:00:00 3 001"},
    {"America/New_York", 1710053999, "2024-03-10 01:59:59 7 070"},
    {"America/New_York", 1710054000, "2024-03-10 03:00:00 7 070"},
    {"America/New_York", 1730613599, "2024-11-03 01:59:59 7 308"},
    {"America/New_York", 1730613600, "2024-11-03 01:00:00 7 308"},
    {"Australia/Lord_Howe", 1712415599, "2024-04-07 01:59:59 7 098"},
    {"Australia/Lord_Howe", 1712415600, "2024-04-07 01:30:00 7 098"},
    {"Australia/Lord_Howe", 1728142199, "2024-10-06 01:59:59 7 280"},
    {"Australia/Lord_Howe", 1728142200, "2024-10-06 02:30:00 7 280"},
    {"Asia/Kolkata", 1714564800, "2024-05-01 17:30:00 3 122"},
    {"Asia/Kolkata", 1735669800, "2025-01-01 00:00:00 3 001"},
    {"Pacific/Apia", 1325239199, "2011-12-29 23:59:59 4 363"},
    {"Pacific/Apia", 1325239200, "2011-12-31 00:00:00 6 365"},
};

INSTANTIATE_TEST_SUITE_P(Zones, TAVTIMEZoneTest, testing::ValuesIn(kCases), NameOf);

TEST(TAVTIMEZoneChangeTest, AChangeOfTheZoneCountsAtOnce) {
    TAVTIME time;
    ASSERT_EQ(setenv("TZ", "UTC", 1), 0);
    time.Set(1714564800, true);
    EXPECT_EQ(time.Format("%T"), "12:00:00");
    ASSERT_EQ(setenv("TZ", "Europe/Berlin", 1), 0);
    time.Set(1714564800, true);
    EXPECT_EQ(time.Format("%T"), "14:00:00");
}

TEST(TAVTIMEZoneChangeTest, SecondsWithoutAZoneIgnoreIt) {
    ASSERT_EQ(setenv("TZ", "America/New_York", 1), 0);
    TAVTIME time;
    time.Set(1714564800, false);
    EXPECT_EQ(time.Format("%F %T"), "2024-05-01 12:00:00");
    EXPECT_EQ(static_cast<long>(time), 1714564800);
}

TEST(TAVTIMEZoneChangeTest, DifferencesAreThoseOfWallClocksAcrossASwitch) {
    ASSERT_EQ(setenv("TZ", "Europe/Berlin", 1), 0);
    TAVTIME before;
    TAVTIME after;
    before.Set(1711846799, true);
    after.Set(1711846800, true);
    EXPECT_EQ(static_cast<long>(after) - static_cast<long>(before), 3601);
}

TEST(TAVTIMEZoneChangeTest, YearsThatDoNotFitClearTheTime) {
    ASSERT_EQ(setenv("TZ", "UTC", 1), 0);
    for (const long seconds : {-62135596801L, 2005949145600L, INT64_MIN, INT64_MAX}) {
        TAVTIME time;
        time.Set(0, true);
        ASSERT_EQ(time.year, 1970);
        time.Set(seconds, true);
        EXPECT_EQ(time, TAVTIME()) << seconds;
    }
    TAVTIME last;
    last.Set(2005949145599L, true);
    EXPECT_EQ(last.Format("%Y-%m-%d %T"), "65535-12-31 23:59:59");
}

} // namespace
