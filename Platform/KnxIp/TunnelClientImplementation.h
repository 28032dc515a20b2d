// What a TunnelClient is made of, one source file per topic. Internal to this folder.
#pragma once

#include "KnxIp/BackOff.h"
#include "KnxIp/FrameSplitter.h"
#include "KnxIp/TelegramUnderWay.h"
#include "KnxIp/TunnelClient.h"

#include <cstdint>
#include <optional>

namespace KnxIp {

class TunnelClient::Implementation {
public:
    Implementation(TunnelClientConfig config, TunnelClientListener& listener);

    // TunnelClient.cpp
    void OnDatagram(TimePoint now, const Endpoint& from, Octets datagram);
    void OnTime(TimePoint now);
    std::optional<TimePoint> NextTime() const;
    bool IsConnected() const { return m_state == State::Connected; }
    KnxFrames::IndividualAddress Address() const {
        return IsConnected() ? m_address : KnxFrames::IndividualAddress();
    }
    std::size_t Waiting() const { return m_queue.Size(); }
    const TunnelClientCounters& Counters() const { return m_counters; }

    // TunnelClientConnection.cpp
    void Start(TimePoint now);
    void SetServer(TimePoint now, const Endpoint& server);
    void Stop();

    // TunnelClientStream.cpp
    void OnStreamOpened();
    void OnStreamOctets(TimePoint now, Octets octets);
    void OnStreamClosed(TimePoint now);

    // TunnelClientTelegrams.cpp
    bool Send(TimePoint now, const KnxFrames::LData& telegram);

private:
    enum class State : std::uint8_t { Stopped, WithoutServer, Waiting, Connecting, Connected };
    enum class Stream : std::uint8_t { None, Opening, Open };

    // TunnelClient.cpp
    void OnFrame(TimePoint now, const Endpoint& from, Octets octets);
    /// What clients and routers send has no business here.
    template <class T>
    void On(TimePoint, const Endpoint& from, const T&) {
        m_listener.OnRefusedDatagram(
            from, KnxFrames::FrameError::Unsupported("a frame that is not for a client was sent to one", 2));
    }
    void SendTo(const Endpoint& to, const Datagram& datagram);
    void SendUnderWay(const Datagram& datagram);

    // TunnelClientConnection.cpp
    static void CheckServer(const Endpoint& server);
    void Connect(TimePoint now);
    void On(TimePoint now, const Endpoint& from, const ConnectResponse& response);
    void ConnectFailed(TimePoint now, LinkFailure failure, Status status);
    void ConnectionLost(TimePoint now, LinkFailure failure);
    void CloseConnection(TimePoint now, LinkFailure failure);
    void On(TimePoint now, const Endpoint& from, const DisconnectRequest& request);
    /// The answer to our own request; the connection is given up with the request.
    void On(TimePoint, const Endpoint&, const DisconnectResponse&) {}
    void Heartbeat(TimePoint now);
    void On(TimePoint now, const Endpoint&, const ConnectionStateResponse& response);

    // TunnelClientStream.cpp
    void EndStream();

    // TunnelClientTelegrams.cpp: from the server, and to it.
    void On(TimePoint now, const Endpoint& from, const TunnellingRequest& request);
    bool Acknowledge(const TunnellingRequest& request);
    void SendNext(TimePoint now);
    void On(TimePoint now, const Endpoint&, const TunnellingAck& ack);
    void TakeConfirmation(TimePoint now, const KnxFrames::LData& confirmation);
    void ConfirmationMissing(TimePoint now);
    void Finish(TimePoint now);
    void RepeatOrGiveUp(TimePoint now);
    /// The connection of the telegram under way is over; `forgotten` as in TelegramUnderWay::End().
    void GiveUpTelegram(bool forgotten);
    void ReportFailure(SendFailure failure);

    const TunnelClientConfig m_config;
    TunnelClientListener& m_listener;
    SendQueue m_queue;
    TunnelClientCounters m_counters;

    State m_state = State::Stopped;
    TimePoint m_deadline{}; // of the state Waiting or Connecting
    BackOff m_backOff;
    Endpoint m_nextServer; // of the next try; unspecified: not known yet
    Endpoint m_server;     // of this connection or try
    Hpai m_ownHpai;        // as told to the server

    // Over TCP: one stream for each try.
    Stream m_stream = Stream::None;
    FrameSplitter m_splitter;
    std::uint64_t m_streamNumber = 0; // of the one that was ended last

    // While connected:
    Endpoint m_data; // of the server
    std::uint8_t m_channel = 0;
    KnxFrames::IndividualAddress m_address;
    TimePoint m_connectedAt{};
    TimePoint m_heartbeatTime{};   // when the next request is due, or the answer to the last one late
    unsigned m_heartbeatTries = 0; // requests without a good answer
    ReceiveCounter m_received;

    TelegramUnderWay m_underWay;
    TimePoint m_confirmDeadline{};
};

} // namespace KnxIp
