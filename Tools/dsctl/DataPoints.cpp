#include "DataPoints.h"

#include <boost/json.hpp>

#include <algorithm>
#include <charconv>

#include <fnmatch.h>
#include <strings.h>

namespace Dsctl {

namespace {

std::string Text(const boost::json::object& object, std::string_view name) {
    const auto* value = object.if_contains(name);
    const auto* text = value != nullptr ? value->if_string() : nullptr;
    return text != nullptr ? std::string(*text) : std::string();
}

bool MatchesName(const std::string& pattern, const std::string& name) {
    if (pattern.find_first_of("*?[") != std::string::npos)
        return ::fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
    const auto same = [](char a, char b) { return ::strncasecmp(&a, &b, 1) == 0; };
    return std::search(name.begin(), name.end(), pattern.begin(), pattern.end(), same) != name.end() ||
           pattern.empty();
}

} // namespace

std::optional<std::vector<DataPoint>> ReadProcessView(std::string_view json) {
    boost::json::error_code error;
    const auto root = boost::json::parse(json, error);
    if (error)
        return std::nullopt;
    const auto* list = root.find_pointer("/response/processView/datapoints", error);
    if (list == nullptr || !list->is_array())
        return std::nullopt;
    std::vector<DataPoint> points;
    for (const auto& element : list->get_array()) {
        const auto* object = element.if_object();
        const auto* id = object != nullptr ? object->if_contains("id") : nullptr;
        if (id == nullptr)
            return std::nullopt;
        DataPoint point;
        point.id = id->to_number<std::uint32_t>(error);
        if (error)
            return std::nullopt;
        point.urn = Text(*object, "urn");
        point.name = Text(*object, "name");
        point.dpt = Text(*object, "dpt");
        point.unit = Text(*object, "unit");
        point.access = Text(*object, "access");
        point.value = Text(*object, "value");
        point.json = boost::json::serialize(element);
        points.push_back(std::move(point));
    }
    return points;
}

DeviceStack::DataPointName ParseName(const std::string& text) {
    std::uint32_t id = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (error == std::errc{} && end == text.data() + text.size())
        return DeviceStack::DataPointName::OfId(id);
    if (text.starts_with("urn:"))
        return DeviceStack::DataPointName::OfUrn(text);
    return DeviceStack::DataPointName::OfName(text);
}

std::string_view NameOfUrn(std::string_view urn) {
    constexpr std::string_view prefix = "urn:oxn:dp:";
    if (!urn.starts_with(prefix))
        return urn;
    const auto end = urn.find(':', prefix.size());
    return end == std::string_view::npos ? urn : urn.substr(end + 1);
}

bool Matches(const std::vector<std::string>& patterns, std::uint32_t id, std::string_view urn,
             std::string_view name) {
    using By = DeviceStack::DataPointName::By;
    const auto matches = [&, urnText = std::string(urn), nameText = std::string(name)](const auto& pattern) {
        switch (const auto named = ParseName(pattern); named.by) {
        case By::Id: return named.id == id;
        case By::Urn: return pattern == urn || ::fnmatch(pattern.c_str(), urnText.c_str(), 0) == 0;
        case By::Name: break;
        }
        return MatchesName(pattern, nameText);
    };
    return patterns.empty() || std::any_of(patterns.begin(), patterns.end(), matches);
}

} // namespace Dsctl
