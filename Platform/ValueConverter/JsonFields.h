// Members of a flat JSON object with their values as they were written. Internal to the converter.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Datapoint {

struct JsonField {
    enum class Kind : std::uint8_t { Number, Text, Boolean, Null };

    std::string name;
    Kind kind = Kind::Null;
    std::string text; ///< digits of a number, content of a text, "1" or "0" of a boolean
};

/// Reads an object whose members are numbers, texts, booleans or null. False with the cause in `error` for
/// every other text; `fields` then holds what came before. Numbers are kept letter for letter.
bool ReadJsonFields(std::string_view text, std::vector<JsonField>& fields, std::string& error);

} // namespace Datapoint
