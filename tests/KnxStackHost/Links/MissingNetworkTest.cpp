// What is said of a network that is not there yet; sockets in one are in NetworkChangesTest.cpp.
#include "KnxStackHost/Links/MissingNetwork.h"

#include <gmock/gmock.h>

#include <boost/system/error_code.hpp>

namespace KnxStackHost {
namespace {

TEST(MissingNetwork, OnlyTheWantOfANetworkMayPass) {
    namespace errc = boost::system::errc;
    for (const auto fault : {errc::no_such_device, errc::address_not_available, errc::network_down,
                             errc::network_unreachable, errc::host_unreachable})
        EXPECT_TRUE(MayComeYet(errc::make_error_code(fault))) << fault;
    for (const auto fault :
         {errc::success, errc::address_in_use, errc::too_many_files_open, errc::permission_denied})
        EXPECT_FALSE(MayComeYet(errc::make_error_code(fault))) << fault;
}

TEST(MissingNetwork, ASentenceNamesPlaceCauseAndWayOut) {
    const auto fault = boost::system::errc::make_error_code(boost::system::errc::no_such_device);
    EXPECT_EQ(
        "/etc/knx.json: /routing/interface: no network interface of this machine has the address "
        "192.0.2.1 yet; the multicast group 224.0.23.12:3671 is joined as soon as one has, and is out of "
        "reach until then; bring the interface up, or name another address",
        GroupNotYetJoined("/etc/knx.json: /routing", "interface", "192.0.2.1", "224.0.23.12:3671", fault));
    EXPECT_EQ(
        "/etc/knx.json: /routing: no network interface of this machine leads to the multicast group "
        "224.0.23.12:3671 yet (No such device), which is joined as soon as one does and is out of reach "
        "until then; bring the network up, or name the address of an interface in \"interface\"",
        GroupNotYetJoined("/etc/knx.json: /routing", "interface", "", "224.0.23.12:3671", fault));
    EXPECT_EQ("no network interface has the address 192.0.2.1", GroupFaultText("192.0.2.1", fault));
    EXPECT_EQ("no network interface leads there", GroupFaultText("", fault));
    EXPECT_EQ("", GroupFaultText("192.0.2.1", {}));
}

} // namespace
} // namespace KnxStackHost
