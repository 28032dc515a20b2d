#include "DeviceStackServer/Instant.h"

#include <gtest/gtest.h>

namespace DeviceStackServer {
namespace {

TEST(Instant, UtcTextIsIso8601WithMilliseconds) {
    EXPECT_EQ(UtcText(Milliseconds(1714557600123)), "2024-05-01T10:00:00.123Z");
    EXPECT_EQ(UtcText(Milliseconds(-1)), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(ParseUtc("2024-05-01T10:00:00.123Z"), Milliseconds(1714557600123));
    EXPECT_EQ(ParseUtc("2024-05-01T10:00:00.123"), std::nullopt);
    EXPECT_EQ(ParseUtc("2024-05-01T10:00:00.1 3Z"), std::nullopt);
}

TEST(Instant, CivilTimeIsReadAndPrinted) {
    EXPECT_EQ(ParseCivil("2024-02-29T23:59:59"), Seconds(1709251199));
    EXPECT_EQ(CivilText(Seconds(1709251199)), "2024-02-29T23:59:59");
    EXPECT_EQ(CivilDateText(Seconds(1709251199)), "2024-02-29");
    EXPECT_EQ(CivilTimeText(Seconds(1709251199)), "23:59:59");
}

TEST(Instant, TheEndOfADayIsTheBeginningOfTheNext) {
    EXPECT_EQ(ParseCivil("2024-12-31T24:00:00"), ParseCivil("2025-01-01T00:00:00"));
}

TEST(Instant, WhatTheCalendarDoesNotHaveIsRefused) {
    for (const auto* text : {"", "2023-02-29T00:00:00", "2024-13-01T00:00:00", "2024-05-01T24:00:01",
                             "2024-05-01T12:60:00", "2024-05-01T12:00:60", "2024-05-01 12:00:00",
                             "2024-05-01T12:00:00Z", "2024-05-01T12:00", "+024-05-01T12:00:00"})
        EXPECT_EQ(ParseCivil(text), std::nullopt) << text;
}

} // namespace
} // namespace DeviceStackServer
