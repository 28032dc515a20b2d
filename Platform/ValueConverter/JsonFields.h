// Members of a flat JSON object with their values as they were written. Internal to the converter.
#pragma once

#include <boost/container/small_vector.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace Datapoint {

struct JsonField {
    enum class Kind : std::uint8_t { Number, Text, Boolean, Null };

    std::string name;
    Kind kind = Kind::Null;
    std::string text;   ///< digits of a number, content of a text, "1" or "0" of a boolean
    bool taken = false; ///< for who looks for one after the other
};

/// As many as most values have stand in place.
using JsonFields = boost::container::small_vector<JsonField, 12>;

/// Reads an object whose members are numbers, texts, booleans or null. False with the cause in `error` for
/// every other text; `fields` then holds what came before. Numbers are kept letter for letter.
bool ReadJsonFields(std::string_view text, JsonFields& fields, std::string& error);

} // namespace Datapoint
