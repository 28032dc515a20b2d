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
    std::string logLevel = "INFO";
    std::string logFile; ///< "" = standard error
};

/// Reads the text of a configuration file into `configuration`; relative paths count from `directory`. "" or
/// one sentence: place and cause.
std::string ReadConfiguration(std::string_view text, const std::string& directory,
                              Configuration& configuration);

/// "" when the level is one that the log knows, else a sentence.
std::string LogLevelFault(const std::string& level);

} // namespace DeviceStackServer
