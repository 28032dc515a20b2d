// One TCP stream on the link thread. Internal to the host.
#pragma once

#include "KnxFrames/FixedOctets.h"
#include "KnxIp/Endpoint.h"

#include <boost/asio/ip/tcp.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace KnxStackHost {

/// Octets both ways without waiting; what the other side does not read is kept up to a bound. All calls on
/// the thread of the socket's io_context. Whatever waits for the socket keeps the stream alive: it lives in a
/// shared_ptr, and its owner ends it with Close().
class TcpStream : public std::enable_shared_from_this<TcpStream> {
public:
    using OnOctets = std::function<void(KnxFrames::Octets)>;
    using OnEnd = std::function<void()>;

    /// `socket` is connected before Start().
    TcpStream(boost::asio::ip::tcp::socket socket, std::size_t mostUnsent);

    boost::asio::ip::tcp::socket& Socket() { return m_socket; }

    /// Begins to receive. `octets` is called with what came, cut anywhere and valid during the call; it does
    /// not throw. `ended` is called once when the other side has ended the stream, which is closed then.
    /// Neither is called inside an operation of this class.
    void Start(OnOctets octets, OnEnd ended);

    /// Sends in order. False when more would wait than may: nothing of it is kept then, and the stream is of
    /// no use any more. Nothing before Start() and after Close().
    [[nodiscard]] bool Send(KnxFrames::Octets octets);

    /// What waits for room is lost, and nothing is told any more.
    void Close();

    bool IsOpen() const { return m_isOpen; }
    std::size_t Unsent() const { return m_unsent.size(); }

private:
    void WaitForOctets();
    void ReceiveWaiting();
    void WaitForRoom();
    void SendWaiting();

    boost::asio::ip::tcp::socket m_socket;
    const std::size_t m_mostUnsent;
    OnOctets m_octets;
    OnEnd m_ended;
    std::vector<std::uint8_t> m_unsent;
    bool m_isOpen = false;
};

inline boost::asio::ip::tcp::endpoint ToTcp(const KnxIp::Endpoint& endpoint) {
    return {boost::asio::ip::address_v4(endpoint.address), endpoint.port};
}

} // namespace KnxStackHost
