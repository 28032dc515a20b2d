#include "KnxStackHost/Control/ControlCommands.h"

#include "KnxStack/BinaryData.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <array>
#include <ctime>
#include <stdexcept>

namespace KnxStackHost {

namespace json = boost::json;
using KnxFrames::GroupAddress;
using KnxFrames::LData;
using KnxStack::BinaryData;

namespace {

// As the JSON-RPC specification has them; 1 is ours.
enum ErrorCode : int {
    kParseError = -32700,
    kInvalidRequest = -32600,
    kUnknownMethod = -32601,
    kInvalidParams = -32602,
    kRefused = 1,
};

/// Ends a request.
class Refusal : public std::runtime_error {
public:
    Refusal(ErrorCode code, const std::string& cause) : std::runtime_error(cause), m_code(code) {}
    ErrorCode Code() const { return m_code; }

private:
    ErrorCode m_code;
};

std::string TextOf(const json::object& params, std::string_view name) {
    const auto* value = params.if_contains({name.data(), name.size()});
    const auto* text = value == nullptr ? nullptr : value->if_string();
    if (text == nullptr)
        throw Refusal(kInvalidParams, fmt::format("member \"{}\" is missing or no text", name));
    return {text->data(), text->size()};
}

std::optional<bool> SwitchOf(const json::object& params) {
    const auto* value = params.if_contains("on");
    if (value == nullptr)
        return std::nullopt;
    if (!value->is_bool())
        throw Refusal(kInvalidParams, "member \"on\" must be true or false");
    return value->get_bool();
}

GroupAddress GroupOf(const json::object& params) {
    const auto text = TextOf(params, "address");
    const auto address = GroupAddress::Parse(text);
    if (!address)
        throw Refusal(kInvalidParams,
                      fmt::format("\"{}\" is no group address: {}", text, address.Error().cause));
    if (address->raw == 0)
        throw Refusal(kInvalidParams, "0/0/0 is no group");
    return *address;
}

json::object JsonOf(const ProgramTelegrams& telegrams) {
    return {{"delivered", telegrams.delivered},
            {"replaced", telegrams.replaced},
            {"dropped", telegrams.dropped},
            {"waiting", telegrams.waiting},
            {"mostWaiting", telegrams.mostWaiting}};
}

json::object StatusOf(const DeviceStatus& status) {
    json::object states;
    for (const auto& [object, state] : status.loadStates)
        states[object] = state;
    return {{"address", status.address.ToString()},
            {"name", status.name},
            {"serialNumber", BinaryData(status.serialNumber).ToString()},
            {"programmingMode", status.programmingMode},
            {"loadStates", std::move(states)},
            {"restartPending", status.restartPending},
            {"groupObjects", status.groupObjects},
            {"program", status.program},
            {"programTelegrams", JsonOf(status.programTelegrams)},
            {"image", status.image},
            {"uptime", status.uptime.count()}};
}

json::object JsonOf(const TunnelStatus& tunnel) {
    const auto& counters = tunnel.counters;
    return {{"address", tunnel.address.ToString()}, {"client", tunnel.client},
            {"fromClient", counters.fromClient},    {"toClient", counters.toClient},
            {"repeated", counters.repeated},        {"duplicates", counters.duplicates},
            {"outOfOrder", counters.outOfOrder},    {"dropped", counters.dropped},
            {"unsupported", counters.unsupported},  {"mostWaiting", counters.mostWaiting}};
}

json::object JsonOf(const InterfaceStatus& interface) {
    const auto& counters = interface.counters;
    return {{"name", interface.name},
            {"connected", interface.connected},
            {"fault", interface.fault},
            {"address", interface.connected ? interface.address.ToString() : std::string()},
            {"waiting", interface.waiting},
            {"sent", counters.sent},
            {"received", counters.received},
            {"repeated", counters.repeated},
            {"resent", counters.resent},
            {"duplicates", counters.duplicates},
            {"outOfOrder", counters.outOfOrder},
            {"dropped", counters.dropped},
            {"noAck", counters.noAck},
            {"noConfirmation", counters.noConfirmation},
            {"negativeConfirm", counters.negativeConfirm},
            {"connections", counters.connections}};
}

json::object JsonOf(const RoutingStatus& routing) {
    const auto& counters = routing.counters;
    return {{"group", routing.group},      {"fault", routing.fault},        {"waiting", routing.waiting},
            {"sent", counters.sent},       {"received", counters.received}, {"own", counters.own},
            {"dropped", counters.dropped}, {"busy", counters.busy},         {"lost", counters.lost},
            {"pauses", counters.pauses},   {"lostHere", counters.lostHere}};
}

json::object JsonOf(const LinksStatus& links) {
    json::object result{{"server", nullptr}, {"interface", nullptr}, {"routing", nullptr}};
    if (links.server) {
        json::array tunnels;
        for (const auto& tunnel : links.server->tunnels)
            tunnels.push_back(JsonOf(tunnel));
        result["server"] = {{"endpoint", links.server->endpoint},     {"tcp", links.server->tcp},
                            {"fault", links.server->fault},           {"group", links.server->group},
                            {"groupFault", links.server->groupFault}, {"tunnels", std::move(tunnels)}};
    }
    if (links.interface)
        result["interface"] = JsonOf(*links.interface);
    if (links.routing)
        result["routing"] = JsonOf(*links.routing);
    result["bus"] = {{"unknownAddress", links.bus.unknownAddress},
                     {"refusedByFlags", links.bus.refusedByFlags},
                     {"unusable", links.bus.unusable}};
    return result;
}

struct Call {
    const json::object& params;
    ControlTarget& target;
    bool& watches;
};

json::object Status(const Call& call) {
    return StatusOf(call.target.GetDeviceStatus());
}

json::object Links(const Call& call) {
    return JsonOf(call.target.GetLinksStatus());
}

json::object Monitor(const Call& call) {
    call.watches = SwitchOf(call.params).value_or(true);
    return {};
}

json::object ProgMode(const Call& call) {
    if (const auto on = SwitchOf(call.params))
        call.target.SetProgrammingMode(*on);
    return {{"on", call.target.GetDeviceStatus().programmingMode}};
}

json::object SendToGroup(const Call& call, GroupAddress address, const KnxFrames::Tpdu& tpdu) {
    if (const auto cause = call.target.SendToGroup(KnxFrames::MakeGroupTelegram({}, address, tpdu));
        !cause.empty())
        throw Refusal(kRefused, cause);
    return {};
}

json::object Write(const Call& call) {
    const auto address = GroupOf(call.params);
    const auto encoded = EncodeWrite(TextOf(call.params, "dpt"), TextOf(call.params, "value"));
    if (!encoded.refusal.empty())
        throw Refusal(kRefused, encoded.refusal);
    return SendToGroup(call, address, encoded.tpdu);
}

json::object Read(const Call& call) {
    return SendToGroup(call, GroupOf(call.params), KnxFrames::MakeGroupRead());
}

json::object Inject(const Call& call) {
    const auto octets = OctetsOf(TextOf(call.params, "cemi"));
    if (!octets)
        throw Refusal(kInvalidParams, "member \"cemi\" must be octets of two hexadecimal digits each");
    auto telegram = KnxFrames::ParseLData(*octets);
    if (!telegram)
        throw Refusal(kRefused, fmt::format("no telegram: {} at octet {}", telegram.Error().cause,
                                            telegram.Error().offset));
    telegram->code = KnxFrames::MessageCode::LDataInd;
    if (const auto cause = call.target.Inject(*telegram); !cause.empty())
        throw Refusal(kRefused, cause);
    return {};
}

struct Method {
    std::string_view name;
    json::object (*carryOut)(const Call& call);
};

constexpr Method kMethods[] = {{"status", Status},     {"links", Links}, {"monitor", Monitor},
                               {"progmode", ProgMode}, {"write", Write}, {"read", Read},
                               {"inject", Inject}};

json::object CarryOut(const json::object& request, ControlTarget& target, bool& watches) {
    const auto* method = request.if_contains("method");
    if (method == nullptr || !method->is_string())
        throw Refusal(kInvalidRequest, "member \"method\" is missing or no text");
    const auto* given = request.if_contains("params");
    if (given != nullptr && !given->is_object())
        throw Refusal(kInvalidParams, "\"params\" must be an object");
    const json::object none;
    const auto& params = given != nullptr ? given->get_object() : none;
    const std::string_view name(method->get_string().data(), method->get_string().size());
    for (const auto& each : kMethods)
        if (each.name == name)
            return each.carryOut({params, target, watches});
    throw Refusal(kUnknownMethod, fmt::format("there is no method \"{}\"", name));
}

json::object ErrorOf(const Refusal& refusal) {
    return {{"code", static_cast<int>(refusal.Code())}, {"message", refusal.what()}};
}

std::string LineOf(const json::object& message) {
    return json::serialize(message) + '\n';
}

std::string UtcOf(std::chrono::system_clock::time_point now) {
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(now).time_since_epoch().count();
    const std::time_t seconds = milliseconds / 1000;
    std::tm fields{};
    ::gmtime_r(&seconds, &fields);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &fields);
    return fmt::format("{}.{:03}Z", text.data(), milliseconds % 1000);
}

const char* NameOf(KnxFrames::Priority priority) {
    switch (priority) {
    case KnxFrames::Priority::System: return "system";
    case KnxFrames::Priority::Normal: return "normal";
    case KnxFrames::Priority::Urgent: return "urgent";
    case KnxFrames::Priority::Low: break;
    }
    return "low";
}

} // namespace

std::string AnswerControl(std::string_view request, ControlTarget& target, bool& watches) {
    json::object answer{{"jsonrpc", "2.0"}, {"id", nullptr}};
    bool isNotification = false;
    try {
        boost::system::error_code error;
        const auto parsed = json::parse({request.data(), request.size()}, error);
        if (error)
            throw Refusal(kParseError, fmt::format("this is no JSON: {}", error.message()));
        const auto* object = parsed.if_object();
        if (object == nullptr)
            throw Refusal(kInvalidRequest, "a request is one object");
        const auto* id = object->if_contains("id");
        isNotification = id == nullptr;
        if (id != nullptr && (id->is_string() || id->is_int64() || id->is_uint64()))
            answer["id"] = *id;
        else if (id != nullptr)
            throw Refusal(kInvalidRequest, "member \"id\" must be a text or a whole number");
        answer["result"] = CarryOut(*object, target, watches);
    } catch (const Refusal& refusal) {
        answer["error"] = ErrorOf(refusal);
    }
    return isNotification ? std::string() : LineOf(answer);
}

std::string TelegramMessage(const LData& telegram, const TelegramWords& words, const std::string& via,
                            std::chrono::system_clock::time_point now) {
    KnxFrames::CemiOctets cemi;
    KnxFrames::EncodeCemi(telegram, cemi);
    json::object params{{"time", UtcOf(now)},
                        {"via", via},
                        {"source", words.source},
                        {"destination", words.destination},
                        {"name", words.name},
                        {"service", words.service},
                        {"dpt", words.dpt},
                        {"value", words.value},
                        {"valueName", words.valueName},
                        {"unit", words.unit},
                        {"fault", words.fault},
                        {"raw", words.raw},
                        {"priority", NameOf(telegram.GetPriority())},
                        {"hopCount", telegram.control2 >> 4 & 0x07},
                        {"cemi", BinaryData(cemi.View()).ToString()},
                        {"line", MonitorLine(words)}};
    return LineOf({{"jsonrpc", "2.0"}, {"method", "telegram"}, {"params", std::move(params)}});
}

std::string RefusalMessage(std::string_view cause) {
    return LineOf({{"jsonrpc", "2.0"}, {"id", nullptr}, {"error", ErrorOf({kRefused, std::string(cause)})}});
}

} // namespace KnxStackHost
