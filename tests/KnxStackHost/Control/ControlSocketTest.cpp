// The control socket of the running daemon.
#include "../../support/Daemon.h"
#include "../DaemonProcess.h"
#include "../RawTunnel.h"

#include <gmock/gmock.h>

#include <csignal>
#include <memory>
#include <sys/stat.h>

namespace KnxStackHost {
namespace {

using DeviceStackServer::RawClient;
using testing::HasSubstr;
using testing::Not;

std::string WithControl(const std::string& more = "") {
    return TestConfiguration("", R"(, "control": {"socket": "run/control.sock"})" + more);
}

class ControlSocket : public testing::Test {
protected:
    boost::json::value Result(RawClient& client, const std::string& method,
                              const std::string& params = "{}") const {
        const auto answer = client.Call(method, params);
        const auto* result = answer.is_object() ? answer.get_object().if_contains("result") : nullptr;
        return result != nullptr ? *result : nullptr;
    }

    static std::string Text(const boost::json::value& value, const char* name) {
        return value.at(name).as_string().c_str();
    }

    TemporaryDirectory m_directory;
    DaemonProcess m_daemon{m_directory, WithControl()};
    const std::uint16_t m_port = m_daemon.Port();
    const std::string m_socket = m_directory / "run/control.sock";
};

TEST_F(ControlSocket, IsForOwnerAndGroupAndGoneAtTheEnd) {
    ASSERT_TRUE(m_daemon.WaitForLog("listening for control clients on "));
    struct stat status {};
    ASSERT_EQ(0, ::stat(m_socket.c_str(), &status));
    EXPECT_EQ(0660u, status.st_mode & 0777);
    RawClient client(m_socket);
    ASSERT_TRUE(client.IsConnected());
    m_daemon.Signal(SIGTERM);
    EXPECT_EQ(0, m_daemon.WaitForEnd(milliseconds(10000)));
    EXPECT_TRUE(client.IsClosed());
    EXPECT_NE(0, ::stat(m_socket.c_str(), &status));
}

TEST_F(ControlSocket, TellsWhatTheDeviceIs) {
    ASSERT_TRUE(m_daemon.WaitForLog("is configured and running"));
    RawClient client(m_socket);
    const auto status = Result(client, "status");
    ASSERT_TRUE(status.is_object());
    EXPECT_EQ("1.1.250", Text(status, "address"));
    EXPECT_EQ("test host", Text(status, "name"));
    EXPECT_EQ("running", Text(status, "program"));
    EXPECT_EQ(5, status.at("groupObjects").as_int64());
    EXPECT_EQ("loaded", Text(status.at("loadStates"), "group object table"));
    EXPECT_FALSE(status.at("restartPending").as_bool());
}

TEST_F(ControlSocket, TellsWhoIsConnectedAndWhatPassed) {
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 3), kWrite | 1)));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(5, 5, 5), kWrite | 1)));
    RawClient client(m_socket);
    const auto links = Result(client, "links");
    ASSERT_TRUE(links.is_object());
    EXPECT_EQ("127.0.0.1:" + std::to_string(m_port), Text(links.at("server"), "endpoint"));
    const auto& tunnels = links.at("server").at("tunnels").as_array();
    ASSERT_EQ(2u, tunnels.size());
    EXPECT_EQ("1.1.251", Text(tunnels[0], "address"));
    EXPECT_THAT(Text(tunnels[0], "client"), HasSubstr("127.0.0.1:"));
    EXPECT_EQ(2, tunnels[0].at("fromClient").as_int64());
    EXPECT_EQ("", Text(tunnels[1], "client"));
    EXPECT_EQ(1, links.at("bus").at("unknownAddress").as_int64());
    ASSERT_TRUE(tunnel.Disconnect());
    EXPECT_EQ("", Text(Result(client, "links").at("server").at("tunnels").at(0), "client"));
}

TEST_F(ControlSocket, ShowsEachTelegramInTheWordsOfTheLog) {
    TemporaryDirectory directory;
    DaemonProcess daemon(directory, WithControl(R"(, "log": {"level": "debug"})"));
    RawTunnel tunnel(daemon.Port());
    RawClient client(directory / "run/control.sock");
    ASSERT_TRUE(Result(client, "monitor").is_object());
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 4), kWrite, {0x0C, 0x1A})));
    const auto message = client.ReceiveJson();
    ASSERT_TRUE(message.is_object());
    EXPECT_EQ("telegram", Text(message, "method"));
    const auto& telegram = message.at("params");
    EXPECT_EQ("1.1.251 -> 1/2/4 \"temperature\"  GroupValue_Write  9.001  21 °C  [0c1a]",
              Text(telegram, "line"));
    EXPECT_EQ("tunnel 1.1.251", Text(telegram, "via"));
    EXPECT_EQ("21", Text(telegram, "value"));
    EXPECT_EQ("2900bce011fb0a040300800c1a", Text(telegram, "cemi"));
    EXPECT_TRUE(daemon.WaitForLog("DEBUG KnxStack.Host.Monitor - 1.1.251 -> 1/2/4 \"temperature\"  "
                                  "GroupValue_Write  9.001  21 °C  [0c1a]\n"));
    // Object 3 answers at its sending address.
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 4), kRead)));
    EXPECT_EQ("1.1.251 -> 1/2/4 \"temperature\"  GroupValue_Read  9.001",
              Text(client.ReceiveJson().at("params"), "line"));
    const auto answer = client.ReceiveJson();
    EXPECT_EQ("1.1.250 -> 1/2/5 \"temperature\"  GroupValue_Response  9.001  21 °C  [0c1a]",
              Text(answer.at("params"), "line"));
    EXPECT_EQ("device", Text(answer.at("params"), "via"));
}

TEST_F(ControlSocket, TheLogHasEachTelegramOnceEvenAtItsMostTalkative) {
    TemporaryDirectory directory;
    DaemonProcess daemon(directory, WithControl(R"(, "log": {"level": "trace"})"));
    RawTunnel tunnel(daemon.Port());
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 4), kWrite, {0x0C, 0x1A})));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 4), kRead)));
    ASSERT_TRUE(daemon.WaitForLog("1.1.250 -> 1/2/5 "));
    EXPECT_EQ(1u, CountOf(daemon.Log(), "1.1.251 -> 1/2/4 \"temperature\"  GroupValue_Write"));
    EXPECT_EQ(2u, CountOf(daemon.Log(), "1.1.251 -> 1/2/4 "));
}

TEST_F(ControlSocket, TheLogAtInfoHasNoTelegrams) {
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(31, 7, 255), kWrite, {0x42})));
    ASSERT_TRUE(Eventually([&] { return CountOf(m_directory.Read("record"), "write 4 42") == 1; }));
    EXPECT_THAT(m_daemon.Log(), Not(HasSubstr("KnxStack.Host.Monitor")));
}

TEST_F(ControlSocket, SwitchesProgrammingModeInWhichTheDeviceTellsItsAddress) {
    RawTunnel tunnel(m_port);
    const Bytes addressRead{0x11, 0x00, 0xB0, 0xE0, 0x00, 0x00, 0x00, 0x00, 0x01, 0x01, 0x00};
    ASSERT_TRUE(tunnel.Send(addressRead));
    RawClient client(m_socket);
    EXPECT_FALSE(Result(client, "progmode").at("on").as_bool());
    EXPECT_TRUE(Result(client, "progmode", R"({"on":true})").at("on").as_bool());
    EXPECT_EQ(1u, CountOf(m_daemon.Log(), "programming mode is on"));
    ASSERT_TRUE(tunnel.Send(addressRead));
    const auto answer = tunnel.ReceiveIndication();
    ASSERT_EQ(11u, answer.size()) << "once, since the first one came too early";
    EXPECT_EQ(Bytes({0x11, 0xFA, 0x00, 0x00, 0x01, 0x01, 0x40}), Bytes(answer.begin() + 4, answer.end()));
    EXPECT_EQ(Bytes(), tunnel.ReceiveIndication(milliseconds(200)));
    EXPECT_FALSE(Result(client, "progmode", R"({"on":false})").at("on").as_bool());
    EXPECT_EQ(1u, CountOf(m_daemon.Log(), "programming mode is off"));
}

TEST_F(ControlSocket, AWriteGoesToTheBusAndToTheDevicesOwnObjects) {
    RawTunnel tunnel(m_port);
    RawClient client(m_socket);
    ASSERT_TRUE(Result(client, "write", R"({"address":"1/2/3","dpt":"1.001","value":"1"})").is_object());
    EXPECT_EQ(Bytes({0x29, 0x00, 0xBC, 0xE0, 0x11, 0xFA, 0x0A, 0x03, 0x01, 0x00, 0x81}),
              tunnel.ReceiveIndication());
    EXPECT_TRUE(Eventually([&] { return CountOf(m_directory.Read("record"), "write 1 01") == 1; }));
    EXPECT_TRUE(Eventually([&] { return CountOf(m_directory.Read("record"), "write 2 01") == 1; }));
    EXPECT_THAT(m_daemon.Log(), HasSubstr("INFO  KnxStack.Host.Control - a control client sends 1.1.250 -> "
                                          "1/2/3 \"switch\"  GroupValue_Write  1.001  1 (On)  [01]\n"));
}

TEST_F(ControlSocket, AnInjectedTelegramComesFromTheBus) {
    RawTunnel tunnel(m_port);
    RawClient client(m_socket);
    ASSERT_TRUE(Result(client, "inject", R"({"cemi":"2900bce011040a040300800c1a"})").is_object());
    EXPECT_EQ(Bytes({0x29, 0x00, 0xBC, 0xE0, 0x11, 0x04, 0x0A, 0x04, 0x03, 0x00, 0x80, 0x0C, 0x1A}),
              tunnel.ReceiveIndication());
    EXPECT_TRUE(Eventually([&] { return CountOf(m_directory.Read("record"), "write 3 0c1a") == 1; }));
    const auto refused = client.Call("inject", R"({"cemi":"2900bce011fa0a040300800c1a"})");
    EXPECT_EQ("1.1.250 is an address of this host: nothing from the bus has it",
              Text(refused.at("error"), "message"));
}

TEST_F(ControlSocket, AClientThatDoesNotReadLosesItsConnectionAndNobodyElseDoes) {
    RawClient lazy(m_socket);
    ASSERT_TRUE(Result(lazy, "monitor").is_object());
    RawClient other(m_socket);
    const std::string request = R"({"method":"read","params":{"address":"31/7/255"}})"
                                "\n";
    std::string burst;
    for (int i = 0; i < 100; ++i)
        burst += request;
    // Each is some 400 bytes for the lazy one.
    const bool isCutOff = Eventually(
        [&] {
            other.Send(burst);
            return CountOf(m_daemon.Log(), "a control client does not read what it asked for") == 1;
        },
        milliseconds(60000));
    EXPECT_TRUE(isCutOff);
    EXPECT_TRUE(lazy.IsClosed());
    EXPECT_TRUE(Result(other, "status").is_object());
}

TEST_F(ControlSocket, ARequestThatDoesNotEndIsRefused) {
    RawClient client(m_socket);
    client.Send(std::string(70000, ' '));
    EXPECT_THAT(client.Receive().value_or(""), HasSubstr("a request has at most 65536 bytes"));
    EXPECT_TRUE(client.IsClosed());
}

TEST_F(ControlSocket, TakesSixteenClientsAndTurnsFurtherOnesAway) {
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 16; ++i) {
        clients.push_back(std::make_unique<RawClient>(m_socket));
        ASSERT_TRUE(Result(*clients.back(), "progmode").is_object());
    }
    RawClient further(m_socket);
    EXPECT_THAT(further.Receive().value_or(""), HasSubstr("there are 16 control clients already"));
    EXPECT_TRUE(further.IsClosed());
    clients.pop_back();
    EXPECT_TRUE(Eventually([&] {
        RawClient next(m_socket);
        return Result(next, "progmode").is_object();
    }));
}

TEST_F(ControlSocket, AClientThatOnlyEndsItsInputGetsItsAnswersAndTelegrams) {
    RawClient asks(m_socket);
    asks.SendLine(R"({"id":1,"method":"progmode"})");
    asks.EndSending();
    EXPECT_THAT(asks.Receive().value_or(""), HasSubstr(R"("result":{"on":false})"));
    EXPECT_TRUE(asks.IsClosed());

    RawClient watches(m_socket);
    watches.SendLine(R"({"id":1,"method":"monitor"})");
    watches.EndSending();
    ASSERT_THAT(watches.Receive().value_or(""), HasSubstr(R"("result":{})"));
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 3), kWrite | 1)));
    EXPECT_THAT(watches.Receive().value_or(""), HasSubstr("GroupValue_Write"));
}

TEST_F(ControlSocket, OfARunningDaemonIsNotTakenOver) {
    ASSERT_TRUE(m_daemon.WaitForLog("listening for control clients on "));
    TemporaryDirectory directory;
    DaemonProcess second(directory, TestConfiguration("", R"(, "control": {"socket": ")" + m_socket + "\"}"));
    EXPECT_EQ(2, second.WaitForEnd(milliseconds(10000)));
    EXPECT_THAT(second.Log(), HasSubstr("knxstackd.json: /control/socket: " + m_socket +
                                        ": another server listens at this socket"));
    RawClient client(m_socket);
    EXPECT_TRUE(Result(client, "status").is_object());
}

TEST_F(ControlSocket, NamesOfAConfigurationThatIsReadAgainCount) {
    auto text = WithControl();
    const std::string from = "\"name\": \"temperature\"";
    text.replace(text.find(from), from.size(), "\"name\": \"outside\"");
    m_directory.Write("knxstackd.json", text);
    m_daemon.Signal(SIGHUP);
    ASSERT_TRUE(m_daemon.WaitForLog("the new configuration is in force"));
    RawClient client(m_socket);
    ASSERT_TRUE(Result(client, "monitor").is_object());
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 4), kWrite, {0x0C, 0x1A})));
    EXPECT_EQ("1.1.251 -> 1/2/4 \"outside\"  GroupValue_Write  9.001  21 °C  [0c1a]",
              Text(client.ReceiveJson().at("params"), "line"));
}

TEST(WithoutControl, ThereIsNoSocket) {
    TemporaryDirectory directory;
    DaemonProcess daemon(directory, TestConfiguration());
    daemon.Port();
    EXPECT_THAT(daemon.Log(), Not(HasSubstr("control clients")));
}

} // namespace
} // namespace KnxStackHost
