// The tunnel server against any octets in TCP streams, cut anywhere, beside datagrams, in any time.

#include "TunnelServerHost.h"

#include <array>

namespace {

using namespace KnxIp;

class Host : public Fuzz::TunnelServerHost {
public:
    Host() : TunnelServerHost(true) {}

    void SendToStream(StreamId stream, Octets frame) override {
        Fuzz::Check(IsOpen(stream) && static_cast<bool>(ReadFrame(frame)));
    }
    void CloseStream(StreamId stream) override {
        Fuzz::Check(IsOpen(stream));
        m_open[stream % 2] = 0;
    }
    void OnTunnelOpened(TunnelId tunnel, KnxFrames::IndividualAddress, const Peer& client) override {
        Fuzz::Check(m_server.IsOpen(tunnel) && (!client.IsStream() || IsOpen(client.stream)));
    }
    void OnQueueOverflow(TunnelId) override { Fuzz::Check(m_hasUdp); }

    /// Actors 0 and 1 are streams, which open when something comes and end with a step without octets; 2 is a
    /// client by UDP, 3 the bus and the device.
    void Do(const Fuzz::Step& step) {
        Fuzz::Pass(m_server, m_now, step.pause);
        if (step.actor == 3) {
            Act(step.octets);
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
        TunnelServerHost::Finish();
    }

private:
    static constexpr Endpoint kClient{0xC0A8010A, 50000};

    bool IsOpen(StreamId stream) const { return stream != 0 && m_open[stream % 2] == stream; }

    void Close(unsigned actor) {
        const StreamId stream = m_open[actor];
        m_open[actor] = 0;
        m_server.OnStreamClosed(stream);
    }

    std::array<StreamId, 2> m_open{}; // even and odd numbers
    StreamId m_next = 2;
    bool m_hasUdp = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return Fuzz::Play<Host>(data, size);
}
