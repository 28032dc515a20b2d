// TCP streams of clients on the link thread. Internal to the host.
#pragma once

#include "KnxIp/Peer.h"
#include "KnxStackHost/Links/TcpStream.h"
#include "KnxStackHost/Notices.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

namespace KnxStackHost {

/// Receives what happens to TCP streams. What an operation throws is logged, and the streams go on.
class TcpStreamUser {
public:
    virtual ~TcpStreamUser() = default;

    virtual void OnStreamOpened(KnxIp::StreamId stream, const KnxIp::Endpoint& from) = 0;
    /// Octets came, cut anywhere; valid during the call.
    virtual void OnStreamOctets(KnxIp::StreamId stream, KnxFrames::Octets octets) = 0;
    /// The stream has ended, but not by TcpServer::Close(). Never called inside an operation of TcpServer.
    virtual void OnStreamClosed(KnxIp::StreamId stream) = 0;
};

/// Accepts TCP streams and owns them. All calls on the thread of the io_context.
///
/// Everything is bounded: the number of streams, since whoever comes when they are all in use is turned away,
/// and what waits for one, since a client that does not read loses its stream.
class TcpServer {
public:
    /// Some 8,000 telegrams, beside what the system itself keeps.
    static constexpr std::size_t kMostUnsent = std::size_t{256} * 1024;

    /// At most `mostStreams` at a time. `user` outlives this object.
    TcpServer(boost::asio::io_context& context, std::size_t mostStreams, TcpStreamUser& user);
    ~TcpServer();

    /// Listens; accepts from Start() on. The address need not be there yet. Throws
    /// boost::system::system_error.
    void Open(const KnxIp::Endpoint& local);
    void Start();

    /// Sends in the stream without waiting; in order. Nothing for a stream that is not open.
    void Send(KnxIp::StreamId id, KnxFrames::Octets octets);

    /// Ends a stream; what waits for room in it is lost. Nothing for a stream that is not open.
    void Close(KnxIp::StreamId id);

    /// Port that is listened on; 0 before Open().
    std::uint16_t Port() const;

    /// Octets that wait for room in a stream.
    std::size_t Unsent(KnxIp::StreamId stream) const;

    /// Streams that were turned away, and those that were given up because their clients did not read.
    std::uint64_t Refused() const { return m_full.Total(); }
    std::uint64_t GivenUp() const { return m_slow.Total(); }

private:
    struct Client {
        std::shared_ptr<TcpStream> stream;
        KnxIp::Endpoint from;
    };

    void Accept();
    void Take(boost::asio::ip::tcp::socket socket);
    void GiveUp(KnxIp::StreamId id, const Client& client);
    template <class Call>
    void Tell(const KnxIp::Endpoint& from, Call call);

    boost::asio::io_context& m_context;
    const std::size_t m_mostStreams;
    TcpStreamUser& m_user;
    boost::asio::ip::tcp::acceptor m_acceptor;
    boost::asio::steady_timer m_acceptAgain;
    std::map<KnxIp::StreamId, Client> m_streams;
    KnxIp::StreamId m_lastStream = 0;
    Notices m_full;
    Notices m_slow;
    Notices m_thrown;
};

} // namespace KnxStackHost
