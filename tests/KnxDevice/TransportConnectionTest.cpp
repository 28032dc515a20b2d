// Telegrams and times by hand: what the device answers, when, and what it stays silent to.
#include "KnxDevice/TransportConnection.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace KnxDevice {
namespace {

using KnxFrames::TpduKind;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr IndividualAddress kTool(1, 1, 20);
constexpr IndividualAddress kOther(1, 1, 21);

std::string Hex(const Tpdu& tpdu) {
    std::string text;
    for (const auto octet : tpdu.View())
        text += fmt::format("{:02x}", octet);
    return text;
}

class Transport : public testing::Test, protected TransportListener {
protected:
    void SendTo(IndividualAddress to, const Tpdu& tpdu) override {
        m_events.push_back(fmt::format("{} {}", to.ToString(), Hex(tpdu)));
    }
    void OnData(const Tpdu& tpdu) override {
        m_events.push_back("data " + Hex(tpdu));
        for (unsigned count = 0; count < m_answers; ++count)
            m_connection.Send(m_now, {0x03, 0x40, static_cast<std::uint8_t>(count)});
    }
    void OnOpened(IndividualAddress partner) override { m_events.push_back("opened " + partner.ToString()); }
    void OnClosed(IndividualAddress partner) override { m_events.push_back("closed " + partner.ToString()); }

    void Receive(IndividualAddress from, const Tpdu& tpdu) {
        m_connection.OnTpdu(m_now, from, KnxFrames::ClassifyTpdu(tpdu, false, 0), tpdu);
    }
    /// Lets the time pass, with each deadline on the way.
    void Pass(seconds time) {
        const auto end = m_now + time;
        while (const auto next = m_connection.NextTime()) {
            if (*next > end)
                break;
            m_now = *next;
            m_connection.OnTime(m_now);
        }
        m_now = end;
    }
    std::vector<std::string> Events() { return std::exchange(m_events, {}); }
    void Connect() {
        Receive(kTool, {0x80});
        EXPECT_THAT(Events(), ElementsAre("opened 1.1.20"));
    }

    unsigned m_answers = 0; // to each data unit
    TimePoint m_now{seconds(1000)};
    TransportConnection m_connection{*this};
    std::vector<std::string> m_events;
};

TEST_F(Transport, AcknowledgesDataAndHandsItOverOnceAndInOrder) {
    Connect();
    for (unsigned number = 0; number < 17; ++number) { // the sequence number wraps after 15
        const auto tpci = static_cast<std::uint8_t>(0x43 | (number % 16) << 2);
        Receive(kTool, {tpci, 0x00});
        EXPECT_THAT(Events(), ElementsAre(fmt::format("1.1.20 {:02x}", 0xC2 | (number % 16) << 2),
                                          fmt::format("data {:02x}00", tpci)));
    }
}

TEST_F(Transport, ARepetitionIsAcknowledgedAgainAndNotHandedOver) {
    Connect();
    Receive(kTool, {0x43, 0x00});
    Events();
    Receive(kTool, {0x43, 0x00});
    EXPECT_THAT(Events(), ElementsAre("1.1.20 c2"));
}

TEST_F(Transport, AWrongSequenceNumberIsRefusedWithNak) {
    Connect();
    Receive(kTool, {0x4B, 0x00});
    EXPECT_THAT(Events(), ElementsAre("1.1.20 cb"));
    Receive(kTool, {0x43, 0x00});
    EXPECT_THAT(Events(), ElementsAre("1.1.20 c2", "data 4300")) << "the right one is still taken";
}

TEST_F(Transport, AnswersAreNumberedAndWaitForTheAcknowledgementBefore) {
    m_answers = 2;
    Connect();
    Receive(kTool, {0x43, 0x00});
    EXPECT_THAT(Events(), ElementsAre("1.1.20 c2", "data 4300", "1.1.20 434000"));
    Receive(kTool, {0xC2});
    EXPECT_THAT(Events(), ElementsAre("1.1.20 474001"));
    Receive(kTool, {0xC6});
    EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(Transport, AnUnacknowledgedAnswerIsRepeatedThreeTimesEvery3SecondsAndThenTheConnectionEnds) {
    m_answers = 1;
    Connect();
    Receive(kTool, {0x43, 0x00});
    Events();
    for (int repetition = 1; repetition <= 3; ++repetition) {
        Pass(seconds(2));
        EXPECT_THAT(Events(), IsEmpty());
        Pass(seconds(1));
        EXPECT_THAT(Events(), ElementsAre("1.1.20 434000"));
    }
    Pass(seconds(3));
    EXPECT_THAT(Events(), ElementsAre("1.1.20 81", "closed 1.1.20"));
    EXPECT_FALSE(m_connection.NextTime().has_value());
}

TEST_F(Transport, ANakIsARequestToRepeatUpToThreeTimes) {
    m_answers = 1;
    Connect();
    Receive(kTool, {0x43, 0x00});
    Events();
    for (int repetition = 1; repetition <= 3; ++repetition) {
        Receive(kTool, {0xC3});
        EXPECT_THAT(Events(), ElementsAre("1.1.20 434000"));
    }
    Receive(kTool, {0xC3});
    EXPECT_THAT(Events(), ElementsAre("1.1.20 81", "closed 1.1.20"));
}

TEST_F(Transport, ASilentConnectionEndsAfter6Seconds) {
    Connect();
    Pass(seconds(5));
    Receive(kTool, {0x43, 0x00});
    Events();
    Pass(seconds(5));
    EXPECT_THAT(Events(), IsEmpty()) << "the data has begun the time anew";
    Pass(seconds(1));
    EXPECT_THAT(Events(), ElementsAre("1.1.20 81", "closed 1.1.20"));
}

TEST_F(Transport, ASecondPartnerIsRefusedAndTheFirstStays) {
    Connect();
    Receive(kOther, {0x80});
    EXPECT_THAT(Events(), ElementsAre("1.1.21 81"));
    Receive(kTool, {0x43, 0x00});
    EXPECT_THAT(Events(), ElementsAre("1.1.20 c2", "data 4300"));
}

TEST_F(Transport, WhatIsNotThePartnersIsNotAnswered) {
    const std::vector<Tpdu> strangers = {{0x81}, {0x43, 0x00}, {0xC2}, {0xC3}};
    for (const auto& tpdu : strangers)
        Receive(kOther, tpdu);
    EXPECT_THAT(Events(), IsEmpty()) << "without a connection";
    Connect();
    for (const auto& tpdu : strangers)
        Receive(kOther, tpdu);
    EXPECT_THAT(Events(), IsEmpty());
    EXPECT_TRUE(m_connection.IsOpen()) << "a stranger's disconnect ends nothing";
}

TEST_F(Transport, ThePartnersDisconnectIsNotAnswered) {
    Connect();
    Receive(kTool, {0x81});
    EXPECT_THAT(Events(), ElementsAre("closed 1.1.20"));
    Receive(kTool, {0x43, 0x00});
    EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(Transport, AConnectOfThePartnerChangesNothing) {
    Connect();
    Receive(kTool, {0x43, 0x00});
    Events();
    Receive(kTool, {0x80});
    EXPECT_THAT(Events(), IsEmpty());
    Receive(kTool, {0x47, 0x00});
    EXPECT_THAT(Events(), ElementsAre("1.1.20 c6", "data 4700")) << "the sequence goes on";
    Pass(seconds(4));
    Receive(kTool, {0x80});
    Pass(seconds(2));
    EXPECT_THAT(Events(), ElementsAre("1.1.20 81", "closed 1.1.20")) << "nor does it count as life";
}

TEST_F(Transport, AnAcknowledgementTwiceIsHarmlessAndAWrongOneEndsTheConnection) {
    m_answers = 1;
    Connect();
    Receive(kTool, {0x43, 0x00});
    Receive(kTool, {0xC2});
    Events();
    Receive(kTool, {0xC2});
    Receive(kTool, {0xD2});
    EXPECT_THAT(Events(), IsEmpty()) << "nothing waits for one";
    Receive(kTool, {0x47, 0x00});
    Events();
    Receive(kTool, {0xC2});
    EXPECT_THAT(Events(), IsEmpty());
    Receive(kTool, {0xD2});
    EXPECT_THAT(Events(), ElementsAre("1.1.20 81", "closed 1.1.20"));
}

TEST_F(Transport, ANakCountsForWhatIsUnderWay) {
    m_answers = 1;
    Connect();
    Receive(kTool, {0x43, 0x00});
    Events();
    Receive(kTool, {0xC7});
    EXPECT_THAT(Events(), IsEmpty()) << "another sequence number";
    Receive(kTool, {0xC2});
    Receive(kTool, {0xC3});
    EXPECT_THAT(Events(), IsEmpty()) << "acknowledged meanwhile";
    Receive(kTool, {0xC7});
    EXPECT_THAT(Events(), ElementsAre("1.1.20 81", "closed 1.1.20")) << "not sent yet";
}

TEST_F(Transport, AClientThatNeverAcknowledgesDoesNotPileUpAnswers) {
    m_answers = TransportConnection::kMostWaiting + 1; // one is under way
    Connect();
    Receive(kTool, {0x43, 0x00});
    EXPECT_TRUE(m_connection.IsOpen());
    Receive(kTool, {0x47, 0x00});
    EXPECT_FALSE(m_connection.IsOpen());
    EXPECT_EQ("closed 1.1.20", Events().back());
}

TEST_F(Transport, NothingIsSentWithoutAConnection) {
    m_connection.Send(m_now, {0x03, 0x40});
    m_connection.Close();
    EXPECT_THAT(Events(), IsEmpty());
}

} // namespace
} // namespace KnxDevice
