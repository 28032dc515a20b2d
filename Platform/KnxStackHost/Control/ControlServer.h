// The control socket of the host: who connects there may look at it and switch it.
#pragma once

#include "DaemonSupport/LocalListener.h"
#include "KnxStackHost/Configuration/Configuration.h"
#include "KnxStackHost/Control/ControlTarget.h"
#include "KnxStackHost/Notices.h"

#include <boost/asio/io_context.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace KnxStackHost {

/// Serves clients of a Unix socket: one JSON object per line. Nothing it keeps grows: there are at most
/// kMostClients, and a client that leaves more than kMostUnread bytes unread is cut off. All calls on the
/// thread of the io_context.
class ControlServer {
public:
    static constexpr std::size_t kMostClients = 16;
    static constexpr std::size_t kLongestRequest = std::size_t{64} * 1024; ///< with its line feed
    static constexpr std::size_t kMostUnread = std::size_t{256} * 1024;    ///< beside what the system keeps

    /// Opens the socket. `target` outlives this object. Throws LinkError.
    ControlServer(boost::asio::io_context& context, const ControlSettings& settings, ControlTarget& target);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    /// Begins to take clients.
    void Start();
    /// Ends every connection and removes the socket.
    void Stop();

    /// Whether anybody wants to be told of telegrams.
    bool IsWatched() const;
    /// Tells everybody who wants to be told.
    void Publish(const std::string& message);

private:
    class Client;

    void Take(DaemonSupport::LocalListener::Socket socket);
    void Forget(const Client& client);

    ControlTarget& m_target;
    DaemonSupport::LocalListener m_listener;
    std::vector<std::shared_ptr<Client>> m_clients;
    LinePace m_turnedAway{20};
};

} // namespace KnxStackHost
