// The configuration file of the download handler.
#pragma once

#include <string>

namespace Download {

struct Settings {
    std::string project;        ///< the file that a download replaces; absolute
    std::string stateDirectory; ///< of the device stack, absolute; "" when its ids are not to be asked
};

/// Reads the file. "" or the first thing that is wrong with it, "file: place: cause", and then `settings` is
/// not to be used.
std::string ReadSettings(const std::string& file, Settings& settings);

} // namespace Download
