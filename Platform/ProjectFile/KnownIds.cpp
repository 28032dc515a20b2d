#include "ProjectFile/KnownIds.h"

#include "ProjectFile/Project.h"

#include <boost/json/parse.hpp>
#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <unordered_map>

namespace ProjectFile {

namespace json = boost::json;

namespace {

std::string TakeIds(const json::object& object, KnownIds& ids) {
    for (const auto& [urn, id] : object) {
        if (!id.is_int64() || id.get_int64() <= 0 || id.get_int64() > 0xFFFFFFFE) {
            return fmt::format("the id of \"{}\" is no number from 1 to 4294967294", std::string_view(urn));
        }
        ids.emplace(std::string(urn), static_cast<std::uint32_t>(id.get_int64()));
    }
    return {};
}

} // namespace

std::string ReadStateFile(std::string_view text, const char* member,
                          const std::function<std::string(const json::object&)>& take) {
    json::error_code failure;
    const auto root = json::parse(json::string_view(text.data(), text.size()), failure);
    if (failure) {
        return "not JSON: " + failure.message();
    }
    const auto* object = root.if_object();
    const auto* version = object ? object->if_contains("version") : nullptr;
    if (!version || !version->is_int64()) {
        return "no version";
    }
    if (version->get_int64() != kStateFileVersion) {
        return fmt::format("version {} is not known here", version->get_int64());
    }
    const auto* part = object->if_contains(member);
    if (!part || !part->is_object()) {
        return fmt::format("member \"{}\" is missing", member);
    }
    return take(part->get_object());
}

std::string ReadKnownIds(std::string_view text, KnownIds& ids) {
    KnownIds found = ids;
    std::string error =
        ReadStateFile(text, "ids", [&found](const json::object& object) { return TakeIds(object, found); });
    if (error.empty()) {
        ids = std::move(found);
    }
    return error;
}

std::string UnreadableIds(const std::string& path, const std::string& cause) {
    return fmt::format("{} cannot be read ({}); bring back a copy of it, or delete it when no id of a "
                       "former project has to be kept from other data points",
                       path, cause);
}

std::string IdConflict(const KnownIds& ids, const Project& project) {
    std::unordered_map<std::uint32_t, std::string_view> urns;
    for (const auto& [urn, id] : ids) {
        urns.emplace(id, urn);
    }
    for (const DataPoint& point : project.dataPoints) {
        if (point.IsFixed()) {
            continue;
        }
        const auto known = ids.find(point.urn);
        if (known != ids.end() && known->second != point.id) {
            return fmt::format(
                "{} has had the id {} in an earlier project and cannot get {}; give it back its id",
                point.urn, known->second, point.id);
        }
        const auto holder = urns.find(point.id);
        if (holder != urns.end() && holder->second != point.urn) {
            return fmt::format(
                "the id {} belonged to {} in an earlier project and cannot go to {}; take an id "
                "that was never used",
                point.id, holder->second, point.urn);
        }
    }
    return {};
}

std::string IdFaultOnDisk(const std::string& directory, const std::string& projectName,
                          const Project& project) {
    const std::string path = directory + '/' + kIdsFile;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return {};
    }
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    KnownIds ids;
    if (const std::string cause = ReadKnownIds(content, ids); !cause.empty()) {
        return UnreadableIds(path, cause);
    }
    const std::string conflict = IdConflict(ids, project);
    return conflict.empty() ? conflict : projectName + ": " + conflict;
}

} // namespace ProjectFile
