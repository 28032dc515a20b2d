// 10.xxx, 11.xxx and 19.xxx: date and time.
#include "Convert.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVTIME.h"
#include "Tav/TAVVALUE.h"
#include "Vesk/KnxValueConverter.h"

#include <gtest/gtest.h>

#include <random>
#include <tuple>

using namespace ConverterTest;

namespace {

TAVVALUE Value(std::string_view dpt, const Bytes& octets) {
    auto record = Dpt(dpt);
    TAVVALUE value;
    EXPECT_TRUE(Vesk::KnxValueConverter().FromKnxValue(
        record, {KnxStack::BinaryData(octets), static_cast<unsigned>(octets.size()) * 8}, value));
    return value;
}

} // namespace

// Octet 0: day of the week in bits 7 to 5, hour in 4 to 0. Wednesday is 3: 3 * 32 + 12 is 6Ch.
TEST(TimeOfDay, HasADayOfTheWeekOrNone) {
    EXPECT_EQ(FromBus("10.001", {0x0C, 0x00, 0x00}), "12:00:00");
    EXPECT_EQ(FromBus("10.001", {0x6C, 0x1E, 0x05}), "Wed 12:30:05");
    EXPECT_EQ(FromBus("10.001", {0x37, 0x3B, 0x3B}), "Mon 23:59:59");
    EXPECT_EQ(FromBus("10.001", {0xE0, 0x00, 0x00}), "Sun 00:00:00");
    EXPECT_EQ(ToBus("10.001", "12:00:00"), "0c0000");
    EXPECT_EQ(ToBus("10.001", "Wed 12:30:05"), "6c1e05");
}

TEST(TimeOfDay, MasksReservedBits) {
    EXPECT_EQ(FromBus("10.001", {0x0C, 0xC1, 0xC2}), "12:01:02");
}

TEST(TimeOfDay, ReadsNamesOfDaysInEveryForm) {
    for (const auto* text :
         {"Wed 12:30:05", "wed 12:30:05", "WEDNESDAY 12:30:05", "Wednesday  12:30:05", " Wed 12:30:05 "}) {
        EXPECT_EQ(ToBus("10.001", text), "6c1e05") << text;
    }
    const char* days[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    for (unsigned day = 1; day <= 7; ++day) {
        const std::string text = std::string(days[day - 1]) + " 00:00:00";
        EXPECT_EQ(ToBus("10.001", text), Hex({static_cast<std::uint8_t>(day << 5), 0, 0}));
        EXPECT_EQ(FromBus("10.001", {static_cast<std::uint8_t>(day << 5), 0, 0}), text);
    }
    EXPECT_EQ(ToBus("10.001", "7:05"), "070500");
}

// 1 May 2024 was a Wednesday.
TEST(TimeOfDay, TakesTheTimeAndTheDayOfADateTime) {
    EXPECT_EQ(ToBus("10.001", "2024-05-01T12:30:05"), "6c1e05");
    EXPECT_EQ(ToBus("10.001", "2024-05-01T12:30:05;clq=1"), "6c1e05");
    EXPECT_EQ(ToBus("10.001", "2023-02-30T12:30:05"), "0c1e05");
    EXPECT_EQ(ToBus("10.001", "2024-05-01T12:30:05;nt=1"), kRefused);
    EXPECT_EQ(ToBus("10.001", "2024-05-01T24:00:00"), kRefused);
}

TEST(TimeOfDay, RefusesFieldsOneBeyondTheirLimits) {
    EXPECT_EQ(FromBus("10.001", {0x17, 0x3B, 0x3B}), "23:59:59");
    EXPECT_EQ(FromBus("10.001", {0x18, 0x00, 0x00}), kRefused);
    EXPECT_EQ(FromBus("10.001", {0x00, 0x3C, 0x00}), kRefused);
    EXPECT_EQ(FromBus("10.001", {0x00, 0x00, 0x3C}), kRefused);
    EXPECT_EQ(ToBus("10.001", "23:59:59"), "173b3b");
    for (const auto* text : {"24:00:00", "23:60:00", "23:59:60", "99:99:99"}) {
        EXPECT_EQ(ToBus("10.001", text), kRefused) << text;
    }
    EXPECT_EQ(WhyNotToBus("10.001", "24:00:00"), "10.001: 24:00:00 is no time of day");
}

TEST(TimeOfDay, RefusesTextThatIsNoTime) {
    for (const auto* text : {"", "12", "12:", "12:0:00", "12:00:0", "12:00:00:00", "12:00:00.5", "12:00:00Z",
                             "12:00:00+02:00", "Xyz 12:00:00", "W 12:00:00", "Wednes 12:00:00", "Wed",
                             "123:00:00", "-1:00:00", "2024-05-01", "noon", "12.5", "\"\""}) {
        EXPECT_EQ(ToBus("10.001", text), kRefused) << text;
    }
}

TEST(TimeOfDay, IsAValueWithATime) {
    const auto value = Value("10.001", {0x6C, 0x1E, 0x05});
    EXPECT_EQ(value.GetType(), TavValueType::Time);
    TAVTIME expected;
    expected.hour = 12;
    expected.minute = 30;
    expected.second = 5;
    expected.dayOfWeek = 3;
    EXPECT_EQ(TAVTIME(value), expected);
}

// Every hour and day of the week with every minute, and every second.
TEST(TimeOfDay, EveryValueSurvivesTheWayToTextAndBack) {
    for (unsigned first = 0; first < 256; ++first) {
        for (unsigned minute = 0; minute < 64; ++minute) {
            const Bytes octets{static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(minute),
                               static_cast<std::uint8_t>((first + minute) % 64)};
            const bool legal = (first & 0x1F) < 24 && minute < 60 && octets[2] < 60;
            const std::string text = FromBus("10.001", octets);
            ASSERT_EQ(text != kRefused, legal) << Hex(octets);
            if (legal) {
                ASSERT_EQ(ToBus("10.001", text), Hex(octets)) << text;
            }
        }
    }
}

// Octets: day, month, year of the century; 90 and above is 19yy.
TEST(Date, CountsYearsFrom1990To2089) {
    EXPECT_EQ(FromBus("11.001", {0x01, 0x05, 0x18}), "2024-05-01");
    EXPECT_EQ(FromBus("11.001", {0x1F, 0x0C, 0x5A}), "1990-12-31");
    EXPECT_EQ(FromBus("11.001", {0x1F, 0x0C, 0x63}), "1999-12-31");
    EXPECT_EQ(FromBus("11.001", {0x01, 0x01, 0x00}), "2000-01-01");
    EXPECT_EQ(FromBus("11.001", {0x01, 0x01, 0x59}), "2089-01-01");
    EXPECT_EQ(FromBus("11.001", {0xE1, 0xF5, 0x98}), "2024-05-01"); // reserved bits
    EXPECT_EQ(ToBus("11.001", "2024-05-01"), "010518");
    EXPECT_EQ(ToBus("11.001", "1990-12-31"), "1f0c5a");
    EXPECT_EQ(ToBus("11.001", "2089-01-01"), "010159");
}

TEST(Date, LeavesTheCalendarToOthers) {
    EXPECT_EQ(FromBus("11.001", {0x1E, 0x02, 0x17}), "2023-02-30");
    EXPECT_EQ(ToBus("11.001", "2023-02-30"), "1e0217");
    const auto value = Value("11.001", {0x1E, 0x02, 0x17});
    EXPECT_EQ(value.GetType(), TavValueType::Time);
    EXPECT_EQ(TAVTIME(value).day, 30);
    EXPECT_EQ(TAVTIME(value).month, 2);
}

TEST(Date, RefusesFieldsOneBeyondTheirLimits) {
    EXPECT_EQ(FromBus("11.001", {0x00, 0x05, 0x18}), kRefused);
    EXPECT_EQ(FromBus("11.001", {0x01, 0x00, 0x18}), kRefused);
    EXPECT_EQ(FromBus("11.001", {0x01, 0x0D, 0x18}), kRefused);
    EXPECT_EQ(FromBus("11.001", {0x01, 0x05, 0x64}), kRefused);
    for (const auto* text :
         {"1989-12-31", "2090-01-01", "2024-00-01", "2024-13-01", "2024-05-00", "2024-05-32"}) {
        EXPECT_EQ(ToBus("11.001", text), kRefused) << text;
    }
    EXPECT_EQ(WhyNotToBus("11.001", "1989-12-31"), "11.001: the year 1989 is not one of 1990..2089");
}

TEST(Date, TakesTheDateOfADateTime) {
    EXPECT_EQ(ToBus("11.001", "2024-05-01T23:59:59"), "010518");
    EXPECT_EQ(ToBus("11.001", "2024-05-01T23:59:59;nd=1"), kRefused);
    EXPECT_EQ(ToBus("11.001", "2024-05-01T23:59:59;ny=1"), kRefused);
}

TEST(Date, RefusesTextThatIsNoDate) {
    for (const auto* text : {"", "24-05-01", "2024-5-1", "2024-05-01x", "01.05.2024", "2024/05/01",
                             "20240501", "12:00:00", "2024-05-01T", "2024-05", "\"\""}) {
        EXPECT_EQ(ToBus("11.001", text), kRefused) << text;
    }
}

TEST(Date, EveryValueSurvivesTheWayToTextAndBack) {
    for (unsigned day = 0; day < 32; ++day) {
        for (unsigned month = 0; month < 16; ++month) {
            for (unsigned year = 0; year < 128; ++year) {
                const Bytes octets{static_cast<std::uint8_t>(day), static_cast<std::uint8_t>(month),
                                   static_cast<std::uint8_t>(year)};
                const bool legal = day > 0 && month > 0 && month <= 12 && year < 100;
                const std::string text = FromBus("11.001", octets);
                ASSERT_EQ(text != kRefused, legal) << Hex(octets);
                if (legal) {
                    ASSERT_EQ(ToBus("11.001", text), Hex(octets)) << text;
                }
            }
        }
    }
}

// Octets: year - 1900, month, day, day of the week and hour, minute, second, flags, flags. 2024 - 1900 is
// 7Ch.
TEST(DateTime, PrintsOnlyWhatIsNotDefault) {
    EXPECT_EQ(FromBus("19.001", {0x7C, 5, 1, 0x6C, 0, 0, 0, 0}), "2024-05-01T12:00:00");
    EXPECT_EQ(FromBus("19.001", {0x7C, 5, 1, 0x6C, 0, 0, 0, 0x80}), "2024-05-01T12:00:00;clq=1");
    EXPECT_EQ(FromBus("19.001", {0x7C, 5, 1, 0x6C, 0, 0, 0xFF, 0xC0}),
              "2024-05-01T12:00:00;dow=3;f=1;wd=1;nwd=1;ny=1;nd=1;ndow=1;nt=1;suti=1;clq=1;src=1");
    EXPECT_EQ(FromBus("19.001", {0x7C, 5, 1, 0x0C, 0, 0, 0, 0}), "2024-05-01T12:00:00;dow=0");
    EXPECT_EQ(FromBus("19.001", {0x7C, 5, 1, 0x0C, 0, 0, 0x04, 0}), "2024-05-01T12:00:00;ndow=1");
    EXPECT_EQ(FromBus("19.001", {0x7C, 5, 1, 0xEC, 0, 0, 0, 0}), "2024-05-01T12:00:00;dow=7");
    EXPECT_EQ(FromBus("19.001", {0x7C, 0xF5, 0xE1, 0x6C, 0xC0, 0xC0, 0, 0x3F}), "2024-05-01T12:00:00");
}

TEST(DateTime, HasTheDayOfTheWeekOfItsDate) {
    EXPECT_EQ(ToBus("19.001", "2024-05-01T12:00:00"), "7c05016c00000000");
    EXPECT_EQ(ToBus("19.001", "2024-05-01T12:00:00;dow=0"), "7c05010c00000000");
    EXPECT_EQ(ToBus("19.001", "2024-05-01T12:00:00;ndow=1"), "7c05010c00000400");
    EXPECT_EQ(ToBus("19.001", "1900-01-01T00:00:00"), "0001012000000000"); // a Monday
    EXPECT_EQ(ToBus("19.001", "2155-12-31T23:59:59"), "ff0c1f773b3b0000"); // a Wednesday
}

TEST(DateTime, ReadsEveryFlag) {
    const std::pair<const char*, const char*> flags[] = {
        {"f", "8000"},    {"wd", "4000"}, {"nwd", "2000"},  {"ny", "1000"},  {"nd", "0800"},
        {"ndow", "0400"}, {"nt", "0200"}, {"suti", "0100"}, {"clq", "0080"}, {"src", "0040"},
    };
    for (const auto& [name, octets] : flags) {
        const std::string text = "2024-05-01T12:00:00;dow=3;" + std::string(name);
        EXPECT_EQ(ToBus("19.001", text + "=1"), "7c05016c0000" + std::string(octets)) << name;
        EXPECT_EQ(ToBus("19.001", text + "=0"), "7c05016c00000000") << name;
        EXPECT_EQ(ToBus("19.001", text + "=2"), kRefused) << name;
        EXPECT_EQ(ToBus("19.001", text + "=1;" + name + "=1"), kRefused) << name;
        EXPECT_EQ(ToBus("19.001", text), kRefused) << name;
    }
    EXPECT_EQ(ToBus("19.001", "2024-05-01T12:00:00;src=1;f=1"), "7c05016c00008040");
    EXPECT_EQ(ToBus("19.001", "2024-05-01 12:00:00"), "7c05016c00000000");
}

TEST(DateTime, TheEndOfTheDayStays) {
    EXPECT_EQ(FromBus("19.001", {0x7C, 5, 1, 0x78, 0, 0, 0, 0}), "2024-05-01T24:00:00");
    EXPECT_EQ(ToBus("19.001", "2024-05-01T24:00:00"), "7c05017800000000");
    EXPECT_EQ(FromBus("19.001", {0x7C, 5, 1, 0x78, 1, 0, 0, 0}), kRefused);
    EXPECT_EQ(FromBus("19.001", {0x7C, 5, 1, 0x78, 0, 1, 0, 0}), kRefused);
    EXPECT_EQ(ToBus("19.001", "2024-05-01T24:00:01"), kRefused);
    EXPECT_EQ(TAVTIME(Value("19.001", {0x7C, 5, 1, 0x78, 0, 0, 0, 0})).hour, 24);
}

TEST(DateTime, RefusesFieldsOneBeyondTheirLimits) {
    for (const Bytes& octets : {Bytes{0x7C, 0, 1, 0x6C, 0, 0, 0, 0}, Bytes{0x7C, 13, 1, 0x6C, 0, 0, 0, 0},
                                Bytes{0x7C, 5, 0, 0x6C, 0, 0, 0, 0}, Bytes{0x7C, 5, 1, 0x79, 0, 0, 0, 0},
                                Bytes{0x7C, 5, 1, 0x6C, 60, 0, 0, 0}, Bytes{0x7C, 5, 1, 0x6C, 0, 60, 0, 0}}) {
        EXPECT_EQ(FromBus("19.001", octets), kRefused) << Hex(octets);
    }
    for (const auto* text :
         {"1899-12-31T00:00:00", "2156-01-01T00:00:00", "2024-00-01T00:00:00", "2024-13-01T00:00:00",
          "2024-05-00T00:00:00", "2024-05-32T00:00:00", "2024-05-01T25:00:00", "2024-05-01T00:60:00",
          "2024-05-01T00:00:60", "2024-05-01T00:00:00;dow=8"}) {
        EXPECT_EQ(ToBus("19.001", text), kRefused) << text;
    }
}

TEST(DateTime, WhatAFlagTakesBackIsNoDateAndNoTimeOfDay) {
    const auto timeWith = [](std::uint8_t flags) {
        return TAVTIME(Value("19.001", {0x7C, 5, 1, 0x6C, 30, 5, flags, 0}));
    };
    const auto isDate = [](const TAVTIME& time) {
        return TAVTIME::IsValidDate(time.year, time.month, time.day);
    };
    const auto isTime = [](const TAVTIME& time) {
        return TAVTIME::IsValidTime(time.hour, time.minute, time.second);
    };
    for (const auto& [name, flags, date, time] :
         {std::tuple{"fault", 0x80, false, false}, std::tuple{"no year", 0x10, false, true},
          std::tuple{"no date", 0x08, false, true}, std::tuple{"no time", 0x02, true, false},
          std::tuple{"the others", 0x65, true, true}}) {
        const TAVTIME civil = timeWith(static_cast<std::uint8_t>(flags));
        EXPECT_EQ(isDate(civil), date) << name;
        EXPECT_EQ(isTime(civil), time) << name;
        EXPECT_EQ(civil.dayOfWeek != 0, date) << name;
        if (date) {
            EXPECT_EQ(civil.Format("%F"), "2024-05-01") << name;
        }
        if (time) {
            EXPECT_EQ(civil.Format("%T"), "12:30:05") << name;
        }
    }
}

TEST(DateTime, FieldsThatAreNotValidMayHoldAnything) {
    EXPECT_EQ(FromBus("19.001", {0x7C, 0, 0, 0x0C, 0, 0, 0x08, 0}), "2024-00-00T12:00:00;nd=1");
    EXPECT_EQ(ToBus("19.001", "2024-00-00T12:00:00;nd=1"), "7c00000c00000800");
    EXPECT_EQ(FromBus("19.001", {0x7C, 5, 1, 0x7F, 63, 63, 0x02, 0}), "2024-05-01T31:63:63;nt=1");
    EXPECT_EQ(ToBus("19.001", "2024-05-01T31:63:63;nt=1"), "7c05017f3f3f0200");
    EXPECT_EQ(ToBus("19.001", "2024-05-01T32:63:63;nt=1"), kRefused);
    EXPECT_EQ(ToBus("19.001", "2024-05-01T31:64:63;nt=1"), kRefused);
    EXPECT_EQ(ToBus("19.001", "2024-16-01T12:00:00;nd=1"), kRefused);
    EXPECT_EQ(ToBus("19.001", "2024-15-32T12:00:00;nd=1"), kRefused);
}

TEST(DateTime, RefusesTextThatIsNoDateTime) {
    for (const auto* text :
         {"", "2024-05-01", "12:00:00", "2024-05-01T12:00:00Z", "2024-05-01T12:00:00+02:00",
          "2024-05-01T12:00:00.0", "2024-05-01T12:00:00;", "2024-05-01T12:00:00;x=1",
          "2024-05-01T12:00:00;clq", "2024-05-01T12:00:00;clq=", "2024-05-01T12:00:00;clq=1;",
          "2024-05-01T12:00:00;dow=1;dow=1", "2024-05-01X12:00:00", "1714557600", "now"}) {
        EXPECT_EQ(ToBus("19.001", text), kRefused) << text;
    }
}

TEST(DateTime, RandomValuesSurviveTheWayToTextAndBack) {
    std::mt19937 random(19);
    const auto upTo = [&](unsigned highest) { return static_cast<std::uint8_t>(random() % (highest + 1)); };
    unsigned taken = 0;
    for (int i = 0; i < 100000; ++i) {
        const Bytes octets{upTo(255), upTo(15), upTo(31),  upTo(255),
                           upTo(63),  upTo(63), upTo(255), static_cast<std::uint8_t>(upTo(3) << 6)};
        const std::string text = FromBus("19.001", octets);
        if (text != kRefused) {
            ASSERT_EQ(ToBus("19.001", text), Hex(octets)) << text;
            ++taken;
        }
    }
    EXPECT_GT(taken, 50000U);
}

TEST(DateTime, AValueThatHoldsATimeConverts) {
    TAVTIME time;
    time.year = 2024;
    time.month = 5;
    time.day = 1;
    time.hour = 12;
    TAVVALUE value;
    value = time;
    const std::pair<const char*, const char*> cases[] = {
        {"10.001", "6c0000"}, {"11.001", "010518"}, {"19.001", "7c05016c00000000"}};
    for (const auto& [dpt, octets] : cases) {
        auto record = Dpt(dpt);
        KnxStack::GroupValue groupValue;
        ASSERT_TRUE(Vesk::KnxValueConverter().ToKnxValue(record, value, groupValue)) << dpt;
        EXPECT_EQ(groupValue.GetRawData().ToString(), octets);
    }
}
