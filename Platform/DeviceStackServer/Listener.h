// The socket that clients connect to. Internal to the daemon.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/steady_timer.hpp>

#include <functional>
#include <string>

namespace DeviceStackServer {

class Listener {
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    explicit Listener(boost::asio::io_context& context) : m_acceptor(context), m_pause(context) {}
    ~Listener() { Close(); }

    /// Takes the socket file over from a dead server, never from a living one. Creates its directory if need
    /// be.
    /// "" or one sentence.
    std::string Open(const std::string& path, unsigned mode);

    /// Hands out connections until Close().
    void Accept(std::function<void(Socket)> onConnection);

    /// Stops listening and removes the socket file.
    void Close();

private:
    void WaitForConnection();

    boost::asio::local::stream_protocol::acceptor m_acceptor;
    boost::asio::steady_timer m_pause; // while there are no descriptors
    std::function<void(Socket)> m_onConnection;
    std::string m_path;
};

} // namespace DeviceStackServer
