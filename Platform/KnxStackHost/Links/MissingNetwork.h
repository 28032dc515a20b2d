// Interfaces and addresses of this machine that are not there yet, as on a device that has just been switched
// on. Internal to the host.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/system/error_code.hpp>

#include <cstdint>
#include <string>

namespace KnxStackHost {

/// Lets a socket bind to an address that this machine does not have yet. Without it what is sent is lost, as
/// when the address goes later on.
void AllowMissingAddress(int socket);

/// True while this machine has the IPv4 address; always for 0, which is any.
bool IsAddressHere(boost::asio::io_context& context, std::uint32_t address);

/// True for the want of an interface, an address or a route: nothing that could not come yet.
bool MayComeYet(const boost::system::error_code& fault);

/// One sentence for the log. `place`: of the setting, with its file. `meanwhile`: what happens until then.
std::string AddressNotYetHere(const std::string& place, const std::string& address,
                              const std::string& meanwhile);

/// The same about a multicast group that cannot be joined yet on the interface with the address, "" = the
/// system's choice. `settings`: place of the object that both are in; `interface`: name of the member.
std::string GroupNotYetJoined(const std::string& settings, const std::string& interface,
                              const std::string& address, const std::string& group,
                              const boost::system::error_code& fault);

/// Why a group is not joined on that interface, in a few words; "" without a fault.
std::string GroupFaultText(const std::string& address, const boost::system::error_code& fault);

/// Why an address cannot be used, likewise.
std::string AddressFaultText(const std::string& address);

} // namespace KnxStackHost
