// The tunnel client against any datagrams in any time.

#include "Script.h"

#include "KnxIp/TunnelClient.h"

namespace {

using namespace KnxIp;

class Host : public TunnelClientListener {
public:
    Host() : m_client(Config(), *this) { m_client.Start(m_now); }

    void SendDatagram(const Endpoint& to, Octets datagram) override {
        Fuzz::Check(to.address != 0 && static_cast<bool>(ReadFrame(datagram)));
    }
    void OnTelegram(const KnxFrames::LData&) override { Fuzz::Check(m_client.IsConnected()); }
    void OnConnected(KnxFrames::IndividualAddress) override { Fuzz::Check(m_client.IsConnected()); }
    void OnDisconnected(LinkFailure, std::chrono::milliseconds) override {
        Fuzz::Check(!m_client.IsConnected());
    }
    void OnConnectFailed(LinkFailure, Status, std::chrono::milliseconds) override {
        Fuzz::Check(!m_client.IsConnected());
    }
    void OnSendFailed(const KnxFrames::LData&, SendFailure) override {}
    void OnQueueOverflow() override {}
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError&) override {}
    Endpoint LocalEndpoint() override { return {0xC0A8010A, 50000}; }

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

    void Finish() {
        m_client.Stop();
        Fuzz::Check(!m_client.IsConnected() && !m_client.NextTime());
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
        return config;
    }

    TimePoint m_now{};
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
