#include "LogRecorder.h"

#include "Recorder.h"

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/spi/loggingevent.h>

#include <mutex>

namespace TestSupport {

class LogRecorder::Appender : public log4cplus::Appender {
public:
    explicit Appender(Recorder& recorder) : m_recorder(recorder) {}
    ~Appender() override { destructorImpl(); }

    void close() override { closed = true; }

    std::vector<LogLocation> Locations() const {
        const std::lock_guard lock(m_mutex);
        return m_locations;
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        m_recorder.Add(log4cplus::getLogLevelManager().toString(event.getLogLevel()) + " " +
                       event.getLoggerName() + " | " + event.getMessage());
        const std::lock_guard lock(m_mutex);
        m_locations.push_back({event.getMessage(), event.getFile(), event.getLine(), event.getFunction()});
    }

private:
    Recorder& m_recorder;
    mutable std::mutex m_mutex;
    std::vector<LogLocation> m_locations; // under m_mutex
};

LogRecorder::LogRecorder(Recorder& recorder) : m_appender(new Appender(recorder)) {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.setLogLevel(log4cplus::ALL_LOG_LEVEL);
    root.addAppender(log4cplus::SharedAppenderPtr(m_appender));
}

LogRecorder::~LogRecorder() {
    Silence();
    log4cplus::Logger::getRoot().removeAllAppenders();
}

std::vector<LogLocation> LogRecorder::Locations() const {
    return m_appender->Locations();
}

void LogRecorder::Silence() {
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
}

} // namespace TestSupport
