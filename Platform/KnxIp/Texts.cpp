// What codes mean, in words for people.

#include "KnxIp/Frames.h"
#include "KnxIp/TunnelClient.h"
#include "KnxIp/TunnelServer.h"

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

const char* ToString(TunnelEnd end) {
    switch (end) {
    case TunnelEnd::Client: return "closed by the client";
    case TunnelEnd::Heartbeat: return "nothing heard of the client for 120 s";
    case TunnelEnd::NoAck: return "a telegram was not acknowledged";
    case TunnelEnd::Stream: return "the TCP connection has ended";
    case TunnelEnd::Replaced: return "its client has connected anew without closing it";
    case TunnelEnd::Server: break;
    }
    return "closed by the server";
}

const char* ToString(LinkFailure failure) {
    switch (failure) {
    case LinkFailure::ConnectTimeout: return "no answer to the connect request";
    case LinkFailure::ConnectRefused: return "the server refused to connect";
    case LinkFailure::ServerClosed: return "the server closed the connection";
    case LinkFailure::NoAck: return "a telegram was not acknowledged";
    case LinkFailure::Heartbeat: return "no answer to the heartbeat";
    case LinkFailure::StreamEnded: return "the TCP connection could not be made or has ended";
    case LinkFailure::Forgotten: break;
    }
    return "the server does not know the connection any more";
}

const char* ToString(SendFailure failure) {
    switch (failure) {
    case SendFailure::NoAck: return "not acknowledged by the interface";
    case SendFailure::NoConfirmation: return "not confirmed by the interface";
    case SendFailure::NegativeConfirm: break;
    }
    return "not acknowledged on the bus";
}

} // namespace KnxIp
