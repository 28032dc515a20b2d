// What the fuzzers of the tunnel server have in common.
#pragma once

#include "Script.h"

#include "KnxIp/TunnelServer.h"

namespace Fuzz {

using namespace KnxIp;

/// A server with two tunnels, short queues and one management connection; by itself it hears nobody.
class TunnelServerHost : public TunnelServerListener {
public:
    explicit TunnelServerHost(bool overTcp) : m_server(Config(overTcp), *this) {}

    void SendDatagram(const Endpoint&, Octets datagram) override {
        Check(static_cast<bool>(ReadFrame(datagram)));
    }
    void OnTelegram(TunnelId origin, const KnxFrames::LData& telegram) override {
        Check(m_server.IsOpen(origin) && telegram.source.raw != 0);
        PassOn(telegram, origin);
    }
    void OnTunnelOpened(TunnelId tunnel, KnxFrames::IndividualAddress, const Peer&) override {
        Check(m_server.IsOpen(tunnel));
    }
    void OnTunnelClosed(TunnelId tunnel, TunnelEnd) override { Check(!m_server.IsOpen(tunnel)); }
    KnxFrames::ManagementMessage OnDeviceManagement(const KnxFrames::ManagementMessage& request) override {
        m_server.AnnounceProperty(m_now, request);
        return request.Confirmation();
    }
    void OnConnectRefused(const Endpoint&, Status) override {}
    void OnQueueOverflow(TunnelId) override {}
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError&) override {}

protected:
    /// A telegram of the bus, a property of the device that has changed, or in one octet whether the bus can
    /// be reached.
    void Act(Octets octets) {
        if (const auto telegram = KnxFrames::ParseLData(octets))
            PassOn(*telegram, std::nullopt);
        else if (const auto property = KnxFrames::ParseManagement(octets))
            m_server.AnnounceProperty(m_now, *property);
        else if (octets.size() == 1)
            m_server.SetInterface(m_now, {0x00FA, octets[0] != 0});
    }

    void Finish() {
        m_server.Stop();
        Check(!m_server.IsOpen(0) && !m_server.IsOpen(1) && !m_server.NextTime());
    }

    TimePoint m_now{};
    TunnelServer m_server;

private:
    void PassOn(const KnxFrames::LData& telegram, std::optional<TunnelId> origin) {
        const auto backlog = telegram.IsToGroup() ? m_server.Broadcast(m_now, telegram, origin)
                                                  : m_server.Send(m_now, telegram, telegram.destination & 1);
        Check(backlog.isNearlyFull || !backlog.hasOverflowed);
    }

    static TunnelServerConfig Config(bool overTcp) {
        TunnelServerConfig config;
        config.endpoint = {0xC0A80102, 3671};
        config.families = CoreAndTunnelling(overTcp);
        config.tunnelAddresses = {KnxFrames::IndividualAddress(1, 1, 250),
                                  KnxFrames::IndividualAddress(1, 1, 251)};
        config.queueLimit = 3;
        config.managementConnections = 1;
        return config;
    }
};

} // namespace Fuzz
