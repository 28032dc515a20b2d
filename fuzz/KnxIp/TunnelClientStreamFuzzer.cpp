// The tunnel client over TCP against any octets of a server, cut anywhere, in any time.

#include "Script.h"

#include "KnxIp/TunnelClient.h"

#include <utility>

namespace {

using namespace KnxIp;

class Host : public TunnelClientListener {
public:
    Host() : m_client(Config(), *this) { m_client.Start(m_now); }

    void SendDatagram(const Endpoint&, Octets) override { Fuzz::Check(false); }
    void OpenStream(const Endpoint& server) override {
        Fuzz::Check(!m_isWanted && server == Config().server);
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
    void OnTelegram(const KnxFrames::LData&) override { Fuzz::Check(m_client.IsConnected()); }
    void OnConnected(KnxFrames::IndividualAddress) override { Fuzz::Check(m_isWanted && m_isOpen); }
    void OnDisconnected(LinkFailure, std::chrono::milliseconds) override {
        Fuzz::Check(!m_client.IsConnected() && !m_isWanted);
    }
    void OnConnectFailed(LinkFailure, Status, std::chrono::milliseconds) override {
        Fuzz::Check(!m_client.IsConnected() && !m_isWanted);
    }
    void OnSendFailed(const KnxFrames::LData&, SendFailure) override {}
    void OnQueueOverflow() override {}
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError&) override {}
    Endpoint LocalEndpoint() override { return {}; }

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
        m_client.Stop();
        Fuzz::Check(!m_client.IsConnected() && !m_client.NextTime() && !m_isWanted);
    }

private:
    static constexpr std::size_t kQueueLimit = 3;

    /// No octets: stop; one octet: start; else a telegram to send.
    void Act(Octets octets) {
        if (octets.empty())
            m_client.Stop();
        else if (octets.size() == 1)
            m_client.Start(m_now);
        else if (const auto telegram = KnxFrames::ParseLData(octets))
            m_client.Send(m_now, *telegram);
    }

    static TunnelClientConfig Config() {
        TunnelClientConfig config;
        config.server = {0xC0A80102, 3671};
        config.queueLimit = kQueueLimit;
        config.tcp = true;
        return config;
    }

    TimePoint m_now{};
    bool m_isWanted = false;
    bool m_isOpen = false;
    TunnelClient m_client;
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
