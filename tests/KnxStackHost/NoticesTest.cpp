#include "KnxStackHost/Notices.h"

#include <gtest/gtest.h>

namespace KnxStackHost {
namespace {

using Verdict = Notices::Verdict;

TEST(Notices, ReportsEachPairOfSourceAndCauseOnce) {
    Notices notices(10);
    EXPECT_EQ(Verdict::Report, notices.Count(1, "late"));
    EXPECT_EQ(Verdict::Silent, notices.Count(1, "late"));
    EXPECT_EQ(Verdict::Report, notices.Count(1, "broken"));
    EXPECT_EQ(Verdict::Report, notices.Count(2, "late"));
    EXPECT_EQ(4u, notices.Total());
}

TEST(Notices, ReportsManySourcesAtABoundedRate) {
    Notices notices(1000, 3);
    Notices::TimePoint now{std::chrono::hours(1)};
    EXPECT_EQ(Verdict::Report, notices.Count(1, "late", now));
    EXPECT_EQ(Verdict::Report, notices.Count(2, "late", now));
    EXPECT_EQ(Verdict::ReportPause, notices.Count(3, "late", now));
    for (std::uint32_t source = 4; source < 100'000; ++source)
        ASSERT_EQ(Verdict::Silent, notices.Count(source, "late", now));
    now += std::chrono::seconds(59);
    EXPECT_EQ(Verdict::Silent, notices.Count(4, "late", now));
    now += std::chrono::seconds(1);
    EXPECT_EQ(Verdict::Silent, notices.Count(1, "late", now)) << "reported already";
    EXPECT_EQ(Verdict::ReportPause, notices.Count(4, "late", now)) << "a bad time is over";
    EXPECT_EQ(Verdict::Silent, notices.Count(5, "late", now));
    now += std::chrono::hours(1);
    EXPECT_EQ(Verdict::Report, notices.Count(5, "late", now)) << "as many at once as in the beginning";
    EXPECT_EQ(Verdict::Report, notices.Count(6, "late", now));
    EXPECT_EQ(Verdict::ReportPause, notices.Count(7, "late", now));
    EXPECT_EQ(Verdict::Silent, notices.Count(8, "late", now));
}

TEST(Notices, SaysWhatComesNext) {
    EXPECT_EQ(" (reported once)", Suffix(Verdict::Report));
    EXPECT_EQ(" (reported once; other new ones are only counted for a minute)", Suffix(Verdict::ReportPause));
    EXPECT_EQ(" (this and all others are only counted from now on)", Suffix(Verdict::ReportLast));
}

TEST(LinePace, ALineThatNobodyWroteIsNotSaved) {
    LinePace pace(2);
    LinePace::TimePoint now{std::chrono::hours(1)};
    EXPECT_TRUE(pace.Take(now));
    now += std::chrono::hours(1);
    EXPECT_TRUE(pace.Take(now));
    EXPECT_TRUE(pace.Take(now));
    EXPECT_FALSE(pace.Take(now));
    now += std::chrono::seconds(90);
    EXPECT_TRUE(pace.Take(now));
    now += std::chrono::seconds(30);
    EXPECT_TRUE(pace.Take(now)) << "half a minute was left over";
    EXPECT_FALSE(pace.Take(now));
}

TEST(Notices, StopsTellingPairsApartAtItsLimit) {
    Notices notices(2);
    EXPECT_EQ(Verdict::Report, notices.Count(1, "late"));
    EXPECT_EQ(Verdict::ReportLast, notices.Count(2, "late"));
    for (std::uint32_t source = 3; source < 1000; ++source)
        EXPECT_EQ(Verdict::Silent, notices.Count(source, "late"));
    EXPECT_EQ(999u, notices.Total());
}

} // namespace
} // namespace KnxStackHost
