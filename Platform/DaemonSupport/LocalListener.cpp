#include "DaemonSupport/LocalListener.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace DaemonSupport {
namespace {

using Protocol = boost::asio::local::stream_protocol;

/// Makes room for a socket file at `path`. "" or why there is none.
std::string RemoveStaleSocket(boost::asio::io_context& context, const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0)
        return {};
    if (!S_ISSOCK(status.st_mode))
        return fmt::format("{}: there is a file that is no socket", path);
    Protocol::socket probe(context);
    boost::system::error_code error;
    probe.connect(Protocol::endpoint(path), error);
    if (!error)
        return fmt::format("{}: another server listens at this socket", path);
    if (error != boost::asio::error::connection_refused)
        return fmt::format("{}: the socket of another server is there, and whether it lives is not known: {}",
                           path, error.message());
    ::unlink(path.c_str());
    return {};
}

} // namespace

std::string LocalListener::Open(const std::string& path, unsigned mode) {
    constexpr std::size_t kMaxPath = sizeof(sockaddr_un::sun_path) - 1;
    if (path.size() > kMaxPath)
        return fmt::format("{}: a socket path has at most {} bytes", path, kMaxPath);
    std::error_code failure;
    const auto directory = std::filesystem::path(path).parent_path();
    if (!directory.empty())
        std::filesystem::create_directories(directory, failure);
    if (failure)
        return fmt::format("{}: the directory of the socket cannot be created: {}", path, failure.message());
    auto& context = static_cast<boost::asio::io_context&>(m_acceptor.get_executor().context());
    if (auto error = RemoveStaleSocket(context, path); !error.empty())
        return error;
    boost::system::error_code error;
    m_acceptor.open(Protocol(), error);
    // Nobody may connect before the mode is set.
    const auto mask = ::umask(0777 & ~mode);
    if (!error)
        m_acceptor.bind(Protocol::endpoint(path), error);
    ::umask(mask);
    if (error)
        return fmt::format("{}: the socket cannot be created: {}", path, error.message());
    m_path = path;
    ::fcntl(m_acceptor.native_handle(), F_SETFD, FD_CLOEXEC);
    m_acceptor.listen(boost::asio::socket_base::max_listen_connections, error);
    return error ? fmt::format("{}: {}", path, error.message()) : std::string();
}

void LocalListener::Accept(std::function<void(Socket)> onConnection) {
    m_onConnection = std::move(onConnection);
    WaitForConnection();
}

void LocalListener::WaitForConnection() {
    m_acceptor.async_accept([this](const boost::system::error_code& error, Socket socket) {
        if (!m_acceptor.is_open())
            return;
        if (!error) {
            ::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
            m_onConnection(std::move(socket));
            return WaitForConnection();
        }
        LOG4CPLUS_WARN(log4cplus::Logger::getInstance(m_logger),
                       "A connection cannot be taken: " << error.message() << '.');
        m_pause.expires_after(std::chrono::seconds(1));
        m_pause.async_wait([this](const boost::system::error_code& cancelled) {
            if (!cancelled)
                WaitForConnection();
        });
    });
}

void LocalListener::Close() {
    if (m_path.empty())
        return;
    boost::system::error_code ignored;
    m_acceptor.close(ignored);
    m_pause.cancel();
    ::unlink(m_path.c_str());
    m_path.clear();
}

} // namespace DaemonSupport
