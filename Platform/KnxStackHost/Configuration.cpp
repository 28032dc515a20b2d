#include "KnxStackHost/Configuration.h"

#include "KnxStackHost/ConfigurationReader.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace KnxStackHost {

KnxDevice::GroupObjectTable Configuration::MakeTable() const {
    std::vector<KnxDevice::GroupObjectDefinition> definitions;
    definitions.reserve(groupObjects.size());
    for (const auto& object : groupObjects)
        definitions.push_back(object.definition);
    return KnxDevice::GroupObjectTable(definitions);
}

bool IsLogLevel(std::string_view level) {
    static constexpr std::array<std::string_view, 6> kLevels = {"trace", "debug", "info",
                                                                "warn",  "error", "off"};
    return std::find(kLevels.begin(), kLevels.end(), level) != kLevels.end();
}

bool IsIpv4Address(const std::string& text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

Configuration ParseConfiguration(std::string_view text, const std::string& path) {
    ProjectFile::ErrorList errors(path);
    Configuration configuration;
    if (const auto root = ProjectFile::ParseJson(text, errors))
        configuration = ConfigurationReader(path, errors).Read(*root);
    const auto found = errors.Take();
    if (found.size() > 1)
        throw ConfigurationError(fmt::format("{} (and {} more)", found.front(), found.size() - 1));
    if (!found.empty())
        throw ConfigurationError(found.front());
    return configuration;
}

Configuration LoadConfiguration(const std::string& path) {
    if (std::filesystem::is_directory(path))
        throw ConfigurationError(fmt::format("{}: is a directory, no configuration file", path));
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open())
        throw ConfigurationError(fmt::format("{}: cannot be read: {}", path, std::strerror(errno)));
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return ParseConfiguration(text, path);
}

} // namespace KnxStackHost
