#include "ClientFixture.h"
#include "LogCapture.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr auto kLoaded = R"({"command":"EmitEvent","eventType":"configurationLoaded"})";

std::vector<std::string> ReadLines(FakeConnection& connection, int count) {
    std::vector<std::string> lines;
    for (int i = 0; i < count; ++i)
        lines.push_back(connection.ReadLine());
    return lines;
}

/// Method and params of a line: what it says without its number.
std::string Said(const std::string& line) {
    auto method = ReadMember(line, "method");
    return method.substr(1, method.size() - 2) + " " + ReadMember(line, "params");
}

std::vector<std::string> ReadSaid(FakeConnection& connection, int count) {
    auto lines = ReadLines(connection, count);
    for (auto& line : lines)
        line = Said(line);
    return lines;
}

std::string Set(int id, std::string_view value) {
    return fmt::format(R"(setValue {{"id":{},"value":"{}","readInternal":true,"response":false}})", id,
                       value);
}

} // namespace

class Reconnect : public ConnectedClient {
protected:
    void Emit(const std::string& eventType) {
        auto sent = Begin([this, eventType] {
            return m_client->Command(R"({"command":"EmitEvent","eventType":")" + eventType + "\"}");
        });
        m_connection.Reply(m_connection.ReadRequest("command"), R"({"response":{"result":"ok"}})");
        EXPECT_NE(sent.get(), "");
    }

    void SetNtp(const std::string& value) {
        m_client->SetConfiguration({{"Ntp", value}});
        m_connection.Reply(m_connection.ReadRequest("setConfiguration"), "{}");
    }

    void SetFormat() {
        m_client->SetValueFormat("Native");
        m_connection.Reply(m_connection.ReadRequest("setValueFormat"), "{}");
    }

    void Break() {
        m_connection.Close();
        m_connection = m_deviceStack.Accept();
    }
};

TEST_F(Reconnect, SaysAgainWhatTheDeviceStackMustKnowInThisOrder) {
    Register("run1", 40);
    SetFormat();
    SetNtp("true");
    SetNtp("false");
    Emit("configurationLoaded");
    m_connection.SendValueChanged(1, "x", 41);
    m_recorder.Wait(3); // two answers to Ntp, one change
    m_deviceStack.StopListening();
    m_connection.Close();
    m_client->SetValue(7, "a", true, false); // taken while nobody listens
    m_client->SetValue(8, "b", true, false);
    m_deviceStack.Listen();

    m_connection = m_deviceStack.Accept();
    const auto first = m_connection.ReadLine();
    EXPECT_EQ(Said(first), R"(register {"name":"a","type":"field","instance":"1","events":true,"field":true,)"
                           R"("lastChange":41,"server":"run1"})");
    EXPECT_TRUE(m_connection.IsSilentFor(50ms)) << "said before it is known who says it";
    m_connection.Reply(ReadMember(first, "id"),
                       R"({"application":"a::field::1","server":"run1","change":41})");
    EXPECT_THAT(ReadSaid(m_connection, 5),
                ElementsAre(R"(setValueFormat {"format":"Native"})",
                            R"(setConfiguration {"settings":{"Ntp":"false"}})",
                            fmt::format(R"(command {{"command":{}}})", kLoaded), Set(7, "a"), Set(8, "b")));
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
}

TEST_F(Reconnect, AConfigurationChangeThatHasBegunTakesTheAnnouncementBack) {
    Register();
    Emit("configurationLoaded");
    Emit("configurationChangeBegin");
    Break();
    m_connection.AcceptRegistration();
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
    Emit("configurationLoaded");
    Break();
    m_connection.AcceptRegistration();
    EXPECT_EQ(Said(m_connection.ReadLine()), fmt::format(R"(command {{"command":{}}})", kLoaded));
}

TEST_F(Reconnect, AnAnnouncementThatFailedForWantOfAConnectionIsMadeLater) {
    Register();
    m_deviceStack.StopListening();
    m_connection.Close();
    m_recorder.Wait(1);
    EXPECT_EQ(m_client->Command(kLoaded), "");
    m_deviceStack.Listen();
    m_connection = m_deviceStack.Accept();
    m_connection.AcceptRegistration();
    EXPECT_EQ(Said(m_connection.ReadLine()), fmt::format(R"(command {{"command":{}}})", kLoaded));
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
}

TEST_F(Reconnect, AnAnnouncementIsNotMadeTwiceWhenItWaitsForTheRegistration) {
    Register();
    Break();
    const auto id = m_connection.ReadRequest("register");
    auto sent = Begin([&] { return m_client->Command(kLoaded); });
    EXPECT_TRUE(m_connection.IsSilentFor(100ms));
    m_connection.Reply(id, R"({"application":"a::field::1","server":"run1","change":0})");
    m_connection.Reply(m_connection.ReadRequest("command"), R"({"response":{"result":"ok"}})");
    EXPECT_NE(sent.get(), "");
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
}

TEST_F(Reconnect, ALossIsToldOnceHoweverLongItLasts) {
    Register();
    m_deviceStack.StopListening();
    m_connection.Close();
    m_recorder.Wait(1);
    std::this_thread::sleep_for(500ms); // several attempts
    m_deviceStack.Listen();
    m_connection = m_deviceStack.Accept();
    EXPECT_THAT(m_recorder.Get(), ElementsAre("lost"));
    m_connection.AcceptRegistration();
    Break();
    EXPECT_THAT(m_recorder.Wait(3), ElementsAre("lost", "registered", "lost"));
}

TEST_F(Reconnect, ALossBeforeTheRegistrationWasAcceptedIsNoNewLoss) {
    Register();
    Break();
    m_connection.ReadRequest("register");
    Break();
    m_connection.AcceptRegistration();
    EXPECT_THAT(m_recorder.Wait(2), ElementsAre("lost", "registered"));
}

TEST_F(Reconnect, ChangesThatWereSeenAreNotToldAgain) {
    Register("run1", 10);
    m_connection.SendValueChanged(1, "a", 11);
    m_connection.SendValueChanged(2, "b", 12);
    m_recorder.Wait(2);
    Break();
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr(R"("lastChange":12,"server":"run1")"));
    m_connection.Reply("2", R"({"application":"a::field::1","server":"run1","change":13})");
    m_connection.SendValueChanged(2, "b", 12);
    m_connection.SendValueChanged(1, "c", 13);
    EXPECT_THAT(m_recorder.Wait(5),
                ElementsAre("changed 1 urn:oxn:dp:house:p1 a web::tool::1",
                            "changed 2 urn:oxn:dp:house:p2 b web::tool::1", "lost", "registered",
                            "changed 1 urn:oxn:dp:house:p1 c web::tool::1"));
}

TEST_F(Reconnect, ChangesOfAnotherRunOfTheDeviceStackAreAllNews) {
    Register("run1", 10);
    m_connection.SendValueChanged(1, "a", 11);
    m_recorder.Wait(1);
    Break();
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr(R"("lastChange":11,"server":"run1")"));
    m_connection.Reply("2", R"({"application":"a::field::1","server":"run2","change":2})");
    m_connection.SendValueChanged(1, "b", 1);
    m_connection.SendValueChanged(2, "c", 2);
    m_recorder.Wait(5);
    Break();
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr(R"("lastChange":2,"server":"run2")"));
    EXPECT_THAT(m_recorder.Wait(6), ElementsAre("changed 1 urn:oxn:dp:house:p1 a web::tool::1", "lost",
                                                "registered", "changed 1 urn:oxn:dp:house:p1 b web::tool::1",
                                                "changed 2 urn:oxn:dp:house:p2 c web::tool::1", "lost"));
}

TEST_F(Reconnect, OfUnansweredValuesTheLastOnePerDataPointIsSentAgainBeforeThoseThatWait) {
    Register();
    m_client->SetValue(1, "a", true, false);
    m_client->SetValue(2, "b", true, false);
    m_client->SetValue(1, "c", true, false);
    m_client->SetValue(3, "d", true, false);
    m_client->SetValue(4, "e", true, false);
    const auto lines = ReadLines(m_connection, 5);
    m_connection.Reply(ReadMember(lines[1], "id"), R"({"change":1})");
    m_recorder.Wait(1); // b is answered, the others are not
    m_deviceStack.StopListening();
    m_connection.Close();
    m_recorder.Wait(2);
    m_client->SetValue(4, "f", true, false);
    m_client->SetValue(5, "g", true, false);
    m_deviceStack.Listen();
    m_connection = m_deviceStack.Accept();
    m_connection.AcceptRegistration();
    EXPECT_THAT(ReadSaid(m_connection, 4), ElementsAre(Set(1, "c"), Set(3, "d"), Set(4, "f"), Set(5, "g")));
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
}

TEST_F(Reconnect, AValueIsSentOnceHoweverOftenTheRegistrationFails) {
    Register();
    m_client->SetValue(1, "a", true, false);
    m_connection.ReadRequest("setValue");
    for (int i = 0; i < 3; ++i) {
        Break();
        m_connection.ReadRequest("register");
    }
    Break();
    m_connection.AcceptRegistration();
    EXPECT_EQ(Said(m_connection.ReadLine()), Set(1, "a"));
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
}

TEST_F(Reconnect, BeyondTheBoundTheLastValuesAreKeptWhileDisconnected) {
    LogCapture log;
    Register();
    m_deviceStack.StopListening();
    m_connection.Close();
    m_recorder.Wait(1);
    for (int i = 0; i < 10'000; ++i)
        m_client->SetValue(100, std::to_string(i), true, false);
    for (int i = 0; i < 5'000; ++i)
        m_client->SetValue(static_cast<unsigned>(1 + i % 2), std::to_string(i), true, false);
    m_deviceStack.Listen();
    m_connection = m_deviceStack.Accept();
    m_connection.AcceptRegistration();
    for (int i = 0; i < 10'000; ++i) {
        const auto line = m_connection.ReadLine();
        ASSERT_EQ(Said(line), Set(100, std::to_string(i)));
        m_connection.Reply(ReadMember(line, "id"), R"({"change":1})");
    }
    EXPECT_THAT(ReadSaid(m_connection, 2), ElementsAre(Set(1, "4998"), Set(2, "4999")));
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
    EXPECT_THAT(log.Get(), testing::Contains(HasSubstr("the device stack does not take its values")));
}

TEST_F(Reconnect, WaitingCallsFailAtOnceWhenTheDeviceStackDies) {
    Register();
    auto call = Begin([&] {
        std::string response;
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(m_client->Command(R"({"command":"Restart"})", response, 60));
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
        return m_client->GetLastError();
    });
    m_connection.ReadRequest("command");
    m_deviceStack.StopListening();
    m_connection.Close();
    EXPECT_EQ(call.get(), "the device stack at " + m_deviceStack.GetSocketPath() + " closed the connection");

    m_recorder.Wait(1);
    std::string text;
    EXPECT_FALSE(m_client->GetValue(1, text, true));
    EXPECT_THAT(m_client->GetLastError(), HasSubstr(m_deviceStack.GetSocketPath()));
    EXPECT_EQ(m_client->GetValueRequest(1, 1), "");
    EXPECT_THAT(m_client->GetLastError(), HasSubstr(m_deviceStack.GetSocketPath()));
}

TEST_F(Reconnect, AnAnswerThatWasSentBeforeTheEndIsStillRead) {
    Register();
    auto call = Begin([&] { return m_client->GetUrn(1, 0); });
    const auto id = m_connection.ReadRequest("getUrn");
    m_connection.Reply(id, R"({"urn":"u"})");
    m_connection.Close();
    EXPECT_EQ(call.get(), "u");
}

TEST_F(Reconnect, RequestsThatNobodyAnswersAnyMoreEndWithAnError) {
    Register();
    m_client->GetValueRequest(5, 0);
    m_client->GetValueRequest(6, 0);
    m_connection.Reply(m_connection.ReadRequest("requestValue"), R"({"request":"x"})");
    m_connection.ReadRequest("requestValue");
    Break();
    const auto records = m_recorder.Wait(3);
    EXPECT_THAT(std::vector(records.begin(), records.begin() + 2),
                Each(testing::AllOf(StartsWith("got "), HasSubstr("closed the connection"))));
}

TEST_F(Reconnect, AFieldRequestOfALostConnectionIsVoid) {
    Register();
    std::promise<void> release;
    auto released = release.get_future().share();
    m_recorder.then = [released](const std::string&) { return released.wait(), true; };
    m_connection.SendValueChanged(1, "x", 1);
    m_recorder.Wait(1);
    m_connection.SendLine(
        R"({"jsonrpc":"2.0","id":5,"method":"writeValue","params":{"id":9,"urn":"u","value":"old"}})");
    Break();
    m_connection.AcceptRegistration();
    m_connection.SendLine(
        R"({"jsonrpc":"2.0","id":1,"method":"writeValue","params":{"id":9,"urn":"u","value":"new"}})");
    release.set_value();
    EXPECT_EQ(m_connection.ReadLine(), R"({"jsonrpc":"2.0","id":1,"result":{"handled":true}})");
    EXPECT_THAT(m_recorder.Get(), ElementsAre("changed 1 urn:oxn:dp:house:p1 x web::tool::1", "lost",
                                              "registered", "write 9 new u"));
}

TEST_F(Reconnect, ARefusedRegistrationIsTriedAgain) {
    LogCapture log;
    Register();
    Break();
    m_connection.ReplyError(m_connection.ReadRequest("register"), 2, "in use");
    EXPECT_TRUE(m_connection.IsClosedWithin(5s));
    m_connection = m_deviceStack.Accept();
    m_connection.ReplyError(m_connection.ReadRequest("register"), 2, "in use");
    EXPECT_TRUE(m_connection.IsClosedWithin(5s));
    m_connection = m_deviceStack.Accept();
    m_connection.AcceptRegistration();
    EXPECT_THAT(m_recorder.Wait(4), ElementsAre("lost", "registered error 2: in use",
                                                "registered error 2: in use", "registered"));
    EXPECT_THAT(log.Get(), ElementsAre(HasSubstr("closed the connection; trying again"),
                                       HasSubstr("RegisterApplication(): refused: in use")));
}

TEST_F(Reconnect, TheFirstAttemptComesAtOnceAndTheNextOnesLaterAndLater) {
    Register();
    const auto begin = std::chrono::steady_clock::now();
    Break(); // at once
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    Break(); // 100 ms
    Break(); // 200 ms
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    m_connection.Close();
    EXPECT_TRUE(m_deviceStack.NobodyConnectsWithin(300ms)); // 400 ms
}

TEST(ReconnectWithoutDeviceStack, RegistrationWaitsThreeSecondsAndIsMadeWhenItIsThere) {
    FakeDeviceStack deviceStack(FakeDeviceStack::Start::Absent);
    Recorder recorder;
    const auto client = Vesk::CreateDeviceStackClient();
    recorder.InstallIn(*client);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(client->RegisterApplication("a", "field", "1"));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 3s);
    EXPECT_EQ(client->GetLastError(),
              "no device stack at " + deviceStack.GetSocketPath() + ": No such file or directory");

    client->SetValueFormat("Native");
    client->SetConfiguration({{"Ntp", "true"}});
    client->SetValue(1, "a", true, false);
    deviceStack.Listen();
    auto connection = deviceStack.Accept();
    connection.AcceptRegistration();
    EXPECT_THAT(ReadSaid(connection, 3),
                ElementsAre(R"(setValueFormat {"format":"Native"})",
                            R"(setConfiguration {"settings":{"Ntp":"true"}})", Set(1, "a")));
    EXPECT_THAT(recorder.Wait(1), ElementsAre("registered"));
}

TEST(ReconnectWithoutDeviceStack, RegistrationSucceedsWhenItComesInTime) {
    FakeDeviceStack deviceStack(FakeDeviceStack::Start::Absent);
    const auto client = Vesk::CreateDeviceStackClient();
    auto registered = Begin([&] { return client->RegisterApplication("a", "field", "1"); });
    EXPECT_EQ(registered.wait_for(200ms), std::future_status::timeout);
    deviceStack.Listen();
    auto connection = deviceStack.Accept();
    connection.AcceptRegistration();
    EXPECT_TRUE(registered.get());
}

TEST(ReconnectWithoutDeviceStack, APathThatIsNoneIsNamed) {
    for (const auto& path : {std::string(200, 'x'), std::string("/nonexistent/s")}) {
        ::setenv("DEVICESTACK_SOCKET", path.c_str(), 1);
        const auto client = Vesk::CreateDeviceStackClient();
        EXPECT_EQ(client->GetUrn(1, 0), "");
        EXPECT_THAT(client->GetLastError(), HasSubstr(path));
    }
}
