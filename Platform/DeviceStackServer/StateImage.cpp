#include "DeviceStackServer/StateImage.h"

#include "DeviceStackProtocol/Json.h"
#include "ProjectFile/Project.h"

#include <boost/json.hpp>
#include <fmt/format.h>

namespace DeviceStackServer {
namespace {

namespace json = boost::json;

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

} // namespace

bool AdoptIds(StateImage& image, const ProjectFile::Project& project) {
    bool added = false;
    for (const auto& point : project.dataPoints) {
        if (!point.IsFixed())
            added |= image.ids.emplace(point.urn, point.id).second;
    }
    return added;
}

std::string WriteIds(const StateImage& image) {
    std::string text = fmt::format("{{\"version\":{},\n\"ids\":", ProjectFile::kStateFileVersion);
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
    std::string text = fmt::format("{{\"version\":{},\n\"values\":", ProjectFile::kStateFileVersion);
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
    return ProjectFile::ReadKnownIds(text, image.ids);
}

std::string ReadValues(std::string_view text, StateImage& image) {
    StateImage found = image;
    auto error = ProjectFile::ReadStateFile(
        text, "values", [&found](const json::object& values) { return TakeValues(values, found); });
    if (error.empty())
        image = std::move(found);
    return error;
}

} // namespace DeviceStackServer
