// JSON text written piece by piece, and read where a caller brings his own.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace DeviceStack {

/// Appends `utf8` as a JSON string with its quotation marks. Bytes that are not UTF-8 become U+FFFD, so that
/// one bad text never makes a message that the peer cannot read.
void AppendJsonString(std::string& json, std::string_view utf8);

/// Writes one JSON object; the members stand in the order of the calls. The text is appended to `json`, which
/// must outlive the writer; End() completes it.
class JsonObject {
public:
    explicit JsonObject(std::string& json) : m_json(json) { m_json += '{'; }

    JsonObject& Text(std::string_view name, std::string_view utf8);
    JsonObject& Number(std::string_view name, std::uint64_t value);
    JsonObject& Boolean(std::string_view name, bool value);

    /// A member whose value is JSON text already.
    JsonObject& Raw(std::string_view name, std::string_view json);

    /// Appends the name and the colon; the caller appends the value.
    void Name(std::string_view name);

    void End() { m_json += '}'; }

private:
    std::string& m_json;
    bool m_first = true;
};

/// Brings a JSON object into one line without blanks. True on success; on false `error` says why in one
/// sentence and `oneLine` is untouched.
bool NormaliseObject(std::string_view json, std::string& oneLine, std::string& error);

} // namespace DeviceStack
