// The TCP stream to a server on the link thread. Internal to the host.
#pragma once

#include "KnxIp/Endpoint.h"
#include "KnxStackHost/Links/TcpStream.h"
#include "KnxStackHost/Notices.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace KnxStackHost {

/// One TCP stream at a time, opened towards a server. All calls on the thread of the io_context.
class TcpClient {
public:
    /// Called on the thread of the io_context, never inside an operation of this class. What they throw is
    /// logged, and the stream goes on.
    struct Events {
        std::function<void()> opened;
        std::function<void(KnxFrames::Octets)> octets; ///< valid during the call
        std::function<void()> closed;                  ///< could not be opened, or has ended
    };

    /// What may wait for a server that does not read, before the stream counts as ended.
    static constexpr std::size_t kMostUnsent = std::size_t{64} * 1024;

    TcpClient(boost::asio::io_context& context, Events events);
    ~TcpClient();

    /// Begins to open a stream from the address (0 = the system's choice); ends the one before.
    void Open(const KnxIp::Endpoint& server, std::uint32_t localAddress);

    /// Sends without waiting; in order. Nothing without an open stream.
    void Send(KnxFrames::Octets octets);

    /// Ends the stream, or gives up opening it. Nothing of it is told any more.
    void Close();

private:
    using StreamPointer = std::shared_ptr<TcpStream>;

    void Connected(const StreamPointer& stream);
    void Fail(const StreamPointer& stream);
    template <class Call>
    void Tell(Call call);

    boost::asio::io_context& m_context;
    const Events m_events;
    StreamPointer m_stream; // the one that counts
    Notices m_thrown;
};

} // namespace KnxStackHost
