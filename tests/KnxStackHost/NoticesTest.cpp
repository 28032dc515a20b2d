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
