// The shipped knxstackctl against the shipped knxstackd, with a tunnel as the bus.
#include "../KnxStackHost/DaemonProcess.h"
#include "../KnxStackHost/RawTunnel.h"
#include "../support/Daemon.h"

#include <boost/json.hpp>
#include <gmock/gmock.h>

#include <csignal>
#include <memory>
#include <thread>

namespace {

using namespace KnxStackHost;
using DeviceStackServer::Process;
using DeviceStackServer::RawClient;
using DeviceStackServer::ReadText;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

/// A started knxstackctl; standard output and standard error go to a file each.
class Tool {
public:
    explicit Tool(std::vector<std::string> arguments, const std::vector<std::string>& environment = {})
        : m_process(CommandLine(std::move(arguments)), m_directory / "err", environment) {}

    Process& GetProcess() { return m_process; }
    int Wait() { return m_process.Wait(); }
    std::string Output() const { return ReadText(m_directory / "out"); }
    std::string Error() const { return ReadText(m_directory / "err"); }

private:
    std::vector<std::string> CommandLine(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"/bin/sh", "-c", "out=$1; shift; exec \"$0\" \"$@\" >\"$out\"",
                                             KNXSTACKCTL, m_directory / "out"});
        return arguments;
    }

    TemporaryDirectory m_directory;
    Process m_process;
};

struct Result {
    int code;
    std::string output;
    std::string error;
};

Result RunTool(std::vector<std::string> arguments, const std::vector<std::string>& environment = {}) {
    Tool tool(std::move(arguments), environment);
    const int code = tool.Wait();
    return {code, tool.Output(), tool.Error()};
}

class Knxstackctl : public testing::Test {
protected:
    Result Run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--socket", m_socket});
        return RunTool(std::move(arguments));
    }

    void ExpectDone(std::vector<std::string> arguments, const std::string& output = "") const {
        const auto result = Run(std::move(arguments));
        EXPECT_EQ(0, result.code);
        EXPECT_EQ(output, result.output);
        EXPECT_EQ("", result.error);
    }

    void ExpectRefused(std::vector<std::string> arguments, int code, const std::string& error) const {
        const auto result = Run(std::move(arguments));
        EXPECT_EQ(code, result.code);
        EXPECT_EQ("", result.output);
        EXPECT_EQ(error, result.error);
    }

    bool Recorded(const std::string& line) const {
        return Eventually([&] { return CountOf(m_directory.Read("record"), line + "\n") == 1; });
    }

    /// Sends reads of a group that nobody answers until `tool` has printed something: its watch has begun.
    void WaitUntilWatching(RawTunnel& tunnel, const Tool& tool) const {
        ASSERT_TRUE(Eventually([&] {
            tunnel.Send(GroupRequest(Group(9, 1, 1), kRead));
            Pause(milliseconds(20));
            return !tool.Output().empty();
        }));
    }

    TemporaryDirectory m_directory;
    DaemonProcess m_daemon{m_directory, TestConfiguration("", R"(, "control": {"socket": "c.sock"})")};
    const std::uint16_t m_port = m_daemon.Port();
    const std::string m_socket = m_directory / "c.sock";
};

TEST_F(Knxstackctl, StatusShowsTheDevice) {
    ASSERT_TRUE(m_daemon.WaitForLog("is configured and running"));
    const auto result = Run({"status"});
    EXPECT_EQ(0, result.code);
    EXPECT_THAT(result.output,
                StartsWith("device               1.1.250 \"test host\"\nserial number        "));
    EXPECT_THAT(result.output,
                HasSubstr("\nprogramming mode     off\nprogram              running\n"
                          "telegrams for it     0 delivered, 0 replaced, 0 waiting, at most 0\n"
                          "restart pending      no\ngroup objects        5\n"
                          "group address table  loaded\n"));
    const auto json = boost::json::parse(Run({"--json", "status"}).output);
    EXPECT_EQ("1.1.250", json.at("address").as_string());
    EXPECT_EQ(5, json.at("groupObjects").as_int64());
}

TEST_F(Knxstackctl, LinksShowTheTunnels) {
    RawTunnel tunnel(m_port);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 3), kWrite | 1)));
    const auto result = Run({"links"});
    EXPECT_EQ(0, result.code);
    EXPECT_THAT(result.output, StartsWith("Server 127.0.0.1:" + std::to_string(m_port) + ", UDP and TCP\n"));
    EXPECT_THAT(result.output, HasSubstr("\n  1.1.251  127.0.0.1:"));
    EXPECT_THAT(result.output, HasSubstr("\n  1.1.252  -  "));
    EXPECT_EQ(1, boost::json::parse(Run({"--json", "links"}).output)
                     .at("server")
                     .at("tunnels")
                     .at(0)
                     .at("fromClient")
                     .as_int64());
}

TEST_F(Knxstackctl, MonitorPrintsALineForEachTelegram) {
    RawTunnel tunnel(m_port);
    Tool monitor({"--socket", m_socket, "monitor"}, {"TZ=UTC0"});
    WaitUntilWatching(tunnel, monitor);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(1, 2, 4), kWrite, {0x0C, 0x1A})));
    ASSERT_TRUE(tunnel.Send({0x11, 0x00, 0xB0, 0x60, 0x00, 0x00, 0x11, 0xFA, 0x00, 0x80}));
    EXPECT_TRUE(Eventually([&] { return CountOf(monitor.Output(), "T_Connect") == 1; }));
    const auto output = monitor.Output();
    const std::string time = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}  ";
    EXPECT_THAT(output, testing::ContainsRegex("(^|\n)" + time + "1\\.1\\.251 -> 9/1/1  GroupValue_Read\n"));
    EXPECT_THAT(output, testing::ContainsRegex("\n" + time +
                                               "1\\.1\\.251 -> 1/2/4 \"temperature\"  GroupValue_Write  "
                                               "9\\.001  21 °C  \\[0c1a\\]\n"));
    EXPECT_THAT(output,
                testing::ContainsRegex("\n" + time + "1\\.1\\.251 -> 1\\.1\\.250  T_Connect  \\[80\\]\n"));
    monitor.GetProcess().Signal(SIGINT);
    EXPECT_EQ(128 + SIGINT, monitor.Wait());
}

TEST_F(Knxstackctl, MonitorEndsAfterTheCountAndAsJsonIsOneObjectPerLine) {
    RawTunnel tunnel(m_port);
    Tool monitor({"--socket", m_socket, "--json", "monitor", "--count", "2"});
    WaitUntilWatching(tunnel, monitor);
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(9, 1, 1), kRead)));
    EXPECT_EQ(0, monitor.Wait());
    const auto output = monitor.Output();
    EXPECT_EQ(2u, CountOf(output, "\n"));
    const auto telegram = boost::json::parse(output.substr(0, output.find('\n')));
    EXPECT_EQ("9/1/1", telegram.at("destination").as_string());
    EXPECT_EQ("tunnel 1.1.251", telegram.at("via").as_string());
}

TEST_F(Knxstackctl, MonitorEndsWithTheDaemon) {
    RawTunnel tunnel(m_port);
    Tool monitor({"--socket", m_socket, "monitor"});
    WaitUntilWatching(tunnel, monitor);
    m_daemon.Signal(SIGTERM);
    EXPECT_EQ(3, monitor.Wait());
    EXPECT_EQ("knxstackctl: the KNX stack host at " + m_socket + " closed the connection\n", monitor.Error());
}

TEST_F(Knxstackctl, ProgmodeSwitchesAndTells) {
    ExpectDone({"progmode"}, "programming mode is off\n");
    ExpectDone({"progmode", "on"}, "programming mode is on\n");
    ExpectDone({"progmode"}, "programming mode is on\n");
    EXPECT_TRUE(m_daemon.WaitForLog("programming mode is on"));
    ExpectDone({"--json", "progmode", "off"}, "{\"on\":false}\n");
    EXPECT_TRUE(m_daemon.WaitForLog("programming mode is off"));
    EXPECT_EQ(2, Run({"progmode", "maybe"}).code);
}

TEST_F(Knxstackctl, WriteReachesBusAndDevice) {
    RawTunnel tunnel(m_port);
    ExpectDone({"write", "1/2/4", "9.001", "-2.5"});
    EXPECT_EQ(Bytes({0x29, 0x00, 0xBC, 0xE0, 0x11, 0xFA, 0x0A, 0x04, 0x03, 0x00, 0x80, 0x87, 0x06}),
              tunnel.ReceiveIndication());
    EXPECT_TRUE(Recorded("write 3 8706"));
}

TEST_F(Knxstackctl, ReadPrintsTheAnswerOfTheDeviceOrOfTheBus) {
    RawTunnel tunnel(m_port);
    ExpectDone({"write", "1/2/5", "9.001", "21"});
    ASSERT_TRUE(Recorded("write 3 0c1a"));
    ExpectDone({"read", "1/2/5", "--timeout", "20"}, "21 °C\n");
    const auto json = Run({"--json", "read", "1/2/5", "--timeout", "20"});
    EXPECT_EQ("21", boost::json::parse(json.output).at("value").as_string());
    // Somebody on the bus, for a group that the device does not know; written as another style.
    Tool read({"--socket", m_socket, "read", "9/257", "--timeout", "20"});
    Bytes request;
    while (request.size() < 8 || request[6] != 0x49)
        ASSERT_FALSE((request = tunnel.ReceiveIndication(milliseconds(20000))).empty());
    EXPECT_EQ(Bytes({0x49, 0x01, 0x01, 0x00, 0x00}), Bytes(request.begin() + 6, request.end()));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(9, 1, 2), kResponse, {0x11})));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(9, 1, 1), kWrite, {0x22})));
    ASSERT_TRUE(tunnel.Send(GroupRequest(Group(9, 1, 1), kResponse, {0x33})));
    EXPECT_EQ(0, read.Wait());
    EXPECT_EQ("33\n", read.Output());
}

TEST_F(Knxstackctl, ReadWithoutAnAnswerSaysSo) {
    ExpectRefused({"read", "9/1/1", "--timeout", "0.1"}, 1,
                  "knxstackctl: nobody answered for 9/1/1 within 0.1 s\n");
}

TEST_F(Knxstackctl, InjectComesFromTheBus) {
    ExpectDone({"inject", "29", "00", "bc", "e0", "11", "04", "0a", "04", "03", "00", "80", "0c", "1a"});
    EXPECT_TRUE(Recorded("write 3 0c1a"));
    ExpectDone({"inject", "2900bce011040a03010081"});
    EXPECT_TRUE(Recorded("write 1 01"));
}

TEST_F(Knxstackctl, WhatCannotBeDoneIsOneLineAndAStatus) {
    ExpectRefused(
        {"write", "1/2/4", "1.001", "1"}, 1,
        "knxstackctl: the group object of 1/2/4 has another size than this value; its datapoint type "
        "is 9.001\n");
    ExpectRefused({"write", "1/2/4", "9.001", "700000"}, 1,
                  "knxstackctl: 9.001: 700000 is above 670433.28 °C\n");
    ExpectRefused({"inject", "2900bce011fa0a03010081"}, 1,
                  "knxstackctl: 1.1.250 is an address of this host: nothing from the bus has it\n");
    ExpectRefused({"inject", "xy"}, 2,
                  "knxstackctl: member \"cemi\" must be octets of two hexadecimal digits each\n");
    const auto group = Run({"read", "1/2/3/4"});
    EXPECT_EQ(2, group.code);
    EXPECT_THAT(group.error, StartsWith("knxstackctl: \"1/2/3/4\" is no group address: "));
}

TEST_F(Knxstackctl, TheEnvironmentNamesTheSocketToo) {
    const auto result = RunTool({"progmode"}, {"KNXSTACKD_SOCKET=" + m_socket});
    EXPECT_EQ(0, result.code);
    EXPECT_EQ("programming mode is off\n", result.output);
}

TEST_F(Knxstackctl, AFrozenDaemonDoesNotHoldItForEver) {
    m_daemon.Signal(SIGSTOP);
    const auto result = Run({"status"});
    m_daemon.Signal(SIGCONT);
    EXPECT_EQ(3, result.code);
    EXPECT_EQ("knxstackctl: the KNX stack host at " + m_socket + " does not answer\n", result.error);
}

TEST(KnxstackctlAlone, WithoutADaemonSaysWhereItLooked) {
    const auto result = RunTool({"--socket", "/nonexistent/c.sock", "status"});
    EXPECT_EQ(3, result.code);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("knxstackctl: no KNX stack host at /nonexistent/c.sock: is knxstackd running? (No such file or "
              "directory; --socket names another place)\n",
              result.error);
}

TEST(KnxstackctlAlone, HelpHasExamplesAndAWrongCommandLineIsStatus2) {
    const auto help = RunTool({"--help"});
    EXPECT_EQ(0, help.code);
    EXPECT_THAT(help.output, AllOf(HasSubstr("knxstackctl monitor --count 1"), HasSubstr("Exit status:")));
    EXPECT_EQ(2, RunTool({}).code);
    EXPECT_EQ(2, RunTool({"reboot"}).code);
    EXPECT_EQ(2, RunTool({"monitor", "--count", "0"}).code);
    EXPECT_EQ(2, RunTool({"write", "1/2/3", "1.001"}).code);
}

TEST(KnxstackctlAlone, OutputThatCannotBeWrittenIsStatus4) {
    TemporaryDirectory directory;
    Process tool({"/bin/sh", "-c", std::string(KNXSTACKCTL) + " --help >/dev/full"}, directory / "err");
    EXPECT_EQ(4, tool.Wait());
    EXPECT_EQ("knxstackctl: standard output cannot be written: No space left on device\n",
              ReadText(directory / "err"));
}

} // namespace
