// Runs the configured commands. Internal to the daemon.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace DeviceStackServer {

/// Starts programs and logs how they end. Never waits for one.
class Commands {
public:
    explicit Commands(boost::asio::io_context& context);

    /// Starts argv[0], looked for in PATH, with nothing as its input and without any of the daemon's sockets.
    void Run(const std::vector<std::string>& argv);

private:
    void WaitForChildren();
    void Reap();

    boost::asio::signal_set m_signals;
    std::map<pid_t, std::string> m_running;
};

} // namespace DeviceStackServer
