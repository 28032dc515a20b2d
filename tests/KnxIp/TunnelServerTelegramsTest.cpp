#include "ServerBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace ServerTesting;

TEST(TunnelServer, AcknowledgesConfirmsAndHandsOverATelegram) {
    ServerBench bench;
    bench.Connect();
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    bench.Receive(kClientData, kAck + "0000");
    bench.Receive(kClientData, kRequest + "01 00 1100bce011770a03010080");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010000
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 > client-data 061004200015 040100002e00bce011fa0a03010081
0.000 < client-data 06100421000a 04010000
0.000 < client-data 061004200015 040101001100bce011770a03010080
0.000 > client-data 06100421000a 04010100
0.000 ! telegram of tunnel 0: 1.1.119 -> 1/2/3 GroupValue_Write 00
0.000 > client-data 061004200015 040101002e00bce011770a03010080
)");
    ASSERT_EQ(bench.Telegrams().size(), 2U);
    EXPECT_EQ(bench.Telegrams()[0].code, KnxFrames::MessageCode::LDataInd);
    // 0.0.0 became the address of the tunnel, 1.1.119 stayed.
    EXPECT_EQ(bench.Telegrams()[0].source, IndividualAddress(1, 1, 250));
    EXPECT_EQ(bench.Telegrams()[1].source, IndividualAddress(1, 1, 119));
    EXPECT_EQ(bench.Server().Counters(0).fromClient, 2U);
    EXPECT_EQ(bench.Server().Counters(0).toClient, 1U);
}

TEST(TunnelServer, ATelegramGoesToAllTunnelsButItsOrigin) {
    ServerBench bench;
    bench.m_onTelegram = [&](TunnelId origin, const LData& telegram) {
        bench.Server().Broadcast(bench.Now(), telegram, origin);
    };
    bench.Connect();
    bench.Receive(kOther, "06100205001a 0801c0a8010bc350 0801c0a8010bc350 04040200");
    bench.Take();
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010000
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 > other 061004200015 040200002900bce011fa0a03010081
0.000 > client-data 061004200015 040100002e00bce011fa0a03010081
)");
}

TEST(TunnelServer, ATelegramForOneTunnelGoesToThatOneAlone) {
    ServerBench bench;
    bench.Connect();
    bench.Server().Send(bench.Now(), Telegram(), 1);
    EXPECT_EQ(bench.Take(), "\n") << "nobody has the second tunnel";
    bench.Receive(kOther, "06100205001a 0801c0a8010bc350 0801c0a8010bc350 04040200");
    bench.Take();
    bench.Server().Send(bench.Now(), Telegram(), 1);
    EXPECT_EQ(bench.Take(), R"(
0.000 > other 061004200015 040200002900bce011040a03010081
)");
    EXPECT_THROW(bench.Server().Send(bench.Now(), Telegram(), 2), std::out_of_range);
}

TEST(TunnelServer, SaysHowFullTheQueuesAre) {
    auto config = Config();
    config.queueLimit = 4;
    ServerBench bench(config);
    const auto broadcast = [&] {
        const auto backlog = bench.Server().Broadcast(bench.Now(), Telegram());
        return std::string(backlog.isNearlyFull ? "nearly full" : "room") +
               (backlog.hasOverflowed ? ", lost" : "");
    };
    EXPECT_EQ(broadcast(), "room") << "nobody is there";
    bench.OpenStream(1, kOther);
    bench.ReceiveFrom(1, kConnectOverTcp);
    bench.Connect();
    EXPECT_EQ(broadcast(), "room") << "under way";
    EXPECT_EQ(broadcast(), "room");
    EXPECT_EQ(broadcast(), "room");
    EXPECT_EQ(broadcast(), "nearly full") << "3 of 4";
    EXPECT_EQ(broadcast(), "nearly full");
    EXPECT_EQ(broadcast(), "nearly full, lost");
    EXPECT_FALSE(bench.Server().Send(bench.Now(), Telegram(), 0).isNearlyFull) << "a stream has no queue";
    EXPECT_TRUE(bench.Server().Send(bench.Now(), Telegram(), 1).hasOverflowed);
}

TEST(TunnelServer, PassesPointToPointAndBroadcastTelegramsUnharmed) {
    ServerBench bench;
    bench.m_onTelegram = [&](TunnelId origin, const LData& telegram) {
        bench.Server().Broadcast(bench.Now(), telegram, origin);
    };
    bench.Connect();
    bench.Receive(kOther, "06100205001a 0801c0a8010bc350 0801c0a8010bc350 04040200");
    bench.Take();
    // T_Connect to 1.1.4, then A_IndividualAddress_Read as system broadcast.
    bench.Receive(kClientData, "061004200014 04010000 1100b060000011040080");
    bench.Receive(kClientData, kAck + "0000");
    bench.Receive(kOther, "06100421000a 04020000");
    bench.Receive(kClientData, kRequest + "0100 1100a0e011fa0000010100");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200014 040100001100b060000011040080
0.000 > client-data 06100421000a 04010000
0.000 ! telegram of tunnel 0: 1.1.250 -> 1.1.4 T_Connect 80
0.000 > other 061004200014 040200002900b06011fa11040080
0.000 > client-data 061004200014 040100002e00b06011fa11040080
0.000 < client-data 06100421000a 04010000
0.000 < other 06100421000a 04020000
0.000 < client-data 061004200015 040101001100a0e011fa0000010100
0.000 > client-data 06100421000a 04010100
0.000 ! telegram of tunnel 0: 1.1.250 -> 0/0/0 T_Data_Broadcast 0100
0.000 > other 061004200015 040201002900a0e011fa0000010100
0.000 > client-data 061004200015 040101002e00a0e011fa0000010100
)");
}

TEST(TunnelServer, ARepeatedRequestIsAcknowledgedAgainAndDiscarded) {
    ServerBench bench;
    bench.Connect();
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    bench.Receive(kClientData, kAck + "0000");
    bench.Take();
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200015 040100001100bce000000a03010081
0.000 > client-data 06100421000a 04010000
)");
    bench.Receive(kClientData, kRequest + "02" + kSwitchOn);
    bench.Receive(kClientData, kRequest + "ff" + kSwitchOn);
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 061004200015 040102001100bce000000a03010081
0.000 < client-data 061004200015 0401ff001100bce000000a03010081
)");
    EXPECT_EQ(bench.Server().Counters(0).fromClient, 1U);
    EXPECT_EQ(bench.Server().Counters(0).duplicates, 1U);
    EXPECT_EQ(bench.Server().Counters(0).outOfOrder, 2U);
}

TEST(TunnelServer, RepeatsOnceAfterOneSecondAndThenDisconnects) {
    ServerBench bench;
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Advance(milliseconds(2500));
    EXPECT_EQ(bench.Take(), R"(
0.000 > client-data 061004200015 040100002900bce011040a03010081
1.000 > client-data 061004200015 040100002900bce011040a03010081
2.000 > client 061002090010 01000801c0a801020e57
2.000 ! tunnel 0: a telegram was not acknowledged
)");
    EXPECT_FALSE(bench.Server().IsOpen(0));
    EXPECT_EQ(bench.Server().Counters(0).repeated, 1U);
}

TEST(TunnelServer, AnAcknowledgedRepetitionIsNotFollowedByAnother) {
    ServerBench bench;
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram(1));
    bench.Server().Broadcast(bench.Now(), Telegram(0));
    bench.Advance(milliseconds(1200));
    bench.Receive(kClientData, kAck + "0000"); // of the first transmission, late
    bench.Receive(kClientData, kAck + "0000"); // of the repetition
    bench.Receive(kClientData, kAck + "0100");
    bench.Advance(milliseconds(5000));
    EXPECT_EQ(bench.Take(), R"(
0.000 > client-data 061004200015 040100002900bce011040a03010081
1.000 > client-data 061004200015 040100002900bce011040a03010081
1.200 < client-data 06100421000a 04010000
1.200 > client-data 061004200015 040101002900bce011040a03010080
1.200 < client-data 06100421000a 04010000
1.200 < client-data 06100421000a 04010100
)");
    EXPECT_TRUE(bench.Server().IsOpen(0));
}

TEST(TunnelServer, AnErrorInTheAcknowledgementCountsAsNone) {
    ServerBench bench;
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Receive(kClientData, kAck + "0029");
    bench.Receive(kClientData, kAck + "0029");
    EXPECT_EQ(bench.Take(), R"(
0.000 > client-data 061004200015 040100002900bce011040a03010081
0.000 < client-data 06100421000a 04010029
0.000 > client-data 061004200015 040100002900bce011040a03010081
0.000 < client-data 06100421000a 04010029
0.000 > client 061002090010 01000801c0a801020e57
0.000 ! tunnel 0: a telegram was not acknowledged
)");
}

TEST(TunnelServer, AcknowledgementsWithAnotherSequenceNumberAreIgnored) {
    ServerBench bench;
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram());
    bench.Receive(kClientData, kAck + "0100");
    bench.Receive(kClientData, kAck + "ff00");
    bench.Take();
    bench.Advance(milliseconds(1000));
    EXPECT_EQ(bench.Take(), R"(
1.000 > client-data 061004200015 040100002900bce011040a03010081
)");
}

TEST(TunnelServer, ABurstPassesInOrder) {
    constexpr unsigned kBurst = 1000;
    ServerBench bench;
    bench.Connect();
    // One is under way, the others wait.
    for (unsigned index = 0; index <= kBurst; ++index)
        bench.Server().Broadcast(bench.Now(), Telegram(index % 64));
    std::string expected = "\n";
    for (unsigned index = 0; index <= kBurst; ++index) {
        const std::string sequence = Digits(index % 256);
        expected += "0.000 > client-data 061004200015 0401" + sequence + "002900bce011040a030100" +
                    Digits(0x80 + index % 64) + "\n";
        ASSERT_EQ(bench.Take(), expected) << index;
        bench.Receive(kClientData, kAck + sequence + "00");
        expected = "\n0.000 < client-data 06100421000a 0401" + sequence + "00\n";
    }
    EXPECT_EQ(bench.Server().Counters(0).toClient, kBurst + 1);
    EXPECT_EQ(bench.Server().Counters(0).mostWaiting, kBurst);
    EXPECT_EQ(bench.Server().Counters(0).dropped, 0U);
}

TEST(TunnelServer, AFullQueueDropsItsOldestAndSaysSoOncePerBurst) {
    TunnelServerConfig config = Config();
    config.queueLimit = 2;
    ServerBench bench(std::move(config));
    bench.Connect();
    for (std::uint8_t value = 0; value < 6; ++value)
        bench.Server().Broadcast(bench.Now(), Telegram(value)); // 0 under way; 4 and 5 are left
    for (const char* sequence : {"00", "01", "02"})
        bench.Receive(kClientData, kAck + sequence + "00");
    for (std::uint8_t value = 6; value < 10; ++value)
        bench.Server().Broadcast(bench.Now(), Telegram(value));
    EXPECT_EQ(bench.Take(), R"(
0.000 > client-data 061004200015 040100002900bce011040a03010080
0.000 ! tunnel 0 overflows
0.000 < client-data 06100421000a 04010000
0.000 > client-data 061004200015 040101002900bce011040a03010084
0.000 < client-data 06100421000a 04010100
0.000 > client-data 061004200015 040102002900bce011040a03010085
0.000 < client-data 06100421000a 04010200
0.000 > client-data 061004200015 040103002900bce011040a03010086
0.000 ! tunnel 0 overflows
)");
    EXPECT_EQ(bench.Server().Counters(0).dropped, 4U);
    EXPECT_EQ(bench.Server().Counters(0).mostWaiting, 2U);
}

TEST(TunnelServer, AFullQueueDropsTheOldestOfTheLowestPriorityAndKeepsTheOrder) {
    using KnxFrames::Priority;
    TunnelServerConfig config = Config();
    config.queueLimit = 3;
    ServerBench bench(std::move(config));
    bench.Connect();
    const std::pair<std::uint8_t, Priority> telegrams[] = {
        {0, Priority::Low},    {1, Priority::System}, {2, Priority::Low}, {3, Priority::Urgent},
        {4, Priority::Normal}, {5, Priority::Low},    {6, Priority::Low}, {7, Priority::System}};
    for (const auto& [value, priority] : telegrams) { // 0 is under way
        LData telegram = Telegram(value);
        telegram.SetPriority(priority);
        bench.Server().Broadcast(bench.Now(), telegram);
    }
    bench.Take();
    for (const char* sequence : {"00", "01", "02", "03"})
        bench.Receive(kClientData, kAck + sequence + "00");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 06100421000a 04010000
0.000 > client-data 061004200015 040101002900b0e011040a03010081
0.000 < client-data 06100421000a 04010100
0.000 > client-data 061004200015 040102002900b8e011040a03010083
0.000 < client-data 06100421000a 04010200
0.000 > client-data 061004200015 040103002900b0e011040a03010087
0.000 < client-data 06100421000a 04010300
)");
    EXPECT_EQ(bench.Server().Counters(0).dropped, 4U);
}

TEST(TunnelServer, AFullQueueDropsAConfirmationOnlyWhenThereIsNothingElse) {
    TunnelServerConfig config = Config();
    config.queueLimit = 2;
    ServerBench bench(std::move(config));
    bench.Connect();
    bench.Server().Broadcast(bench.Now(), Telegram(0)); // under way
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    for (std::uint8_t value = 1; value < 4; ++value) {
        LData telegram = Telegram(value);
        telegram.SetPriority(KnxFrames::Priority::System);
        bench.Server().Broadcast(bench.Now(), telegram);
    }
    EXPECT_EQ(bench.Server().Counters(0).dropped, 2U);
    bench.Take();
    bench.Receive(kClientData, kAck + "0000");
    bench.Receive(kClientData, kAck + "0100");
    for (const char* sequence : {"01", "02", "03"}) // nothing else is left
        bench.Receive(kClientData, kRequest + sequence + " 00 1100bce000000a0301008" + sequence[1]);
    bench.Receive(kClientData, kAck + "0200");
    EXPECT_EQ(bench.Take(), R"(
0.000 < client-data 06100421000a 04010000
0.000 > client-data 061004200015 040101002e00bce011fa0a03010081
0.000 < client-data 06100421000a 04010100
0.000 > client-data 061004200015 040102002900b0e011040a03010083
0.000 < client-data 061004200015 040101001100bce000000a03010081
0.000 > client-data 06100421000a 04010100
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 01
0.000 < client-data 061004200015 040102001100bce000000a03010082
0.000 > client-data 06100421000a 04010200
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 02
0.000 < client-data 061004200015 040103001100bce000000a03010083
0.000 > client-data 06100421000a 04010300
0.000 ! telegram of tunnel 0: 1.1.250 -> 1/2/3 GroupValue_Write 03
0.000 < client-data 06100421000a 04010200
0.000 > client-data 061004200015 040103002e00bce011fa0a03010082
)");
    EXPECT_EQ(bench.Server().Counters(0).dropped, 3U);
}

TEST(TunnelServer, WhatStillWaitsWhenATunnelIsClosedIsCountedAsLost) {
    ServerBench bench;
    bench.Connect();
    for (std::uint8_t value = 0; value < 5; ++value)
        bench.Server().Broadcast(bench.Now(), Telegram(value));
    bench.Receive(kClientData, kAck + "0000");
    bench.Advance(milliseconds(2500));
    EXPECT_FALSE(bench.Server().IsOpen(0));
    EXPECT_EQ(bench.Server().Counters(0).toClient, 1U);
    EXPECT_EQ(bench.Server().Counters(0).dropped, 4U);
}

TEST(TunnelServer, AFullQueueOfTheNextClientIsSaidAnew) {
    TunnelServerConfig config = Config();
    config.queueLimit = 1;
    ServerBench bench(std::move(config));
    for (int client = 0; client < 2; ++client) {
        bench.Connect();
        for (std::uint8_t value = 0; value < 4; ++value)
            bench.Server().Broadcast(bench.Now(), Telegram(value));
        EXPECT_NE(bench.Take().find("! tunnel 0 overflows\n"), std::string::npos);
        bench.Server().CloseTunnel(0);
    }
}

TEST(TunnelServer, CloseTunnelInsideACallbackIsAllowed) {
    ServerBench bench;
    bench.m_onTelegram = [&](TunnelId origin, const LData&) { bench.Server().CloseTunnel(origin); };
    bench.Connect();
    bench.Receive(kClientData, kRequest + "00" + kSwitchOn);
    EXPECT_FALSE(bench.Server().IsOpen(0));
    bench.Advance(std::chrono::seconds(10));
}

} // namespace
} // namespace KnxIp
