#include "Verbs.h"

#include "Connection.h"
#include "Output.h"

#include "KnxFrames/Addresses.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>

namespace KnxStackCtl {

namespace json = boost::json;

namespace {

ExitCode PrintResult(const Options& options, const json::object& result,
                     std::vector<std::string> (*lines)(const json::object&)) {
    if (options.json) {
        fmt::print("{}\n", json::serialize(result));
        return kOk;
    }
    for (const auto& line : lines(result))
        fmt::print("{}\n", line);
    return kOk;
}

void PrintTelegram(const Options& options, const json::object& telegram) {
    fmt::print("{}\n", options.json ? json::serialize(telegram) : MonitorText(telegram));
}

/// What a telegram carries: its value as people know it, else its octets.
std::string ValueOf(const json::object& telegram) {
    auto value = Text(telegram, "value");
    if (value.empty())
        return Text(telegram, "raw");
    if (const auto unit = Text(telegram, "unit"); !unit.empty())
        value += " " + unit;
    return value;
}

} // namespace

ExitCode Status(const Options& options) {
    return PrintResult(options, Connection(options.socketPath).Ask("status"), StatusLines);
}

ExitCode Links(const Options& options) {
    return PrintResult(options, Connection(options.socketPath).Ask("links"), LinksLines);
}

ExitCode Monitor(const Options& options, std::uint64_t count) {
    Connection connection(options.socketPath);
    connection.Ask("monitor");
    for (std::uint64_t printed = 0; count == 0 || printed < count; ++printed)
        PrintTelegram(options, *connection.NextTelegram());
    return kOk;
}

ExitCode ProgMode(const Options& options, std::optional<bool> on) {
    json::object params;
    if (on)
        params["on"] = *on;
    const auto result = Connection(options.socketPath).Ask("progmode", std::move(params));
    if (options.json)
        fmt::print("{}\n", json::serialize(result));
    else
        fmt::print("programming mode is {}\n",
                   result.contains("on") && result.at("on") == true ? "on" : "off");
    return kOk;
}

ExitCode Write(const Options& options, const WriteSettings& settings) {
    Connection(options.socketPath)
        .Ask("write", {{"address", settings.address}, {"dpt", settings.dpt}, {"value", settings.value}});
    return kOk;
}

ExitCode Read(const Options& options, const ReadSettings& settings) {
    const auto address = KnxFrames::GroupAddress::Parse(settings.address);
    Connection connection(options.socketPath);
    connection.Ask("monitor"); // first: the answer may come at once
    connection.Ask("read", {{"address", settings.address}});
    const auto deadline = Connection::Clock::now() + std::chrono::duration_cast<Connection::Clock::duration>(
                                                         std::chrono::duration<double>(settings.timeout));
    while (const auto telegram = connection.NextTelegram(deadline)) {
        if (!address || Text(*telegram, "service") != "GroupValue_Response" ||
            Text(*telegram, "destination") != address->ToString())
            continue;
        fmt::print("{}\n", options.json ? json::serialize(*telegram) : ValueOf(*telegram));
        return kOk;
    }
    fmt::print(stderr, "knxstackctl: nobody answered for {} within {} s\n", settings.address,
               settings.timeout);
    return kRefused;
}

ExitCode Inject(const Options& options, const std::vector<std::string>& octets) {
    std::string cemi;
    for (const auto& piece : octets)
        cemi += piece + ' ';
    Connection(options.socketPath).Ask("inject", {{"cemi", cemi}});
    return kOk;
}

} // namespace KnxStackCtl
