// From a JSON text to a value, with the place of what is wrong in it.
#include "ProjectFile/JsonMembers.h"

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/stream_parser.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace ProjectFile {

namespace json = boost::json;

namespace {

json::parse_options Options() {
    json::parse_options options;
    options.allow_comments = true;
    options.allow_trailing_commas = true;
    return options;
}

/// Looks for a member that stands twice in one object: a JSON value would silently keep the last one.
class DuplicateFinder {
public:
    static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);

    using Text = json::string_view;
    using ErrorCode = boost::system::error_code;

    const std::string& Duplicate() const { return m_duplicate; }

    bool on_document_begin(ErrorCode&) { return true; }
    bool on_document_end(ErrorCode&) { return true; }
    bool on_array_begin(ErrorCode&) { return true; }
    bool on_array_end(std::size_t, ErrorCode&) { return true; }
    bool on_object_begin(ErrorCode&) {
        m_names.emplace_back();
        return true;
    }
    bool on_object_end(std::size_t, ErrorCode&) {
        m_names.pop_back();
        return true;
    }
    bool on_key_part(Text part, std::size_t, ErrorCode&) {
        m_key.append(part.data(), part.size());
        return true;
    }
    bool on_key(Text part, std::size_t, ErrorCode& ec) {
        m_key.append(part.data(), part.size());
        if (!m_names.back().insert(m_key).second) {
            m_duplicate = m_key;
            ec = json::error::syntax;
            return false;
        }
        m_key.clear();
        return true;
    }
    bool on_string_part(Text, std::size_t, ErrorCode&) { return true; }
    bool on_string(Text, std::size_t, ErrorCode&) { return true; }
    bool on_number_part(Text, ErrorCode&) { return true; }
    bool on_int64(std::int64_t, Text, ErrorCode&) { return true; }
    bool on_uint64(std::uint64_t, Text, ErrorCode&) { return true; }
    bool on_double(double, Text, ErrorCode&) { return true; }
    bool on_bool(bool, ErrorCode&) { return true; }
    bool on_null(ErrorCode&) { return true; }
    bool on_comment_part(Text, ErrorCode&) { return true; }
    bool on_comment(Text, ErrorCode&) { return true; }

private:
    std::vector<std::set<std::string>> m_names; // one set for each open object
    std::string m_key;
    std::string m_duplicate;
};

std::string LineAndColumn(std::string_view text, std::size_t offset) {
    const std::string_view before = text.substr(0, offset);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t lineStart = before.rfind('\n') + 1; // npos + 1 is 0: the first line
    return fmt::format("{}:{}", line, before.size() - lineStart + 1);
}

} // namespace

std::optional<json::value> ParseJson(std::string_view text, ErrorList& errors) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    json::stream_parser parser({}, Options());
    boost::system::error_code ec;
    std::size_t consumed = parser.write_some(text.data(), text.size(), ec);
    if (!ec && consumed < text.size()) {
        errors.Add(LineAndColumn(text, consumed), "more text behind the end of the JSON value");
        return std::nullopt;
    }
    if (!ec) {
        parser.finish(ec);
    }
    if (ec) {
        errors.Add(LineAndColumn(text, consumed), fmt::format("not JSON: {}", ec.message()));
        return std::nullopt;
    }
    json::basic_parser<DuplicateFinder> finder(Options());
    consumed = finder.write_some(false, text.data(), text.size(), ec);
    if (ec) {
        errors.Add(LineAndColumn(text, consumed),
                   fmt::format("member \"{}\" stands twice in one object", finder.handler().Duplicate()));
        return std::nullopt;
    }
    return parser.release();
}

} // namespace ProjectFile
