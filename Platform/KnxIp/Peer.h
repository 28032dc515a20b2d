// The other side of a KNXnet/IP server: a UDP endpoint or a TCP stream.
#pragma once

#include "KnxIp/Endpoint.h"

#include <compare>
#include <cstdint>
#include <string>

namespace KnxIp {

/// Number of an open TCP stream, given by whoever owns its socket; never used again while a server exists. 0
/// stands for none.
using StreamId = std::uint64_t;

/// Who sent a frame, or is to get one.
struct Peer {
    Endpoint endpoint;   ///< of the other side, also of a stream
    StreamId stream = 0; ///< 0: by UDP, to the endpoint

    bool IsStream() const { return stream != 0; }

    /// "192.168.1.2:3671", with " over TCP" behind it for a stream
    std::string ToString() const { return endpoint.ToString() + (IsStream() ? " over TCP" : ""); }

    auto operator<=>(const Peer& other) const = default;
};

} // namespace KnxIp
