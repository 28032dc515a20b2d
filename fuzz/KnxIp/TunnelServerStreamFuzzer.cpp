// The tunnel server against any octets in TCP streams, cut anywhere, beside datagrams, in any time.

#include "Script.h"

#include "KnxIp/TunnelServer.h"

#include <array>

namespace {

using namespace KnxIp;

class Host : public TunnelServerListener {
public:
    Host() : m_server(Config(), *this) {}

    void SendDatagram(const Endpoint&, Octets datagram) override {
        Fuzz::Check(static_cast<bool>(ReadFrame(datagram)));
    }
    void SendToStream(StreamId stream, Octets frame) override {
        Fuzz::Check(IsOpen(stream) && static_cast<bool>(ReadFrame(frame)));
    }
    void CloseStream(StreamId stream) override {
        Fuzz::Check(IsOpen(stream));
        m_open[stream % 2] = 0;
    }
    void OnTelegram(TunnelId origin, const KnxFrames::LData& telegram) override {
        Fuzz::Check(m_server.IsOpen(origin) && telegram.source.raw != 0);
        m_server.Broadcast(m_now, telegram, origin);
    }
    void OnTunnelOpened(TunnelId tunnel, KnxFrames::IndividualAddress, const Peer& client) override {
        Fuzz::Check(m_server.IsOpen(tunnel) && (!client.IsStream() || IsOpen(client.stream)));
    }
    void OnTunnelClosed(TunnelId tunnel, TunnelEnd) override { Fuzz::Check(!m_server.IsOpen(tunnel)); }
    void OnConnectRefused(const Endpoint&, Status) override {}
    void OnQueueOverflow(TunnelId) override { Fuzz::Check(m_hasUdp); }
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError&) override {}

    /// Actors 0 and 1 are streams, which open when something comes and end with a step without octets; 2 is a
    /// client by UDP, 3 the bus.
    void Do(const Fuzz::Step& step) {
        Fuzz::Pass(m_server, m_now, step.pause);
        if (step.actor == 3) {
            if (const auto telegram = KnxFrames::ParseLData(step.octets))
                m_server.Broadcast(m_now, *telegram);
        } else if (step.actor == 2) {
            m_hasUdp = true;
            m_server.OnDatagram(m_now, kClient, step.octets);
        } else if (step.octets.empty()) {
            Close(step.actor);
        } else {
            if (m_open[step.actor] == 0) {
                m_open[step.actor] = m_next + step.actor;
                m_next += 2;
                m_server.OnStreamOpened(m_now, m_open[step.actor], kClient);
            }
            m_server.OnStreamOctets(m_now, m_open[step.actor], step.octets);
        }
    }

    void Finish() {
        Close(0);
        Close(1);
        m_server.Stop();
        Fuzz::Check(!m_server.IsOpen(0) && !m_server.IsOpen(1) && !m_server.NextTime());
    }

private:
    static constexpr Endpoint kClient{0xC0A8010A, 50000};

    bool IsOpen(StreamId stream) const { return stream != 0 && m_open[stream % 2] == stream; }

    void Close(unsigned actor) {
        const StreamId stream = m_open[actor];
        m_open[actor] = 0;
        m_server.OnStreamClosed(stream);
    }

    static TunnelServerConfig Config() {
        TunnelServerConfig config;
        config.endpoint = {0xC0A80102, 3671};
        config.families = CoreAndTunnelling(true);
        config.tunnelAddresses = {KnxFrames::IndividualAddress(1, 1, 250),
                                  KnxFrames::IndividualAddress(1, 1, 251)};
        config.queueLimit = 3;
        config.managementConnections = 1;
        return config;
    }

    TimePoint m_now{};
    std::array<StreamId, 2> m_open{}; // even and odd numbers
    StreamId m_next = 2;
    bool m_hasUdp = false;
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
