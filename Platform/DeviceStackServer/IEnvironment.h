// What the state machine of the device stack asks of the world around it.
#pragma once

#include "DeviceStackServer/Client.h"

#include <memory>
#include <string>

namespace DeviceStackServer {

/// One message with its line feed, shared by all its receivers.
using Line = std::shared_ptr<const std::string>;

/// Implemented by the daemon with sockets and files, and by tests. All calls come from inside Core's
/// operations.
class IEnvironment {
public:
    /// How a message counts when its receiver does not read.
    enum class Kind {
        Answer, ///< follows from what the receiver said: no more is taken from it until it reads
        Event,  ///< it comes unasked: a receiver with too many of them is cut off
    };

    virtual ~IEnvironment() = default;

    virtual void Send(Connection connection, Line line, Kind kind) = 0;

    /// Stops taking messages from the connection, or goes on. What goes on comes later, not from inside.
    virtual void SetPaused(Connection connection, bool paused) = 0;

    /// When the peer of the connection no longer exists: takes its last messages, reports it with
    /// Core::OnDisconnected() and returns true.
    virtual bool ReleaseIfDead(Connection connection) = 0;

    /// A persistent value has changed, a data point was given an id: the files are to be written.
    virtual void ValuesChanged() = 0;
    virtual void IdsChanged() = 0;

    /// Runs what the configuration has for a restart of the device, after the answers that were sent before.
    virtual void Restart() = 0;

    /// Runs what the configuration has for switching network time on or off.
    virtual void SwitchNtp(bool on) = 0;

    /// Sets the system clock to a local time and tells what it shows then, in UTC. Nothing when that is not
    /// configured or not allowed.
    virtual std::optional<Milliseconds> SetSystemClock(Seconds civil) = 0;

    /// Reads the project file again, see Core::SetProject(). "" or the cause of a refusal.
    virtual std::string ReloadProject() = 0;

    /// The directory for data of the registered application, created if need be and shared with no other
    /// identity; "" when that failed.
    virtual std::string MakeUserDataPath(const Client& client) = 0;
};

} // namespace DeviceStackServer
