// The Unix socket that the clients of a daemon connect to.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/steady_timer.hpp>

#include <functional>
#include <string>

namespace DaemonSupport {

/// All calls on the thread of the io_context.
class LocalListener {
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    /// `logger` has a name for life: the one that warnings are logged under.
    LocalListener(boost::asio::io_context& context, const char* logger)
        : m_acceptor(context), m_pause(context), m_logger(logger) {}
    ~LocalListener() { Close(); }

    /// Takes the socket file over from a dead server, never from a living one. Creates its directory if need
    /// be.
    /// "" or one sentence.
    std::string Open(const std::string& path, unsigned mode);

    /// Hands out connections until Close().
    void Accept(std::function<void(Socket)> onConnection);

    /// Of the socket file; "" while closed.
    const std::string& Path() const { return m_path; }

    /// Stops listening and removes the socket file.
    void Close();

private:
    void WaitForConnection();

    boost::asio::local::stream_protocol::acceptor m_acceptor;
    boost::asio::steady_timer m_pause; // while there are no descriptors
    const char* const m_logger;
    std::function<void(Socket)> m_onConnection;
    std::string m_path;
};

} // namespace DaemonSupport
