#include "DeviceStackServer/StateImage.h"

#include "DeviceStackProtocol/Json.h"
#include "ProjectFile/Project.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <unordered_map>

namespace DeviceStackServer {
namespace {

namespace json = boost::json;

constexpr std::int64_t kVersion = 1;

std::string TakeIds(const json::object& ids, StateImage& image) {
    for (const auto& [urn, id] : ids) {
        if (!id.is_int64() || id.get_int64() <= 0 || id.get_int64() > 0xFFFFFFFE)
            return fmt::format("the id of \"{}\" is no number from 1 to 4294967294", std::string_view(urn));
        image.ids.emplace(std::string(urn), static_cast<std::uint32_t>(id.get_int64()));
    }
    return {};
}

std::string TakeValues(const json::object& values, StateImage& image) {
    for (const auto& [urn, value] : values) {
        const auto* object = value.if_object();
        const auto* text = object ? object->if_contains("value") : nullptr;
        const auto* origin = object ? object->if_contains("origin") : nullptr;
        const auto* time = object ? object->if_contains("time") : nullptr;
        if (!text || !text->is_string() || !origin || !origin->is_string() || !time || !time->is_string())
            return fmt::format("\"{}\" lacks a value, its origin or its time", std::string_view(urn));
        const auto utc = ParseUtc(std::string_view(time->get_string()));
        if (!utc)
            return fmt::format("the time of \"{}\" cannot be read", std::string_view(urn));
        image.values.emplace(std::string(urn), StoredValue{std::string(text->get_string()),
                                                           std::string(origin->get_string()), *utc});
    }
    return {};
}

/// Reads the object `member` of a file of the known version.
std::string ReadPart(std::string_view text, const char* member, StateImage& image,
                     std::string (*take)(const json::object&, StateImage&)) {
    json::error_code failure;
    const auto root = json::parse(json::string_view(text.data(), text.size()), failure);
    if (failure)
        return "not JSON: " + failure.message();
    const auto* object = root.if_object();
    const auto* version = object ? object->if_contains("version") : nullptr;
    if (!version || !version->is_int64())
        return "no version";
    if (version->get_int64() != kVersion)
        return fmt::format("version {} is not known here", version->get_int64());
    const auto* part = object->if_contains(member);
    if (!part || !part->is_object())
        return fmt::format("member \"{}\" is missing", member);
    StateImage found = image;
    auto error = take(part->get_object(), found);
    if (error.empty())
        image = std::move(found);
    return error;
}

} // namespace

std::string IdConflict(const StateImage& image, const ProjectFile::Project& project) {
    std::unordered_map<std::uint32_t, std::string_view> urns;
    for (const auto& [urn, id] : image.ids)
        urns.emplace(id, urn);
    for (const auto& point : project.dataPoints) {
        if (point.IsFixed())
            continue;
        const auto known = image.ids.find(point.urn);
        if (known != image.ids.end() && known->second != point.id)
            return fmt::format(
                "{} has had the id {} in an earlier project and cannot get {}; give it back its id",
                point.urn, known->second, point.id);
        const auto holder = urns.find(point.id);
        if (holder != urns.end() && holder->second != point.urn)
            return fmt::format(
                "the id {} belonged to {} in an earlier project and cannot go to {}; take an id "
                "that was never used",
                point.id, holder->second, point.urn);
    }
    return {};
}

bool AdoptIds(StateImage& image, const ProjectFile::Project& project) {
    bool added = false;
    for (const auto& point : project.dataPoints) {
        if (!point.IsFixed())
            added |= image.ids.emplace(point.urn, point.id).second;
    }
    return added;
}

std::string WriteIds(const StateImage& image) {
    std::string text = fmt::format("{{\"version\":{},\n\"ids\":", kVersion);
    DeviceStack::JsonObject ids(text);
    for (const auto& [urn, id] : image.ids) {
        ids.Number(urn, id);
        text += '\n';
    }
    ids.End();
    text += "}\n";
    return text;
}

std::string WriteValues(const StateImage& image) {
    std::string text = fmt::format("{{\"version\":{},\n\"values\":", kVersion);
    DeviceStack::JsonObject values(text);
    for (const auto& [urn, value] : image.values) {
        values.Name(urn);
        DeviceStack::JsonObject(text)
            .Text("value", value.text)
            .Text("origin", value.origin)
            .Text("time", UtcText(value.utc))
            .End();
        text += '\n';
    }
    values.End();
    text += "}\n";
    return text;
}

std::string ReadIds(std::string_view text, StateImage& image) {
    return ReadPart(text, "ids", image, TakeIds);
}

std::string ReadValues(std::string_view text, StateImage& image) {
    return ReadPart(text, "values", image, TakeValues);
}

} // namespace DeviceStackServer
