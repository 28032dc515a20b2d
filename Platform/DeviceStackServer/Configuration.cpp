#include "DeviceStackServer/Configuration.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace DeviceStackServer {
namespace {

namespace json = boost::json;

/// Reads one object; the first fault is kept.
class Reader {
public:
    Reader(const json::object& object, std::string place, std::string& fault,
           std::initializer_list<std::string_view> known)
        : m_object(object), m_place(std::move(place)), m_fault(fault) {
        for (const auto& member : object) {
            const std::string_view name(member.key().data(), member.key().size());
            if (std::find(known.begin(), known.end(), name) == known.end())
                Fault(name, fmt::format("unknown member; known are: {}", fmt::join(known, ", ")));
        }
    }

    void Text(std::string_view name, std::string& text) {
        if (const auto* value = Find(name)) {
            if (const auto* found = value->if_string())
                text.assign(found->data(), found->size());
            else
                Fault(name, "must be a text");
        }
    }

    void Boolean(std::string_view name, bool& flag) {
        if (const auto* value = Find(name)) {
            if (const auto* found = value->if_bool())
                flag = *found;
            else
                Fault(name, "must be true or false");
        }
    }

    template <typename Number>
    void Unsigned(std::string_view name, std::int64_t max, Number& number) {
        if (const auto* value = Find(name)) {
            const auto* found = value->if_int64();
            if (found && *found >= 0 && *found <= max)
                number = Number(*found);
            else
                Fault(name, fmt::format("must be a whole number from 0 to {}", max));
        }
    }

    void Texts(std::string_view name, std::vector<std::string>& texts) {
        const auto* value = Find(name);
        if (!value)
            return;
        const auto* array = value->if_array();
        if (!array)
            return Fault(name, "must be an array of texts: the program and its arguments");
        texts.clear();
        for (const auto& element : *array) {
            if (!element.is_string() || element.get_string().empty())
                return Fault(name, "must be an array of texts that are not empty");
            texts.emplace_back(element.get_string());
        }
    }

    const json::object* Object(std::string_view name) {
        const auto* value = Find(name);
        if (value && !value->is_object())
            Fault(name, "must be an object");
        return value ? value->if_object() : nullptr;
    }

    void Fault(std::string_view name, std::string_view cause) {
        if (m_fault.empty())
            m_fault = fmt::format("{}/{}: {}", m_place, name, cause);
    }

private:
    const json::value* Find(std::string_view name) const {
        return m_object.if_contains(json::string_view(name.data(), name.size()));
    }

    const json::object& m_object;
    const std::string m_place;
    std::string& m_fault;
};

/// Line and column of the first byte that is not JSON, counted from 1.
std::string ParseWithPlace(std::string_view text, json::value& root) {
    json::parse_options options;
    options.allow_comments = true;
    options.allow_trailing_commas = true;
    json::stream_parser parser({}, options);
    json::error_code failure;
    auto place = parser.write_some(text.data(), text.size(), failure);
    if (!failure) {
        place = std::min(text.find_first_not_of(" \t\r\n", place), text.size());
        if (place < text.size())
            failure = json::error::extra_data;
        else
            parser.finish(failure);
    }
    if (!failure) {
        root = parser.release();
        return {};
    }
    const auto before = text.substr(0, place);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const auto column = place - (before.rfind('\n') + 1) + 1;
    return fmt::format("{}:{}: not JSON: {}", line, column, failure.message());
}

std::string Absolute(const std::string& path, const std::string& directory) {
    return path.empty() || path.front() == '/' ? path : directory + '/' + path;
}

void ReadMode(Reader& reader, Configuration& configuration) {
    std::string mode;
    reader.Text("socketMode", mode);
    if (mode.empty())
        return;
    const bool octal = mode.size() <= 4 && mode.find_first_not_of("01234567") == std::string::npos;
    if (octal && mode.size() >= 3)
        configuration.socketMode = static_cast<unsigned>(std::stoul(mode, nullptr, 8)) & 0777;
    else
        reader.Fault("socketMode", "must be three or four octal digits, e.g. \"0660\"");
}

void ReadLog(Reader& reader, std::string& fault, Configuration& configuration) {
    if (const auto* object = reader.Object("log")) {
        Reader log(*object, "/log", fault, {"level", "file"});
        log.Text("level", configuration.logLevel);
        log.Text("file", configuration.logFile);
        if (const auto cause = LogLevelFault(configuration.logLevel); !cause.empty())
            log.Fault("level", cause);
    }
}

} // namespace

std::string LogLevelFault(const std::string& level) {
    constexpr std::array<std::string_view, 7> kLevels{"TRACE", "DEBUG", "INFO", "WARN",
                                                      "ERROR", "FATAL", "OFF"};
    if (std::find(kLevels.begin(), kLevels.end(), level) != kLevels.end())
        return {};
    return fmt::format("\"{}\" is no log level; known are: {}", level, fmt::join(kLevels, ", "));
}

std::string ReadConfiguration(std::string_view text, const std::string& directory,
                              Configuration& configuration) {
    json::value root;
    if (auto fault = ParseWithPlace(text, root); !fault.empty())
        return fault;
    if (!root.is_object())
        return "/: must be an object";
    std::string fault;
    auto found = configuration;
    Reader reader(root.get_object(), "", fault,
                  {"project", "socket", "socketMode", "stateDirectory", "deviceId", "clockInterval",
                   "setSystemClock", "saveDelay", "history", "commands", "log"});
    reader.Text("project", found.project);
    reader.Text("socket", found.socket);
    ReadMode(reader, found);
    reader.Text("stateDirectory", found.stateDirectory);
    reader.Text("deviceId", found.deviceId);
    reader.Unsigned("clockInterval", 24 * 3600, found.clockInterval);
    reader.Boolean("setSystemClock", found.setSystemClock);
    reader.Unsigned("saveDelay", 3600, found.saveDelay);
    reader.Unsigned("history", 10000, found.history);
    if (const auto* object = reader.Object("commands")) {
        Reader commands(*object, "/commands", fault, {"restart", "ntp"});
        commands.Texts("restart", found.restartCommand);
        commands.Texts("ntp", found.ntpCommand);
    }
    ReadLog(reader, fault, found);
    if (!fault.empty())
        return fault;
    found.project = Absolute(found.project, directory);
    found.socket = Absolute(found.socket, directory);
    found.stateDirectory = Absolute(found.stateDirectory, directory);
    found.logFile = Absolute(found.logFile, directory);
    configuration = std::move(found);
    return {};
}

} // namespace DeviceStackServer
