#include "Relay.h"

#include "Placement.h"

namespace Bench {

Relay::Relay(std::uint16_t target) : m_thread([this, target] { Run(target); }) {}

Relay::~Relay() {
    UdpSocket().SendTo(m_socket.Port(), {}); // an empty one ends it
    m_thread.join();
}

void Relay::Run(std::uint16_t target) {
    RunOn(Side::Measured);
    for (;;) {
        std::uint16_t from = 0;
        const Octets datagram = m_socket.Receive(from);
        if (datagram.empty())
            return;
        m_socket.SendTo(target != 0 ? target : from, datagram);
    }
}

void MeasureRoundTrip(Figure& figure) {
    const Relay echo(0);
    UdpSocket socket;
    const Octets datagram(24);
    Measure(figure, [&](int) {
        std::uint16_t from = 0;
        socket.SendTo(echo.Port(), datagram);
        socket.Receive(from);
        return Clock::now();
    });
}

} // namespace Bench
