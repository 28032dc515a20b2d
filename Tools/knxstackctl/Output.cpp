#include "Output.h"

#include "Tools/support/Text.h"

#include <fmt/format.h>

#include <utility>

namespace KnxStackCtl {

namespace json = boost::json;

namespace {

using Rows = std::vector<std::vector<std::string>>;

std::int64_t Number(const json::object& object, const char* name) {
    const auto* value = object.if_contains(name);
    return value != nullptr && value->is_int64() ? value->get_int64() : 0;
}

bool Flag(const json::object& object, const char* name) {
    const auto* value = object.if_contains(name);
    return value != nullptr && value->is_bool() && value->get_bool();
}

const json::object* Object(const json::object& object, const char* name) {
    const auto* value = object.if_contains(name);
    return value != nullptr ? value->if_object() : nullptr;
}

/// A row of the members that the columns name.
std::vector<std::string> Row(const json::object& object,
                             const std::vector<std::pair<std::string, const char*>>& columns) {
    std::vector<std::string> row;
    row.reserve(columns.size());
    for (const auto& column : columns)
        row.push_back(std::to_string(Number(object, column.second)));
    return row;
}

std::vector<std::string> Header(const std::vector<std::pair<std::string, const char*>>& columns) {
    std::vector<std::string> row;
    row.reserve(columns.size());
    for (const auto& column : columns)
        row.push_back(column.first);
    return row;
}

/// Why a link is down, to be put behind its name; "" when it is not.
std::string Fault(const json::object& link, const char* name) {
    const auto fault = Text(link, name);
    return fault.empty() ? "" : ": " + fault;
}

void AddServer(const json::object& server, std::vector<std::string>& lines) {
    static const std::vector<std::pair<std::string, const char*>> kColumns = {
        {"FROM CLIENT", "fromClient"},  {"TO CLIENT", "toClient"},      {"REPEATED", "repeated"},
        {"DUPLICATES", "duplicates"},   {"OUT OF ORDER", "outOfOrder"}, {"LOST", "dropped"},
        {"MOST WAITING", "mostWaiting"}};
    lines.push_back(fmt::format("Server {}, {}{}", Text(server, "endpoint"),
                                Flag(server, "tcp") ? "UDP and TCP" : "UDP", Fault(server, "fault")));
    if (const auto group = Text(server, "group"); !group.empty())
        lines.push_back(fmt::format("  answers searches in {}{}", group, Fault(server, "groupFault")));
    auto header = Header(kColumns);
    header.insert(header.begin(), {"TUNNEL", "CLIENT"});
    Rows rows{header};
    const auto* tunnels = server.if_contains("tunnels");
    if (tunnels == nullptr || !tunnels->is_array())
        return;
    for (const auto& tunnel : tunnels->get_array()) {
        const auto* object = tunnel.if_object();
        if (object == nullptr)
            continue;
        auto row = Row(*object, kColumns);
        const auto client = Text(*object, "client");
        row.insert(row.begin(), {Text(*object, "address"), client.empty() ? "-" : client});
        rows.push_back(std::move(row));
    }
    for (auto& line : ::Tools::AlignColumns(rows))
        lines.push_back("  " + line);
}

void AddInterface(const json::object& interface, std::vector<std::string>& lines) {
    static const std::vector<std::pair<std::string, const char*>> kColumns = {
        {"SENT", "sent"},
        {"RECEIVED", "received"},
        {"WAITING", "waiting"},
        {"REPEATED", "repeated"},
        {"LOST", "dropped"},
        {"NO ACK", "noAck"},
        {"NO CONFIRMATION", "noConfirmation"},
        {"REFUSED BY BUS", "negativeConfirm"},
        {"CONNECTIONS", "connections"}};
    lines.push_back(fmt::format("Interface {}, {}", Text(interface, "name"),
                                Flag(interface, "connected") ? "connected as " + Text(interface, "address")
                                                             : "not connected" + Fault(interface, "fault")));
    for (auto& line : ::Tools::AlignColumns({Header(kColumns), Row(interface, kColumns)}))
        lines.push_back("  " + line);
}

void AddRouting(const json::object& routing, std::vector<std::string>& lines) {
    static const std::vector<std::pair<std::string, const char*>> kColumns = {
        {"SENT", "sent"},           {"RECEIVED", "received"},
        {"WAITING", "waiting"},     {"LOST", "dropped"},
        {"BUSY", "busy"},           {"LOST BY OTHERS", "lost"},
        {"PAUSES ASKED", "pauses"}, {"LOST BY CLIENTS", "lostHere"}};
    lines.push_back(fmt::format("Routing {}{}", Text(routing, "group"), Fault(routing, "fault")));
    for (auto& line : ::Tools::AlignColumns({Header(kColumns), Row(routing, kColumns)}))
        lines.push_back("  " + line);
}

} // namespace

std::string Text(const json::object& object, const char* name) {
    const auto* value = object.if_contains(name);
    return value != nullptr && value->is_string() ? std::string(value->get_string().c_str()) : std::string();
}

std::string Duration(std::int64_t seconds) {
    const auto days = seconds / 86400;
    const auto clock = fmt::format("{:02}:{:02}:{:02}", seconds / 3600 % 24, seconds / 60 % 60, seconds % 60);
    return days == 0 ? clock : fmt::format("{} d {}", days, clock);
}

std::vector<std::string> StatusLines(const json::object& status) {
    const auto yesNo = [&status](const char* name, const char* yes, const char* no) {
        return std::string(Flag(status, name) ? yes : no);
    };
    Rows rows{{"device", fmt::format("{} \"{}\"", Text(status, "address"), Text(status, "name"))},
              {"serial number", Text(status, "serialNumber")},
              {"programming mode", yesNo("programmingMode", "on", "off")},
              {"program", Text(status, "program")}};
    if (const auto* telegrams = Object(status, "programTelegrams"))
        rows.push_back({"telegrams for it",
                        fmt::format("{} delivered, {} replaced, {} waiting, at most {}",
                                    Number(*telegrams, "delivered"), Number(*telegrams, "replaced"),
                                    Number(*telegrams, "waiting"), Number(*telegrams, "mostWaiting"))});
    rows.push_back({"restart pending", yesNo("restartPending", "yes", "no")});
    rows.push_back({"group objects", std::to_string(Number(status, "groupObjects"))});
    if (const auto* states = Object(status, "loadStates"))
        for (const auto& state : *states)
            rows.push_back({std::string(state.key()), Text(*states, std::string(state.key()).c_str())});
    const auto image = Text(status, "image");
    rows.push_back({"image", image.empty() ? "none" : image});
    rows.push_back({"uptime", Duration(Number(status, "uptime"))});
    return ::Tools::AlignColumns(rows);
}

std::vector<std::string> LinksLines(const json::object& links) {
    std::vector<std::string> lines;
    if (const auto* server = Object(links, "server"))
        AddServer(*server, lines);
    if (const auto* interface = Object(links, "interface"))
        AddInterface(*interface, lines);
    if (const auto* routing = Object(links, "routing"))
        AddRouting(*routing, lines);
    if (const auto* bus = Object(links, "bus"))
        lines.push_back(fmt::format("Telegrams without a group object {}, refused by flags {}, unusable {}",
                                    Number(*bus, "unknownAddress"), Number(*bus, "refusedByFlags"),
                                    Number(*bus, "unusable")));
    return lines;
}

std::string MonitorText(const json::object& telegram) {
    return fmt::format("{}  {}", ::Tools::LocalTime(Text(telegram, "time")), Text(telegram, "line"));
}

} // namespace KnxStackCtl
