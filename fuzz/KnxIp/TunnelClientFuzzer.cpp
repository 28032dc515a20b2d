// The tunnel client against any datagrams in any time.

#include "TunnelClientHost.h"

namespace {

using namespace KnxIp;

class Host : public Fuzz::TunnelClientHost {
public:
    Host() : TunnelClientHost(false) { m_client.Start(m_now); }

    void SendDatagram(const Endpoint& to, Octets datagram) override {
        Fuzz::Check(to.address != 0 && static_cast<bool>(ReadFrame(datagram)));
    }

    void Do(const Fuzz::Step& step) {
        Fuzz::Pass(m_client, m_now, step.pause);
        if (step.actor == 3) {
            Act(step.octets);
            return;
        }
        const Endpoint from = step.actor == 2
                                  ? Endpoint{0xC0A801FE, 3671}
                                  : Endpoint{0xC0A80102, static_cast<std::uint16_t>(3671 + step.actor)};
        m_client.OnDatagram(m_now, from, step.octets);
        // One more than the limit: a telegram may have been put back.
        Fuzz::Check(m_client.Waiting() <= kQueueLimit + 1);
    }

    using TunnelClientHost::Finish;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return Fuzz::Play<Host>(data, size);
}
