#include "Tav/TAVTIME.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

TAVTIME At(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    TAVTIME time;
    time.year = static_cast<std::uint16_t>(year);
    time.month = static_cast<std::uint8_t>(month);
    time.day = static_cast<std::uint8_t>(day);
    time.hour = static_cast<std::uint8_t>(hour);
    time.minute = static_cast<std::uint8_t>(minute);
    time.second = static_cast<std::uint8_t>(second);
    return time;
}

TAVTIME WithDays(TAVTIME time, int dayOfWeek, int dayOfYear) {
    time.dayOfWeek = static_cast<std::uint8_t>(dayOfWeek);
    time.dayOfYear = static_cast<std::uint16_t>(dayOfYear);
    return time;
}

int LastDay(int year, int month) {
    if (month == 2) {
        return year % 400 == 0 || (year % 4 == 0 && year % 100 != 0) ? 29 : 28;
    }
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

// Counts day after day from 1 January of the year 1, a Monday.
struct DayCounter {
    int year = 1;
    int month = 1;
    int day = 1;
    int dayOfWeek = 1;
    int dayOfYear = 1;
    long days = 0;

    void Next() {
        ++days;
        dayOfWeek = dayOfWeek == 7 ? 1 : dayOfWeek + 1;
        ++dayOfYear;
        if (++day > LastDay(year, month)) {
            day = 1;
            if (++month > 12) {
                month = 1;
                dayOfYear = 1;
                ++year;
            }
        }
    }
};

TEST(TAVTIMETest, EveryDayOfThirtyTwoCenturiesAgreesWithCounting) {
    long epoch = 0;
    for (DayCounter counter; counter.year < 1970; counter.Next()) {
        epoch = counter.days + 1;
    }
    for (DayCounter counter; counter.year <= 3200; counter.Next()) {
        const auto expected = WithDays(At(counter.year, counter.month, counter.day, 23, 59, 58),
                                       counter.dayOfWeek, counter.dayOfYear);
        const auto seconds = (counter.days - epoch) * 86400 + 86398;

        auto computed = At(counter.year, counter.month, counter.day, 23, 59, 58);
        computed.SetWeekYearDay();
        ASSERT_EQ(computed, expected) << counter.days;
        ASSERT_EQ(static_cast<long>(computed), seconds) << counter.days;

        TAVTIME set = At(1, 2, 3);
        set.Set(seconds, false);
        ASSERT_EQ(set, expected) << counter.days;
    }
}

TEST(TAVTIMETest, LastYearThatFitsIsReachedAndNotPassed) {
    auto last = At(65535, 12, 31, 23, 59, 59);
    TAVTIME time;
    time.Set(static_cast<long>(last), false);
    last.SetWeekYearDay();
    EXPECT_EQ(time, last);
    EXPECT_EQ(time.dayOfYear, 365);
    time.Set(static_cast<long>(last) + 1, false);
    EXPECT_EQ(time, TAVTIME());
}

TEST(TAVTIMETest, FirstDayThatFitsIsReachedAndNotPassed) {
    const auto first = static_cast<long>(At(1, 1, 1));
    EXPECT_EQ(first, -62135596800);
    TAVTIME time;
    time.Set(first, false);
    EXPECT_EQ(time, WithDays(At(1, 1, 1), 1, 1));
    time.Set(first - 1, false);
    EXPECT_EQ(time, TAVTIME());
    time.Set(INT64_MIN, false);
    EXPECT_EQ(time, TAVTIME());
    time.Set(INT64_MAX, false);
    EXPECT_EQ(time, TAVTIME());
}

TEST(TAVTIMETest, ExactlyTheDaysOfTheCalendarAreValid) {
    for (const int year : {0, 1, 4, 100, 400, 1900, 1999, 2000, 2023, 2024, 2100, 65535}) {
        for (int month = 0; month < 256; ++month) {
            for (int day = 0; day < 256; ++day) {
                const bool expected =
                    year >= 1 && month >= 1 && month <= 12 && day >= 1 && day <= LastDay(year, month);
                ASSERT_EQ(TAVTIME::IsValidDate(static_cast<std::uint16_t>(year),
                                               static_cast<std::uint8_t>(month),
                                               static_cast<std::uint8_t>(day)),
                          expected)
                    << year << '-' << month << '-' << day;
            }
        }
    }
}

TEST(TAVTIMETest, TimeOfDayIsValidUpToOneSecondBeforeMidnight) {
    EXPECT_TRUE(TAVTIME::IsValidTime(0, 0, 0));
    EXPECT_TRUE(TAVTIME::IsValidTime(23, 59, 59));
    EXPECT_FALSE(TAVTIME::IsValidTime(24, 0, 0));
    EXPECT_FALSE(TAVTIME::IsValidTime(0, 60, 0));
    EXPECT_FALSE(TAVTIME::IsValidTime(23, 59, 60));
    EXPECT_FALSE(TAVTIME::IsValidTime(255, 255, 255));
}

TEST(TAVTIMETest, AnImpossibleDateHasNoWeekAndYearDay) {
    auto time = WithDays(At(2023, 2, 30), 4, 61);
    time.SetWeekYearDay();
    EXPECT_EQ(time, At(2023, 2, 30));
}

TEST(TAVTIMETest, FieldsOutsideTheirRangeCountOn) {
    EXPECT_EQ(static_cast<long>(At(2023, 2, 30)), static_cast<long>(At(2023, 3, 2)));
    EXPECT_EQ(static_cast<long>(At(2024, 2, 30)), static_cast<long>(At(2024, 3, 1)));
    EXPECT_EQ(static_cast<long>(At(2024, 0, 31)), static_cast<long>(At(2023, 12, 31)));
    EXPECT_EQ(static_cast<long>(At(2024, 14, 1)), static_cast<long>(At(2025, 2, 1)));
    EXPECT_EQ(static_cast<long>(At(2024, 5, 0)), static_cast<long>(At(2024, 4, 30)));
    EXPECT_EQ(static_cast<long>(At(2024, 5, 1, 24)), static_cast<long>(At(2024, 5, 2)));
    EXPECT_EQ(static_cast<long>(At(0, 0, 0, 12)) - static_cast<long>(At(0, 0, 0)), 12 * 3600);
    EXPECT_EQ(static_cast<long>(At(0, 12, 31)), static_cast<long>(At(1, 1, 1)) - 86400);
}

TEST(TAVTIMETest, FormatSpeaksStrftime) {
    const auto time = WithDays(At(2024, 5, 1, 12, 3, 4), 3, 122);
    EXPECT_EQ(time.Format("%H:%M:%S"), "12:03:04");
    EXPECT_EQ(time.Format("%Y-%m-%d"), "2024-05-01");
    EXPECT_EQ(time.Format("%Y-%m-%d %H:%M:%S"), "2024-05-01 12:03:04");
    EXPECT_EQ(time.Format("%a %A %b %B %j %u %w %V %y %%"), "Wed Wednesday May May 122 3 3 18 24 %");
    EXPECT_EQ(WithDays(At(2024, 5, 5), 7, 126).Format("%a %u %w"), "Sun 7 0");
}

TEST(TAVTIMETest, FormatOfAnEmptyFormatIsEmpty) {
    EXPECT_EQ(At(2024, 5, 1).Format(""), "");
    EXPECT_EQ(At(2024, 5, 1, 12).Format("100%"), "100%");
}

TEST(TAVTIMETest, FormatHasNoLengthLimit) {
    const std::string words(1000, 'x');
    EXPECT_EQ(At(2024, 5, 1).Format((words + "%Y" + words).c_str()), words + "2024" + words);
    std::string years;
    std::string expected;
    for (int i = 0; i < 500; ++i) {
        years += "%F";
        expected += "2024-05-01";
    }
    EXPECT_EQ(At(2024, 5, 1).Format(years.c_str()), expected);
}

TEST(TAVTIMETest, FormatPrintsFieldsOutsideTheirRangeAsTheyAre) {
    EXPECT_EQ(At(2023, 2, 30, 24, 60, 99).Format("%Y-%m-%d %H:%M:%S"), "2023-02-30 24:60:99");
    EXPECT_EQ(At(65535, 0, 0).Format("%Y-%m-%d"), "65535-00-00");
    EXPECT_EQ(At(2023, 13, 1).Format("%m %b %a"), "13 ? ?");
}

TEST(TAVTIMETest, FormatTakesAnUnknownWeekAndYearDayFromTheDate) {
    EXPECT_EQ(At(2024, 5, 1).Format("%a %j"), "Wed 122");
    EXPECT_EQ(WithDays(At(2024, 5, 1), 5, 0).Format("%a %j"), "Fri 122");
    EXPECT_EQ(WithDays(At(0, 0, 0, 12), 5, 0).Format("%a %H"), "Fri 12");
}

} // namespace
