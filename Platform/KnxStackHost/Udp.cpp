#include "KnxStackHost/Udp.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/multicast.hpp>
#include <boost/asio/socket_base.hpp>

#include <netinet/in.h>
#include <sys/socket.h>

namespace KnxStackHost {

namespace asio = boost::asio;
using asio::ip::udp;
using boost::system::error_code;

namespace {

constexpr unsigned kDatagramsPerTurn = 64; // before timers and other sockets get their turn

udp::endpoint ToAsio(const KnxIp::Endpoint& endpoint) {
    return {asio::ip::address_v4(endpoint.address), endpoint.port};
}

KnxIp::Endpoint FromAsio(const udp::endpoint& endpoint) {
    return {endpoint.address().to_v4().to_uint(), endpoint.port()};
}

} // namespace

UdpSocket::UdpSocket(asio::io_context& context, Receive receive)
    : m_socket(context), m_receive(std::move(receive)) {}

void UdpSocket::Open(const KnxIp::Endpoint& local) {
    m_socket.open(udp::v4());
    // Only groups that a socket itself has joined: one of our own receives the searches.
    const int no = 0;
    ::setsockopt(m_socket.native_handle(), IPPROTO_IP, IP_MULTICAST_ALL, &no, sizeof no);
    m_socket.bind(ToAsio(local));
    // After the bind, so that a second host on this port is refused, but before that of the group's socket.
    m_socket.set_option(udp::socket::reuse_address(true));
    m_socket.non_blocking(true);
}

void UdpSocket::OpenGroup(const KnxIp::Endpoint& group, std::uint32_t interfaceAddress) {
    m_socket.open(udp::v4());
    m_socket.set_option(udp::socket::reuse_address(true));
    m_socket.bind(ToAsio(group));
    m_socket.set_option(asio::ip::multicast::join_group(asio::ip::address_v4(group.address),
                                                        asio::ip::address_v4(interfaceAddress)));
    m_socket.non_blocking(true);
}

void UdpSocket::Start() {
    WaitForDatagrams();
}

void UdpSocket::WaitForDatagrams() {
    m_socket.async_wait(udp::socket::wait_read, [this](const error_code& error) {
        if (error == asio::error::operation_aborted)
            return;
        ReceiveWaiting();
        WaitForDatagrams();
    });
}

void UdpSocket::ReceiveWaiting() {
    for (unsigned i = 0; i < kDatagramsPerTurn; ++i) {
        udp::endpoint from;
        error_code error;
        const auto size = m_socket.receive_from(asio::buffer(m_buffer), from, 0, error);
        if (error)
            return;
        m_receive(FromAsio(from), {m_buffer.data(), size});
    }
}

void UdpSocket::Send(const KnxIp::Endpoint& to, KnxFrames::Octets datagram) {
    error_code ignored;
    m_socket.send_to(asio::buffer(datagram.data(), datagram.size()), ToAsio(to), 0, ignored);
}

KnxIp::Endpoint UdpSocket::Local() const {
    error_code error;
    const auto local = m_socket.local_endpoint(error);
    return error ? KnxIp::Endpoint{} : FromAsio(local);
}

Deadline::Deadline(asio::io_context& context, std::function<void()> due)
    : m_timer(context), m_due(std::move(due)) {}

void Deadline::Set(std::optional<TimePoint> time) {
    if (time && (!m_armed || *time < *m_armed))
        Arm(*time);
}

void Deadline::Arm(TimePoint time) {
    m_armed = time;
    m_timer.expires_at(time);
    m_timer.async_wait([this](const error_code& error) {
        if (error)
            return;
        m_armed.reset();
        m_due();
    });
}

KnxIp::Endpoint EndpointOf(const std::string& ipv4, std::uint16_t port) {
    return {ipv4.empty() ? 0 : asio::ip::make_address_v4(ipv4).to_uint(), port};
}

std::uint32_t LocalAddressTowards(asio::io_context& context, const KnxIp::Endpoint& peer) {
    error_code error;
    udp::socket probe(context);
    probe.open(udp::v4(), error);
    probe.connect(ToAsio(peer), error); // sends nothing: it only chooses a route
    const auto local = probe.local_endpoint(error);
    return error ? 0 : FromAsio(local).address;
}

} // namespace KnxStackHost
