// What a member of a multicast bus says when it cannot keep up, on a clock of the test.
#include "RoutingBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace RoutingTesting;

TEST(RoutingOverload, WhoCannotKeepUpAsksForAPause) {
    RoutingBench bench;
    bench.ReportBusy();
    bench.ReportBusy();
    bench.At(99);
    bench.ReportBusy();
    bench.At(100);
    bench.ReportBusy();
    EXPECT_EQ(bench.Take(), R"(
0.000 > group 06100532000c 060000640000
0.100 > group 06100532000c 060000640000
)");
    EXPECT_EQ(bench.Link().Counters().pauses, 2U);
    bench.Send(1);
    EXPECT_EQ(bench.Values().size(), 3U) << "who asks for it need not keep silent";
}

TEST(RoutingOverload, OneThatNeverKeepsUpDoesNotSilenceTheBusForGood) {
    RoutingBench bench;
    for (int time = 0; time < 10'000; time += 10) {
        bench.At(time);
        bench.ReportBusy();
    }
    const std::vector<int> times = bench.SendTimes();
    EXPECT_EQ(times, (std::vector<int>{0, 100, 200, 300, 400, 500, 600, 700, 800, 900, 1000, 2000, 3000, 4000,
                                       5000, 6000, 7000, 8000, 9000}));
    bench.At(60'000);
    bench.ReportBusy();
    bench.At(60'100);
    bench.ReportBusy();
    EXPECT_EQ(bench.SendTimes().size(), times.size() + 2) << "rested";
}

TEST(RoutingOverload, WhatIsLostBehindThisMemberIsToldOnceASecond) {
    RoutingBench bench;
    bench.ReportLost(1);
    bench.Advance(milliseconds(100));
    bench.ReportLost(2);
    bench.ReportLost(3);
    bench.Advance(seconds(5));
    EXPECT_EQ(bench.Take(), R"(
0.000 > group 06100531000a 04000001
1.000 > group 06100531000a 04000005
)");
    EXPECT_EQ(bench.Link().NextTime(), std::nullopt);
    bench.ReportLost(70'000);
    bench.Advance(seconds(5));
    EXPECT_EQ(bench.Take(), R"(
5.100 > group 06100531000a 0400ffff
6.100 > group 06100531000a 04001171
)");
    EXPECT_EQ(bench.Link().Counters().lostHere, 70'006U);
    EXPECT_EQ(bench.Link().Counters().lost, 0U);
}

TEST(RoutingOverload, WordOfALossWaitsForNoTelegram) {
    RoutingBench bench;
    bench.ReportLost(1);
    bench.ReportLost(1);
    bench.Busy(5000);
    bench.Send(1);
    bench.Advance(seconds(10));
    EXPECT_EQ(bench.SendTimes(), (std::vector<int>{0, 1000, 5000}));
}

TEST(RoutingOverload, OwnWordOfAnOverloadThatComesBackIsNobodysElse) {
    RoutingBench bench;
    bench.ReportBusy();
    bench.ReportLost(1);
    const std::string busy = "06100532000c 060000640000";
    const std::string lost = "06100531000a 04000001";
    bench.Receive(kOwn, busy);
    bench.Receive(kOwn, lost);
    EXPECT_EQ(bench.Link().Counters().own, 2U);
    EXPECT_EQ(bench.Link().Counters().busy, 0U);
    EXPECT_EQ(bench.Link().Counters().lost, 0U);
    bench.Receive(kRouter, busy);
    bench.Receive(kRouter, lost);
    EXPECT_EQ(bench.Link().Counters().busy, 1U);
    EXPECT_EQ(bench.Link().Counters().lost, 1U);
}

} // namespace
} // namespace KnxIp
