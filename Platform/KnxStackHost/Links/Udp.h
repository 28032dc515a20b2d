// UDP sockets and deadlines on the link thread. Internal to the host.
#pragma once

#include "KnxIp/Frames.h"
#include "KnxStackHost/Notices.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/error_code.hpp>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

namespace KnxStackHost {

using TimePoint = std::chrono::steady_clock::time_point;

/// One UDP socket. What the receiver throws is logged; receiving goes on. All calls on the thread of the
/// io_context.
class UdpSocket {
public:
    using Receive = std::function<void(const KnxIp::Endpoint& from, KnxFrames::Octets datagram)>;

    UdpSocket(boost::asio::io_context& context, Receive receive);

    /// Binds to the address alone: nobody else may have the port. The address need not be there yet: what is
    /// sent without it is lost. Throws boost::system::system_error.
    void Open(const KnxIp::Endpoint& local);

    /// Binds to a multicast group, which others on this machine may listen to as well, and joins it on the
    /// interface with the address, 0 = the system's choice. When that is not there yet, RenewGroup() joins;
    /// what is sent to the group before is lost. Throws boost::system::system_error for every other fault.
    void OpenGroup(const KnxIp::Endpoint& group, std::uint32_t interfaceAddress);

    /// Sends datagrams to groups by the interface of OpenGroup(), over as many routers as KNXnet/IP may
    /// cross, and to others on this machine as well. Throws boost::system::system_error.
    void SendToGroups();

    /// To be called when the network has changed: an interface that went and came back has forgotten who had
    /// joined what on it, and the system may choose another one. Nobody outside notices when it was not
    /// needed. An interface that goes is logged, once until it is back, and one that comes.
    void RenewGroup();

    /// Why the group of OpenGroup() could not be joined the last time; none while it is.
    const boost::system::error_code& GroupFault() const { return m_groupFault; }

    /// Lets others bind to the same address and port, or not, from now on. A socket of ours that has the port
    /// of a group must let the group's socket in, and nobody else: the last one to come gets what is sent to
    /// the port.
    void ShareAddress(bool share);

    /// As if it had never been opened.
    void Close();

    /// Begins to receive.
    void Start();

    /// Sends now or never: a datagram that finds no room or no network is lost, which is told by false.
    bool Send(const KnxIp::Endpoint& to, KnxFrames::Octets datagram);

    KnxIp::Endpoint Local() const;

private:
    boost::system::error_code Join();
    boost::system::error_code SendByGroupInterface();
    void WaitForDatagrams();
    void ReceiveWaiting();
    void HandOver(const KnxIp::Endpoint& from, KnxFrames::Octets datagram);

    boost::asio::ip::udp::socket m_socket;
    boost::asio::ip::udp::socket m_membership; // in the group, for the whole machine; receives nothing
    KnxIp::Endpoint m_group;
    std::uint32_t m_groupInterface = 0;
    bool m_sendsToGroups = false;
    boost::system::error_code m_groupFault;
    bool m_hasJoined = false; // ever
    Receive m_receive;
    Notices m_thrown;
    std::array<std::uint8_t, 1024>
        m_buffer{}; // longer than any KNXnet/IP datagram; what is cut off is malformed
};

/// A timer that only ever wakes when something may be due.
class Deadline {
public:
    /// Does what is due and says when the next is. When it throws, that is logged and it is asked again a
    /// little later.
    using Due = std::function<std::optional<TimePoint>()>;

    Deadline(boost::asio::io_context& context, Due due);

    /// Wakes at the time, or not at all. Cheap when the time moves back, as it does with each telegram: the
    /// timer then rings once too early and is set anew.
    void Set(std::optional<TimePoint> time);

private:
    void Arm(TimePoint time);
    void Ring();

    boost::asio::steady_timer m_timer;
    Due m_due;
    std::optional<TimePoint> m_armed;
};

KnxIp::Endpoint EndpointOf(const std::string& ipv4, std::uint16_t port);

/// The address of this machine that a datagram to `peer` leaves from; 0 when there is no route.
std::uint32_t LocalAddressTowards(boost::asio::io_context& context, const KnxIp::Endpoint& peer);

} // namespace KnxStackHost
