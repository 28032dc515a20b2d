// Commands as applications write them.
#pragma once

#include <string>
#include <string_view>

namespace DeviceStackClient {

struct CommandText {
    std::string json;      ///< one JSON object in one line
    std::string broadcast; ///< event type, when it is an EmitEvent to every other application
};

/// Reads a JSON object with a text member "command"; comments and trailing commas are allowed. False with one
/// sentence in `error` when it is none; `command` is then untouched.
bool ReadCommand(std::string_view json, CommandText& command, std::string& error);

} // namespace DeviceStackClient
