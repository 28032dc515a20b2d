#include "Verbs.h"

#include "Connection.h"
#include "DataPoints.h"
#include "Output.h"

#include "DeviceStackProtocol/Json.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <map>

#include <unistd.h>

namespace Dsctl {

namespace {

using namespace std::chrono_literals;

// A value waits up to 10 s for an owner that is not ready; the device stack tells in the end.
constexpr auto kSetTimeout = 20s;

/// Says why something failed, with what it was about unless the cause names it.
ExitCode Fail(const std::string& about, const std::string& cause) {
    const bool isNamed = about.empty() || cause.find(about) != std::string::npos;
    fmt::print(stderr, "dsctl: {}{}\n", isNamed ? "" : about + ": ", cause);
    return kRefused;
}

/// Throws NotThere when the answer is of no use: it is not the device stack of this protocol.
std::vector<DataPoint> GetDataPoints(Connection& connection) {
    auto reply = connection.Ask(DeviceStack::CommandText{R"({"command":"GetProcessView","cached":true})"});
    auto points = ReadProcessView(reply.result);
    if (reply.error || !points)
        throw NotThere("the device stack does not list its data points" +
                       (reply.error ? ": " + reply.error->message : std::string()));
    return std::move(*points);
}

std::string ToJson(const DeviceStack::ValueChanged& value) {
    std::string json;
    DeviceStack::JsonObject object(json);
    object.Number("id", value.id).Text("urn", value.urn).Text("name", NameOfUrn(value.urn));
    object.Text("value", value.value).Text("origin", value.origin).Text("time", value.time);
    object.Number("change", value.change).End();
    return json;
}

void PrintChange(const Options& options, const DeviceStack::ValueChanged& change, const std::string& unit) {
    if (options.json)
        fmt::print("{}\n", ToJson(change));
    else
        fmt::print("{}  {}  {}  ({})\n", LocalTime(change.time), NameOfUrn(change.urn),
                   WithUnit(change.value, unit), change.origin);
}

void PrintEvent(const Options& options, const DeviceStack::ApplicationEvent& event) {
    const auto time = UtcNow(); // the protocol gives events no time
    if (!options.json) {
        fmt::print("{}  event {}{}{}  ({})\n", LocalTime(time), event.eventType,
                   event.message.empty() ? "" : "  ", event.message, event.sender);
        return;
    }
    std::string json;
    DeviceStack::JsonObject(json)
        .Text("event", event.eventType)
        .Text("message", event.message)
        .Text("sender", event.sender)
        .Text("time", time)
        .End();
    fmt::print("{}\n", json);
}

using DataPoints = std::map<std::uint32_t, DataPoint>;

DataPoints GetDataPointsById(Connection& connection) {
    DataPoints points;
    for (auto& point : GetDataPoints(connection))
        points.emplace(point.id, std::move(point));
    return points;
}

bool MatchesAny(const std::vector<std::string>& patterns, const DataPoints& points) {
    return std::any_of(points.begin(), points.end(), [&](const auto& entry) {
        return Matches(patterns, entry.first, entry.second.urn, entry.second.name);
    });
}

/// Gives what follows an origin that people can tell apart. One that is refused writes as its connection.
void Register(Connection& connection) {
    DeviceStack::Register identity;
    identity.name = "dsctl";
    identity.type = "tool";
    identity.instance = std::to_string(::getpid());
    identity.startWindow = false;
    connection.Ask(identity);
}

} // namespace

ExitCode List(const Options& options, const std::vector<std::string>& patterns) {
    Connection connection(options.socketPath);
    auto points = GetDataPoints(connection);
    std::erase_if(
        points, [&](const DataPoint& point) { return !Matches(patterns, point.id, point.urn, point.name); });
    if (points.empty())
        return Fail("", "no data point matches");
    if (!options.json) {
        PrintTable(points);
        return kOk;
    }
    for (const auto& point : points)
        fmt::print("{}\n", point.json);
    return kOk;
}

ExitCode Get(const Options& options, const std::vector<std::string>& dataPoints) {
    Connection connection(options.socketPath);
    ExitCode code = kOk;
    for (const auto& dataPoint : dataPoints) {
        const auto reply = connection.Ask(DeviceStack::GetValue{ParseName(dataPoint), false});
        DeviceStack::DataPointValue value;
        if (reply.error)
            code = Fail(dataPoint, reply.error->message);
        else if (!ReadResult(reply.result, value))
            code = Fail(dataPoint, "the answer is not understood: " + reply.result);
        else if (value.value.empty())
            code = Fail(dataPoint, "has no value");
        else if (options.json)
            fmt::print("{}\n", ToJson(value));
        else if (dataPoints.size() == 1)
            fmt::print("{}\n", value.value);
        else
            fmt::print("{}\t{}\n", NameOfUrn(value.urn), value.value);
    }
    return code;
}

ExitCode Set(const Options& options, const std::string& dataPoint, const std::string& value) {
    Connection connection(options.socketPath);
    Register(connection);
    const auto reply =
        connection.Ask(DeviceStack::SetValue{ParseName(dataPoint), value, false, false}, kSetTimeout);
    if (reply.error && value.empty() && reply.error->code == DeviceStack::kValueDoesNotFit)
        return Fail(dataPoint,
                    R"('' is no value, and only the owner may take a value away; '""' is the empty text)");
    if (reply.error)
        return Fail(dataPoint, reply.error->message);
    if (options.json)
        fmt::print("{}\n", reply.result);
    return kOk;
}

ExitCode Watch(const Options& options, const WatchSettings& settings) {
    Connection connection(options.socketPath);
    if (const auto reply = connection.Ask(DeviceStack::Subscribe{}); reply.error)
        return Fail("", reply.error->message);
    auto points = GetDataPointsById(connection);
    if (!MatchesAny(settings.patterns, points))
        Fail("", "no data point matches; waiting for one");
    std::uint64_t printed = 0;
    while (settings.count == 0 || printed < settings.count) {
        const auto message = connection.Next();
        if (std::holds_alternative<DeviceStack::ConfigurationChanged>(message.message))
            points = GetDataPointsById(connection);
        const auto* event = std::get_if<DeviceStack::ApplicationEvent>(&message.message);
        if (event != nullptr && settings.events) {
            PrintEvent(options, *event);
            ++printed;
        }
        const auto* change = std::get_if<DeviceStack::ValueChanged>(&message.message);
        if (change == nullptr)
            continue;
        const auto& point = points[change->id];
        if (!Matches(settings.patterns, change->id, change->urn,
                     point.name.empty() ? NameOfUrn(change->urn) : point.name))
            continue;
        PrintChange(options, *change, point.unit);
        ++printed;
    }
    return kOk;
}

} // namespace Dsctl
