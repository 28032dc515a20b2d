// The tunnel client over TCP against any octets of a server, cut anywhere, in any time.

#include "TunnelClientHost.h"

#include <utility>

namespace {

using namespace KnxIp;

class Host : public Fuzz::TunnelClientHost {
public:
    Host() : TunnelClientHost(true) { m_client.Start(m_now); }

    void SendDatagram(const Endpoint&, Octets) override { Fuzz::Check(false); }
    void OpenStream(const Endpoint& server) override {
        Fuzz::Check(!m_isWanted && server == kServer);
        m_isWanted = true;
        m_isOpen = false;
    }
    void SendToStream(Octets frame) override {
        Fuzz::Check(m_isWanted && m_isOpen && static_cast<bool>(ReadFrame(frame)));
    }
    void CloseStream() override {
        Fuzz::Check(m_isWanted);
        m_isWanted = false;
    }
    void OnConnected(KnxFrames::IndividualAddress) override { Fuzz::Check(m_isWanted && m_isOpen); }
    void OnDisconnected(LinkFailure, std::chrono::milliseconds) override {
        Fuzz::Check(!m_client.IsConnected() && !m_isWanted);
    }
    void OnConnectFailed(LinkFailure, Status, std::chrono::milliseconds) override {
        Fuzz::Check(!m_client.IsConnected() && !m_isWanted);
    }

    /// Actor 0: octets come, 1: the stream opens, 2: it ends; 3 as in the fuzzer of the client by UDP.
    void Do(const Fuzz::Step& step) {
        Fuzz::Pass(m_client, m_now, step.pause);
        if (step.actor == 3) {
            Act(step.octets);
        } else if (step.actor == 2) {
            if (std::exchange(m_isWanted, false))
                m_client.OnStreamClosed(m_now);
        } else {
            if (m_isWanted && !std::exchange(m_isOpen, true))
                m_client.OnStreamOpened(m_now);
            if (m_isWanted && step.actor == 0)
                m_client.OnStreamOctets(m_now, step.octets);
        }
        // Nothing is put back over TCP.
        Fuzz::Check(m_client.Waiting() <= kQueueLimit);
    }

    void Finish() {
        TunnelClientHost::Finish();
        Fuzz::Check(!m_isWanted);
    }

private:
    bool m_isWanted = false;
    bool m_isOpen = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return Fuzz::Play<Host>(data, size);
}
