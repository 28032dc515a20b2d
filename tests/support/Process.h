// A program that a test starts, and waiting for what it does.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <time.h>
#include <vector>

namespace TestSupport {

/// Waits until the condition holds, at most `limit`. What it held at last.
template <typename Condition>
bool Eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(30)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    const timespec pause{0, 5'000'000};
    for (;;) {
        if (condition())
            return true;
        if (std::chrono::steady_clock::now() > end)
            return false;
        ::nanosleep(&pause, nullptr);
    }
}

/// A child process with its standard error in a file. For one thread.
class Process {
public:
    /// Starts argv[0], a path. Its standard output goes to the file, too, behind what that holds;
    /// `environment` comes before the variables of the test.
    Process(const std::vector<std::string>& argv, const std::string& errorFile,
            const std::vector<std::string>& environment = {});
    /// Kills it if it still runs.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t Pid() const { return m_pid; }
    void Signal(int signal) const;

    /// Exit status, 128 + n after signal n; -1 when it still runs after the limit.
    int Wait(std::chrono::milliseconds limit = std::chrono::seconds(30));

private:
    pid_t m_pid = -1;
    std::optional<int> m_status;
};

} // namespace TestSupport
