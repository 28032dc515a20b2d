// Telegrams that wait: for the server, for the connection, and for their turn.
#include "ClientBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace ClientTesting;

TEST(TunnelClient, WaitsForItsServerWithTheTelegramsInAQueue) {
    TunnelClientConfig config;
    config.queueLimit = 2;
    ClientBench bench(std::move(config));
    bench.Client().Start(bench.Now());
    EXPECT_EQ(bench.Client().NextTime(), std::nullopt);
    for (std::uint8_t value = 1; value <= 3; ++value)
        bench.Send(Telegram(value));
    bench.Advance(std::chrono::hours(1));
    EXPECT_EQ(bench.Client().Waiting(), 2U);
    EXPECT_EQ(bench.Client().Counters().dropped, 1U);
    bench.Client().SetServer(bench.Now(), kServer);
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
    EXPECT_EQ(bench.Take(), R"(
0.000 ! queue overflows
3600.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
3600.000 < server 061002060014 15000801c0a801020e57040411fa
3600.000 ! connected as 1.1.250
3600.000 > server 061004200015 041500001100bce000000a03010082
)");
}

TEST(TunnelClient, TelegramsWaitForTheConnection) {
    ClientBench bench;
    bench.Send(Telegram(1));
    EXPECT_TRUE(bench.IsTaken());
    bench.Send(Telegram(2, Priority::Urgent));
    EXPECT_EQ(bench.Take(), "\n");
    EXPECT_EQ(bench.Client().Waiting(), 2U);
    bench.m_onConnected = [&] { bench.Send(Telegram(3)); };
    bench.Client().Start(bench.Now());
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
    for (const char* number : {"00", "01", "02"}) {
        bench.Receive(kServer, kAck + number + "00");
        bench.Receive(kServer, kRequest + number + kCon + fmt::format("8{}", number[1] - '0' + 1));
    }
    EXPECT_EQ(bench.Take(), R"(
0.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
0.000 < server 061002060014 15000801c0a801020e57040411fa
0.000 ! connected as 1.1.250
0.000 > server 061004200015 041500001100bce000000a03010081
0.000 < server 06100421000a 04150000
0.000 < server 061004200015 041500002e00bce011fa0a03010081
0.000 > server 06100421000a 04150000
0.000 > server 061004200015 041501001100b8e000000a03010082
0.000 < server 06100421000a 04150100
0.000 < server 061004200015 041501002e00bce011fa0a03010082
0.000 > server 06100421000a 04150100
0.000 > server 061004200015 041502001100bce000000a03010083
0.000 < server 06100421000a 04150200
0.000 < server 061004200015 041502002e00bce011fa0a03010083
0.000 > server 06100421000a 04150200
)");
}

TEST(TunnelClient, AFullQueueDropsTheOldestOfTheLowestPriority) {
    TunnelClientConfig config = Config();
    config.queueLimit = 3;
    ClientBench bench(std::move(config));
    bench.Send(Telegram(1, Priority::Urgent));
    bench.Send(Telegram(2, Priority::Low));
    bench.Send(Telegram(3, Priority::Low));
    bench.Send(Telegram(4, Priority::Normal)); // 2 goes
    bench.Send(Telegram(5, Priority::System)); // 3 goes
    EXPECT_TRUE(bench.IsTaken());
    bench.Send(Telegram(6, Priority::Low)); // goes itself
    EXPECT_FALSE(bench.IsTaken());
    bench.Send(Telegram(7, Priority::System)); // 4 goes
    bench.Send(Telegram(8, Priority::System)); // 1 goes
    bench.Send(Telegram(9, Priority::System)); // 5 goes
    EXPECT_EQ(bench.Client().Waiting(), 3U);
    EXPECT_EQ(bench.Client().Counters().dropped, 6U);
    bench.Client().Start(bench.Now());
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
    for (const char* number : {"00", "01", "02"}) {
        bench.Receive(kServer, kAck + number + "00");
        bench.Receive(kServer, kRequest + number + kCon + fmt::format("8{}", number[1] - '0' + 7));
    }
    // The queue has run empty: a new burst is reported anew.
    for (std::uint8_t value = 10; value < 15; ++value)
        bench.Send(Telegram(value));
    EXPECT_EQ(bench.Take(), R"(
0.000 ! queue overflows
0.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
0.000 < server 061002060014 15000801c0a801020e57040411fa
0.000 ! connected as 1.1.250
0.000 > server 061004200015 041500001100b0e000000a03010087
0.000 < server 06100421000a 04150000
0.000 < server 061004200015 041500002e00bce011fa0a03010087
0.000 > server 06100421000a 04150000
0.000 > server 061004200015 041501001100b0e000000a03010088
0.000 < server 06100421000a 04150100
0.000 < server 061004200015 041501002e00bce011fa0a03010088
0.000 > server 06100421000a 04150100
0.000 > server 061004200015 041502001100b0e000000a03010089
0.000 < server 06100421000a 04150200
0.000 < server 061004200015 041502002e00bce011fa0a03010089
0.000 > server 06100421000a 04150200
0.000 > server 061004200015 041503001100bce000000a0301008a
0.000 ! queue overflows
)");
}

TEST(TunnelClient, ABurstOfAThousandPasses) {
    ClientBench bench;
    bench.Connect();
    for (unsigned index = 0; index <= 1000; ++index)
        bench.Send(Telegram(static_cast<std::uint8_t>(index % 64)));
    EXPECT_EQ(bench.Client().Waiting(), 1000U);
    for (unsigned index = 0; index <= 1000; ++index) {
        const std::string number = fmt::format("{:02x}", index % 256);
        const std::string value = fmt::format("{:02x}", 0x80 + index % 64);
        bench.Receive(kServer, kAck + number + "00");
        bench.Receive(kServer, kRequest + number + kCon + value);
    }
    EXPECT_EQ(bench.Client().Counters().sent, 1001U);
    EXPECT_EQ(bench.Client().Counters().dropped, 0U);
    EXPECT_EQ(bench.Client().Waiting(), 0U);
}

TEST(TunnelClient, ATelegramSentWhileTheConnectionEndsWaitsForTheNext) {
    ClientBench bench;
    bench.Connect();
    bench.m_onSendFailed = [&] { bench.Send(Telegram(2)); };
    bench.Send(Telegram(1));
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd);
    bench.Receive(kServer, kDisconnectRequest);
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 061004200015 041500002900bce011040a03010081
10.000 > server 06100421000a 04150000
10.000 ! telegram 1.1.4 -> 1/2/3 GroupValue_Write 01
10.000 < server 061002090010 15000801c0a801020e57
10.000 > server 0610020a0008 1500
10.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged by the interface
10.000 ! disconnected: the server closed the connection, 0 ms
10.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
    EXPECT_EQ(bench.Client().Waiting(), 1U);
}

} // namespace
} // namespace KnxIp
