#include "KnxStackHost/Links/MissingNetwork.h"

#include <boost/asio/error.hpp>
#include <boost/asio/ip/udp.hpp>
#include <fmt/format.h>

#include <netinet/in.h>
#include <sys/socket.h>

namespace KnxStackHost {

namespace errc = boost::system::errc;
using boost::asio::ip::udp;
using boost::system::error_code;

void AllowMissingAddress(int socket) {
    const int yes = 1;
    ::setsockopt(socket, IPPROTO_IP, IP_FREEBIND, &yes, sizeof yes);
}

bool IsAddressHere(boost::asio::io_context& context, std::uint32_t address) {
    error_code error;
    udp::socket probe(context);
    probe.open(udp::v4(), error);
    probe.bind({boost::asio::ip::address_v4(address), 0}, error); // a port that nobody has
    return error != errc::address_not_available;
}

bool MayComeYet(const error_code& fault) {
    return fault == errc::no_such_device || fault == errc::address_not_available ||
           fault == errc::network_down || fault == errc::network_unreachable ||
           fault == errc::host_unreachable;
}

std::string AddressNotYetHere(const std::string& place, const std::string& address,
                              const std::string& meanwhile) {
    return fmt::format("{}: no network interface of this machine has the address {} yet; {}; bring the "
                       "interface up, or name another address",
                       place, address, meanwhile);
}

std::string GroupNotYetJoined(const std::string& settings, const std::string& interface,
                              const std::string& address, const std::string& group, const error_code& fault) {
    const auto meanwhile = fmt::format(
        "the multicast group {} is joined as soon as one has, and is out of reach until then", group);
    if (!address.empty())
        return AddressNotYetHere(settings + '/' + interface, address, meanwhile);
    return fmt::format(
        "{}: no network interface of this machine leads to the multicast group {} yet ({}), "
        "which is joined as soon as one does and is out of reach until then; bring the network "
        "up, or name the address of an interface in \"{}\"",
        settings, group, fault.message(), interface);
}

std::string AddressFaultText(const std::string& address) {
    return fmt::format("no network interface has the address {}", address);
}

std::string GroupFaultText(const std::string& address, const error_code& fault) {
    if (!fault)
        return "";
    if (!MayComeYet(fault))
        return fault.message();
    return address.empty() ? "no network interface leads there" : AddressFaultText(address);
}

} // namespace KnxStackHost
