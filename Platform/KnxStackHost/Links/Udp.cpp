#include "KnxStackHost/Links/Udp.h"

#include "KnxStackHost/ExceptionText.h"
#include "KnxStackHost/Links/MissingNetwork.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/multicast.hpp>
#include <boost/asio/socket_base.hpp>
#include <boost/system/system_error.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

namespace KnxStackHost {

namespace asio = boost::asio;
namespace multicast = asio::ip::multicast;
using asio::ip::udp;
using boost::system::error_code;

namespace {

constexpr unsigned kDatagramsPerTurn = 64; // before timers and other sockets get their turn
constexpr std::chrono::seconds kAfterThrow{1};
constexpr int kGroupHops = 16; // as the KNX Standard has it

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Link");
    return logger;
}

udp::endpoint ToAsio(const KnxIp::Endpoint& endpoint) {
    return {asio::ip::address_v4(endpoint.address), endpoint.port};
}

KnxIp::Endpoint FromAsio(const udp::endpoint& endpoint) {
    return {endpoint.address().to_v4().to_uint(), endpoint.port()};
}

} // namespace

UdpSocket::UdpSocket(asio::io_context& context, Receive receive)
    : m_socket(context), m_membership(context), m_receive(std::move(receive)) {}

void UdpSocket::Open(const KnxIp::Endpoint& local) {
    m_socket.open(udp::v4());
    // Only groups that a socket itself has joined: one of our own receives the searches.
    const int no = 0;
    ::setsockopt(m_socket.native_handle(), IPPROTO_IP, IP_MULTICAST_ALL, &no, sizeof no);
    AllowMissingAddress(m_socket.native_handle());
    m_socket.bind(ToAsio(local));
    m_socket.non_blocking(true);
}

void UdpSocket::OpenGroup(const KnxIp::Endpoint& group, std::uint32_t interfaceAddress) {
    m_group = group;
    m_groupInterface = interfaceAddress;
    m_socket.open(udp::v4());
    m_socket.set_option(udp::socket::reuse_address(true));
    m_socket.bind(ToAsio(group));
    m_socket.non_blocking(true);
    m_groupFault = Join();
    if (m_groupFault && !MayComeYet(m_groupFault))
        throw boost::system::system_error(m_groupFault);
    m_hasJoined = !m_groupFault;
}

void UdpSocket::SendToGroups() {
    m_sendsToGroups = true;
    m_socket.set_option(multicast::hops(kGroupHops));
    m_socket.set_option(multicast::enable_loopback(true));
    if (m_hasJoined)
        m_groupFault = SendByGroupInterface();
    m_hasJoined = !m_groupFault;
}

/// A membership belongs to an interface and dies with it, but a socket goes on to believe in it: it can
/// neither join again nor leave. So another socket has joined for the one that receives, and a new one takes
/// its place; the old one leaves only then, so that the network is told nothing when nothing has changed.
error_code UdpSocket::Join() {
    error_code error;
    udp::socket membership(m_socket.get_executor());
    membership.open(udp::v4(), error);
    if (!error)
        membership.set_option(multicast::join_group(asio::ip::address_v4(m_group.address),
                                                    asio::ip::address_v4(m_groupInterface)),
                              error);
    if (error)
        return error;
    m_membership = std::move(membership);
    return SendByGroupInterface();
}

/// To be said each time: the socket does not keep the address, but the interface that had it.
error_code UdpSocket::SendByGroupInterface() {
    error_code error;
    if (m_sendsToGroups && m_groupInterface != 0)
        m_socket.set_option(multicast::outbound_interface(asio::ip::address_v4(m_groupInterface)), error);
    return error;
}

void UdpSocket::RenewGroup() {
    const auto before = std::exchange(m_groupFault, Join());
    if (m_groupFault && !before)
        LOG4CPLUS_WARN(Log(), fmt::format("cut off from the multicast group {}: {}; it is joined again "
                                          "when the network is back, and what is sent to it is lost "
                                          "until then",
                                          m_group.ToString(), m_groupFault.message()));
    else if (before && !m_groupFault)
        LOG4CPLUS_INFO(Log(), fmt::format("joined the multicast group {}{}", m_group.ToString(),
                                          std::exchange(m_hasJoined, true) ? " again" : ""));
}

void UdpSocket::ShareAddress(bool share) {
    m_socket.set_option(udp::socket::reuse_address(share));
}

void UdpSocket::Close() {
    error_code ignored;
    m_socket.close(ignored);
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
        HandOver(FromAsio(from), {m_buffer.data(), size});
    }
}

void UdpSocket::HandOver(const KnxIp::Endpoint& from, KnxFrames::Octets datagram) {
    try {
        m_receive(from, datagram);
    } catch (...) {
        const auto verdict = m_thrown.Count(from.address, "thrown");
        if (verdict != Notices::Verdict::Silent)
            LOG4CPLUS_ERROR(Log(), fmt::format("{}: a datagram could not be handled: {}{}", from.ToString(),
                                               CurrentExceptionText(), Suffix(verdict)));
    }
}

bool UdpSocket::Send(const KnxIp::Endpoint& to, KnxFrames::Octets datagram) {
    if (m_sendsToGroups && !m_hasJoined)
        return false; // it would leave by another interface
    error_code error;
    m_socket.send_to(asio::buffer(datagram.data(), datagram.size()), ToAsio(to), 0, error);
    return !error;
}

KnxIp::Endpoint UdpSocket::Local() const {
    error_code error;
    const auto local = m_socket.local_endpoint(error);
    return error ? KnxIp::Endpoint{} : FromAsio(local);
}

Deadline::Deadline(asio::io_context& context, Due due) : m_timer(context), m_due(std::move(due)) {}

void Deadline::Set(std::optional<TimePoint> time) {
    if (time && (!m_armed || *time < *m_armed))
        Arm(*time);
}

void Deadline::Arm(TimePoint time) {
    m_armed = time;
    m_timer.expires_at(time);
    m_timer.async_wait([this](const error_code& error) {
        if (!error)
            Ring();
    });
}

void Deadline::Ring() {
    m_armed.reset();
    try {
        Set(m_due());
    } catch (...) {
        LOG4CPLUS_ERROR(Log(), fmt::format("what was due could not be done: {}", CurrentExceptionText()));
        Set(std::chrono::steady_clock::now() + kAfterThrow);
    }
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
