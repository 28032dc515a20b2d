#include "DeviceStackProtocol/Json.h"

#include <boost/json.hpp>

#include <charconv>

namespace DeviceStack {
namespace {

/// Length of the UTF-8 sequence at `text[at]`; 0 when there is none (RFC 3629: no overlong forms, no
/// surrogates, at most U+10FFFF).
std::size_t SequenceLength(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const auto available = text.size() - at;
    const unsigned first = byte(0);
    if (first < 0x80)
        return 1;
    std::size_t length = 0;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (first >= 0xC2 && first <= 0xDF) {
        length = 2;
    } else if (first >= 0xE0 && first <= 0xEF) {
        length = 3;
        low = first == 0xE0 ? 0xA0 : 0x80;
        high = first == 0xED ? 0x9F : 0xBF;
    } else if (first >= 0xF0 && first <= 0xF4) {
        length = 4;
        low = first == 0xF0 ? 0x90 : 0x80;
        high = first == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (available < length || byte(1) < low || byte(1) > high)
        return 0;
    for (std::size_t i = 2; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    }
    return length;
}

void AppendControl(std::string& json, unsigned char c) {
    switch (c) {
    case '"': json += "\\\""; return;
    case '\\': json += "\\\\"; return;
    case '\n': json += "\\n"; return;
    case '\r': json += "\\r"; return;
    case '\t': json += "\\t"; return;
    default: break;
    }
    static constexpr char digits[] = "0123456789abcdef";
    json += "\\u00";
    json += digits[c >> 4];
    json += digits[c & 0x0F];
}

} // namespace

void AppendJsonString(std::string& json, std::string_view utf8) {
    json += '"';
    std::size_t clean = 0; // [clean, i) goes out as it is
    std::size_t i = 0;
    const auto flush = [&] { json.append(utf8.substr(clean, i - clean)); };
    while (i < utf8.size()) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        if (c >= 0x20 && c < 0x80 && c != '"' && c != '\\') {
            ++i;
        } else if (c < 0x80) {
            flush();
            AppendControl(json, c);
            clean = ++i;
        } else if (const auto length = SequenceLength(utf8, i); length > 0) {
            i += length;
        } else {
            flush();
            json += "\xEF\xBF\xBD";
            clean = ++i;
        }
    }
    flush();
    json += '"';
}

void JsonObject::Name(std::string_view name) {
    if (!m_first)
        m_json += ',';
    m_first = false;
    AppendJsonString(m_json, name);
    m_json += ':';
}

JsonObject& JsonObject::Text(std::string_view name, std::string_view utf8) {
    Name(name);
    AppendJsonString(m_json, utf8);
    return *this;
}

JsonObject& JsonObject::Number(std::string_view name, std::uint64_t value) {
    Name(name);
    char digits[20];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    m_json.append(digits, end);
    return *this;
}

JsonObject& JsonObject::Boolean(std::string_view name, bool value) {
    Name(name);
    m_json += value ? "true" : "false";
    return *this;
}

JsonObject& JsonObject::Raw(std::string_view name, std::string_view json) {
    Name(name);
    m_json += json;
    return *this;
}

bool NormaliseObject(std::string_view json, std::string& oneLine, std::string& error) {
    boost::json::error_code failure;
    const auto value = boost::json::parse(boost::json::string_view(json.data(), json.size()), failure);
    if (failure) {
        error = "not JSON: " + failure.message();
        return false;
    }
    if (!value.is_object()) {
        error = "not a JSON object";
        return false;
    }
    oneLine = boost::json::serialize(value);
    return true;
}

} // namespace DeviceStack
