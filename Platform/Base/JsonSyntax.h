// JSON syntax check.
#pragma once

#include <string_view>

namespace Base {

/// True when the text is one JSON object or array and nothing else, nested at most 255 deep. Allocates
/// nothing.
bool IsJsonComposite(std::string_view text);

} // namespace Base
