#include "RawGroup.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace KnxStackHost {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::uint16_t kPort = 3671;

sockaddr_in AddressOf(std::uint32_t address, std::uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = htonl(address);
    result.sin_port = htons(port);
    return result;
}

void Check(bool works, const char* what) {
    if (!works)
        throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

std::string OwnGroup() {
    static unsigned number = 0;
    const auto pid = static_cast<unsigned>(::getpid());
    return "239." + std::to_string(200 + ++number % 50) + "." + std::to_string(pid >> 8 & 0xFF) + "." +
           std::to_string(pid & 0xFF);
}

RawGroup::RawGroup(const std::string& group) {
    in_addr groupAddress{};
    Check(::inet_pton(AF_INET, group.c_str(), &groupAddress) == 1, "the group's address");
    m_group = ntohl(groupAddress.s_addr);
    const int yes = 1;
    ip_mreq membership{};
    membership.imr_multiaddr = groupAddress;
    membership.imr_interface.s_addr = htonl(INADDR_LOOPBACK);
    const auto here = AddressOf(m_group, kPort);
    m_receiver = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ::setsockopt(m_receiver, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    Check(::bind(m_receiver, reinterpret_cast<const sockaddr*>(&here), sizeof here) == 0 &&
              ::setsockopt(m_receiver, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0,
          "no group for the test");
    m_sender = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    auto own = AddressOf(INADDR_LOOPBACK, 0);
    socklen_t length = sizeof own;
    Check(::bind(m_sender, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
              ::getsockname(m_sender, reinterpret_cast<sockaddr*>(&own), &length) == 0 &&
              ::setsockopt(m_sender, IPPROTO_IP, IP_MULTICAST_IF, &membership.imr_interface,
                           sizeof membership.imr_interface) == 0,
          "no sender for the test");
    m_ownPort = ntohs(own.sin_port);
}

RawGroup::~RawGroup() {
    ::close(m_receiver);
    ::close(m_sender);
}

void RawGroup::Send(const Bytes& datagram) const {
    const auto to = AddressOf(m_group, kPort);
    ::sendto(m_sender, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
             sizeof to);
}

Bytes RawGroup::Receive(milliseconds patience) const {
    const auto end = Clock::now() + patience;
    for (;;) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now()).count();
        pollfd waiting{m_receiver, POLLIN, 0};
        if (::poll(&waiting, 1, left < 0 ? 0 : static_cast<int>(left)) != 1)
            return {};
        Bytes datagram(1024);
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const auto size = ::recvfrom(m_receiver, datagram.data(), datagram.size(), 0,
                                     reinterpret_cast<sockaddr*>(&from), &length);
        if (size < 0 || ntohs(from.sin_port) == m_ownPort)
            continue;
        datagram.resize(static_cast<std::size_t>(size));
        return datagram;
    }
}

} // namespace KnxStackHost
