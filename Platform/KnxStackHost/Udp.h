// UDP sockets and deadlines on the link thread. Internal to this folder.
#pragma once

#include "KnxIp/Frames.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

namespace KnxStackHost {

using TimePoint = std::chrono::steady_clock::time_point;

/// One UDP socket. All calls on the thread of the io_context.
class UdpSocket {
public:
    using Receive = std::function<void(const KnxIp::Endpoint& from, KnxFrames::Octets datagram)>;

    UdpSocket(boost::asio::io_context& context, Receive receive);

    /// Binds to the address alone: nobody else may have the port. Throws boost::system::system_error.
    void Open(const KnxIp::Endpoint& local);

    /// Binds to a multicast group, which others on this machine may listen to as well, and joins it on the
    /// interface with the address, 0 = the system's choice. Throws boost::system::system_error.
    void OpenGroup(const KnxIp::Endpoint& group, std::uint32_t interfaceAddress);

    /// Begins to receive.
    void Start();

    /// Sends now or never: a datagram that finds no room is lost.
    void Send(const KnxIp::Endpoint& to, KnxFrames::Octets datagram);

    KnxIp::Endpoint Local() const;

private:
    void WaitForDatagrams();
    void ReceiveWaiting();

    boost::asio::ip::udp::socket m_socket;
    Receive m_receive;
    std::array<std::uint8_t, 1024>
        m_buffer{}; // longer than any KNXnet/IP datagram; what is cut off is malformed
};

/// A timer that only ever wakes when something may be due.
class Deadline {
public:
    Deadline(boost::asio::io_context& context, std::function<void()> due);

    /// Wakes at the time, or not at all. Cheap when the time moves back, as it does with each telegram: the
    /// timer then rings once too early and is set anew.
    void Set(std::optional<TimePoint> time);

private:
    void Arm(TimePoint time);

    boost::asio::steady_timer m_timer;
    std::function<void()> m_due;
    std::optional<TimePoint> m_armed;
};

KnxIp::Endpoint EndpointOf(const std::string& ipv4, std::uint16_t port);

/// The address of this machine that a datagram to `peer` leaves from; 0 when there is no route.
std::uint32_t LocalAddressTowards(boost::asio::io_context& context, const KnxIp::Endpoint& peer);

} // namespace KnxStackHost
