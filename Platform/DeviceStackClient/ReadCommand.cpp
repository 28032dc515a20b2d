#include "DeviceStackClient/ReadCommand.h"

#include <boost/json.hpp>

namespace DeviceStackClient {

namespace {

std::string_view TextMember(const boost::json::object& object, std::string_view name) {
    const auto* value = object.if_contains(name);
    const auto* text = value != nullptr ? value->if_string() : nullptr;
    return text != nullptr ? std::string_view(*text) : std::string_view();
}

} // namespace

bool ReadCommand(std::string_view json, CommandText& command, std::string& error) {
    boost::json::parse_options options;
    options.allow_comments = true;
    options.allow_trailing_commas = true;
    boost::json::error_code code;
    const auto value = boost::json::parse(json, code, {}, options);
    if (code) {
        error = "the command is not JSON: " + code.message();
        return false;
    }
    const auto* object = value.if_object();
    if (object == nullptr || TextMember(*object, "command").empty()) {
        error = "the command is not a JSON object with a text member \"command\"";
        return false;
    }
    command.json = boost::json::serialize(value);
    command.broadcast.clear();
    if (TextMember(*object, "command") == "EmitEvent" && !object->contains("to"))
        command.broadcast = TextMember(*object, "eventType");
    return true;
}

} // namespace DeviceStackClient
