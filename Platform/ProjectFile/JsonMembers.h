// Reads the members of JSON objects and collects what is wrong with them.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ProjectFile {

/// The errors of one file, in the order in which they were found.
class ErrorList {
public:
    explicit ErrorList(std::string fileName) : m_fileName(std::move(fileName)) {}

    /// Adds "file: place: cause".
    void Add(std::string_view place, std::string_view cause);

    bool Empty() const { return m_errors.empty(); }
    std::vector<std::string> Take() { return std::move(m_errors); }

private:
    std::string m_fileName;
    std::vector<std::string> m_errors;
};

/// The first error, with the number of further ones behind it; "" when there is none.
std::string FirstOf(const std::vector<std::string>& errors);

/// The JSON text as a value, null after a syntax error or a member that stands twice in one object; the error
/// then names line and column.
std::optional<boost::json::value> ParseJson(std::string_view text, ErrorList& errors);

/// JSON pointer of a member or an element.
std::string Place(std::string_view parent, std::string_view member);
std::string Place(std::string_view parent, std::size_t index);

/// One JSON object. Construction reports every member that is not in `known`, with the nearest known name.
/// Every getter reports a wrong kind or range and then gives nothing, as it does for an absent member.
class JsonMembers {
public:
    JsonMembers(const boost::json::object& object, std::string place, ErrorList& errors,
                std::initializer_list<std::string_view> known);

    const std::string& Place() const { return m_place; }
    std::string PlaceOf(std::string_view name) const { return ProjectFile::Place(m_place, name); }
    bool Has(std::string_view name) const { return m_object.contains(name); }

    /// The member, which must be there.
    const boost::json::value& At(std::string_view name) const { return m_object.at(name); }

    /// Reports the member's absence; true when it is there.
    bool Require(std::string_view name);

    std::optional<std::uint64_t> Number(std::string_view name, std::uint64_t min, std::uint64_t max);
    std::optional<bool> Boolean(std::string_view name);
    std::optional<std::string> Text(std::string_view name);
    /// A path, made absolute by `directory`; an empty text is an error.
    std::optional<std::string> Path(std::string_view name, const std::string& directory);
    const boost::json::object* Object(std::string_view name);
    const boost::json::array* Array(std::string_view name);

private:
    const boost::json::value* Find(std::string_view name) const { return m_object.if_contains(name); }

    const boost::json::object& m_object;
    std::string m_place;
    ErrorList& m_errors;
};

/// A number within [min, max], or nothing and an error at `place`.
std::optional<std::uint64_t> NumberOf(const boost::json::value& value, std::string_view place,
                                      std::uint64_t min, std::uint64_t max, ErrorList& errors);

} // namespace ProjectFile
