// A TunnelServer on a bench: what goes in and comes out is written down.
#pragma once

#include "KnxIp/TunnelServer.h"

#include "Transcript.h"

#include <fmt/format.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace KnxIp::ServerTesting {

using namespace Testing;
using KnxFrames::FrameError;
using KnxFrames::GroupAddress;
using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using KnxFrames::ManagementMessage;

inline constexpr Endpoint kOther{0xC0A8010B, 50000}; // 192.168.1.11

/// Another client on the computer of kClient, control and data.
inline constexpr Endpoint kSameHost{kClient.address, 55000};
inline constexpr Endpoint kSameHostData{kClient.address, 55001};

inline const std::string kConnectOverTcp = "06100205001a 0802000000000000 0802000000000000 04040200";

inline TunnelServerConfig Config(std::size_t tunnels = 2) {
    TunnelServerConfig config;
    config.endpoint = kServer;
    config.device.address = IndividualAddress(1, 1, 0);
    config.device.name = "test";
    for (std::size_t index = 0; index < tunnels; ++index)
        config.tunnelAddresses.emplace_back(static_cast<std::uint16_t>(0x11FA + index));
    return config;
}

/// A server under test; everything it wishes goes into the transcript.
class ServerBench : public TunnelServerListener {
public:
    explicit ServerBench(TunnelServerConfig config = Config()) : m_server(std::move(config), *this) {
        m_transcript.Name(kClient, "client");
        m_transcript.Name(kClientData, "client-data");
        m_transcript.Name(kOther, "other");
        m_transcript.Name(kSameHost, "same-host");
        m_transcript.Name(kSameHostData, "same-host-data");
    }

    void SendDatagram(const Endpoint& to, Octets datagram) override { m_transcript.Out(m_now, to, datagram); }
    void SendToStream(StreamId stream, Octets frame) override {
        m_transcript.Out(m_now, fmt::format("stream-{}", stream), frame);
    }
    void CloseStream(StreamId stream) override { Event(fmt::format("stream {} is to be closed", stream)); }
    void OnTelegram(TunnelId origin, const LData& telegram) override {
        Event(fmt::format("telegram of tunnel {}: {}", origin, Describe(telegram)));
        m_telegrams.push_back(telegram);
        if (m_onTelegram)
            m_onTelegram(origin, telegram);
    }
    void OnTunnelOpened(TunnelId tunnel, IndividualAddress address, const Peer& client) override {
        Event(fmt::format("tunnel {} opened, {}, {}", tunnel, address.ToString(), client.ToString()));
    }
    void OnTunnelClosed(TunnelId tunnel, TunnelEnd end) override {
        Event(fmt::format("tunnel {}: {}", tunnel, ToString(end)));
    }
    ManagementMessage OnDeviceManagement(const ManagementMessage& request) override {
        Event(fmt::format("{} of object {}, PID {}", KnxFrames::ToString(request.code), request.objectType,
                          request.property));
        if (m_onManagement)
            return m_onManagement(request);
        ManagementMessage answer = request.Confirmation();
        if (request.code == KnxFrames::MessageCode::MPropReadReq)
            answer.data.Append16(0x11FA);
        return answer;
    }
    void OnDeviceReset(const Endpoint&) override { Event("reset"); }
    void OnManagementOpened(const Peer& client) override {
        Event(fmt::format("management by {}", client.ToString()));
    }
    void OnManagementClosed(const Peer& client, TunnelEnd end) override {
        Event(fmt::format("management by {}: {}", client.ToString(), ToString(end)));
    }
    void OnConnectRefused(const Endpoint&, Status status) override {
        Event(fmt::format("refused: {}", ToString(status)));
    }
    void OnQueueOverflow(TunnelId tunnel) override { Event(fmt::format("tunnel {} overflows", tunnel)); }
    void OnRefusedDatagram(const Endpoint&, const FrameError& error) override { Event(error.cause); }

    void Receive(const Endpoint& from, const std::string& hex) {
        const auto octets = Hex(hex);
        m_transcript.In(m_now, from, octets);
        m_server.OnDatagram(m_now, from, octets);
    }
    void OpenStream(StreamId stream, const Endpoint& from = kClient) {
        m_server.OnStreamOpened(m_now, stream, from);
    }
    void ReceiveFrom(StreamId stream, const std::string& hex) {
        const auto octets = Hex(hex);
        m_transcript.In(m_now, fmt::format("stream-{}", stream), octets);
        m_server.OnStreamOctets(m_now, stream, octets);
    }
    /// A stream with a tunnel on it; the lines of it are taken away.
    void ConnectOver(StreamId stream, const Endpoint& from = kClient) {
        OpenStream(stream, from);
        ReceiveFrom(stream, kConnectOverTcp);
        m_transcript.Take();
    }
    /// A connection with control and data endpoint of the client; the lines of it are taken away.
    void Connect() {
        Receive(kClient, "06100205001a 0801c0a8010ac350 0801c0a8010ac351 04040200");
        m_transcript.Take();
    }
    void Advance(milliseconds by) { RunUntil(m_server, m_now, m_now + by); }
    void Event(const std::string& text) { m_transcript.Event(m_now, text); }

    TunnelServer& Server() { return m_server; }
    std::string Take() { return m_transcript.Take(); }
    TimePoint Now() const { return m_now; }
    const std::vector<LData>& Telegrams() const { return m_telegrams; }

    std::function<void(TunnelId, const LData&)> m_onTelegram;
    std::function<ManagementMessage(const ManagementMessage&)> m_onManagement;

private:
    TimePoint m_now{};
    Transcript m_transcript;
    std::vector<LData> m_telegrams;
    TunnelServer m_server;
};

// Requests of the client on channel 1; the sequence number follows as two digits, then 00 and the message.
inline const std::string kRequest = "061004200015 0401";
inline const std::string kAck = "06100421000a 0401";
inline const std::string kSwitchOn = "00 1100bce000000a03010081"; // L_Data.req of 0.0.0 to 1/2/3
inline const std::string kStateRequest = "061002070010 0100 0801c0a8010ac350";
inline const std::string kDisconnectRequest = "061002090010 0100 0801c0a8010ac350";

inline LData Telegram(std::uint8_t value = 1) {
    return MakeGroupTelegram(IndividualAddress(1, 1, 4), GroupAddress(1, 2, 3),
                             KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, value));
}

/// Two hexadecimal digits.
inline std::string Digits(unsigned octet) {
    return fmt::format("{:02x}", octet & 0xFF);
}

} // namespace KnxIp::ServerTesting
