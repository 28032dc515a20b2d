#include "KnxStackHost/Logging.h"

#include <fmt/format.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

namespace KnxStackHost {

namespace {

void AddAppender(const log4cplus::SharedAppenderPtr& appender) {
    appender->setLayout(
        std::make_unique<log4cplus::PatternLayout>("%D{%Y-%m-%d %H:%M:%S.%q} %-5p %c - %m%n"));
    log4cplus::Logger::getRoot().addAppender(appender);
}

} // namespace

void StartLogging(const LogSettings& settings) {
    if (!settings.file.empty() && !std::ofstream(settings.file, std::ios::app).is_open())
        throw ConfigurationError(
            fmt::format("/log/file: {} cannot be written: {}", settings.file, std::strerror(errno)));
    log4cplus::setThreadPoolSize(0); // for appenders that write in the background; there are none here
    const bool toStandardError = true;
    const bool flushed = true;
    AddAppender(log4cplus::SharedAppenderPtr(new log4cplus::ConsoleAppender(toStandardError, flushed)));
    if (!settings.file.empty())
        AddAppender(
            log4cplus::SharedAppenderPtr(new log4cplus::FileAppender(settings.file, std::ios::app, flushed)));
    SetLogLevel(settings.level);
}

void SetLogLevel(const std::string& level) {
    std::string upper(level);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::getLogLevelManager().fromString(upper));
}

} // namespace KnxStackHost
