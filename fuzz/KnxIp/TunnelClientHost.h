// What the fuzzers of the tunnel client have in common.
#pragma once

#include "Script.h"

#include "KnxIp/TunnelClient.h"

namespace Fuzz {

using namespace KnxIp;

/// A client with a short queue, which its fuzzer starts; by itself it has no way to its server.
class TunnelClientHost : public TunnelClientListener {
public:
    explicit TunnelClientHost(bool overTcp) : m_client(Config(overTcp), *this) {}

    void OnTelegram(const KnxFrames::LData&) override { Check(m_client.IsConnected()); }
    void OnConnected(KnxFrames::IndividualAddress) override { Check(m_client.IsConnected()); }
    void OnDisconnected(LinkFailure, std::chrono::milliseconds) override { Check(!m_client.IsConnected()); }
    void OnConnectFailed(LinkFailure, Status, std::chrono::milliseconds) override {
        Check(!m_client.IsConnected());
    }
    void OnSendFailed(const KnxFrames::LData&, SendFailure) override {}
    void OnQueueOverflow() override {}
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError&) override {}
    Endpoint LocalEndpoint() override { return {0xC0A8010A, 50000}; }

protected:
    static constexpr std::size_t kQueueLimit = 3;
    static constexpr Endpoint kServer{0xC0A80102, 3671};

    /// No octets: stop; one octet: start; else a telegram to send.
    void Act(Octets octets) {
        if (octets.empty())
            m_client.Stop();
        else if (octets.size() == 1)
            m_client.Start(m_now);
        else if (const auto telegram = KnxFrames::ParseLData(octets))
            m_client.Send(m_now, *telegram);
    }

    void Finish() {
        m_client.Stop();
        Check(!m_client.IsConnected() && !m_client.NextTime());
    }

    TimePoint m_now{};
    TunnelClient m_client;

private:
    static TunnelClientConfig Config(bool overTcp) {
        TunnelClientConfig config;
        config.server = kServer;
        config.queueLimit = kQueueLimit;
        config.tcp = overTcp;
        return config;
    }
};

} // namespace Fuzz
