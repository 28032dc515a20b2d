// The tunnel server against any datagrams in any time.

#include "TunnelServerHost.h"

namespace {

class Host : public Fuzz::TunnelServerHost {
public:
    Host() : TunnelServerHost(false) {}

    void Do(const Fuzz::Step& step) {
        Fuzz::Pass(m_server, m_now, step.pause);
        if (step.actor == 3) {
            Act(step.octets);
            return;
        }
        // Two sockets of one client, and another host.
        const KnxIp::Endpoint from =
            step.actor == 2 ? KnxIp::Endpoint{0xC0A8010B, 50000}
                            : KnxIp::Endpoint{0xC0A8010A, static_cast<std::uint16_t>(50000 + step.actor)};
        m_server.OnDatagram(m_now, from, step.octets);
    }

    using TunnelServerHost::Finish;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return Fuzz::Play<Host>(data, size);
}
