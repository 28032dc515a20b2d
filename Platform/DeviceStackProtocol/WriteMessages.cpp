#include "DeviceStackProtocol/Json.h"
#include "DeviceStackProtocol/Messages.h"

namespace DeviceStack {
namespace {

constexpr std::string_view kHead = R"({"jsonrpc":"2.0")";

/// One request or notification; `params` writes the members of its params.
template <typename Params>
std::string Message(std::string_view id, std::string_view method, Params params) {
    std::string line;
    line.reserve(256);
    line += kHead;
    if (!id.empty()) {
        line += R"(,"id":)";
        line += id;
    }
    line += R"(,"method":)";
    AppendJsonString(line, method);
    line += R"(,"params":)";
    JsonObject object(line);
    params(object);
    object.End();
    line += "}\n";
    return line;
}

template <typename Result>
std::string ResultLine(std::string_view id, Result result) {
    std::string line;
    line.reserve(192);
    line += kHead;
    line += R"(,"id":)";
    line += id.empty() ? std::string_view("null") : id;
    line += R"(,"result":)";
    JsonObject object(line);
    result(object);
    object.End();
    line += "}\n";
    return line;
}

void AppendName(JsonObject& params, const DataPointName& name) {
    switch (name.by) {
    case DataPointName::By::Id: params.Number("id", name.id); return;
    case DataPointName::By::Urn: params.Text("urn", name.text); return;
    case DataPointName::By::Name: params.Text("name", name.text); return;
    }
}

void AppendResume(JsonObject& params, const std::optional<std::uint64_t>& lastChange,
                  const std::string& server) {
    if (lastChange)
        params.Number("lastChange", *lastChange);
    if (!server.empty())
        params.Text("server", server);
}

void AppendValue(JsonObject& object, const ValueChanged& value) {
    object.Number("id", value.id)
        .Text("urn", value.urn)
        .Text("value", value.value)
        .Text("origin", value.origin)
        .Text("time", value.time)
        .Number("change", value.change);
}

std::string ErrorObject(const Error& error) {
    std::string text = R"({"code":)" + std::to_string(error.code) + R"(,"message":)";
    AppendJsonString(text, error.message);
    text += '}';
    return text;
}

} // namespace

std::string ToLine(std::string_view id, const Register& message) {
    return Message(id, "register", [&](JsonObject& params) {
        params.Text("name", message.name)
            .Text("type", message.type)
            .Text("instance", message.instance)
            .Boolean("events", message.events)
            .Boolean("field", message.field);
        if (!message.startWindow)
            params.Boolean("startWindow", false);
        AppendResume(params, message.lastChange, message.server);
    });
}

std::string ToLine(std::string_view id, const Subscribe& message) {
    return Message(id, "subscribe",
                   [&](JsonObject& params) { AppendResume(params, message.lastChange, message.server); });
}

std::string ToLine(std::string_view id, const SetValueFormat& message) {
    return Message(id, "setValueFormat", [&](JsonObject& params) { params.Text("format", message.format); });
}

std::string ToLine(std::string_view id, const SetValue& message) {
    return Message(id, "setValue", [&](JsonObject& params) {
        AppendName(params, message.dataPoint);
        params.Text("value", message.value)
            .Boolean("readInternal", message.readInternal)
            .Boolean("response", message.response);
    });
}

std::string ToLine(std::string_view id, const GetValue& message) {
    return Message(id, "getValue", [&](JsonObject& params) {
        AppendName(params, message.dataPoint);
        params.Boolean("readInternal", message.readInternal);
    });
}

std::string ToLine(std::string_view id, const RequestValue& message) {
    return Message(id, "requestValue", [&](JsonObject& params) {
        AppendName(params, message.dataPoint);
        params.Boolean("readInternal", message.readInternal);
    });
}

std::string ToLine(std::string_view id, const GetUrn& message) {
    return Message(id, "getUrn", [&](JsonObject& params) { params.Number("id", message.id); });
}

std::string ToLine(std::string_view id, const GetId& message) {
    return Message(id, "getId", [&](JsonObject& params) { params.Text("urn", message.urn); });
}

std::string ToLine(std::string_view id, const CommandText& message) {
    return Message(id, "command", [&](JsonObject& params) { params.Raw("command", message.json); });
}

std::string ToLine(std::string_view id, const GetConfiguration& message) {
    return Message(id, "getConfiguration", [&](JsonObject& params) {
        params.Number("scope", static_cast<std::uint64_t>(message.scope < 0 ? 0 : message.scope));
    });
}

std::string ToLine(std::string_view id, const SetConfiguration& message) {
    return Message(id, "setConfiguration", [&](JsonObject& params) {
        std::string text;
        JsonObject settings(text);
        for (const auto& [key, value] : message.settings)
            settings.Text(key, value);
        settings.End();
        params.Raw("settings", text);
    });
}

std::string ToLine(std::string_view id, const ReadValue& message) {
    return Message(id, "readValue",
                   [&](JsonObject& params) { params.Number("id", message.id).Text("urn", message.urn); });
}

std::string ToLine(std::string_view id, const WriteValue& message) {
    return Message(id, "writeValue", [&](JsonObject& params) {
        params.Number("id", message.id).Text("urn", message.urn).Text("value", message.value);
    });
}

std::string ToLine(const ValueChanged& message) {
    return Message("", "valueChanged", [&](JsonObject& params) { AppendValue(params, message); });
}

std::string ToLine(const ValueAnswered& message) {
    return Message("", "valueAnswered", [&](JsonObject& params) {
        params.Text("request", message.request)
            .Number("id", message.id)
            .Text("urn", message.urn)
            .Text("value", message.value);
        if (message.error)
            params.Raw("error", ErrorObject(*message.error));
    });
}

std::string ToLine(const ConfigurationChanged& message) {
    return Message("", "configurationChanged", [&](JsonObject& params) {
        params.Number("id", message.id).Text("key", message.key).Text("value", message.value);
    });
}

std::string ToLine(const ApplicationEvent& message) {
    return Message("", "applicationEvent", [&](JsonObject& params) {
        params.Text("eventType", message.eventType)
            .Text("sender", message.sender)
            .Text("message", message.message);
    });
}

std::string ReplyLine(std::string_view id, const RegisterResult& result) {
    return ResultLine(id, [&](JsonObject& object) {
        if (!result.application.empty())
            object.Text("application", result.application);
        object.Text("server", result.server).Number("change", result.change);
    });
}

std::string ReplyLine(std::string_view id, const SetValueResult& result) {
    return ResultLine(id, [&](JsonObject& object) { object.Number("change", result.change); });
}

std::string ReplyLine(std::string_view id, const DataPointValue& result) {
    return ResultLine(id, [&](JsonObject& object) { AppendValue(object, result); });
}

std::string ReplyLine(std::string_view id, const RequestValueResult& result) {
    return ResultLine(id, [&](JsonObject& object) { object.Text("request", result.request); });
}

std::string ReplyLine(std::string_view id, const GetUrnResult& result) {
    return ResultLine(id, [&](JsonObject& object) { object.Text("urn", result.urn); });
}

std::string ReplyLine(std::string_view id, const GetIdResult& result) {
    return ResultLine(id, [&](JsonObject& object) { object.Number("id", result.id); });
}

std::string ReplyLine(std::string_view id, const HandledResult& result) {
    return ResultLine(id, [&](JsonObject& object) { object.Boolean("handled", result.handled); });
}

std::string ReplyLine(std::string_view id, std::string_view resultJson) {
    std::string line;
    line.reserve(kHead.size() + id.size() + resultJson.size() + 24);
    line += kHead;
    line += R"(,"id":)";
    line += id.empty() ? std::string_view("null") : id;
    line += R"(,"result":)";
    line += resultJson;
    line += "}\n";
    return line;
}

std::string ErrorLine(std::string_view id, const Error& error) {
    std::string line(kHead);
    line += R"(,"id":)";
    line += id.empty() ? std::string_view("null") : id;
    line += R"(,"error":)";
    line += ErrorObject(error);
    line += "}\n";
    return line;
}

} // namespace DeviceStack
