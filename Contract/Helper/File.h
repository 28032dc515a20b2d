// Paths of the base platform.
#pragma once

#include "Tav/Export.h"

#include <string>

namespace Helper::File {

/// A directory as a path to which a file name can be appended: without repeated or trailing slashes, except
/// that "/" stays "/". "" stays "".
TAV_EXPORT std::string make_path(std::string directory);

} // namespace Helper::File
