#include "DaemonSupport/LogSettings.h"

#include <fmt/format.h>
#include <log4cplus/logger.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace DaemonSupport {

namespace {

constexpr char kCaseBit = 'a' - 'A';

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + kCaseBit) : c;
    return lower;
}

std::string Upper(std::string_view text) {
    std::string upper(text);
    for (char& c : upper)
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - kCaseBit) : c;
    return upper;
}

} // namespace

std::optional<std::string> LogLevelOf(std::string_view text) {
    static constexpr std::array<std::string_view, 7> kLevels = {"trace", "debug", "info", "warn",
                                                                "error", "fatal", "off"};
    auto level = Lower(text);
    if (std::find(kLevels.begin(), kLevels.end(), level) == kLevels.end())
        return std::nullopt;
    return level;
}

void SetLogLevel(std::string_view level) {
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::getLogLevelManager().fromString(Upper(level)));
}

std::string LogFileFault(const std::string& path) {
    if (std::ofstream(path, std::ios::app).is_open())
        return {};
    return fmt::format("{} cannot be written: {}", path, std::strerror(errno));
}

} // namespace DaemonSupport
