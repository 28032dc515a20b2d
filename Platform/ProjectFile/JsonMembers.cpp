#include "ProjectFile/JsonMembers.h"

#include <boost/json/parser.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <filesystem>
#include <numeric>

namespace ProjectFile {

namespace json = boost::json;

namespace {

/// Number of single-character changes from one word to the other.
std::size_t EditDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, replaced}));
        }
    }
    return row.back();
}

std::string UnknownMember(std::string_view name, std::initializer_list<std::string_view> known) {
    const std::size_t near = std::max<std::size_t>(1, name.size() / 3);
    const auto nearest = std::min_element(known.begin(), known.end(), [name](auto a, auto b) {
        return EditDistance(name, a) < EditDistance(name, b);
    });
    if (nearest != known.end() && EditDistance(name, *nearest) <= near) {
        return fmt::format("unknown member \"{}\"; did you mean \"{}\"?", name, *nearest);
    }
    return fmt::format("unknown member \"{}\"; known are: {}", name, fmt::join(known, ", "));
}

std::string_view KindOf(const json::value& value) {
    switch (value.kind()) {
    case json::kind::null: return "null";
    case json::kind::bool_: return "true or false";
    case json::kind::int64:
    case json::kind::uint64:
    case json::kind::double_: return "a number";
    case json::kind::string: return "a text";
    case json::kind::array: return "an array";
    case json::kind::object: return "an object";
    }
    return "something else";
}

} // namespace

void ErrorList::Add(std::string_view place, std::string_view cause) {
    m_errors.push_back(fmt::format("{}: {}: {}", m_fileName, place.empty() ? "/" : place, cause));
}

std::string FirstOf(const std::vector<std::string>& errors) {
    if (errors.size() < 2) {
        return errors.empty() ? std::string() : errors.front();
    }
    return fmt::format("{} (and {} more)", errors.front(), errors.size() - 1);
}

std::string Place(std::string_view parent, std::string_view member) {
    std::string place(parent);
    place += '/';
    for (const char c : member) {
        place += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
    }
    return place;
}

std::string Place(std::string_view parent, std::size_t index) {
    return fmt::format("{}/{}", parent, index);
}

std::optional<std::uint64_t> NumberOf(const json::value& value, std::string_view place, std::uint64_t min,
                                      std::uint64_t max, ErrorList& errors) {
    if (!value.is_number()) {
        errors.Add(place, fmt::format("must be a number from {} to {}, not {}", min, max, KindOf(value)));
        return std::nullopt;
    }
    boost::system::error_code ec;
    const auto number = value.to_number<std::uint64_t>(ec);
    if (ec || number < min || number > max) {
        errors.Add(place, fmt::format("must be a whole number from {} to {}, not {}", min, max,
                                      json::serialize(value)));
        return std::nullopt;
    }
    return number;
}

JsonMembers::JsonMembers(const json::object& object, std::string place, ErrorList& errors,
                         std::initializer_list<std::string_view> known)
    : m_object(object), m_place(std::move(place)), m_errors(errors) {
    for (const auto& member : object) {
        const std::string_view name(member.key().data(), member.key().size());
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            m_errors.Add(PlaceOf(name), UnknownMember(name, known));
        }
    }
}

bool JsonMembers::Require(std::string_view name) {
    if (Has(name)) {
        return true;
    }
    m_errors.Add(m_place, fmt::format("\"{}\" is missing", name));
    return false;
}

std::optional<std::uint64_t> JsonMembers::Number(std::string_view name, std::uint64_t min,
                                                 std::uint64_t max) {
    const json::value* value = Find(name);
    return value ? NumberOf(*value, PlaceOf(name), min, max, m_errors) : std::nullopt;
}

std::optional<bool> JsonMembers::Boolean(std::string_view name) {
    const json::value* value = Find(name);
    if (!value) {
        return std::nullopt;
    }
    if (!value->is_bool()) {
        m_errors.Add(PlaceOf(name), fmt::format("must be true or false, not {}", KindOf(*value)));
        return std::nullopt;
    }
    return value->get_bool();
}

std::optional<std::string> JsonMembers::Text(std::string_view name) {
    const json::value* value = Find(name);
    if (!value) {
        return std::nullopt;
    }
    if (!value->is_string()) {
        const bool simple = value->is_number() || value->is_bool();
        m_errors.Add(PlaceOf(name), simple ? fmt::format("must be a text in quotation marks: \"{}\"",
                                                         json::serialize(*value))
                                           : fmt::format("must be a text, not {}", KindOf(*value)));
        return std::nullopt;
    }
    return std::string(value->get_string().data(), value->get_string().size());
}

std::optional<std::string> JsonMembers::Path(std::string_view name, const std::string& directory) {
    const auto text = Text(name);
    if (!text) {
        return std::nullopt;
    }
    if (text->empty()) {
        m_errors.Add(PlaceOf(name), "must be a path, not an empty text");
        return std::nullopt;
    }
    return (std::filesystem::path(directory) / *text).string();
}

const json::object* JsonMembers::Object(std::string_view name) {
    const json::value* value = Find(name);
    if (value && !value->is_object()) {
        m_errors.Add(PlaceOf(name), fmt::format("must be an object, not {}", KindOf(*value)));
    }
    return value ? value->if_object() : nullptr;
}

const json::array* JsonMembers::Array(std::string_view name) {
    const json::value* value = Find(name);
    if (value && !value->is_array()) {
        m_errors.Add(PlaceOf(name), fmt::format("must be an array, not {}", KindOf(*value)));
    }
    return value ? value->if_array() : nullptr;
}

} // namespace ProjectFile
