#include "DeviceStackServer/Configuration.h"

#include "DaemonSupport/LogSettings.h"
#include "ProjectFile/JsonMembers.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <filesystem>

namespace DeviceStackServer {
namespace {

namespace json = boost::json;
using ProjectFile::ErrorList;
using ProjectFile::JsonMembers;

template <typename Number>
void ReadNumber(JsonMembers& members, std::string_view name, std::uint64_t max, Number& number) {
    if (const auto found = members.Number(name, 0, max))
        number = Number(*found);
}

void ReadMode(JsonMembers& root, ErrorList& errors, unsigned& mode) {
    const auto text = root.Text("socketMode");
    if (!text)
        return;
    const bool octal = (text->size() == 3 || (text->size() == 4 && text->front() == '0')) &&
                       text->find_first_not_of("01234567") == std::string::npos;
    if (octal)
        mode = static_cast<unsigned>(std::stoul(*text, nullptr, 8));
    else
        errors.Add(root.PlaceOf("socketMode"), "must be the octal digits of permissions, e.g. \"0660\"");
}

void ReadCommand(JsonMembers& commands, std::string_view name, ErrorList& errors,
                 std::vector<std::string>& command) {
    const auto* array = commands.Array(name);
    for (std::size_t i = 0; array != nullptr && i < array->size(); ++i) {
        const auto* text = (*array)[i].if_string();
        if (text == nullptr || text->empty())
            errors.Add(ProjectFile::Place(commands.PlaceOf(name), i),
                       "must be a text that is not empty: the program or one of its arguments");
        else
            command.emplace_back(text->data(), text->size());
    }
}

void ReadLog(JsonMembers& root, const std::string& directory, ErrorList& errors,
             Configuration& configuration) {
    const auto* object = root.Object("log");
    if (object == nullptr)
        return;
    JsonMembers log(*object, root.PlaceOf("log"), errors, {"level", "file"});
    if (const auto text = log.Text("level")) {
        const auto level = DaemonSupport::LogLevelOf(*text);
        if (!level)
            errors.Add(log.PlaceOf("level"), fmt::format("must be {}", DaemonSupport::kLogLevels));
        configuration.logLevel = level.value_or(configuration.logLevel);
    }
    configuration.logFile = log.Path("file", directory).value_or(configuration.logFile);
}

void ReadMembers(const json::value& value, const std::string& directory, ErrorList& errors,
                 Configuration& configuration) {
    if (!value.is_object())
        return errors.Add("/", "must be an object");
    JsonMembers root(value.get_object(), "", errors,
                     {"project", "socket", "socketMode", "stateDirectory", "deviceId", "clockInterval",
                      "setSystemClock", "saveDelay", "history", "commands", "log"});
    const auto path = [&](std::string_view name, std::string& member) {
        member = root.Path(name, directory).value_or(member);
    };
    path("project", configuration.project);
    path("socket", configuration.socket);
    ReadMode(root, errors, configuration.socketMode);
    path("stateDirectory", configuration.stateDirectory);
    configuration.deviceId = root.Text("deviceId").value_or(configuration.deviceId);
    ReadNumber(root, "clockInterval", std::uint64_t{24} * 3600, configuration.clockInterval);
    configuration.setSystemClock = root.Boolean("setSystemClock").value_or(configuration.setSystemClock);
    ReadNumber(root, "saveDelay", 3600, configuration.saveDelay);
    ReadNumber(root, "history", 10000, configuration.history);
    if (const auto* object = root.Object("commands")) {
        JsonMembers commands(*object, root.PlaceOf("commands"), errors, {"restart", "ntp"});
        ReadCommand(commands, "restart", errors, configuration.restartCommand);
        ReadCommand(commands, "ntp", errors, configuration.ntpCommand);
    }
    ReadLog(root, directory, errors, configuration);
}

} // namespace

std::string ReadConfiguration(std::string_view text, const std::string& path, Configuration& configuration) {
    ErrorList errors(path);
    Configuration found;
    if (const auto root = ProjectFile::ParseJson(text, errors))
        ReadMembers(*root, std::filesystem::absolute(path).parent_path().string(), errors, found);
    if (!errors.Empty())
        return ProjectFile::FirstOf(errors.Take());
    configuration = std::move(found);
    return {};
}

} // namespace DeviceStackServer
