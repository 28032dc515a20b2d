#include "Settings.h"

#include "ProjectFile/JsonMembers.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace Download {

namespace {

void Read(const boost::json::value& root, const std::string& directory, ProjectFile::ErrorList& errors,
          Settings& settings) {
    if (!root.is_object()) {
        errors.Add("/", "must be an object with \"project\"");
        return;
    }
    ProjectFile::JsonMembers members(root.get_object(), "", errors, {"project", "stateDirectory"});
    members.Require("project");
    settings.project = members.Path("project", directory).value_or("");
    settings.stateDirectory = members.Path("stateDirectory", directory).value_or("");
}

} // namespace

std::string ReadSettings(const std::string& file, Settings& settings) {
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (!stream.is_open() || stream.bad()) {
        return file + ": cannot be read: " + std::generic_category().message(errno);
    }
    ProjectFile::ErrorList errors(file);
    if (const auto root = ProjectFile::ParseJson(text, errors)) {
        Read(*root, std::filesystem::path(file).parent_path().string(), errors, settings);
    }
    return ProjectFile::FirstOf(errors.Take());
}

} // namespace Download
