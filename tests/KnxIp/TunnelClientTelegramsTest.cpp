// What becomes of a telegram between the client and the server: acknowledged, confirmed, repeated, reported.
#include "ClientBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace ClientTesting;

TEST(TunnelClient, SendsToTheDataEndpointOfTheServer) {
    ClientBench bench;
    bench.Client().Start(bench.Now());
    bench.Receive(kServer, "061002060014 1500 0801c0a801020e58 040411fa");
    bench.Take();
    bench.Send(Telegram(1));
    bench.Receive(kServerData, kRequest + "00" + kSwitchOnInd);
    EXPECT_EQ(bench.Take(), R"(
0.000 > server-data 061004200015 041500001100bce000000a03010081
0.000 < server-data 061004200015 041500002900bce011040a03010081
0.000 > server-data 06100421000a 04150000
0.000 ! telegram 1.1.4 -> 1/2/3 GroupValue_Write 01
)");
}

TEST(TunnelClient, HandsOverTelegramsFromTheBus) {
    ClientBench bench;
    bench.Connect();
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd);
    bench.Receive(kServer, "061004200014 04150100 2900b06011fa11040080"); // T_Connect
    EXPECT_EQ(bench.Take(), R"(
10.000 < server 061004200015 041500002900bce011040a03010081
10.000 > server 06100421000a 04150000
10.000 ! telegram 1.1.4 -> 1/2/3 GroupValue_Write 01
10.000 < server 061004200014 041501002900b06011fa11040080
10.000 > server 06100421000a 04150100
10.000 ! telegram 1.1.250 -> 1.1.4 T_Connect 80
)");
    EXPECT_EQ(bench.Client().Counters().received, 2U);
}

TEST(TunnelClient, ARepeatedRequestIsAcknowledgedAgainAndDiscarded) {
    ClientBench bench;
    bench.Connect();
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd);
    bench.Take();
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd);
    bench.Receive(kServer, kRequest + "02" + kSwitchOnInd);
    EXPECT_EQ(bench.Take(), R"(
10.000 < server 061004200015 041500002900bce011040a03010081
10.000 > server 06100421000a 04150000
10.000 < server 061004200015 041502002900bce011040a03010081
)");
    EXPECT_EQ(bench.Client().Counters().received, 1U);
    EXPECT_EQ(bench.Client().Counters().duplicates, 1U);
    EXPECT_EQ(bench.Client().Counters().outOfOrder, 1U);
}

TEST(TunnelClient, SendsTheNextTelegramAfterAcknowledgementAndConfirmation) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    EXPECT_EQ(bench.Client().Waiting(), 1U);
    bench.Receive(kServer, kAck + "0000");
    bench.Receive(kServer, kRequest + "00" + kCon + "81");
    bench.Receive(kServer, kAck + "0100");
    bench.Receive(kServer, kRequest + "01" + kCon + "82");
    bench.Advance(seconds(5));
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150000
10.000 < server 061004200015 041500002e00bce011fa0a03010081
10.000 > server 06100421000a 04150000
10.000 > server 061004200015 041501001100bce000000a03010082
10.000 < server 06100421000a 04150100
10.000 < server 061004200015 041501002e00bce011fa0a03010082
10.000 > server 06100421000a 04150100
)");
    EXPECT_EQ(bench.Client().Counters().sent, 2U);
    EXPECT_EQ(bench.Client().Counters().received, 0U);
}

TEST(TunnelClient, AConfirmationMayOvertakeTheAcknowledgement) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    bench.Receive(kServer, kRequest + "00" + kCon + "81");
    bench.Receive(kServer, kAck + "0000");
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 061004200015 041500002e00bce011fa0a03010081
10.000 > server 06100421000a 04150000
10.000 < server 06100421000a 04150000
10.000 > server 061004200015 041501001100bce000000a03010082
)");
}

TEST(TunnelClient, AMissingConfirmationIsCountedAfterThreeSeconds) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    bench.Receive(kServer, kAck + "0000");
    bench.Receive(kServer, kRequest + "00" + kCon + "83"); // of somebody else
    bench.Advance(milliseconds(3500));
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150000
10.000 < server 061004200015 041500002e00bce011fa0a03010083
10.000 > server 06100421000a 04150000
13.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not confirmed by the interface
13.000 > server 061004200015 041501001100bce000000a03010082
)");
    EXPECT_EQ(bench.Client().Counters().noConfirmation, 1U);
}

TEST(TunnelClient, ANegativeConfirmationIsReported) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kAck + "0000");
    bench.Receive(kServer, kRequest + "00" + kNegativeCon + "81");
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150000
10.000 < server 061004200015 041500002e00bde011fa0a03010081
10.000 > server 06100421000a 04150000
10.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged on the bus
)");
    EXPECT_EQ(bench.Client().Counters().negativeConfirm, 1U);
}

TEST(TunnelClient, RepeatsOnceAndGivesTheConnectionUp) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd); // the server lives
    bench.Advance(milliseconds(2500));
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 061004200015 041500002900bce011040a03010081
10.000 > server 06100421000a 04150000
10.000 ! telegram 1.1.4 -> 1/2/3 GroupValue_Write 01
11.000 > server 061004200015 041500001100bce000000a03010081
12.000 > server 061002090010 15000801c0a8010ac350
12.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged by the interface
12.000 ! disconnected: a telegram was not acknowledged, 0 ms
12.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
    EXPECT_EQ(bench.Client().Counters().repeated, 1U);
    EXPECT_EQ(bench.Client().Counters().noAck, 1U);
    EXPECT_EQ(bench.Client().Waiting(), 0U);
}

TEST(TunnelClient, ATelegramThatMetADeadLinkIsSentAfterTheReconnect) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Send(Telegram(2));
    bench.Advance(milliseconds(2500));
    EXPECT_EQ(bench.Client().Waiting(), 2U);
    bench.Receive(kServer, "061002060014 1600 0801c0a801020e57 040411fb");
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
11.000 > server 061004200015 041500001100bce000000a03010081
12.000 > server 061002090010 15000801c0a8010ac350
12.000 ! disconnected: a telegram was not acknowledged, 0 ms
12.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
12.500 < server 061002060014 16000801c0a801020e57040411fb
12.500 ! connected as 1.1.251
12.500 > server 061004200015 041600001100bce000000a03010081
)");
    EXPECT_EQ(bench.Client().Counters().resent, 1U);
    EXPECT_EQ(bench.Client().Counters().noAck, 0U);
    EXPECT_EQ(bench.Client().Address(), IndividualAddress(1, 1, 251));
}

TEST(TunnelClient, ATelegramThatNeverLeftIsSentAfterTheReconnectAlthoughTheServerSpoke) {
    ClientBench bench;
    bench.Connect();
    bench.SetNetwork(false);
    bench.Send(Telegram(1));
    bench.Advance(milliseconds(1500));
    bench.SetNetwork(true);
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd); // the server lives
    bench.Advance(milliseconds(500));
    EXPECT_EQ(bench.Client().Counters().resent, 1U);
    EXPECT_EQ(bench.Client().Counters().noAck, 0U);
    EXPECT_EQ(bench.Client().Waiting(), 1U);
}

TEST(TunnelClient, ATelegramWhoseRepetitionLeftMayHaveBeenTaken) {
    ClientBench bench;
    bench.Connect();
    bench.SetNetwork(false);
    bench.Send(Telegram(1));
    bench.SetNetwork(true);
    bench.Advance(milliseconds(1500));
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd); // the server lives
    bench.Advance(milliseconds(500));
    EXPECT_EQ(bench.Client().Counters().resent, 0U);
    EXPECT_EQ(bench.Client().Counters().noAck, 1U);
    EXPECT_EQ(bench.Client().Waiting(), 0U);
}

TEST(TunnelClient, AnErrorInTheAcknowledgementCountsAsNone) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kAck + "0029");
    bench.Receive(kServer, kAck + "0029");
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150029
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150029
10.000 > server 061002090010 15000801c0a8010ac350
10.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged by the interface
10.000 ! disconnected: a telegram was not acknowledged, 0 ms
10.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
}

TEST(TunnelClient, AForgottenConnectionIsMadeAgainAndNothingIsLost) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kAck + "0021");
    bench.Receive(kServer, "061002060014 0100 0801c0a801020e57 040411fa");
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150021
10.000 ! disconnected: the server does not know the connection any more, 0 ms
10.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
10.000 < server 061002060014 01000801c0a801020e57040411fa
10.000 ! connected as 1.1.250
10.000 > server 061004200015 040100001100bce000000a03010081
)");
}

TEST(TunnelClient, ATelegramThatMayHaveBeenTakenIsNotSentAgain) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kRequest + "00" + kSwitchOnInd); // the server lives
    bench.Advance(seconds(1));
    bench.Take();
    bench.Receive(kServer, kAck + "0021"); // of the repetition
    EXPECT_EQ(bench.Take(), R"(
11.000 < server 06100421000a 04150021
11.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged by the interface
11.000 ! disconnected: the server does not know the connection any more, 0 ms
11.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
    EXPECT_EQ(bench.Client().Waiting(), 0U);
}

TEST(TunnelClient, ATelegramAcknowledgedButNotConfirmedWhenTheConnectionEndsIsReported) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kAck + "0000");
    bench.Receive(kServer, kDisconnectRequest);
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 06100421000a 04150000
10.000 < server 061002090010 15000801c0a801020e57
10.000 > server 0610020a0008 1500
10.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not confirmed by the interface
10.000 ! disconnected: the server closed the connection, 0 ms
10.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
    EXPECT_EQ(bench.Client().Counters().noConfirmation, 1U);
    EXPECT_EQ(bench.Client().Waiting(), 0U);
}

TEST(TunnelClient, ATelegramIsNotSentAgainWhenTheServerClosesWithoutAcknowledgingIt) {
    ClientBench bench;
    bench.Connect();
    bench.Send(Telegram(1));
    bench.Receive(kServer, kDisconnectRequest); // the acknowledgement may have been lost
    EXPECT_EQ(bench.Take(), R"(
10.000 > server 061004200015 041500001100bce000000a03010081
10.000 < server 061002090010 15000801c0a801020e57
10.000 > server 0610020a0008 1500
10.000 ! 0.0.0 -> 1/2/3 GroupValue_Write 01: not acknowledged by the interface
10.000 ! disconnected: the server closed the connection, 0 ms
10.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
)");
    EXPECT_EQ(bench.Client().Counters().resent, 0U);
    EXPECT_EQ(bench.Client().Waiting(), 0U);
}

TEST(TunnelClient, AMissingConfirmationIsReportedOnceAlsoWhenTheListenerStops) {
    ClientBench bench;
    bench.Connect();
    bench.m_onSendFailed = [&] { bench.Client().Stop(); };
    bench.Send(Telegram(1));
    bench.Receive(kServer, kAck + "0000");
    bench.Advance(seconds(10));
    EXPECT_EQ(bench.Client().Counters().noConfirmation, 1U);
}

TEST(TunnelClient, AConfirmedTelegramIsNeitherReportedNorSentAgainWhenTheConnectionEnds) {
    ClientBench bench;
    bench.Connect();
    bench.Advance(milliseconds(49900));
    bench.Send(Telegram(1));
    bench.Receive(kServer, kRequest + "00" + kCon + "81"); // the acknowledgement was lost
    bench.Advance(milliseconds(100));
    bench.Receive(kServer, "061002080008 1521"); // the server was restarted
    bench.Receive(kServer, "061002060014 1600 0801c0a801020e57 040411fb");
    EXPECT_EQ(bench.Take(), R"(
59.900 > server 061004200015 041500001100bce000000a03010081
59.900 < server 061004200015 041500002e00bce011fa0a03010081
59.900 > server 06100421000a 04150000
60.000 > server 061002070010 15000801c0a8010ac350
60.000 < server 061002080008 1521
60.000 ! disconnected: the server does not know the connection any more, 0 ms
60.000 > server 06100205001a 0801c0a8010ac3500801c0a8010ac35004040200
60.000 < server 061002060014 16000801c0a801020e57040411fb
60.000 ! connected as 1.1.251
)");
}

} // namespace
} // namespace KnxIp
