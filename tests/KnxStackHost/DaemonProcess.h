// knxstackd as a child process with a directory of its own.
#pragma once

#include "../support/Process.h"
#include "../support/TemporaryDirectory.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace KnxStackHost {

using std::chrono::milliseconds;

using TestSupport::Eventually;
using TestSupport::TemporaryDirectory;

/// One run of the daemon. Its standard error is collected in a file; the port it listens on is any free one.
class DaemonProcess {
public:
    /// Starts with `configuration` as knxstackd.json in `directory` and further arguments. Killed at the end
    /// if it still runs.
    DaemonProcess(const TemporaryDirectory& directory, const std::string& configuration,
                  std::vector<std::string> arguments = {}, const std::vector<std::string>& environment = {});

    /// The port from the log; fails the test when it does not appear.
    std::uint16_t Port() const;

    /// True once the log holds the text `count` times.
    bool WaitForLog(const std::string& text, milliseconds patience = milliseconds(10000),
                    std::size_t count = 1) const;
    std::string Log() const;

    void Signal(int signal) const { m_process.Signal(signal); }

    /// Exit status; empty when it still runs after `patience`.
    std::optional<int> WaitForEnd(milliseconds patience);

    pid_t Pid() const { return m_process.Pid(); }

private:
    const TemporaryDirectory& m_directory;
    TestSupport::Process m_process;
};

/// A configuration with objects 1 to 4 and the command object 250, whose program records to "record".
std::string TestConfiguration(const std::string& programSettings = "", const std::string& more = "");

std::size_t CountOf(const std::string& text, const std::string& part);

/// Sleeps; only to poll.
void Pause(milliseconds time);

} // namespace KnxStackHost
