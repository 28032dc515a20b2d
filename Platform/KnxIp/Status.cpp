#include "KnxIp/Frames.h"

#include <algorithm>

namespace KnxIp {
namespace {

struct StatusText {
    Status status;
    const char* text;
};

constexpr std::array kStatusTexts = {
    StatusText{Status::NoError, "no error"},
    StatusText{Status::HostProtocolType, "the host protocol is not supported"},
    StatusText{Status::VersionNotSupported, "the KNXnet/IP version is not supported"},
    StatusText{Status::SequenceNumber, "wrong sequence number"},
    StatusText{Status::Error, "error"},
    StatusText{Status::ConnectionId, "no such connection"},
    StatusText{Status::ConnectionType, "the connection type is not supported"},
    StatusText{Status::ConnectionOption, "a connection option is not supported"},
    StatusText{Status::NoMoreConnections, "no more connections"},
    StatusText{Status::DataConnection, "error of the data connection"},
    StatusText{Status::KnxConnection, "error of the KNX connection"},
    StatusText{Status::TunnellingLayer, "the tunnelling layer is not supported"},
    StatusText{Status::NoTunnellingAddress, "not an address of a tunnel"},
    StatusText{Status::ConnectionInUse, "the tunnel with this address is in use"},
};

} // namespace

const char* ToString(Status status) {
    const auto* found = std::find_if(kStatusTexts.begin(), kStatusTexts.end(),
                                     [status](const StatusText& each) { return each.status == status; });
    return found == kStatusTexts.end() ? "unknown status" : found->text;
}

} // namespace KnxIp
