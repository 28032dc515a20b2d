// The clocks of the system. Internal to the daemon.
#pragma once

#include "DeviceStackServer/Instant.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include <cstdint>
#include <functional>
#include <string>

namespace DeviceStackServer {

Instant Now();

/// Local time minus UTC in the zone of the process.
Seconds LocalOffset(Seconds utc);

/// Sets the system clock to a local time. "" or why it cannot be set.
std::string SetSystemClock(Seconds civil);

/// Wakes when the system clock was set, and at one moment of UTC. Sleeps otherwise.
class SystemClockWatch {
public:
    SystemClockWatch(boost::asio::io_context& context, std::function<void()> onWake);

    /// Waits for `utc`, replacing what was waited for. "" or why it cannot.
    std::string WaitFor(Seconds utc);

private:
    void Read();

    boost::asio::posix::stream_descriptor m_timer;
    const std::function<void()> m_onWake;
    std::uint64_t m_expirations = 0;
    bool m_started = false;
};

} // namespace DeviceStackServer
