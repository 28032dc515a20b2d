// The client's logger.
#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace DeviceStackClient {

inline const log4cplus::Logger& Logger() {
    static const auto logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("DeviceStack.Client"));
    return logger;
}

} // namespace DeviceStackClient
