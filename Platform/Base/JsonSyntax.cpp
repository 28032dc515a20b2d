#include "Base/JsonSyntax.h"

#include <boost/json/basic_parser_impl.hpp>

namespace {

namespace json = boost::json;

// Takes every event of the parser and keeps nothing.
struct Ignore {
    static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

    using Error = boost::system::error_code;

    bool on_document_begin(Error&) { return true; }
    bool on_document_end(Error&) { return true; }
    bool on_object_begin(Error&) { return true; }
    bool on_object_end(std::size_t, Error&) { return true; }
    bool on_array_begin(Error&) { return true; }
    bool on_array_end(std::size_t, Error&) { return true; }
    bool on_key_part(json::string_view, std::size_t, Error&) { return true; }
    bool on_key(json::string_view, std::size_t, Error&) { return true; }
    bool on_string_part(json::string_view, std::size_t, Error&) { return true; }
    bool on_string(json::string_view, std::size_t, Error&) { return true; }
    bool on_number_part(json::string_view, Error&) { return true; }
    bool on_int64(std::int64_t, json::string_view, Error&) { return true; }
    bool on_uint64(std::uint64_t, json::string_view, Error&) { return true; }
    bool on_double(double, json::string_view, Error&) { return true; }
    bool on_bool(bool, Error&) { return true; }
    bool on_null(Error&) { return true; }
    bool on_comment_part(json::string_view, Error&) { return true; }
    bool on_comment(json::string_view, Error&) { return true; }
};

} // namespace

bool Base::IsJsonComposite(std::string_view text) {
    const bool bracketed =
        (text.starts_with('{') && text.ends_with('}')) || (text.starts_with('[') && text.ends_with(']'));
    if (!bracketed) {
        return false;
    }
    json::parse_options options;
    options.max_depth = 255;
    json::basic_parser<Ignore> parser(options);
    boost::system::error_code error;
    const auto consumed = parser.write_some(false, text.data(), text.size(), error);
    return !error && consumed == text.size();
}
