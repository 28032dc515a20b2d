// Whether bytes from outside are text.
#pragma once

#include <string_view>

namespace ProjectFile {

/// True for well-formed UTF-8: no sequence cut short or longer than needed, no surrogate, nothing above
/// U+10FFFF.
bool IsUtf8(std::string_view text);

} // namespace ProjectFile
