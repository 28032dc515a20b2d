#include "KnxDevice/TransportConnection.h"

#include <algorithm>

namespace KnxDevice {

using KnxFrames::TpduKind;
using KnxFrames::TpduSequence;

namespace {

// Transport control information, see Tpdu.h.
constexpr std::uint8_t kDisconnect = 0x81;
constexpr std::uint8_t kAck = 0xC2;
constexpr std::uint8_t kNak = 0xC3;
constexpr std::uint8_t kNumbered = 0x40;
constexpr std::uint8_t kApciBits = 0x03;
constexpr std::uint8_t kSequences = 16;

std::uint8_t WithSequence(std::uint8_t tpci, std::uint8_t sequence) {
    return static_cast<std::uint8_t>(tpci | sequence << 2);
}

std::uint8_t Next(std::uint8_t sequence) {
    return static_cast<std::uint8_t>((sequence + 1) % kSequences);
}

std::uint8_t Previous(std::uint8_t sequence) {
    return static_cast<std::uint8_t>((sequence + kSequences - 1) % kSequences);
}

} // namespace

void TransportConnection::OnTpdu(TimePoint now, IndividualAddress from, TpduKind kind, const Tpdu& tpdu) {
    if (kind == TpduKind::Connect) {
        OnConnect(now, from);
        return;
    }
    if (m_partner != from)
        return;
    switch (kind) {
    case TpduKind::Disconnect: Reset(); break;
    case TpduKind::DataConnected: OnNumberedData(now, tpdu); break;
    case TpduKind::Ack: OnAck(now, TpduSequence(tpdu)); break;
    case TpduKind::Nak: OnNak(now, TpduSequence(tpdu)); break;
    default: break;
    }
}

void TransportConnection::OnConnect(TimePoint now, IndividualAddress from) {
    if (m_partner && *m_partner != from) {
        m_listener.SendTo(from, {kDisconnect});
        return;
    }
    if (m_partner)
        return; // a copy that is late must not begin the sequence numbers anew
    m_partner = from;
    m_silentUntil = now + kConnectionTimeout;
    m_listener.OnOpened(from);
}

void TransportConnection::OnNumberedData(TimePoint now, const Tpdu& tpdu) {
    m_silentUntil = now + kConnectionTimeout;
    const std::uint8_t sequence = TpduSequence(tpdu);
    if (sequence == m_receiveSequence) {
        m_receiveSequence = Next(m_receiveSequence);
        m_listener.SendTo(*m_partner, {WithSequence(kAck, sequence)});
        m_listener.OnData(tpdu);
    } else if (sequence == Previous(m_receiveSequence)) {
        m_listener.SendTo(*m_partner, {WithSequence(kAck, sequence)}); // our acknowledgement was lost
    } else {
        m_listener.SendTo(*m_partner, {WithSequence(kNak, sequence)});
    }
}

void TransportConnection::OnAck(TimePoint now, std::uint8_t sequence) {
    if (!m_pending)
        return;
    if (sequence != m_sendSequence) {
        // A copy that is late belongs to what is acknowledged already; any other is an error.
        if (sequence != Previous(m_sendSequence))
            Close();
        return;
    }
    m_silentUntil = now + kConnectionTimeout;
    m_sendSequence = Next(m_sendSequence);
    m_pending.reset();
    if (m_waiting.empty())
        return;
    const Tpdu next = m_waiting.front();
    m_waiting.pop_front();
    Transmit(now, next);
}

void TransportConnection::OnNak(TimePoint now, std::uint8_t sequence) {
    if (sequence != m_sendSequence)
        return;
    if (!m_pending) {
        Close();
        return;
    }
    m_silentUntil = now + kConnectionTimeout;
    RepeatOrClose(now);
}

void TransportConnection::Send(TimePoint now, const Tpdu& tpdu) {
    if (!m_partner)
        return;
    if (!m_pending)
        Transmit(now, tpdu);
    else if (m_waiting.size() < kMostWaiting)
        m_waiting.push_back(tpdu);
    else
        Close();
}

void TransportConnection::Transmit(TimePoint now, const Tpdu& tpdu) {
    Unacknowledged sent{tpdu, now + kAckTimeout};
    sent.tpdu[0] = WithSequence(static_cast<std::uint8_t>(kNumbered | (tpdu[0] & kApciBits)), m_sendSequence);
    m_pending = sent;
    m_silentUntil = now + kConnectionTimeout;
    m_listener.SendTo(*m_partner, sent.tpdu);
}

void TransportConnection::RepeatOrClose(TimePoint now) {
    if (m_pending->repeats == kMostRepeats) {
        Close();
        return;
    }
    ++m_pending->repeats;
    m_pending->deadline = now + kAckTimeout;
    m_silentUntil = now + kConnectionTimeout;
    m_listener.SendTo(*m_partner, m_pending->tpdu);
}

void TransportConnection::Close() {
    if (!m_partner)
        return;
    m_listener.SendTo(*m_partner, {kDisconnect});
    Reset();
}

void TransportConnection::Reset() {
    const IndividualAddress partner = *m_partner;
    m_partner.reset();
    m_sendSequence = 0;
    m_receiveSequence = 0;
    m_pending.reset();
    m_waiting.clear();
    m_listener.OnClosed(partner);
}

void TransportConnection::OnTime(TimePoint now) {
    if (!m_partner)
        return;
    if (now >= m_silentUntil)
        Close();
    else if (m_pending && now >= m_pending->deadline)
        RepeatOrClose(now);
}

std::optional<TimePoint> TransportConnection::NextTime() const {
    if (!m_partner)
        return std::nullopt;
    return m_pending ? std::min(m_silentUntil, m_pending->deadline) : m_silentUntil;
}

} // namespace KnxDevice
