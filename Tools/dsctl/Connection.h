// A connection to the device stack that asks one thing at a time.
#pragma once

#include "DeviceStackProtocol/Messages.h"
#include "Tools/support/LocalLines.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

namespace Dsctl {

using ::Tools::NotThere;

class Connection {
public:
    /// Throws NotThere.
    explicit Connection(std::string socketPath);

    /// Sends a request and waits for its answer; what comes between is kept for Next(). Throws NotThere, also
    /// when no answer comes in time.
    template <typename Message>
    DeviceStack::Reply Ask(const Message& message, std::chrono::seconds timeout = std::chrono::seconds(10)) {
        const auto id = std::to_string(++m_lastId);
        m_lines.Send(ToLine(id, message));
        return WaitForReply(id, timeout);
    }

    /// The next message that is no answer, as long as it takes. Throws NotThere.
    DeviceStack::FromDeviceStack Next();

private:
    using Clock = ::Tools::LocalLines::Clock;

    DeviceStack::Reply WaitForReply(const std::string& id, std::chrono::seconds timeout);
    DeviceStack::FromDeviceStack Receive(Clock::time_point deadline);

    ::Tools::LocalLines m_lines;
    std::uint64_t m_lastId = 0;
    std::deque<DeviceStack::FromDeviceStack> m_kept;
};

} // namespace Dsctl
