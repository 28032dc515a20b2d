#include "KnxStackHost/Links/Tcp.h"

#include "KnxStackHost/ExceptionText.h"
#include "KnxStackHost/Links/MissingNetwork.h"

#include <boost/asio/post.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <utility>

namespace KnxStackHost {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr std::chrono::seconds kAcceptPause{1};

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Link");
    return logger;
}

KnxIp::Endpoint FromAsio(const tcp::endpoint& endpoint) {
    return {endpoint.address().to_v4().to_uint(), endpoint.port()};
}

} // namespace

TcpServer::TcpServer(asio::io_context& context, std::size_t mostStreams, TcpStreamUser& user)
    : m_context(context), m_mostStreams(mostStreams), m_user(user), m_acceptor(context),
      m_acceptAgain(context) {}

TcpServer::~TcpServer() = default;

void TcpServer::Open(const KnxIp::Endpoint& local) {
    m_acceptor.open(tcp::v4());
    // Former connections to this port may linger in the system; another listener is refused all the same.
    m_acceptor.set_option(tcp::acceptor::reuse_address(true));
    AllowMissingAddress(m_acceptor.native_handle());
    try {
        m_acceptor.bind(ToTcp(local));
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
    const auto id = ++m_lastStream;
    const auto stream = std::make_shared<TcpStream>(std::move(socket), kMostUnsent);
    m_streams.emplace(id, Client{stream, from});
    stream->Start([this, id, from](
                      KnxFrames::Octets octets) { Tell(from, [&] { m_user.OnStreamOctets(id, octets); }); },
                  [this, id, from] {
                      m_streams.erase(id);
                      Tell(from, [&] { m_user.OnStreamClosed(id); });
                  });
    Tell(from, [&] { m_user.OnStreamOpened(id, from); });
}

void TcpServer::Send(KnxIp::StreamId id, KnxFrames::Octets octets) {
    const auto found = m_streams.find(id);
    if (found == m_streams.end())
        return;
    const Client client = found->second;
    if (!client.stream->Send(octets))
        GiveUp(id, client);
}

void TcpServer::GiveUp(KnxIp::StreamId id, const Client& client) {
    const auto verdict = m_slow.Count(client.from.address, "slow");
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(),
                       fmt::format("{}: does not read; its TCP connection is given up with {} KiB not sent{}",
                                   client.from.ToString(), client.stream->Unsent() / 1024, Suffix(verdict)));
    Close(id);
    asio::post(m_context, [this, id, from = client.from] { Tell(from, [&] { m_user.OnStreamClosed(id); }); });
}

void TcpServer::Close(KnxIp::StreamId id) {
    const auto found = m_streams.find(id);
    if (found == m_streams.end())
        return;
    found->second.stream->Close();
    m_streams.erase(found);
}

std::uint16_t TcpServer::Port() const {
    error_code error;
    const auto local = m_acceptor.local_endpoint(error);
    return error ? std::uint16_t{0} : local.port();
}

std::size_t TcpServer::Unsent(KnxIp::StreamId stream) const {
    const auto found = m_streams.find(stream);
    return found == m_streams.end() ? 0 : found->second.stream->Unsent();
}

/// Calls the user, who may throw.
template <class Call>
void TcpServer::Tell(const KnxIp::Endpoint& from, Call call) {
    try {
        call();
    } catch (...) {
        const auto verdict = m_thrown.Count(from.address, "thrown");
        if (verdict != Notices::Verdict::Silent)
            LOG4CPLUS_ERROR(Log(), fmt::format("{}: what came over TCP could not be handled: {}{}",
                                               from.ToString(), CurrentExceptionText(), Suffix(verdict)));
    }
}

} // namespace KnxStackHost
