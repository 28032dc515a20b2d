// What a TunnelServer is made of, one source file per topic. Internal to this folder.
#pragma once

#include "KnxIp/FrameSplitter.h"
#include "KnxIp/ServerTunnel.h"
#include "KnxIp/TunnelServer.h"

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace KnxIp {

class TunnelServer::Implementation {
public:
    Implementation(TunnelServerConfig config, TunnelServerListener& listener);

    // TunnelServer.cpp
    void OnDatagram(TimePoint now, const Endpoint& from, Octets datagram);
    void OnTime(TimePoint now);
    std::optional<TimePoint> NextTime() const;
    const std::vector<ServerTunnel>& Tunnels() const { return m_tunnels; }

    // TunnelServerDiscovery.cpp
    void SetDevice(const DeviceInformation& device) { m_config.device = device; }

    // TunnelServerFeatures.cpp
    void SetInterface(TimePoint now, const InterfaceInformation& interface);

    // TunnelServerStreams.cpp
    void OnStreamOpened(TimePoint now, StreamId stream, const Endpoint& from);
    void OnStreamOctets(TimePoint now, StreamId stream, Octets octets);
    void OnStreamClosed(StreamId stream);

    // TunnelServerTelegrams.cpp
    Backlog Broadcast(TimePoint now, const KnxFrames::LData& telegram, std::optional<TunnelId> except);
    Backlog Send(TimePoint now, const KnxFrames::LData& telegram, TunnelId id);

    // TunnelServerManagement.cpp
    void AnnounceProperty(TimePoint now, const KnxFrames::ManagementMessage& property);

    // TunnelServerConnections.cpp
    void CloseTunnel(TunnelId tunnel);
    void Stop();

private:
    using Tunnel = ServerTunnel;

    /// An open TCP stream.
    struct Stream {
        Endpoint peer;
        FrameSplitter splitter;
        unsigned connections = 0; // that it carries
        TimePoint idleUntil{};    // when it is closed if it carries none
    };

    // TunnelServerDiscovery.cpp
    void On(TimePoint now, const Peer& from, const SearchRequest& request);
    bool IsOfItsWay(const Peer& from, const Hpai& hpai);
    void On(TimePoint now, const Peer& from, const SearchRequestExtended& request);
    void On(TimePoint now, const Peer& from, const DescriptionRequest& request);
    bool Fulfils(const SearchParameter& condition) const;
    TunnellingInformation DescribeTunnels() const;

    // TunnelServer.cpp: dispatch and sending.
    void OnFrame(TimePoint now, const Peer& from, Octets octets);
    /// What servers and routers send has no business here.
    template <class T>
    void On(TimePoint, const Peer& from, const T&) {
        m_listener.OnRefusedDatagram(
            from.endpoint,
            KnxFrames::FrameError::Unsupported("a frame that is not for a server was sent to one", 2));
    }
    Endpoint OwnEndpoint(const Endpoint& towards);
    /// What `towards` is told of where to reach us.
    Hpai OwnHpai(const Peer& towards);
    void SendTo(const Peer& to, const Datagram& datagram);

    // TunnelServerStreams.cpp
    void CloseIdleStreams(TimePoint now);

    // TunnelServerConnections.cpp
    void On(TimePoint now, const Peer& from, const ConnectRequest& request);
    void On(TimePoint now, const Peer& from, const ConnectionStateRequest& request);
    void On(TimePoint now, const Peer& from, const DisconnectRequest& request);
    /// The answer to a DISCONNECT_REQUEST of ours; the tunnel was closed with the request.
    void On(TimePoint, const Peer&, const DisconnectResponse&) {}
    void ConnectTunnel(TimePoint now, const Peer& from, const ConnectRequest& request, const Peer& to);
    void Refuse(const Peer& from, const Peer& to, Status status);
    Status Admit(const Peer& from, const ConnectRequest& request, Tunnel*& free);
    Tunnel* FormerTunnel(const Peer& from, const ConnectRequest& request);
    std::uint8_t NextChannel();
    void Close(Tunnel& tunnel, TunnelEnd end);
    /// What Close() does for every kind of connection.
    void CloseConnection(ServerConnection& connection, TunnelEnd end);
    bool IsInUse(std::uint8_t channel) const;
    ServerConnection* FindByControl(std::uint8_t channel, const Peer& from, const Hpai& named);
    TunnelId IdOf(const Tunnel& tunnel) const { return static_cast<TunnelId>(&tunnel - m_tunnels.data()); }

    // TunnelServerManagement.cpp
    void ConnectManagement(TimePoint now, const Peer& from, const ConnectRequest& request, const Peer& to);
    void On(TimePoint now, const Peer& from, const DeviceConfigurationRequest& request);
    void On(TimePoint now, const Peer& from, const DeviceConfigurationAck& ack);
    KnxFrames::ManagementMessage Answer(ManagementConnection& connection,
                                        const KnxFrames::ManagementMessage& request);
    void TakeManagement(TimePoint now, const Peer& from, ManagementConnection& connection, Octets cemi);
    void Send(TimePoint now, ManagementConnection& connection, const KnxFrames::ManagementMessage& message);
    void SendNext(TimePoint now, ManagementConnection& connection);
    void RepeatOrClose(TimePoint now, ManagementConnection& connection);
    void Close(ManagementConnection& connection, TunnelEnd end);
    ManagementConnection* FindManagement(std::uint8_t channel, const Peer& from);

    // TunnelServerFeatures.cpp
    void On(TimePoint now, const Peer& from, const TunnellingFeature& frame);
    std::optional<KnxFrames::FixedOctets<2>> ValueOf(const Tunnel& tunnel, InterfaceFeature feature) const;
    FeatureResult Set(Tunnel& tunnel, InterfaceFeature feature, Octets value);
    void Send(TimePoint now, Tunnel& tunnel, const WaitingFeature& feature);

    // TunnelServerTelegrams.cpp
    Tunnel* FindTunnel(std::uint8_t channel, const Peer& from);
    bool Accept(TimePoint now, const Peer& from, Tunnel& tunnel, std::uint8_t sequence);
    void On(TimePoint now, const Peer& from, const TunnellingRequest& request);
    void On(TimePoint now, const Peer& from, const TunnellingAck& ack);
    void TakeTelegram(TimePoint now, const Peer& from, Tunnel& tunnel, Octets cemi);
    void Send(TimePoint now, Tunnel& tunnel, KnxFrames::LData telegram, KnxFrames::MessageCode code);
    void SendNext(TimePoint now, Tunnel& tunnel);
    void RepeatOrClose(TimePoint now, Tunnel& tunnel);

    TunnelServerConfig m_config; // constant but for the device and the state of the medium
    InterfaceInformation m_interface;
    TunnelServerListener& m_listener;
    std::vector<Tunnel> m_tunnels;                  // never resized after construction
    std::vector<ManagementConnection> m_management; // likewise
    std::map<StreamId, Stream> m_streams;
    std::uint8_t m_lastChannel;
};

} // namespace KnxIp
