// Takes the log messages of a test into its recorder.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace TestSupport {

class Recorder;

/// Where a log record says that it comes from.
struct LogLocation {
    std::string message;
    std::string file;
    int line;
    std::string function;
};

/// While it lives, every message of every logger, at every level, is recorded as
///
///     DEBUG KnxStack.DscKnxAppPrg | Init(): starting...
///
/// One at a time. The recorder must outlive it.
class LogRecorder {
public:
    explicit LogRecorder(Recorder& recorder);
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    std::vector<LogLocation> Locations() const;

    /// Switches all loggers off: no message is even built, so that logging puts no order between threads.
    static void Silence();

private:
    class Appender;
    Appender* m_appender; // held by the root logger
};

} // namespace TestSupport
