// The order of what the client says while a connection lasts.
#include "ClientFixture.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

using namespace std::chrono_literals;
using testing::HasSubstr;

class Order : public ConnectedClient {
protected:
    static constexpr int kMostUnanswered = 10'000;

    /// Sends as many values as may be unanswered at a time; the next one waits.
    void FillWithUnansweredValues() {
        for (int i = 0; i < kMostUnanswered; ++i)
            m_client->SetValue(100, std::to_string(i), true, false);
        for (int i = 0; i < kMostUnanswered; ++i)
            m_unanswered = m_connection.ReadRequest("setValue");
    }

    /// Makes room for the next one.
    void AnswerOneValue() { m_connection.Reply(m_unanswered, R"({"change":1})"); }

    void AskToWrite(int id, std::string_view value) {
        m_connection.SendLine(fmt::format(
            R"({{"jsonrpc":"2.0","id":{},"method":"writeValue","params":{{"id":9,"urn":"u","value":"{}"}}}})",
            id, value));
    }

    static std::string Handled(int id) {
        return fmt::format(R"({{"jsonrpc":"2.0","id":{},"result":{{"handled":true}}}})", id);
    }

    static std::string Event(std::string_view type) {
        return fmt::format(R"({{"command":"EmitEvent","eventType":"{}"}})", type);
    }

private:
    std::string m_unanswered;
};

TEST_F(Order, WhatWaitedForRoomIsSentWithoutAnotherCall) {
    Register();
    const std::string longText(1000, 'x');
    for (int i = 0; i < 2000; ++i) // much more than the socket and one piece of the output hold
        m_client->SetValue(100, longText, true, false);
    for (int i = 0; i < 2000; ++i)
        m_connection.ReadRequest("setValue");
}

TEST_F(Order, AnAnswerFollowsTheValuesThatWereSetBefore) {
    Register();
    FillWithUnansweredValues();
    m_client->SetValue(9, "own", false, true);
    AskToWrite(5, "theirs");
    m_recorder.Wait(1);
    EXPECT_TRUE(m_connection.IsSilentFor(100ms));
    AnswerOneValue();
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr(R"("method":"setValue","params":{"id":9,"value":"own")"));
    EXPECT_EQ(m_connection.ReadLine(), Handled(5));
}

TEST_F(Order, AnAnswerBehindNothingIsGivenAtOnce) {
    Register();
    FillWithUnansweredValues();
    AskToWrite(5, "a");
    EXPECT_EQ(m_connection.ReadLine(), Handled(5));
}

TEST_F(Order, AChangeOfTheConfigurationIsAnnouncedThoughNobodyAnswers) {
    Register();
    EXPECT_EQ(m_client->Command(Event("configurationLoaded")), ""); // after 2 s
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr("configurationLoaded"));
    m_connection.ReadRequest("getUrn"); // whether anybody is there
    EXPECT_EQ(m_client->Command(Event("configurationChangeBegin")), "");
    EXPECT_EQ(m_client->GetLastError(), "the device stack does not answer");
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr("configurationChangeBegin"));
}

TEST_F(Order, AChangeOfTheConfigurationTakesTheWaitingAnnouncementBack) {
    Register();
    FillWithUnansweredValues();
    EXPECT_EQ(m_client->Command(Event("configurationLoaded")), "");
    const auto question = m_connection.ReadRequest("getUrn"); // whether anybody is there
    EXPECT_EQ(m_client->Command(Event("configurationChangeBegin")), "");
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
    m_connection.Reply(question, R"({"urn":"u"})");
    AnswerOneValue();
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr("configurationChangeBegin"));
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
}
