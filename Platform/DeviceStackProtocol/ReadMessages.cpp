#include "DeviceStackProtocol/JsonMembers.h"
#include "DeviceStackProtocol/Messages.h"

#include <algorithm>
#include <array>

namespace DeviceStack {
namespace {

namespace json = boost::json;

/// What every message has, before its params are looked at.
struct Envelope {
    std::string id;     // JSON text; "" for a notification
    std::string method; // "" for a reply
    const json::object* params = nullptr;
    Reply reply;
    std::optional<Error> error;
};

const json::object& NoParams() {
    static const json::object none;
    return none;
}

void ReadId(const json::value& value, Envelope& envelope) {
    if (value.is_string() || value.is_int64() || value.is_uint64() || value.is_null())
        envelope.id = json::serialize(value);
    else
        envelope.error = {kInvalidRequest, "member 'id' must be a text or a whole number"};
}

void ReadReply(const json::object& message, Envelope& envelope) {
    // Some write the error of a success as null.
    const auto* result = message.if_contains("result");
    if (const auto* error = message.if_contains("error"); error && !(result && error->is_null())) {
        Error& found = envelope.reply.error.emplace();
        if (const auto* object = error->if_object()) {
            if (const auto* code = object->if_contains("code"); code && code->is_int64())
                found.code = static_cast<int>(code->get_int64());
            if (const auto* text = object->if_contains("message"); text && text->is_string())
                found.message = std::string(text->get_string());
        }
        if (found.code == 0)
            found = {kInvalidRequest, "the error of a reply must have a code"};
        return;
    }
    envelope.reply.result = json::serialize(*result);
}

Envelope ReadEnvelope(const json::value& value) {
    Envelope envelope;
    const auto* message = value.if_object();
    if (!message) {
        envelope.error = {kInvalidRequest, value.is_array() ? "batches of messages are not taken"
                                                            : "a message must be an object"};
        return envelope;
    }
    if (const auto* id = message->if_contains("id"))
        ReadId(*id, envelope);
    if (envelope.error)
        return envelope;
    const auto* version = message->if_contains("jsonrpc");
    if (!version || !version->is_string() || version->get_string() != "2.0") {
        envelope.error = {kInvalidRequest, "member 'jsonrpc' must be \"2.0\""};
        return envelope;
    }
    const auto* method = message->if_contains("method");
    if (!method && (message->contains("result") || message->contains("error"))) {
        ReadReply(*message, envelope);
        return envelope;
    }
    if (!method || !method->is_string() || method->get_string().empty()) {
        envelope.error = {kInvalidRequest, "member 'method' must be a text"};
        return envelope;
    }
    envelope.method = std::string(method->get_string());
    envelope.params = &NoParams();
    if (const auto* params = message->if_contains("params")) {
        envelope.params = params->if_object();
        if (!envelope.params)
            envelope.error = {kInvalidParams, "member 'params' must be an object"};
    }
    return envelope;
}

/// The data point that the params name, in exactly one way.
void ReadDataPointName(JsonMembers& members, DataPointName& name) {
    int given = 0;
    if (members.Find("id")) {
        ++given;
        members.Unsigned("id", name.id);
    }
    if (members.Find("urn")) {
        ++given;
        name.by = DataPointName::By::Urn;
        members.Text("urn", name.text);
    }
    if (members.Find("name")) {
        ++given;
        name.by = DataPointName::By::Name;
        members.Text("name", name.text);
    }
    if (given != 1)
        members.Fail("exactly one of the members 'id', 'urn' and 'name' must name the data point");
}

void Read(JsonMembers& members, Register& message) {
    members.Text("name", message.name);
    members.Text("type", message.type);
    members.Text("instance", message.instance);
    members.OptionalBoolean("events", message.events);
    members.OptionalBoolean("field", message.field);
    members.OptionalBoolean("startWindow", message.startWindow);
    members.OptionalUnsigned("lastChange", message.lastChange);
    members.OptionalText("server", message.server);
}

void Read(JsonMembers& members, Subscribe& message) {
    members.OptionalUnsigned("lastChange", message.lastChange);
    members.OptionalText("server", message.server);
}

void Read(JsonMembers& members, SetValueFormat& message) {
    members.Text("format", message.format);
}

void Read(JsonMembers& members, SetValue& message) {
    ReadDataPointName(members, message.dataPoint);
    members.Text("value", message.value);
    members.OptionalBoolean("readInternal", message.readInternal);
    members.OptionalBoolean("response", message.response);
}

void Read(JsonMembers& members, GetValue& message) {
    ReadDataPointName(members, message.dataPoint);
    members.OptionalBoolean("readInternal", message.readInternal);
}

void Read(JsonMembers& members, RequestValue& message) {
    ReadDataPointName(members, message.dataPoint);
    members.OptionalBoolean("readInternal", message.readInternal);
}

void Read(JsonMembers& members, GetUrn& message) {
    members.Unsigned("id", message.id);
}

void Read(JsonMembers& members, GetId& message) {
    members.Text("urn", message.urn);
}

void Read(JsonMembers& members, Command& message) {
    const auto* object = members.Object("command");
    if (!object)
        return;
    JsonMembers command(*object);
    command.Text("command", message.command);
    command.OptionalText("eventType", message.eventType);
    command.OptionalText("to", message.to);
    command.OptionalText("message", message.message);
    command.OptionalText("type", message.type);
    command.OptionalBoolean("cached", message.cached);
    command.OptionalUnsigned("maxEntries", message.maxEntries);
    if (command.Find("id") || command.Find("urn") || command.Find("name"))
        ReadDataPointName(command, message.dataPoint.emplace());
    if (command.Failed())
        members.Fail("command: " + command.GetError());
}

void Read(JsonMembers& members, GetConfiguration& message) {
    std::uint8_t scope = 0;
    members.Unsigned("scope", scope);
    message.scope = scope;
}

void Read(JsonMembers& members, SetConfiguration& message) {
    const auto* settings = members.Object("settings");
    if (!settings)
        return;
    for (const auto& [key, value] : *settings) {
        if (!value.is_string())
            return members.Fail("setting '" + std::string(key) + "' must be a text");
        message.settings.emplace(std::string(key), std::string(value.get_string()));
    }
}

void Read(JsonMembers& members, ValueChanged& message) {
    members.Unsigned("id", message.id);
    members.Text("urn", message.urn);
    members.Text("value", message.value);
    members.Text("origin", message.origin);
    members.Text("time", message.time);
    members.Unsigned("change", message.change);
}

void Read(JsonMembers& members, ValueAnswered& message) {
    members.Text("request", message.request);
    members.Unsigned("id", message.id);
    members.Text("urn", message.urn);
    members.Text("value", message.value);
    if (!members.Find("error"))
        return;
    if (const auto* object = members.Object("error")) {
        JsonMembers error(*object);
        std::int64_t code = 0;
        if (const auto* value = error.Find("code"); value && value->is_int64())
            code = value->get_int64();
        message.error.emplace().code = static_cast<int>(code);
        error.Text("message", message.error->message);
        if (code == 0 || error.Failed())
            members.Fail("member 'error' must have a code and a message");
    }
}

void Read(JsonMembers& members, ConfigurationChanged& message) {
    members.Unsigned("id", message.id);
    members.Text("key", message.key);
    members.Text("value", message.value);
}

void Read(JsonMembers& members, ApplicationEvent& message) {
    members.Text("eventType", message.eventType);
    members.Text("sender", message.sender);
    members.Text("message", message.message);
}

void Read(JsonMembers& members, ReadValue& message) {
    members.Unsigned("id", message.id);
    members.Text("urn", message.urn);
}

void Read(JsonMembers& members, WriteValue& message) {
    members.Unsigned("id", message.id);
    members.Text("urn", message.urn);
    members.Text("value", message.value);
}

template <typename Variant>
struct Method {
    std::string_view name;
    void (*read)(JsonMembers&, Variant&);
};

template <typename Message, typename Variant>
void ReadInto(JsonMembers& members, Variant& message) {
    Read(members, message.template emplace<Message>());
}

using ApplicationMessage = decltype(FromApplication::message);
using DeviceStackMessage = decltype(FromDeviceStack::message);

template <typename Message>
constexpr Method<ApplicationMessage> Application(std::string_view name) {
    return {name, &ReadInto<Message, ApplicationMessage>};
}

template <typename Message>
constexpr Method<DeviceStackMessage> Server(std::string_view name) {
    return {name, &ReadInto<Message, DeviceStackMessage>};
}

constexpr std::array s_applicationMethods{
    Application<SetValue>("setValue"),
    Application<GetValue>("getValue"),
    Application<RequestValue>("requestValue"),
    Application<Register>("register"),
    Application<Subscribe>("subscribe"),
    Application<SetValueFormat>("setValueFormat"),
    Application<GetUrn>("getUrn"),
    Application<GetId>("getId"),
    Application<Command>("command"),
    Application<GetConfiguration>("getConfiguration"),
    Application<SetConfiguration>("setConfiguration"),
};

constexpr std::array s_deviceStackMethods{
    Server<ValueChanged>("valueChanged"),
    Server<ValueAnswered>("valueAnswered"),
    Server<ConfigurationChanged>("configurationChanged"),
    Server<ApplicationEvent>("applicationEvent"),
    Server<ReadValue>("readValue"),
    Server<WriteValue>("writeValue"),
};

template <typename Message, typename Methods>
Message ReadLine(std::string_view line, const Methods& methods) {
    Message message;
    unsigned char buffer[4096];
    json::monotonic_resource memory(buffer, sizeof buffer);
    json::error_code failure;
    const auto value = json::parse(json::string_view(line.data(), line.size()), failure, &memory);
    if (failure) {
        message.message = Error{kParseError, "not JSON: " + failure.message()};
        return message;
    }
    Envelope envelope = ReadEnvelope(value);
    message.id = std::move(envelope.id);
    if (envelope.error) {
        message.message = std::move(*envelope.error);
        return message;
    }
    if (envelope.method.empty()) {
        message.message = std::move(envelope.reply);
        return message;
    }
    const auto method = std::find_if(methods.begin(), methods.end(),
                                     [&](const auto& entry) { return entry.name == envelope.method; });
    if (method == methods.end()) {
        message.message = Error{kMethodNotFound, "no such method: '" + envelope.method + "'"};
        return message;
    }
    JsonMembers members(*envelope.params);
    method->read(members, message.message);
    if (members.Failed())
        message.message = Error{kInvalidParams, members.GetError()};
    return message;
}

} // namespace

FromApplication ReadApplicationLine(std::string_view line) {
    return ReadLine<FromApplication>(line, s_applicationMethods);
}

FromDeviceStack ReadDeviceStackLine(std::string_view line) {
    return ReadLine<FromDeviceStack>(line, s_deviceStackMethods);
}

} // namespace DeviceStack
