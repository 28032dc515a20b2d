// A multicast bus: its rate, its pauses and its echo, on a clock of the test.
#include "KnxIp/RoutingLink.h"

#include "Transcript.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace KnxIp {
namespace {

using namespace Testing;
using KnxFrames::FrameError;
using KnxFrames::GroupAddress;
using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using KnxFrames::Priority;
using std::chrono::seconds;

constexpr Endpoint kGroup{0xE000170C, 3671};
constexpr Endpoint kRouter{0xC0A80103, 3671};
constexpr Endpoint kOwn{0xC0A80102, 3671};

const std::string kIndication = "061005300011 2900bce011040a0301008"; // 1.1.4 to 1/2/3, and the value's digit

LData Telegram(std::uint8_t value, Priority priority = Priority::Low) {
    return MakeGroupTelegram(IndividualAddress(1, 1, 4), GroupAddress(1, 2, 3),
                             KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, value), priority);
}

/// A link under test; everything it wishes goes into the transcript.
class RoutingBench : public RoutingLinkListener {
public:
    explicit RoutingBench(RoutingLinkConfig config = {}) : m_link(WithRandom(std::move(config)), *this) {
        m_transcript.Name(kGroup, "group");
        m_transcript.Name(kRouter, "router");
        m_transcript.Name(kOwn, "own");
    }

    void SendDatagram(const Endpoint& to, Octets datagram) override {
        m_transcript.Out(m_now, to, datagram);
        m_sendTimes.push_back(Milliseconds());
        m_values.push_back(datagram[datagram.size() - 1] & 0x3F);
    }
    void OnTelegram(const LData& telegram) override { Event(fmt::format("telegram {}", Describe(telegram))); }
    void OnLostMessages(const Endpoint& from, std::uint16_t lost) override {
        Event(fmt::format("{} has lost {}", from.ToString(), lost));
    }
    void OnBusy(const Endpoint&, milliseconds wait) override {
        m_busy.push_back(static_cast<int>(wait.count()));
    }
    void OnQueueOverflow() override { Event("queue overflows"); }
    void OnRefusedDatagram(const Endpoint&, const FrameError& error) override {
        Event(fmt::format("{}{}", error.kind == FrameError::Kind::Unsupported ? "unsupported: " : "",
                          error.cause));
    }
    bool IsOwnEndpoint(const Endpoint& from) override { return from == kOwn; }

    void Receive(const Endpoint& from, const std::string& hex) { m_link.OnDatagram(m_now, from, Hex(hex)); }
    /// ROUTING_BUSY with so many milliseconds to wait.
    void Busy(unsigned wait, unsigned control = 0) {
        Receive(kRouter, fmt::format("06100532000c 0600{:04x}{:04x}", wait, control));
    }
    void Send(std::uint8_t value, Priority priority = Priority::Low) {
        m_isTaken = m_link.Send(m_now, Telegram(value, priority));
    }
    void Advance(milliseconds by) { RunUntil(m_link, m_now, m_now + by); }
    /// Waits until the time.
    void At(int time) { Advance(milliseconds(time - Milliseconds())); }
    /// When a telegram that is sent now leaves.
    int Departure() {
        m_sendTimes.clear();
        Send(1);
        Advance(seconds(100));
        return m_sendTimes.empty() ? -1 : m_sendTimes.front();
    }
    void Event(const std::string& text) { m_transcript.Event(m_now, text); }

    RoutingLink& Link() { return m_link; }
    std::string Take() { return m_transcript.Take(); }
    const std::vector<int>& SendTimes() const { return m_sendTimes; }
    const std::vector<int>& Values() const { return m_values; }
    const std::vector<int>& BusyTimes() const { return m_busy; }
    bool IsTaken() const { return m_isTaken; }

    double m_random = 0;

private:
    int Milliseconds() const {
        return static_cast<int>(std::chrono::duration_cast<milliseconds>(m_now.time_since_epoch()).count());
    }
    RoutingLinkConfig WithRandom(RoutingLinkConfig config) {
        config.random = [this] { return m_random; };
        return config;
    }

    TimePoint m_now{};
    Transcript m_transcript;
    std::vector<int> m_sendTimes;
    std::vector<int> m_values;
    std::vector<int> m_busy;
    bool m_isTaken = false;
    RoutingLink m_link;
};

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
