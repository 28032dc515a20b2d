#include "KnxStackHost/Tcp.h"

#include "KnxStackHost/ExceptionText.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <utility>

namespace KnxStackHost {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr unsigned kReadsPerTurn = 16; // before timers and other sockets get their turn
constexpr std::chrono::seconds kAcceptPause{1};

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Link");
    return logger;
}

tcp::endpoint ToAsio(const KnxIp::Endpoint& endpoint) {
    return {asio::ip::address_v4(endpoint.address), endpoint.port};
}

KnxIp::Endpoint FromAsio(const tcp::endpoint& endpoint) {
    return {endpoint.address().to_v4().to_uint(), endpoint.port()};
}

} // namespace

struct TcpServer::Stream {
    Stream(KnxIp::StreamId number, tcp::socket ownSocket, const KnxIp::Endpoint& client)
        : id(number), socket(std::move(ownSocket)), peer(client) {}

    const KnxIp::StreamId id;
    tcp::socket socket;
    const KnxIp::Endpoint peer;
    std::vector<std::uint8_t> unsent;
    bool isOpen = true;
};

TcpServer::TcpServer(asio::io_context& context, std::size_t mostStreams, TcpStreamUser& user)
    : m_context(context), m_mostStreams(mostStreams), m_user(user), m_acceptor(context),
      m_acceptAgain(context) {}

TcpServer::~TcpServer() = default;

void TcpServer::Open(const KnxIp::Endpoint& local) {
    m_acceptor.open(tcp::v4());
    // Former connections to this port may linger in the system; another listener is refused all the same.
    m_acceptor.set_option(tcp::acceptor::reuse_address(true));
    try {
        m_acceptor.bind(ToAsio(local));
        m_acceptor.listen();
    } catch (...) {
        m_acceptor.close();
        throw;
    }
    m_acceptor.non_blocking(true);
}

void TcpServer::Start() {
    Accept();
}

void TcpServer::Accept() {
    m_acceptor.async_accept([this](const error_code& error, tcp::socket socket) {
        if (error == asio::error::operation_aborted)
            return;
        if (!error) {
            Take(std::move(socket));
            Accept();
            return;
        }
        // Out of descriptors, maybe: the system would say so again at once, and for ever.
        m_acceptAgain.expires_after(kAcceptPause);
        m_acceptAgain.async_wait([this](const error_code& cancelled) {
            if (!cancelled)
                Accept();
        });
    });
}

void TcpServer::Take(tcp::socket socket) {
    error_code error;
    const auto remote = socket.remote_endpoint(error);
    if (error)
        return; // gone already
    const auto from = FromAsio(remote);
    if (m_streams.size() >= m_mostStreams) {
        const auto verdict = m_full.Count(from.address, "full");
        if (verdict != Notices::Verdict::Silent)
            LOG4CPLUS_WARN(Log(), fmt::format("{}: was turned away: {} TCP connections are open{}",
                                              from.ToString(), m_streams.size(), Suffix(verdict)));
        return;
    }
    socket.set_option(tcp::no_delay(true), error);
    socket.non_blocking(true, error);
    const auto stream = std::make_shared<Stream>(++m_lastStream, std::move(socket), from);
    m_streams.emplace(stream->id, stream);
    Tell(stream, [&] { m_user.OnStreamOpened(stream->id, from); });
    WaitForOctets(stream);
}

void TcpServer::WaitForOctets(const StreamPointer& stream) {
    stream->socket.async_wait(tcp::socket::wait_read, [this, stream](const error_code& error) {
        if (error || !stream->isOpen)
            return;
        ReceiveWaiting(stream);
        if (stream->isOpen)
            WaitForOctets(stream);
    });
}

void TcpServer::ReceiveWaiting(const StreamPointer& stream) {
    for (unsigned i = 0; i < kReadsPerTurn && stream->isOpen; ++i) {
        error_code error;
        const auto size = stream->socket.read_some(asio::buffer(m_buffer), error);
        if (error == asio::error::would_block || error == asio::error::interrupted)
            return;
        if (error) {
            Lose(stream);
            Tell(stream, [&] { m_user.OnStreamClosed(stream->id); });
            return;
        }
        Tell(stream, [&] { m_user.OnStreamOctets(stream->id, {m_buffer.data(), size}); });
    }
}

void TcpServer::Send(KnxIp::StreamId id, KnxFrames::Octets octets) {
    const auto found = m_streams.find(id);
    if (found == m_streams.end())
        return;
    const StreamPointer stream = found->second;
    if (stream->unsent.empty()) {
        error_code error;
        const auto sent = stream->socket.write_some(asio::buffer(octets.data(), octets.size()), error);
        if (!error)
            octets = octets.subspan(sent);
        // Any other error than a lack of room is told by the next read.
        if (octets.empty())
            return;
        WaitForRoom(stream);
    }
    if (stream->unsent.size() + octets.size() <= kMostUnsent) {
        stream->unsent.insert(stream->unsent.end(), octets.begin(), octets.end());
        return;
    }
    const auto verdict = m_slow.Count(stream->peer.address, "slow");
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(),
                       fmt::format("{}: does not read; its TCP connection is given up with {} KiB not sent{}",
                                   stream->peer.ToString(), stream->unsent.size() / 1024, Suffix(verdict)));
    Lose(stream);
    asio::post(m_context, [this, stream] { Tell(stream, [&] { m_user.OnStreamClosed(stream->id); }); });
}

void TcpServer::WaitForRoom(const StreamPointer& stream) {
    stream->socket.async_wait(tcp::socket::wait_write, [this, stream](const error_code& error) {
        if (!error && stream->isOpen)
            SendWaiting(stream);
    });
}

void TcpServer::SendWaiting(const StreamPointer& stream) {
    error_code error;
    auto& unsent = stream->unsent;
    const auto sent = stream->socket.write_some(asio::buffer(unsent), error);
    if (error && error != asio::error::would_block && error != asio::error::interrupted)
        return; // told by the next read
    if (!error)
        unsent.erase(unsent.begin(), unsent.begin() + static_cast<std::ptrdiff_t>(sent));
    if (unsent.empty())
        unsent.shrink_to_fit(); // it was a burst
    else
        WaitForRoom(stream);
}

void TcpServer::Close(KnxIp::StreamId id) {
    const auto found = m_streams.find(id);
    if (found == m_streams.end())
        return;
    const StreamPointer stream = found->second;
    Lose(stream);
}

std::uint16_t TcpServer::Port() const {
    error_code error;
    const auto local = m_acceptor.local_endpoint(error);
    return error ? std::uint16_t{0} : local.port();
}

std::size_t TcpServer::Unsent(KnxIp::StreamId stream) const {
    const auto found = m_streams.find(stream);
    return found == m_streams.end() ? 0 : found->second->unsent.size();
}

void TcpServer::Lose(const StreamPointer& stream) {
    stream->isOpen = false;
    m_streams.erase(stream->id);
    error_code ignored;
    stream->socket.close(ignored);
}

/// Calls the user, who may throw.
template <class Call>
void TcpServer::Tell(const StreamPointer& stream, Call call) {
    try {
        call();
    } catch (...) {
        const auto verdict = m_thrown.Count(stream->peer.address, "thrown");
        if (verdict != Notices::Verdict::Silent)
            LOG4CPLUS_ERROR(Log(),
                            fmt::format("{}: what came over TCP could not be handled: {}{}",
                                        stream->peer.ToString(), CurrentExceptionText(), Suffix(verdict)));
    }
}

} // namespace KnxStackHost
