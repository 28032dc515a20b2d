// A TunnelClient on a bench: what goes in and comes out is written down.
#pragma once

#include "KnxIp/TunnelClient.h"

#include "Transcript.h"

#include <fmt/format.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace KnxIp::ClientTesting {

using namespace Testing;
using KnxFrames::FrameError;
using KnxFrames::GroupAddress;
using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using KnxFrames::Priority;
using std::chrono::seconds;

inline constexpr Endpoint kStranger{0xC0A801FE, 3671};
inline constexpr Endpoint kServerData{0xC0A80102, 3672};

inline TunnelClientConfig Config() {
    TunnelClientConfig config;
    config.server = kServer;
    return config;
}

/// CONNECT_RESPONSE over TCP: channel 21 with 1.1.250.
inline const std::string kConnectedOverTcp = "061002060014 1500 0802000000000000 040411fa";

/// A client under test; everything it wishes goes into the transcript.
class ClientBench : public TunnelClientListener {
public:
    explicit ClientBench(TunnelClientConfig config = Config()) : m_client(std::move(config), *this) {
        m_transcript.Name(kServer, "server");
        m_transcript.Name(kServerData, "server-data");
        m_transcript.Name(kStranger, "stranger");
    }

    void SendDatagram(const Endpoint& to, Octets datagram) override { m_transcript.Out(m_now, to, datagram); }
    bool MayHaveLeft() const override { return m_hasNetwork; }
    void OpenStream(const Endpoint& server) override {
        Event(fmt::format("open a stream to {}", server.ToString()));
    }
    void SendToStream(Octets frame) override { m_transcript.Out(m_now, "stream", frame); }
    void CloseStream() override { Event("close the stream"); }
    void OnTelegram(const LData& telegram) override { Event(fmt::format("telegram {}", Describe(telegram))); }
    void OnConnected(IndividualAddress address) override {
        Event(fmt::format("connected as {}", address.ToString()));
        if (m_onConnected)
            m_onConnected();
    }
    void OnDisconnected(LinkFailure failure, milliseconds retryIn) override {
        Event(fmt::format("disconnected: {}, {} ms", ToString(failure), retryIn.count()));
        if (m_onDisconnected)
            m_onDisconnected();
    }
    void OnConnectFailed(LinkFailure failure, Status status, milliseconds retryIn) override {
        Event(fmt::format("not connected: {}, {}, {} ms", ToString(failure), ToString(status),
                          retryIn.count()));
        m_delays.push_back(retryIn.count());
    }
    void OnSendFailed(const LData& telegram, SendFailure failure) override {
        Event(fmt::format("{}: {}", Describe(telegram), ToString(failure)));
        if (m_onSendFailed)
            m_onSendFailed();
    }
    void OnQueueOverflow() override { Event("queue overflows"); }
    void OnRefusedDatagram(const Endpoint&, const FrameError& error) override { Event(error.cause); }
    Endpoint LocalEndpoint() override { return kClient; }

    void Receive(const Endpoint& from, const std::string& hex) {
        const auto octets = Hex(hex);
        m_transcript.In(m_now, from, octets);
        m_client.OnDatagram(m_now, from, octets);
    }
    /// A connection on channel 21 with 1.1.250 that has lived for 10 s; the lines of it are taken away.
    void Connect() {
        m_client.Start(m_now);
        Receive(kServer, "061002060014 1500 0801c0a801020e57 040411fa");
        Advance(seconds(10));
        Take();
    }
    void ReceiveInStream(const std::string& hex) {
        const auto octets = Hex(hex);
        m_transcript.In(m_now, "stream", octets);
        m_client.OnStreamOctets(m_now, octets);
    }
    void StreamOpened() { m_client.OnStreamOpened(m_now); }
    void StreamClosed() {
        Event("the stream has ended");
        m_client.OnStreamClosed(m_now);
    }
    /// Likewise over TCP.
    void ConnectOverTcp() {
        m_client.Start(m_now);
        StreamOpened();
        ReceiveInStream(kConnectedOverTcp);
        Advance(seconds(10));
        Take();
    }
    void Send(const LData& telegram) { m_isTaken = m_client.Send(m_now, telegram); }
    void Advance(milliseconds by) { RunUntil(m_client, m_now, m_now + by); }
    /// Without one, what is sent does not leave, as far as the client is told.
    void SetNetwork(bool isThere) { m_hasNetwork = isThere; }
    void Event(const std::string& text) { m_transcript.Event(m_now, text); }

    TunnelClient& Client() { return m_client; }
    std::string Take() { return m_transcript.Take(); }
    TimePoint Now() const { return m_now; }
    bool IsTaken() const { return m_isTaken; }
    const std::vector<milliseconds::rep>& Delays() const { return m_delays; }

    std::function<void()> m_onConnected;
    std::function<void()> m_onDisconnected;
    std::function<void()> m_onSendFailed;

private:
    TimePoint m_now{};
    Transcript m_transcript;
    bool m_isTaken = false;
    bool m_hasNetwork = true;
    std::vector<milliseconds::rep> m_delays;
    TunnelClient m_client;
};

// Datagrams of the server on channel 21 (15h); of the first two, sequence number and 00 follow.
inline const std::string kRequest = "061004200015 0415";
inline const std::string kAck = "06100421000a 0415";
inline const std::string kSwitchOnInd = "00 2900bce011040a03010081";
inline const std::string kCon =
    "00 2e00bce011fa0a030100"; // of a telegram to 1/2/3; the value follows, 80h to BFh
inline const std::string kNegativeCon = "00 2e00bde011fa0a030100";
inline const std::string kDisconnectRequest = "061002090010 1500 0801c0a801020e57";
inline const std::string kStateGood = "061002080008 1500";

inline LData Telegram(std::uint8_t value, Priority priority = Priority::Low) {
    return MakeGroupTelegram(IndividualAddress(), GroupAddress(1, 2, 3),
                             KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, value), priority);
}

} // namespace KnxIp::ClientTesting
