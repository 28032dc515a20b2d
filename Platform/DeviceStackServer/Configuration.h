// Configuration of devicestackd.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace DeviceStackServer {

/// docs/formats/devicestackd.md describes the file.
struct Configuration {
    std::string project; ///< path of the project file; the one member without a default
    std::string socket = "/run/devicestack/devicestack.sock";
    unsigned socketMode = 0660;
    std::string stateDirectory = "/var/lib/devicestack";
    std::string deviceId = "generic";
    std::chrono::seconds clockInterval{600}; ///< 0 = off
    bool setSystemClock = false;
    std::chrono::seconds saveDelay{5};
    unsigned history = 16;                   ///< values kept for each data point
    std::vector<std::string> restartCommand; ///< empty = only logged and published
    std::vector<std::string> ntpCommand;     ///< the same; "true" or "false" follows as the last argument
    std::string logLevel = "info";           ///< in lower case
    std::string logFile;                     ///< "" = standard error
};

/// Reads `text`, which stands in the file `path`, into `configuration`; relative paths count from the file's
/// directory. "" or one sentence, "file: place: cause", and `configuration` is untouched.
std::string ReadConfiguration(std::string_view text, const std::string& path, Configuration& configuration);

} // namespace DeviceStackServer
