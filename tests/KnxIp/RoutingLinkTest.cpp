// A multicast bus: its rate, its pauses and its echo, on a clock of the test.
#include "RoutingBench.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace KnxIp {
namespace {

using namespace RoutingTesting;

TEST(RoutingLink, ATelegramIsSentToTheGroupAtOnceAndOneOfARouterIsTaken) {
    RoutingBench bench;
    bench.Send(1);
    bench.Receive(kRouter, kIndication + "0");
    EXPECT_EQ(bench.Take(), R"(
0.000 > group 061005300011 2900bce011040a03010081
0.000 ! telegram 1.1.4 -> 1/2/3 GroupValue_Write 00
)");
    EXPECT_EQ(bench.Link().Counters().sent, 1U);
    EXPECT_EQ(bench.Link().Counters().received, 1U);
    EXPECT_EQ(bench.Link().NextTime(), std::nullopt);
}

TEST(RoutingLink, AtMost50TelegramsASecondAreSentEvenlyAndInOrder) {
    RoutingBench bench;
    std::vector<int> values;
    std::vector<int> times;
    for (int value = 0; value < 60; ++value) {
        bench.Send(static_cast<std::uint8_t>(value), value % 2 == 0 ? Priority::Low : Priority::System);
        values.push_back(value);
        times.push_back(20 * value);
    }
    EXPECT_EQ(bench.Link().Waiting(), 59U);
    bench.Advance(seconds(2));
    EXPECT_EQ(bench.Values(), values);
    EXPECT_EQ(bench.SendTimes(), times);
    EXPECT_EQ(bench.Link().Counters().dropped, 0U);
}

TEST(RoutingLink, TheRateIsConfigured) {
    RoutingLinkConfig config;
    config.rate = 8;
    RoutingBench bench(config);
    for (int count = 0; count < 4; ++count)
        bench.Send(1);
    bench.Advance(seconds(10));
    bench.Send(1); // after a pause at once
    EXPECT_EQ(bench.SendTimes(), (std::vector<int>{0, 125, 250, 375, 10'000}));
}

TEST(RoutingLink, NothingIsSentForTheTimeThatABusyRouterNames) {
    RoutingBench bench;
    bench.Busy(100);
    EXPECT_EQ(bench.Departure(), 100);
    EXPECT_EQ(bench.BusyTimes(), std::vector<int>{100});
    EXPECT_EQ(bench.Link().Counters().busy, 1U);
}

TEST(RoutingLink, WhatWaitsForABusyRouterLeavesAtTheUsualRate) {
    RoutingBench bench;
    bench.Send(0);
    bench.At(5);
    bench.Busy(100);
    for (int count = 0; count < 3; ++count)
        bench.Send(1);
    bench.Advance(seconds(1));
    EXPECT_EQ(bench.SendTimes(), (std::vector<int>{0, 105, 125, 145}));
}

TEST(RoutingLink, TheSilenceGrowsByARandomTimeForEachBusyFrame) {
    RoutingBench one;
    one.m_random = 1;
    one.Busy(100);
    EXPECT_EQ(one.Departure(), 150); // N = 1
    RoutingBench three;
    three.m_random = 0.5;
    for (const int time : {0, 10, 20}) {
        three.At(time);
        three.Busy(100);
    }
    EXPECT_EQ(three.Departure(), 20 + 100 + 75); // N = 3
}

TEST(RoutingLink, BusyFramesWithin10MillisecondsCountOnce) {
    RoutingBench bench;
    bench.m_random = 1;
    for (const int time : {0, 4, 9}) {
        bench.At(time);
        bench.Busy(100);
    }
    EXPECT_EQ(bench.Departure(), 9 + 100 + 50); // N = 1
    RoutingBench rapid;
    rapid.m_random = 1;
    for (const int time : {0, 6, 12, 18, 24}) { // counted: 0, 12, 24
        rapid.At(time);
        rapid.Busy(100);
    }
    EXPECT_EQ(rapid.Departure(), 24 + 100 + 150); // N = 3
}

TEST(RoutingLink, AShorterWaitDoesNotShortenALongerOne) {
    RoutingBench bench;
    bench.Busy(500);
    bench.At(50);
    bench.Busy(20);
    EXPECT_EQ(bench.Departure(), 500);
}

TEST(RoutingLink, TheCountOfBusyFramesFallsOnlyAfterTheSlowPhase) {
    // Two frames at 0 and 10 ms, each with 20 ms to wait: silent until 10 + 20 + 2 x 50 = 130 ms, then the
    // slow phase of 2 x 100 ms, until 330 ms.
    const auto departureAfterBusyAt = [](int time) {
        RoutingBench bench;
        bench.m_random = 1;
        for (const int each : {0, 10, time}) {
            bench.At(each);
            bench.Busy(20);
        }
        return bench.Departure() - time - 20;
    };
    EXPECT_EQ(departureAfterBusyAt(140), 3 * 50);
    EXPECT_EQ(departureAfterBusyAt(334), 3 * 50);
    EXPECT_EQ(departureAfterBusyAt(335), 2 * 50) << "one less";
    EXPECT_EQ(departureAfterBusyAt(339), 2 * 50);
    EXPECT_EQ(departureAfterBusyAt(340), 1 * 50) << "none left";
    EXPECT_EQ(departureAfterBusyAt(60'000), 1 * 50);
}

TEST(RoutingLink, ABusyFrameForCertainRoutersIsNotForUs) {
    RoutingBench bench;
    bench.Busy(1000, 1);
    EXPECT_EQ(bench.Departure(), 0);
    EXPECT_EQ(bench.Link().Counters().busy, 0U);
    EXPECT_TRUE(bench.BusyTimes().empty());
}

TEST(RoutingLink, AnOwnDatagramThatComesBackIsIgnoredOnce) {
    RoutingBench bench;
    bench.Send(1);
    bench.Receive(kOwn, kIndication + "1");
    EXPECT_EQ(bench.Link().Counters().own, 1U);
    EXPECT_EQ(bench.Link().Counters().received, 0U);
    bench.Receive(kOwn, kIndication + "1");
    EXPECT_EQ(bench.Link().Counters().own, 1U);
    EXPECT_EQ(bench.Link().Counters().received, 1U) << "another process with the same address and port";
}

TEST(RoutingLink, EachOfSeveralOwnDatagramsIsKnownAgainInAnyOrder) {
    RoutingBench bench;
    for (const std::uint8_t value : {0, 1, 1, 2})
        bench.Send(value);
    bench.Advance(seconds(1));
    for (const char* value : {"1", "2", "1", "0"})
        bench.Receive(kOwn, kIndication + value);
    EXPECT_EQ(bench.Link().Counters().own, 4U);
    EXPECT_EQ(bench.Link().Counters().received, 0U);
}

TEST(RoutingLink, TheSameContentFromElsewhereAndOtherContentFromHereAreTelegrams) {
    RoutingBench bench;
    bench.Send(1);
    bench.Receive(kRouter, kIndication + "1");
    bench.Receive(kOwn, kIndication + "0");
    EXPECT_EQ(bench.Link().Counters().received, 2U);
    EXPECT_EQ(bench.Link().Counters().own, 0U);
    bench.Receive(kOwn, kIndication + "1");
    EXPECT_EQ(bench.Link().Counters().own, 1U) << "still known";
}

TEST(RoutingLink, AnOwnDatagramIsNotKnownForEver) {
    RoutingBench bench;
    bench.Send(1);
    bench.Advance(milliseconds(2000));
    bench.Receive(kOwn, kIndication + "1");
    EXPECT_EQ(bench.Link().Counters().received, 1U);
}

TEST(RoutingLink, AFullQueueDropsTheOldestOfTheLowestPriorityAndSaysSoOncePerBurst) {
    RoutingLinkConfig config;
    config.queueLimit = 3;
    RoutingBench bench(config);
    bench.Busy(100);
    bench.Send(1);
    bench.Send(2, Priority::Urgent);
    bench.Send(3);
    bench.Send(4, Priority::Normal); // 1 goes
    EXPECT_TRUE(bench.IsTaken());
    bench.Send(5, Priority::System); // 3 goes
    EXPECT_TRUE(bench.IsTaken());
    bench.Send(6); // goes itself
    EXPECT_FALSE(bench.IsTaken());
    EXPECT_EQ(bench.Take(), "\n0.000 ! queue overflows\n");
    bench.Advance(seconds(1));
    EXPECT_EQ(bench.Values(), (std::vector<int>{2, 4, 5}));
    EXPECT_EQ(bench.Link().Counters().dropped, 3U);
    bench.Take();
    bench.Busy(100);
    for (int count = 0; count < 5; ++count)
        bench.Send(7);
    EXPECT_EQ(bench.Take(), "\n1.000 ! queue overflows\n") << "another burst";
    EXPECT_EQ(bench.Link().Counters().dropped, 5U);
}

TEST(RoutingLink, WhatOthersHaveLostIsCounted) {
    RoutingBench bench;
    bench.Receive(kRouter, "06100531000a 04000005");
    bench.Receive(kRouter, "06100531000a 0400ffff");
    EXPECT_EQ(bench.Take(), R"(
0.000 ! 192.168.1.3:3671 has lost 5
0.000 ! 192.168.1.3:3671 has lost 65535
)");
    EXPECT_EQ(bench.Link().Counters().lost, 65540U);
}

TEST(RoutingLink, WhatIsNotRoutingIsUnsupportedAndChangesNothing) {
    RoutingBench bench;
    bench.Receive(kRouter, "06100201000e 0801c0a8010ac350");       // a search
    bench.Receive(kRouter, "061005300011 1100bce011040a03010081"); // L_Data.req
    bench.Receive(kRouter, "061005300007 29");
    bench.Receive(kRouter, "0610");
    EXPECT_EQ(bench.Take(), R"(
0.000 ! unsupported: the frame is none of routing
0.000 ! unsupported: a router sent no L_Data.ind
0.000 ! the length of the additional information is missing
0.000 ! the datagram is shorter than a KNXnet/IP header
)");
    EXPECT_EQ(bench.Link().Counters().received, 0U);
}

TEST(RoutingLink, RefusesABrokenConfiguration) {
    const auto cause = [](auto change) -> std::string {
        RoutingLinkConfig config;
        change(config);
        try {
            const RoutingBench bench(config);
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "accepted";
    };
    EXPECT_EQ(cause([](auto& c) { c.rate = 0; }), "the rate of routing is not 1 to 1000 telegrams a second");
    EXPECT_EQ(cause([](auto& c) { c.rate = 1001; }),
              "the rate of routing is not 1 to 1000 telegrams a second");
    EXPECT_EQ(cause([](auto& c) { c.rate = 1000; }), "accepted");
    EXPECT_EQ(cause([](auto& c) { c.queueLimit = 0; }), "the queue limit of routing is 0");
    EXPECT_EQ(cause([](auto& c) { c.group.port = 0; }), "routing needs a multicast group with a port");
    EXPECT_EQ(cause([](auto& c) { c.group.address = 0xC0A80101; }),
              "routing needs a multicast group with a port");
}

} // namespace
} // namespace KnxIp
