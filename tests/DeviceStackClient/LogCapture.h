// Collects what the client logs.
#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <mutex>
#include <string>
#include <vector>

/// Lines of level WARN and above of "DeviceStack.Client" while the object lives, as "LEVEL text".
class LogCapture {
public:
    LogCapture() : m_logger(log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("DeviceStack.Client"))) {
        m_logger.setLogLevel(log4cplus::WARN_LOG_LEVEL);
        m_logger.addAppender(m_appender);
    }
    ~LogCapture() { m_logger.removeAppender(m_appender); }

    std::vector<std::string> Get() const { return static_cast<Appender&>(*m_appender).Get(); }

private:
    class Appender final : public log4cplus::Appender {
    public:
        ~Appender() override { destructorImpl(); }
        void close() override {}
        std::vector<std::string> Get() {
            const std::lock_guard lock(m_mutex);
            return m_lines;
        }

    private:
        void append(const log4cplus::spi::InternalLoggingEvent& event) override {
            const std::lock_guard lock(m_mutex);
            m_lines.push_back(log4cplus::getLogLevelManager().toString(event.getLogLevel()) + " " +
                              event.getMessage());
        }
        std::mutex m_mutex;
        std::vector<std::string> m_lines;
    };

    log4cplus::Logger m_logger;
    log4cplus::SharedAppenderPtr m_appender{new Appender};
};
