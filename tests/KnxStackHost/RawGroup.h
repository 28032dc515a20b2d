// A member of a multicast group made of bytes.
#pragma once

#include "RawTunnel.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace KnxStackHost {

/// A group of this test's own, other than those of tests that run beside it: "239.192.x.y".
std::string OwnGroup();

/// A socket in a group on loopback, port 3671, which others on this machine have as well. It sends from a
/// port of its own, as another device would from its own address.
class RawGroup {
public:
    explicit RawGroup(const std::string& group);
    ~RawGroup();
    RawGroup(const RawGroup&) = delete;
    RawGroup& operator=(const RawGroup&) = delete;

    void Send(const Bytes& datagram) const;
    /// The next datagram of somebody else; empty when there is none in time.
    Bytes Receive(std::chrono::milliseconds patience = std::chrono::seconds(20)) const;

private:
    std::uint32_t m_group = 0;
    int m_receiver = -1;
    int m_sender = -1;
    std::uint16_t m_ownPort = 0;
};

} // namespace KnxStackHost
