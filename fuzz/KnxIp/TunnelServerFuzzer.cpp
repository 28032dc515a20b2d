// The tunnel server against any datagrams in any time.

#include "Script.h"

#include "KnxIp/TunnelServer.h"

namespace {

using namespace KnxIp;

class Host : public TunnelServerListener {
public:
    Host() : m_server(Config(), *this) {}

    void SendDatagram(const Endpoint&, Octets datagram) override {
        Fuzz::Check(static_cast<bool>(ReadFrame(datagram)));
    }
    void OnTelegram(TunnelId origin, const KnxFrames::LData& telegram) override {
        Fuzz::Check(m_server.IsOpen(origin) && telegram.source.raw != 0);
        m_server.Broadcast(m_now, telegram, origin);
    }
    void OnTunnelOpened(TunnelId tunnel, KnxFrames::IndividualAddress, const Peer&) override {
        Fuzz::Check(m_server.IsOpen(tunnel));
    }
    void OnTunnelClosed(TunnelId tunnel, TunnelEnd) override { Fuzz::Check(!m_server.IsOpen(tunnel)); }
    void OnConnectRefused(const Endpoint&, Status) override {}
    void OnQueueOverflow(TunnelId) override {}
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError&) override {}

    void Do(const Fuzz::Step& step) {
        Fuzz::Pass(m_server, m_now, step.pause);
        if (step.actor == 3) {
            if (const auto telegram = KnxFrames::ParseLData(step.octets))
                m_server.Broadcast(m_now, *telegram);
            return;
        }
        // Two sockets of one client, and another host.
        const Endpoint from = step.actor == 2
                                  ? Endpoint{0xC0A8010B, 50000}
                                  : Endpoint{0xC0A8010A, static_cast<std::uint16_t>(50000 + step.actor)};
        m_server.OnDatagram(m_now, from, step.octets);
    }

    void Finish() {
        m_server.Stop();
        Fuzz::Check(!m_server.IsOpen(0) && !m_server.IsOpen(1) && !m_server.NextTime());
    }

private:
    static TunnelServerConfig Config() {
        TunnelServerConfig config;
        config.endpoint = {0xC0A80102, 3671};
        config.tunnelAddresses = {KnxFrames::IndividualAddress(1, 1, 250),
                                  KnxFrames::IndividualAddress(1, 1, 251)};
        config.queueLimit = 3;
        config.managementConnections = 1;
        return config;
    }

    TimePoint m_now{};
    TunnelServer m_server;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Host host;
    Octets input(data, size);
    while (const auto step = Fuzz::TakeStep(input))
        host.Do(*step);
    host.Finish();
    return 0;
}
