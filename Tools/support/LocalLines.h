// Lines to and from a daemon over its Unix socket.
#pragma once

#include "DeviceStackProtocol/LineBuffer.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Tools {

/// There is no daemon, it went away or it does not answer. The text is one sentence for people.
class NotThere : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// How messages name the daemon.
struct DaemonName {
    const char* what;    ///< "device stack"
    const char* program; ///< "devicestackd"
};

class LocalLines {
public:
    using Clock = std::chrono::steady_clock;

    /// Connects. `longest` is the longest line that is taken, in bytes. Throws NotThere.
    LocalLines(std::string socketPath, DaemonName daemon, std::size_t longest);
    ~LocalLines();
    LocalLines(const LocalLines&) = delete;
    LocalLines& operator=(const LocalLines&) = delete;

    /// Sends a line that ends with its line feed. Throws NotThere.
    void Send(std::string_view line);

    /// The next line without its line feed, valid until the next call. Throws NotThere, also when none comes
    /// before `deadline`.
    std::string_view Receive(Clock::time_point deadline);

    /// Likewise, but nothing when none comes in time.
    std::optional<std::string_view> TryReceive(Clock::time_point deadline);

private:
    const std::string m_socketPath;
    const DaemonName m_daemon;
    int m_socket = -1;
    DeviceStack::LineBuffer m_lines;
};

} // namespace Tools
