#include "DeviceStackProtocol/JsonMembers.h"
#include "DeviceStackProtocol/Messages.h"

namespace DeviceStack {
namespace {

namespace json = boost::json;

/// Reads `text` as an object with `read` into a copy, which replaces `result` when nothing is missing.
template <typename Result, typename ReadMembers>
bool ReadObject(std::string_view text, Result& result, ReadMembers read) {
    json::error_code failure;
    const auto value = json::parse(json::string_view(text.data(), text.size()), failure);
    if (failure || !value.is_object())
        return false;
    JsonMembers members(value.get_object());
    Result found;
    read(members, found);
    if (members.Failed())
        return false;
    result = std::move(found);
    return true;
}

} // namespace

bool ReadResult(std::string_view json, RegisterResult& result) {
    return ReadObject(json, result, [](JsonMembers& members, RegisterResult& found) {
        members.OptionalText("application", found.application);
        members.Text("server", found.server);
        members.Unsigned("change", found.change);
    });
}

bool ReadResult(std::string_view json, SetValueResult& result) {
    return ReadObject(json, result, [](JsonMembers& members, SetValueResult& found) {
        members.Unsigned("change", found.change);
    });
}

bool ReadResult(std::string_view json, DataPointValue& result) {
    return ReadObject(json, result, [](JsonMembers& members, DataPointValue& found) {
        members.Unsigned("id", found.id);
        members.Text("urn", found.urn);
        members.Text("value", found.value);
        members.Text("origin", found.origin);
        members.Text("time", found.time);
        members.Unsigned("change", found.change);
    });
}

bool ReadResult(std::string_view json, RequestValueResult& result) {
    return ReadObject(json, result, [](JsonMembers& members, RequestValueResult& found) {
        members.Text("request", found.request);
    });
}

bool ReadResult(std::string_view json, GetUrnResult& result) {
    return ReadObject(json, result,
                      [](JsonMembers& members, GetUrnResult& found) { members.Text("urn", found.urn); });
}

bool ReadResult(std::string_view json, GetIdResult& result) {
    return ReadObject(json, result,
                      [](JsonMembers& members, GetIdResult& found) { members.Unsigned("id", found.id); });
}

bool ReadResult(std::string_view json, HandledResult& result) {
    return ReadObject(json, result, [](JsonMembers& members, HandledResult& found) {
        members.Boolean("handled", found.handled);
    });
}

} // namespace DeviceStack
