// The least that a way through another process can cost: a thread that only copies datagrams.
#pragma once

#include "Figure.h"
#include "Sockets.h"

#include <cstdint>
#include <thread>

namespace Bench {

/// On the side of what is measured: sends every datagram to `target`, or back to where it came from with 0,
/// as long as the object lives.
class Relay {
public:
    explicit Relay(std::uint16_t target);
    ~Relay();
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    std::uint16_t Port() const { return m_socket.Port(); }

private:
    void Run(std::uint16_t target);

    UdpSocket m_socket;
    std::thread m_thread;
};

/// A block of round trips of a datagram by UDP on loopback.
void MeasureRoundTrip(Figure& figure);

} // namespace Bench
