#include "KnxStackHost/Logging.h"

#include "DaemonSupport/LogSettings.h"

#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

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
    log4cplus::setThreadPoolSize(0); // for appenders that write in the background; there are none here
    const bool toStandardError = true;
    const bool flushed = true;
    AddAppender(log4cplus::SharedAppenderPtr(new log4cplus::ConsoleAppender(toStandardError, flushed)));
    if (!settings.file.empty())
        AddAppender(
            log4cplus::SharedAppenderPtr(new log4cplus::FileAppender(settings.file, std::ios::app, flushed)));
    DaemonSupport::SetLogLevel(settings.level);
}

} // namespace KnxStackHost
