#include "ClientFixture.h"

#include <gmock/gmock.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

class Calls : public ConnectedClient {};

TEST_F(Calls, RegisterApplication_TellsTheIdentityAndWhatIsWanted) {
    m_recorder.InstallIn(*m_client);
    auto registered = Begin([&] { return m_client->RegisterApplication("App", "field", "1"); });
    const auto line = m_connection.ReadLine();
    EXPECT_EQ(line, R"({"jsonrpc":"2.0","id":1,"method":"register","params":{"name":"App","type":"field",)"
                    R"("instance":"1","events":true,"field":true}})");
    m_connection.Reply("1", R"({"application":"App::field::1","server":"run1","change":0})");
    EXPECT_TRUE(registered.get());
    EXPECT_EQ(m_client->GetLastError(), "");
}

TEST_F(Calls, RegisterApplication_WithoutHandlersWantsNothing) {
    auto registered = Begin([&] { return m_client->RegisterApplication("App", "tool", "1"); });
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr(R"("events":false,"field":false)"));
    m_connection.Reply("1", R"({"application":"App::tool::1","server":"run1","change":0})");
    EXPECT_TRUE(registered.get());
}

TEST_F(Calls, RegisterApplication_IsRefusedAtOnceWithTheDeviceStacksReason) {
    auto registered = Begin([&] {
        return std::pair{m_client->RegisterApplication("App", "field", "1"), m_client->GetLastError()};
    });
    m_connection.ReplyError(m_connection.ReadRequest("register"), 2, "App::field::1 is process 17");
    EXPECT_EQ(registered.get(), std::pair(false, std::string("App::field::1 is process 17")));
}

TEST_F(Calls, RegisterApplication_MayBeTriedAgainAfterARefusal) {
    auto refused = Begin([&] { return m_client->RegisterApplication("App", "field", "1"); });
    m_connection.ReplyError(m_connection.ReadRequest("register"), 2, "in use");
    EXPECT_FALSE(refused.get());
    auto accepted = Begin([&] { return m_client->RegisterApplication("App", "field", "2"); });
    m_connection.AcceptRegistration();
    EXPECT_TRUE(accepted.get());
}

TEST_F(Calls, RegisterApplication_WithASecondIdentityIsRefused) {
    auto first = Begin([&] { return m_client->RegisterApplication("App", "field", "1"); });
    m_connection.AcceptRegistration();
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(m_client->RegisterApplication("App", "field", "1"));
    EXPECT_FALSE(m_client->RegisterApplication("App", "field", "2"));
    EXPECT_EQ(m_client->GetLastError(), "this client is App::field::1 already");
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
}

TEST_F(Calls, GetValue_GivesTheText) {
    auto got = Begin([&] {
        std::string text = "before";
        return std::pair{m_client->GetValue(2001, text, true), text};
    });
    EXPECT_EQ(m_connection.ReadLine(),
              R"({"jsonrpc":"2.0","id":1,"method":"getValue","params":{"id":2001,"readInternal":true}})");
    m_connection.Reply("1",
                       R"({"id":2001,"urn":"u","value":"21.5 \"ä\"","origin":"o","time":"t","change":3})");
    EXPECT_EQ(got.get(), std::pair(true, std::string("21.5 \"ä\"")));
}

TEST_F(Calls, GetValue_OfNoValueIsFalseAndLeavesTheText) {
    for (const bool asError : {true, false}) {
        auto got = Begin([&] {
            std::string text = "before";
            const bool result = m_client->GetValue(2001, text, false);
            return std::tuple(result, text, m_client->GetLastError());
        });
        const auto id = m_connection.ReadRequest("getValue");
        if (asError)
            m_connection.ReplyError(id, 3, "no value");
        else
            m_connection.Reply(id, R"({"id":2001,"urn":"u","value":"","origin":"","time":"t","change":0})");
        EXPECT_EQ(got.get(), std::tuple(false, std::string("before"),
                                        std::string(asError ? "no value" : "the data point has no value")));
    }
}

TEST_F(Calls, GetValue_WithAnAnswerOfAnotherKindFails) {
    auto got = Begin([&] {
        std::string text;
        return std::pair{m_client->GetValue(2001, text, false), m_client->GetLastError()};
    });
    m_connection.Reply(m_connection.ReadRequest("getValue"), "{}");
    EXPECT_EQ(got.get(), std::pair(false, std::string("the device stack's answer is not understood: {}")));
}

TEST_F(Calls, AnswersInAnotherOrderReachTheirCallers) {
    auto first = Begin([&] { return m_client->GetUrn(1, 0); });
    const auto firstId = m_connection.ReadRequest("getUrn");
    auto second = Begin([&] { return m_client->GetUrn(2, 0); });
    const auto secondId = m_connection.ReadRequest("getUrn");
    m_connection.Reply(secondId, R"({"urn":"two"})");
    EXPECT_EQ(second.get(), "two");
    m_connection.Reply(firstId, R"({"urn":"one"})");
    EXPECT_EQ(first.get(), "one");
}

TEST_F(Calls, GetId_OfAnUnknownUrnIsZero) {
    auto found = Begin([&] { return m_client->GetId("urn:oxn:dp:house:a"); });
    EXPECT_EQ(m_connection.ReadLine(),
              R"({"jsonrpc":"2.0","id":1,"method":"getId","params":{"urn":"urn:oxn:dp:house:a"}})");
    m_connection.Reply("1", R"({"id":2001})");
    EXPECT_EQ(found.get(), 2001u);

    auto unknown = Begin([&] { return std::pair{m_client->GetId("x"), m_client->GetLastError()}; });
    m_connection.ReplyError(m_connection.ReadRequest("getId"), 1, "no such data point: x");
    EXPECT_EQ(unknown.get(), std::pair(0u, std::string("no such data point: x")));
}

TEST_F(Calls, Command_GivesTheResponseAsJson) {
    auto sent = Begin([&] { return m_client->Command(R"({"command":"Restart", "type":"Device"})"); });
    EXPECT_EQ(
        m_connection.ReadLine(),
        R"({"jsonrpc":"2.0","id":1,"method":"command","params":{"command":{"command":"Restart","type":"Device"}}})");
    m_connection.Reply("1", R"({"response":{"result":"ok"}})");
    EXPECT_EQ(sent.get(), R"({"response":{"result":"ok"}})");
}

TEST_F(Calls, Command_ThatIsNoneIsNeverSent) {
    for (const auto* text :
         {"", "{", "[]", "{}", R"({"command":1})", R"({"command":""})", R"({"command":"a"} x)"}) {
        std::string response = "before";
        EXPECT_EQ(m_client->Command(text), "");
        EXPECT_THAT(m_client->GetLastError(), HasSubstr("the command is not")) << text;
        EXPECT_FALSE(m_client->Command(text, response, 1));
        EXPECT_EQ(response, "before");
    }
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
}

TEST_F(Calls, Command_MayHoldCommentsAndTrailingCommas) {
    auto sent = Begin([&] { return m_client->Command("{\n \"command\":\"ReloadProject\", // now\n}"); });
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr(R"("params":{"command":{"command":"ReloadProject"}})"));
    m_connection.Reply("1", "{}");
    EXPECT_EQ(sent.get(), "{}");
}

TEST_F(Calls, Command_FailureLeavesTheResponse) {
    auto sent = Begin([&] {
        std::string response = "before";
        const bool result = m_client->Command(R"({"command":"Restart"})", response, 5);
        return std::tuple(result, response, m_client->GetLastError());
    });
    m_connection.ReplyError(m_connection.ReadRequest("command"), 9, "not allowed");
    EXPECT_EQ(sent.get(), std::tuple(false, std::string("before"), std::string("not allowed")));
}

TEST_F(Calls, GetConfiguration_GivesTheJson) {
    auto got = Begin([&] {
        std::string json;
        return std::pair{m_client->GetConfiguration(1, json), json};
    });
    EXPECT_EQ(m_connection.ReadLine(),
              R"({"jsonrpc":"2.0","id":1,"method":"getConfiguration","params":{"scope":1}})");
    m_connection.Reply("1", R"({"ipc":{"DeviceId":"VELDNV03"}})");
    EXPECT_EQ(got.get(), std::pair(true, std::string(R"({"ipc":{"DeviceId":"VELDNV03"}})")));
}

TEST_F(Calls, SetValue_IsSentInOrderWithoutWaitingForAnswers) {
    EXPECT_EQ(m_client->SetValue(1, "a", false, false), "1");
    EXPECT_EQ(m_client->SetValue(2, "b", true, false), "2");
    EXPECT_EQ(m_client->SetValue(1, "", true, true), "3");
    const auto prefix = [](int id) {
        return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":"setValue","params":)";
    };
    EXPECT_EQ(m_connection.ReadLine(),
              prefix(1) + R"({"id":1,"value":"a","readInternal":false,"response":false}})");
    EXPECT_EQ(m_connection.ReadLine(),
              prefix(2) + R"({"id":2,"value":"b","readInternal":true,"response":false}})");
    EXPECT_EQ(m_connection.ReadLine(),
              prefix(3) + R"({"id":1,"value":"","readInternal":true,"response":true}})");
}

TEST_F(Calls, SetValue_StandsBeforeALaterGetValue) {
    m_client->SetValue(1, "a", false, false);
    auto got = Begin([&] {
        std::string text;
        m_client->GetValue(1, text, true);
        return text;
    });
    m_connection.ReadRequest("setValue");
    m_connection.Reply(m_connection.ReadRequest("getValue"),
                       R"({"id":1,"urn":"u","value":"a","origin":"o","time":"t","change":1})");
    EXPECT_EQ(got.get(), "a");
}

TEST_F(Calls, SetValue_LongerThanAMessageIsRefused) {
    EXPECT_EQ(m_client->SetValue(1, std::string(1024 * 1024, 'x'), false, false), "");
    EXPECT_THAT(m_client->GetLastError(), HasSubstr("at most 1048576 bytes"));
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
}

TEST_F(Calls, SetValue_AnswersReachTheResponseHandler) {
    m_recorder.InstallIn(*m_client);
    m_client->SetValue(1, "a", false, false);
    m_client->SetValue(2, "b", false, false);
    m_connection.Reply(m_connection.ReadRequest("setValue"), R"({"change":7})");
    m_connection.ReplyError(m_connection.ReadRequest("setValue"), 4, "b is no number");
    EXPECT_THAT(m_recorder.Wait(2), ElementsAre("set 1 1 a", "set 2 2 b error 4: b is no number"));
}

TEST_F(Calls, SetConfiguration_IsSentAndAnswered) {
    m_recorder.InstallIn(*m_client);
    m_client->SetConfiguration({{"Ntp", "true"}});
    const auto line = m_connection.ReadLine();
    EXPECT_THAT(line, HasSubstr(R"("method":"setConfiguration","params":{"settings":{"Ntp":"true"}}})"));
    m_connection.Reply(ReadMember(line, "id"), "{}");
    EXPECT_THAT(m_recorder.Wait(1), ElementsAre("set configuration"));
}

TEST_F(Calls, GetValueRequest_IsAnsweredByTheResponseHandler) {
    m_recorder.InstallIn(*m_client);
    EXPECT_EQ(m_client->GetValueRequest(1002, 1), "1");
    EXPECT_EQ(m_client->GetValueRequest(9, 0), "2");
    EXPECT_EQ(m_connection.ReadLine(),
              R"({"jsonrpc":"2.0","id":1,"method":"requestValue","params":{"id":1002,"readInternal":true}})");
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr(R"("readInternal":false)"));
    m_connection.Reply("1", R"({"request":"r-1"})");
    m_connection.ReplyError("2", 1, "no such data point: 9");
    m_connection.SendLine(
        R"({"jsonrpc":"2.0","method":"valueAnswered","params":{"request":"r-1","id":1002,"urn":"u","value":"1"}})");
    EXPECT_THAT(m_recorder.Wait(2),
                ElementsAre("got 2 9   error 1: no such data point: 9", "got 1 1002 u 1"));
}

TEST_F(Calls, GetValueRequest_ThatFailsLaterTellsWhy) {
    m_recorder.InstallIn(*m_client);
    m_client->GetValueRequest(5, 0);
    m_connection.Reply(m_connection.ReadRequest("requestValue"), R"({"request":"x"})");
    m_connection.SendLine(
        R"({"jsonrpc":"2.0","method":"valueAnswered","params":{"request":"x","id":5,"urn":"u",)"
        R"("value":"","error":{"code":7,"message":"no answer"}}})");
    EXPECT_THAT(m_recorder.Wait(1), ElementsAre("got 1 5 u  error 7: no answer"));
}

TEST_F(Calls, GetLastError_IsTheCallingThreadsOwn) {
    EXPECT_EQ(m_client->Command("{"), "");
    EXPECT_NE(m_client->GetLastError(), "");
    EXPECT_EQ(Begin([&] { return m_client->GetLastError(); }).get(), "");
    auto ok = Begin([&] { return m_client->GetUrn(1, 0); });
    m_connection.Reply(m_connection.ReadRequest("getUrn"), R"({"urn":"u"})");
    EXPECT_EQ(ok.get(), "u");
    EXPECT_NE(m_client->GetLastError(), "");
    m_client->SetValue(1, "a", false, false);
    EXPECT_EQ(m_client->GetLastError(), "");
}

TEST_F(Calls, GetLastError_OfTwoClientsDoesNotMix) {
    const auto other = Vesk::CreateDeviceStackClient();
    m_client->Command("{");
    EXPECT_EQ(other->GetLastError(), "");
    other->SetClientMode(1);
    EXPECT_NE(m_client->GetLastError(), "");
}

TEST_F(Calls, ModesAndFormatsThatAreNotOfferedAreRefused) {
    m_client->SetClientMode(0);
    EXPECT_EQ(m_client->GetLastError(), "client mode 0 is not offered, only 1");
    m_client->SetClientMode(1);
    EXPECT_EQ(m_client->GetLastError(), "");
    m_client->SetValueFormat("Xml");
    EXPECT_EQ(m_client->GetLastError(), "value format \"Xml\" is not offered, only \"Native\"");
    m_client->SetValueFormat("Native");
    EXPECT_EQ(m_client->GetLastError(), "");
    EXPECT_EQ(m_connection.ReadLine(),
              R"({"jsonrpc":"2.0","id":1,"method":"setValueFormat","params":{"format":"Native"}})");
}

TEST_F(Calls, AMessageMayComeInPieces) {
    auto got = Begin([&] { return m_client->GetUrn(1, 0); });
    m_connection.ReadRequest("getUrn");
    for (const char byte : std::string(R"({"jsonrpc":"2.0","id":1,"result":{"urn":"ü"}})") + '\n')
        m_connection.Send({&byte, 1});
    EXPECT_EQ(got.get(), "ü");
}

TEST_F(Calls, LinesThatAreNoMessagesArePassedOver) {
    auto got = Begin([&] { return m_client->GetUrn(1, 0); });
    m_connection.ReadRequest("getUrn");
    m_connection.SendLine("not JSON");
    m_connection.SendLine("[]");
    m_connection.SendLine(R"({"jsonrpc":"2.0","method":"newInALaterVersion","params":{}})");
    m_connection.SendLine(R"({"jsonrpc":"2.0","id":999,"result":{}})");
    m_connection.SendLine(R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"what?"}})");
    m_connection.Reply("1", R"({"urn":"u"})");
    EXPECT_EQ(got.get(), "u");
}
