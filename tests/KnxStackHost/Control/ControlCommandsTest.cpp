#include "KnxStackHost/Control/ControlCommands.h"

#include <gmock/gmock.h>

namespace KnxStackHost {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class FakeTarget final : public ControlTarget {
public:
    DeviceStatus GetDeviceStatus() const override { return device; }
    LinksStatus GetLinksStatus() const override { return links; }
    void SetProgrammingMode(bool on) override { device.programmingMode = on; }
    std::string SendToGroup(const KnxFrames::LData& telegram) override {
        went.push_back("send " + KnxFrames::Describe(telegram));
        return sendFault;
    }
    std::string Inject(const KnxFrames::LData& telegram) override {
        went.push_back("inject " + KnxFrames::Describe(telegram));
        return injectFault;
    }

    DeviceStatus device;
    LinksStatus links;
    std::string sendFault;
    std::string injectFault;
    std::vector<std::string> went;
};

class Control : public testing::Test {
protected:
    std::string Answer(const std::string& request) { return AnswerControl(request, m_target, m_watches); }
    /// The error that a method ends with.
    std::string Error(const std::string& method, const std::string& params) {
        const auto answer = Answer(R"({"id":1,"method":")" + method + R"(","params":)" + params + "}");
        const auto begin = answer.find("\"error\":");
        return begin == std::string::npos ? answer : answer.substr(begin + 8, answer.size() - begin - 10);
    }

    FakeTarget m_target;
    bool m_watches = false;
};

TEST_F(Control, StatusIsTheDevice) {
    m_target.device = {KnxFrames::IndividualAddress(1, 1, 250),
                       "house",
                       {0, 0xFA, 1, 2, 3, 4},
                       true,
                       {{"group address table", "loaded"}, {"application program", "error"}},
                       true,
                       62,
                       "running",
                       {9, 3, 1, 2, 7},
                       "/var/lib/image",
                       std::chrono::seconds(90)};
    EXPECT_EQ(R"({"jsonrpc":"2.0","id":7,"result":{"address":"1.1.250","name":"house",)"
              R"("serialNumber":"00fa01020304","programmingMode":true,)"
              R"("loadStates":{"group address table":"loaded","application program":"error"},)"
              R"("restartPending":true,"groupObjects":62,"program":"running",)"
              R"("programTelegrams":{"delivered":9,"replaced":3,"dropped":1,"waiting":2,"mostWaiting":7},)"
              R"("image":"/var/lib/image",)"
              R"("uptime":90}})"
              "\n",
              Answer(R"({"jsonrpc":"2.0","id":7,"method":"status"})"));
}

TEST_F(Control, LinksAreServerInterfaceRoutingAndWhatWentNowhere) {
    EXPECT_EQ(R"({"jsonrpc":"2.0","id":"a","result":{"server":null,"interface":null,"routing":null,)"
              R"("bus":{"unknownAddress":1,"refusedByFlags":2,"unusable":3}}})"
              "\n",
              (m_target.links.bus = {1, 2, 3}, Answer(R"({"id":"a","method":"links"})")));
    m_target.links.server = {"127.0.0.1:3671", true, {{KnxFrames::IndividualAddress(1, 1, 251), "", {}}}};
    m_target.links.server->tunnels[0].counters.dropped = 5;
    m_target.links.server->tunnels[0].counters.mostWaiting = 6;
    m_target.links.server->fault = "no address";
    m_target.links.server->group = "224.0.23.12:3671";
    m_target.links.server->groupFault = "no interface";
    m_target.links.interface = InterfaceStatus{"gateway:3671", false, {}, 4, {}, "no answer"};
    m_target.links.routing = RoutingStatus{"224.0.23.12:3671", 2, {}, "no interface"};
    const auto answer = Answer(R"({"id":1,"method":"links"})");
    EXPECT_THAT(answer, HasSubstr(R"("endpoint":"127.0.0.1:3671","tcp":true,"fault":"no address",)"
                                  R"("group":"224.0.23.12:3671","groupFault":"no interface",)"
                                  R"("tunnels":[{"address":"1.1.251",)"
                                  R"("client":"","fromClient":0,)"));
    EXPECT_THAT(answer, HasSubstr(R"("dropped":5,"unsupported":0,"mostWaiting":6)"));
    EXPECT_THAT(
        answer,
        HasSubstr(R"("interface":{"name":"gateway:3671","connected":false,"fault":"no answer","address":"",)"
                  R"("waiting":4,)"));
    EXPECT_THAT(answer,
                HasSubstr(R"("routing":{"group":"224.0.23.12:3671","fault":"no interface","waiting":2,)"));
}

TEST_F(Control, MonitorIsSwitchedOnAndOff) {
    EXPECT_EQ("{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":{}}\n", Answer(R"({"id":1,"method":"monitor"})"));
    EXPECT_TRUE(m_watches);
    Answer(R"({"id":1,"method":"monitor","params":{"on":false}})");
    EXPECT_FALSE(m_watches);
}

TEST_F(Control, ProgrammingModeIsToldAndSwitched) {
    EXPECT_THAT(Answer(R"({"id":1,"method":"progmode"})"), HasSubstr(R"("result":{"on":false})"));
    EXPECT_THAT(Answer(R"({"id":1,"method":"progmode","params":{"on":true}})"),
                HasSubstr(R"("result":{"on":true})"));
    EXPECT_TRUE(m_target.device.programmingMode);
    EXPECT_THAT(Answer(R"({"id":1,"method":"progmode"})"), HasSubstr(R"("result":{"on":true})"));
}

TEST_F(Control, WriteAndReadSendToTheGroup) {
    EXPECT_THAT(
        Answer(R"({"id":1,"method":"write","params":{"address":"1/2/4","dpt":"9.001","value":"21"}})"),
        HasSubstr("\"result\":{}"));
    Answer(R"({"id":1,"method":"read","params":{"address":"1/515"}})");
    EXPECT_THAT(m_target.went, ElementsAre("send 0.0.0 -> 1/2/4 GroupValue_Write 0c1a",
                                           "send 0.0.0 -> 1/2/3 GroupValue_Read"));
    m_target.sendFault = "not this one";
    EXPECT_EQ(R"({"code":1,"message":"not this one"})",
              Error("write", R"({"address":"1/2/4","dpt":"9.001","value":"21"})"));
}

TEST_F(Control, InjectTakesAnyLDataAsAnIndication) {
    Answer(R"({"id":1,"method":"inject","params":{"cemi":"11 00 bc e0 11 04 0a 03 01 00 81"}})");
    EXPECT_THAT(m_target.went, ElementsAre("inject 1.1.4 -> 1/2/3 GroupValue_Write 01"));
    m_target.injectFault = "not this one";
    EXPECT_EQ(R"({"code":1,"message":"not this one"})",
              Error("inject", R"({"cemi":"2900bce011040a03010081"})"));
}

TEST_F(Control, WhatCannotBeSentSaysWhy) {
    EXPECT_EQ(R"({"code":1,"message":"9.001: 700000 is above 670433.28 °C"})",
              Error("write", R"({"address":"1/2/4","dpt":"9.001","value":"700000"})"));
    EXPECT_THAT(Error("write", R"({"address":"1/2","dpt":"9.001"})"),
                HasSubstr(R"({"code":-32602,"message":"member \"value\" is missing or no text"})"));
    EXPECT_THAT(Error("read", R"({"address":"32/0/0"})"),
                HasSubstr(R"({"code":-32602,"message":"\"32/0/0\" is no group address: )"));
    EXPECT_EQ(R"({"code":-32602,"message":"0/0/0 is no group"})", Error("read", R"({"address":"0/0/0"})"));
    EXPECT_EQ(R"({"code":-32602,"message":"member \"cemi\" must be octets of two hexadecimal digits each"})",
              Error("inject", R"({"cemi":"xy"})"));
    EXPECT_THAT(Error("inject", R"({"cemi":"2900bc"})"), HasSubstr(R"({"code":1,"message":"no telegram: )"));
    EXPECT_THAT(Error("inject", R"({"cemi":"2b00bce011040a03010081"})"), HasSubstr("\"code\":1,"));
    EXPECT_EQ(R"({"code":-32602,"message":"member \"on\" must be true or false"})",
              Error("progmode", R"({"on":1})"));
    EXPECT_THAT(m_target.went, IsEmpty());
}

TEST_F(Control, WhatIsNoRequestIsAnsweredAllTheSame) {
    EXPECT_THAT(Answer("{"), HasSubstr(R"("id":null,"error":{"code":-32700,"message":"this is no JSON: )"));
    EXPECT_THAT(Answer("[]"), HasSubstr("{\"code\":-32600,\"message\":\"a request is one object\"}"));
    EXPECT_THAT(Answer(R"({"id":[],"method":"status"})"), HasSubstr("{\"code\":-32600,"));
    EXPECT_THAT(Answer(R"({"id":1})"), HasSubstr("{\"code\":-32600,"));
    EXPECT_THAT(Answer(R"({"id":1,"method":"status","params":[]})"), HasSubstr("{\"code\":-32602,"));
    EXPECT_EQ("{\"jsonrpc\":\"2.0\",\"id\":1,\"error\":{\"code\":-32601,\"message\":\"there is no method "
              "\\\"reboot\\\"\"}}\n",
              Answer(R"({"id":1,"method":"reboot"})"));
}

TEST_F(Control, ARequestWithoutAnIdIsCarriedOutAndNotAnswered) {
    EXPECT_EQ("", Answer(R"({"method":"progmode","params":{"on":true}})"));
    EXPECT_TRUE(m_target.device.programmingMode);
}

TEST(TelegramMessage, HasThePartsTheFrameAndTheLine) {
    const auto telegram =
        KnxFrames::MakeGroupTelegram(KnxFrames::IndividualAddress(1, 1, 4), KnxFrames::GroupAddress(1, 2, 3),
                                     {0x00, 0x81}, KnxFrames::Priority::Urgent);
    const std::chrono::system_clock::time_point time{std::chrono::milliseconds(1714557600123)};
    EXPECT_EQ(R"({"jsonrpc":"2.0","method":"telegram","params":{"time":"2024-05-01T10:00:00.123Z",)"
              R"("via":"tunnel 1.1.251","source":"1.1.4","destination":"1/2/3","name":"","service":)"
              R"("GroupValue_Write","dpt":"","value":"","valueName":"","unit":"","fault":"","raw":"01",)"
              R"("priority":"urgent","hopCount":6,"cemi":"1100b8e011040a03010081",)"
              R"("line":"1.1.4 -> 1/2/3  GroupValue_Write  [01]"}})"
              "\n",
              TelegramMessage(telegram, Describe(telegram, {}), "tunnel 1.1.251", time));
}

} // namespace
} // namespace KnxStackHost
