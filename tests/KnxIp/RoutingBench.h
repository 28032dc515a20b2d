// A RoutingLink on a bench: what goes in and comes out is written down.
#pragma once

#include "KnxIp/RoutingLink.h"

#include "Transcript.h"

#include <fmt/format.h>

#include <string>
#include <utility>
#include <vector>

namespace KnxIp::RoutingTesting {

using namespace Testing;
using KnxFrames::FrameError;
using KnxFrames::GroupAddress;
using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using KnxFrames::Priority;
using std::chrono::seconds;

inline constexpr Endpoint kGroup{0xE000170C, 3671};
inline constexpr Endpoint kRouter{0xC0A80103, 3671};
inline constexpr Endpoint kOwn{0xC0A80102, 3671};

inline const std::string kIndication =
    "061005300011 2900bce011040a0301008"; // 1.1.4 to 1/2/3, and the value's digit

inline LData Telegram(std::uint8_t value, Priority priority = Priority::Low) {
    return MakeGroupTelegram(IndividualAddress(1, 1, 4), GroupAddress(1, 2, 3),
                             KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, value), priority);
}

/// A link under test; everything it wishes goes into the transcript.
class RoutingBench : public RoutingLinkListener {
public:
    explicit RoutingBench(RoutingLinkConfig config = {}) : m_link(WithRandom(std::move(config)), *this) {
        m_transcript.Name(kGroup, "group");
        m_transcript.Name(kRouter, "router");
        m_transcript.Name(kOwn, "own");
    }

    void SendDatagram(const Endpoint& to, Octets datagram) override {
        m_transcript.Out(m_now, to, datagram);
        m_sendTimes.push_back(Milliseconds());
        m_values.push_back(datagram[datagram.size() - 1] & 0x3F);
    }
    void OnTelegram(const LData& telegram) override { Event(fmt::format("telegram {}", Describe(telegram))); }
    void OnLostMessages(const Endpoint& from, std::uint16_t lost) override {
        Event(fmt::format("{} has lost {}", from.ToString(), lost));
    }
    void OnBusy(const Endpoint&, milliseconds wait) override {
        m_busy.push_back(static_cast<int>(wait.count()));
    }
    void OnQueueOverflow() override { Event("queue overflows"); }
    void OnRefusedDatagram(const Endpoint&, const FrameError& error) override {
        Event(fmt::format("{}{}", error.kind == FrameError::Kind::Unsupported ? "unsupported: " : "",
                          error.cause));
    }
    bool IsOwnEndpoint(const Endpoint& from) override { return from == kOwn; }

    void Receive(const Endpoint& from, const std::string& hex) { m_link.OnDatagram(m_now, from, Hex(hex)); }
    /// ROUTING_BUSY with so many milliseconds to wait.
    void Busy(unsigned wait, unsigned control = 0) {
        Receive(kRouter, fmt::format("06100532000c 0600{:04x}{:04x}", wait, control));
    }
    void Send(std::uint8_t value, Priority priority = Priority::Low) {
        m_isTaken = m_link.Send(m_now, Telegram(value, priority));
    }
    void Advance(milliseconds by) { RunUntil(m_link, m_now, m_now + by); }
    void ReportBusy() { m_link.ReportBusy(m_now); }
    void ReportLost(unsigned count) { m_link.ReportLost(m_now, count); }
    /// Waits until the time.
    void At(int time) { Advance(milliseconds(time - Milliseconds())); }
    /// When a telegram that is sent now leaves.
    int Departure() {
        m_sendTimes.clear();
        Send(1);
        Advance(seconds(100));
        return m_sendTimes.empty() ? -1 : m_sendTimes.front();
    }
    void Event(const std::string& text) { m_transcript.Event(m_now, text); }

    RoutingLink& Link() { return m_link; }
    std::string Take() { return m_transcript.Take(); }
    const std::vector<int>& SendTimes() const { return m_sendTimes; }
    const std::vector<int>& Values() const { return m_values; }
    const std::vector<int>& BusyTimes() const { return m_busy; }
    bool IsTaken() const { return m_isTaken; }

    double m_random = 0;

private:
    int Milliseconds() const {
        return static_cast<int>(std::chrono::duration_cast<milliseconds>(m_now.time_since_epoch()).count());
    }
    RoutingLinkConfig WithRandom(RoutingLinkConfig config) {
        config.random = [this] { return m_random; };
        return config;
    }

    TimePoint m_now{};
    Transcript m_transcript;
    std::vector<int> m_sendTimes;
    std::vector<int> m_values;
    std::vector<int> m_busy;
    bool m_isTaken = false;
    RoutingLink m_link;
};

} // namespace KnxIp::RoutingTesting
