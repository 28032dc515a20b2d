#include "ValueConverter/JsonFields.h"

#include <boost/json/basic_parser_impl.hpp>

#include <limits>
#include <utility>

namespace Datapoint {

namespace {

namespace json = boost::json;

// Takes what the parser finds. Nested arrays and objects end it.
class Handler {
public:
    static constexpr std::size_t max_object_size = 256;
    static constexpr std::size_t max_array_size = 0;
    static constexpr std::size_t max_key_size = 64;
    static constexpr std::size_t max_string_size = 65536; // more than any value has

    explicit Handler(JsonFields& fields) : m_fields(fields) {}

    bool IsObject() const { return m_isObject; }

    bool on_document_begin(json::error_code&) { return true; }
    bool on_document_end(json::error_code&) { return true; }
    bool on_object_begin(json::error_code& error) { return !std::exchange(m_isObject, true) || Fail(error); }
    bool on_object_end(std::size_t, json::error_code&) { return true; }
    bool on_array_begin(json::error_code& error) { return Fail(error); }
    bool on_array_end(std::size_t, json::error_code&) { return true; }
    bool on_key_part(json::string_view part, std::size_t, json::error_code&) {
        m_name.append(part.data(), part.size());
        return true;
    }
    bool on_key(json::string_view part, std::size_t, json::error_code&) {
        m_name.append(part.data(), part.size());
        return true;
    }
    bool on_string_part(json::string_view part, std::size_t, json::error_code&) { return AddPart(part); }
    bool on_string(json::string_view part, std::size_t, json::error_code& error) {
        return AddPart(part) && Add(JsonField::Kind::Text, error);
    }
    bool on_number_part(json::string_view part, json::error_code&) { return AddPart(part); }
    bool on_int64(std::int64_t, json::string_view part, json::error_code& error) {
        return AddNumber(part, error);
    }
    bool on_uint64(std::uint64_t, json::string_view part, json::error_code& error) {
        return AddNumber(part, error);
    }
    bool on_double(double, json::string_view part, json::error_code& error) { return AddNumber(part, error); }
    bool on_bool(bool value, json::error_code& error) {
        m_text.assign(1, value ? '1' : '0');
        return Add(JsonField::Kind::Boolean, error);
    }
    bool on_null(json::error_code& error) { return Add(JsonField::Kind::Null, error); }
    bool on_comment_part(json::string_view, json::error_code&) { return true; }
    bool on_comment(json::string_view, json::error_code&) { return true; }

private:
    static bool Fail(json::error_code& error) {
        error = json::error::syntax;
        return false;
    }
    bool AddPart(json::string_view part) {
        m_text.append(part.data(), part.size());
        return true;
    }
    bool AddNumber(json::string_view part, json::error_code& error) {
        return AddPart(part) && Add(JsonField::Kind::Number, error);
    }
    bool Add(JsonField::Kind kind, json::error_code& error) {
        if (!m_isObject) {
            return Fail(error);
        }
        m_fields.push_back({std::exchange(m_name, {}), kind, std::exchange(m_text, {})});
        return true;
    }

    JsonFields& m_fields;
    std::string m_name;
    std::string m_text;
    bool m_isObject = false;
};

} // namespace

bool ReadJsonFields(std::string_view text, JsonFields& fields, std::string& error) {
    json::basic_parser<Handler> parser(json::parse_options{}, fields);
    json::error_code code;
    const std::size_t read = parser.write_some(false, text.data(), text.size(), code);
    if (!code && read < text.size()) {
        code = json::error::extra_data;
    }
    if (code || !parser.handler().IsObject()) {
        error = code ? code.message() : "no object";
        return false;
    }
    return true;
}

} // namespace Datapoint
