// A device stack without sockets and clocks: the test is the world around it.
#pragma once

#include "DeviceStackServer/Core.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace DeviceStackServer {

/// The project of most tests: a plain data point, ones with owners, ones with limited access.
inline constexpr const char* kProject = R"({
  "version": 1, "device": "house",
  "dataPoints": [
    {"id": 2001, "name": "Plain", "dpt": "5.010", "persistent": true},
    {"id": 2002, "name": "Light", "dpt": "1.001", "knx": {"co": 1}},
    {"id": 2003, "name": "Sensor", "dpt": "5.010", "access": "r", "knx": {"co": 2}},
    {"id": 2004, "name": "Held", "dpt": "5.010", "access": "r", "knx": {"co": 3, "readInternal": true}},
    {"id": 2005, "name": "Button", "dpt": "5.010", "access": "w"},
    {"id": 2006, "name": "Heating", "dpt": "5.010", "owner": "heat::ctl::1"},
    {"id": 2007, "name": "Start", "dpt": "5.010", "initial": "7"}
  ]
})";

inline std::shared_ptr<const ProjectFile::Project> ProjectOf(const std::string& text) {
    auto loaded = ProjectFile::ParseProject(text, "project.json");
    EXPECT_TRUE(loaded) << loaded.Error();
    return loaded.project;
}

class CoreBench : public IEnvironment {
public:
    static constexpr Milliseconds kStart{1000000};     // monotonic
    static constexpr Milliseconds kUtc{1714557600000}; // 2024-05-01T10:00:00Z

    explicit CoreBench(Core::Settings settings = {"run", "1.2.3", "device-id", "/etc/project", Seconds(0), 3})
        : core(std::move(settings), *this, CheckNumber, [this](Seconds utc) { return zone(utc); }) {}

    /// Begins with kProject; apart from the constructor so that a test may restore something before.
    void Begin(const std::string& project = kProject) {
        EXPECT_EQ(core.SetProject(ProjectOf(project), now), "");
    }

    Connection Connect(long pid = 100) {
        core.OnConnected(++m_lastConnection, pid);
        return m_lastConnection;
    }

    /// A registered connection whose transcript is empty.
    Connection Register(const std::string& identity, const std::string& more = R"("events":true)") {
        const auto connection = Connect();
        Call(connection, "register", RegisterParams(identity, more));
        Take(connection);
        return connection;
    }

    /// The KNX application program past its start.
    Connection StartProgram(const std::string& identity = "DscKnxAppPrg::field::KNX") {
        const auto program = Register(identity, R"("events":true,"field":true)");
        EmitEvent(program, "configurationLoaded");
        Advance(Milliseconds(1500));
        Take(program);
        return program;
    }

    static std::string RegisterParams(const std::string& identity, const std::string& more) {
        const auto first = identity.find("::");
        const auto second = identity.find("::", first + 2);
        return R"({"name":")" + identity.substr(0, first) + R"(","type":")" +
               identity.substr(first + 2, second - first - 2) + R"(","instance":")" +
               identity.substr(second + 2) + "\"" + (more.empty() ? "" : "," + more) + "}";
    }

    void Line(Connection connection, const std::string& line) { core.OnLine(connection, line, now); }

    /// Sends a request and returns its number.
    int Call(Connection connection, const std::string& method, const std::string& params) {
        const int id = ++m_lastId;
        Line(connection, R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" + method +
                             R"(","params":)" + params + "}");
        return id;
    }

    /// Sends a request and returns what its sender is told by that, as Take() has it.
    std::vector<std::string> Ask(Connection connection, const std::string& method,
                                 const std::string& params) {
        Take(connection);
        Call(connection, method, params);
        return Take(connection);
    }

    std::vector<std::string> Command(Connection connection, const std::string& json) {
        return Ask(connection, "command", R"({"command":)" + json + "}");
    }

    void EmitEvent(Connection connection, const std::string& type) {
        Call(connection, "command", R"({"command":{"command":"EmitEvent","eventType":")" + type + "\"}}");
    }

    void Set(Connection connection, std::uint32_t id, const std::string& value,
             const std::string& more = "") {
        Call(connection, "setValue",
             R"({"id":)" + std::to_string(id) + R"(,"value":")" + value + "\"" +
                 (more.empty() ? "" : "," + more) + "}");
    }

    /// The application's answer to the newest writeValue or readValue that it was sent.
    void Handled(Connection connection, bool handled) {
        HandledId(connection, m_lastAsked[connection], handled);
    }
    void HandledId(Connection connection, const std::string& id, bool handled) {
        Line(connection, R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":{"handled":)" +
                             (handled ? "true" : "false") + "}}");
    }

    /// Lets time pass; everything that is due runs at its time.
    void Advance(Milliseconds duration) {
        const auto end = now.monotonic + duration;
        while (core.NextDeadline() && *core.NextDeadline() <= end) {
            MoveTo(*core.NextDeadline());
            core.OnTimer(now);
        }
        MoveTo(end);
    }

    /// What the connection was sent since the last call, one short text each.
    std::vector<std::string> Take(Connection connection) {
        std::vector<std::string> lines;
        for (const auto& line : m_sent[connection])
            lines.push_back(Describe(line));
        m_sent[connection].clear();
        return lines;
    }

    /// How what it was sent since the last call counts.
    std::vector<Kind> TakeKinds(Connection connection) { return std::exchange(m_kinds[connection], {}); }

    /// The same as raw lines.
    std::vector<std::string> TakeRaw(Connection connection) { return std::move(m_sent[connection]); }

    /// Number of the newest writeValue or readValue that the connection was sent.
    std::string LastAsked(Connection connection) { return m_lastAsked[connection]; }

    // IEnvironment
    void Send(Connection connection, DeviceStackServer::Line line, Kind kind) override {
        m_sent[connection].push_back(*line);
        m_kinds[connection].push_back(kind);
        lastKind = kind;
        const auto read =
            DeviceStack::ReadDeviceStackLine(std::string_view(*line).substr(0, line->size() - 1));
        if (std::holds_alternative<DeviceStack::WriteValue>(read.message) ||
            std::holds_alternative<DeviceStack::ReadValue>(read.message))
            m_lastAsked[connection] = read.id;
    }
    void SetPaused(Connection connection, bool isPaused) override {
        EXPECT_NE(paused.contains(connection), isPaused);
        isPaused ? void(paused.insert(connection)) : void(paused.erase(connection));
    }
    bool ReleaseIfDead(Connection connection) override {
        if (!dead.contains(connection))
            return false;
        core.OnDisconnected(connection, now);
        return true;
    }
    void ValuesChanged() override { ++valuesChanged; }
    void IdsChanged() override { ++idsChanged; }
    void Restart() override { calls.push_back("restart"); }
    void SwitchNtp(bool on) override { calls.push_back(on ? "ntp on" : "ntp off"); }
    std::optional<Milliseconds> SetSystemClock(Seconds civil) override {
        if (!systemClockAllowed)
            return std::nullopt;
        calls.push_back("clock " + CivilText(civil));
        now.utc = civil - zone(civil);
        return now.utc;
    }
    std::string ReloadProject() override {
        calls.push_back("reload");
        core.AnnounceProject(reloadCause.empty() ? "ok" : reloadCause, now);
        return reloadCause;
    }
    std::string MakeUserDataPath(const Client& client) override {
        return "/state/" + client.name + "+" + client.type + "+" + client.instance;
    }

    /// Values of the tests are numbers up to 255; the real check has tests of its own.
    /// A device may send up to 999. Zeros before a number go.
    static std::string CheckNumber(const KNXDPT& dpt, ValueSource source, std::string& text) {
        if (dpt.main != 5)
            return {};
        const bool number = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        const auto limit = source == ValueSource::Device ? 999u : 255u;
        if (!number || std::stoul(text) > limit)
            return "\"" + text + "\" is no number up to " + std::to_string(limit);
        text = std::to_string(std::stoul(text));
        return {};
    }

    Instant now{kStart, kUtc};
    std::function<Seconds(Seconds)> zone = [](Seconds) { return Seconds(7200); };
    std::set<Connection> dead;
    std::set<Connection> paused;
    Kind lastKind = Kind::Answer;
    std::vector<std::string> calls;
    std::string reloadCause;
    bool systemClockAllowed = false;
    int valuesChanged = 0;
    int idsChanged = 0;
    Core core;

private:
    void MoveTo(Milliseconds monotonic) {
        now.utc += monotonic - now.monotonic;
        now.monotonic = monotonic;
    }

    static std::string Describe(const std::string& line) {
        using namespace DeviceStack;
        const auto read = ReadDeviceStackLine(std::string_view(line).substr(0, line.size() - 1));
        struct Visitor {
            const std::string& id;
            const std::string& text;
            std::string operator()(const Error& error) const { return "unreadable " + error.message + text; }
            std::string operator()(const ValueChanged& m) const {
                return "changed " + std::to_string(m.id) + "=" + m.value + " by " + m.origin;
            }
            std::string operator()(const ValueAnswered& m) const {
                return "answered " + m.request + " " + std::to_string(m.id) + "=" + m.value +
                       (m.error ? " error " + std::to_string(m.error->code) : "");
            }
            std::string operator()(const ConfigurationChanged& m) const {
                return "configuration " + m.key + "=" + m.value;
            }
            std::string operator()(const ApplicationEvent& m) const {
                return "event " + m.eventType + " of " + m.sender + ": " + m.message;
            }
            std::string operator()(const ReadValue& m) const { return "read " + std::to_string(m.id); }
            std::string operator()(const WriteValue& m) const {
                return "write " + std::to_string(m.id) + "=" + m.value;
            }
            std::string operator()(const Reply& m) const {
                if (m.error)
                    return "error " + std::to_string(m.error->code) + ": " + m.error->message;
                DataPointValue value;
                return ReadResult(m.result, value) ? "value " + value.value : "ok " + m.result;
            }
        };
        return std::visit(Visitor{read.id, line}, read.message);
    }

    std::map<Connection, std::vector<std::string>> m_sent;
    std::map<Connection, std::vector<Kind>> m_kinds;
    std::map<Connection, std::string> m_lastAsked;
    Connection m_lastConnection = 0;
    int m_lastId = 0;
};

} // namespace DeviceStackServer
