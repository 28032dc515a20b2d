// A connection to the device stack that asks one thing at a time.
#pragma once

#include "DeviceStackProtocol/LineBuffer.h"
#include "DeviceStackProtocol/Messages.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <stdexcept>
#include <string>

namespace Dsctl {

/// There is no device stack, it went away or it does not answer. The text is one sentence for people.
class NotThere : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Connection {
public:
    /// Throws NotThere.
    explicit Connection(std::string socketPath);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Sends a request and waits for its answer; what comes between is kept for Next(). Throws NotThere, also
    /// when no answer comes in time.
    template <typename Message>
    DeviceStack::Reply Ask(const Message& message, std::chrono::seconds timeout = std::chrono::seconds(10)) {
        const auto id = std::to_string(++m_lastId);
        Send(ToLine(id, message));
        return WaitForReply(id, timeout);
    }

    /// The next message that is no answer, as long as it takes. Throws NotThere.
    DeviceStack::FromDeviceStack Next();

private:
    using Clock = std::chrono::steady_clock;

    void Send(std::string_view line);
    DeviceStack::Reply WaitForReply(const std::string& id, std::chrono::seconds timeout);
    DeviceStack::FromDeviceStack Receive(Clock::time_point deadline);

    const std::string m_socketPath;
    int m_socket = -1;
    std::uint64_t m_lastId = 0;
    DeviceStack::LineBuffer m_lines{DeviceStack::kMaxReplyLine};
    std::deque<DeviceStack::FromDeviceStack> m_kept;
};

} // namespace Dsctl
