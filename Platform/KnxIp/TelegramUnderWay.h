// The telegram of a TunnelClient that is on its way. Internal to this folder.
#pragma once

#include "KnxIp/SendQueue.h"
#include "KnxIp/TunnelLink.h"

#include <cstdint>

namespace KnxIp {

/// At most one telegram, from its first transmission until the server has acknowledged and confirmed it, in
/// either order.
class TelegramUnderWay {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// What is known of it when the connection ends.
    enum class Fate : std::uint8_t {
        Settled,     ///< there is none, or it was confirmed
        NotTaken,    ///< not acknowledged, and the server cannot have taken it as far as one can know
        NoAck,       ///< not acknowledged, yet the server may have taken it
        Unconfirmed, ///< acknowledged, not confirmed
    };

    /// Nothing is under way, and a new connection may begin.
    void Reset() {
        m_pending.Reset();
        m_isActive = false;
    }

    bool IsActive() const { return m_isActive; }
    bool AwaitsAcknowledgement() const { return m_pending.IsActive(); }
    bool AwaitsConfirmation() const { return m_isActive && !m_pending.IsActive(); }
    bool WasRepeated() const { return m_pending.WasRepeated(); }
    bool IsConfirmed() const { return m_isConfirmed; }

    /// The telegram itself, also when it is not under way any more, until the next one begins.
    const SendQueue::Entry& Entry() const { return m_entry; }
    const KnxFrames::LData& Telegram() const { return m_entry.telegram; }

    /// When the acknowledgement is late. Meaningless unless it is awaited.
    TimePoint AckDeadline() const { return m_pending.Deadline(); }

    /// Begins with the datagram to be sent. Not while active.
    const Datagram& Begin(TimePoint ackDeadline, std::uint8_t channel, const SendQueue::Entry& entry) {
        m_entry = entry;
        m_entry.telegram.code = KnxFrames::MessageCode::LDataReq;
        m_isActive = true;
        m_isConfirmed = false;
        m_serverSpoke = false;
        m_mayHaveLeft = false;
        return m_pending.Begin(ackDeadline, channel, m_entry.telegram);
    }

    const Datagram& Repeat(TimePoint ackDeadline) { return m_pending.Repeat(ackDeadline); }

    /// The datagram of Begin() or Repeat() may be on its way to the server.
    void MayHaveLeft() { m_mayHaveLeft = true; }

    /// Counts as acknowledged.
    void NeedsNoAcknowledgement() { m_pending.Settle(); }

    PendingRequest::AckVerdict OnAck(const TunnellingAck& ack) { return m_pending.OnAck(ack); }

    /// Whether that is its confirmation, which then counts: the same content to the same destination. The
    /// source is not compared: interfaces put in their own.
    bool OnConfirmation(const KnxFrames::LData& confirmation) {
        const KnxFrames::LData& sent = m_entry.telegram;
        if (!m_isActive || m_isConfirmed || confirmation.destination != sent.destination ||
            confirmation.IsToGroup() != sent.IsToGroup() || confirmation.tpdu != sent.tpdu)
            return false;
        m_isConfirmed = true;
        return true;
    }

    /// The confirmation is not waited for any longer, and nothing more is to be reported.
    void ForgoConfirmation() { m_isConfirmed = true; }

    /// The server has said something, so that it lives and may have taken the telegram.
    void ServerSpoke() { m_serverSpoke = true; }

    /// Done with it.
    void Finish() { m_isActive = false; }

    /// The connection is over. `forgotten`: the server said that it does not know the connection, so that it
    /// did not take the first transmission.
    Fate End(bool forgotten) {
        const bool isAcknowledged = !m_pending.IsActive();
        const bool isTaken = m_mayHaveLeft && m_serverSpoke && !(forgotten && !m_pending.WasRepeated());
        const bool isOpen = m_isActive && !m_isConfirmed;
        Reset();
        if (!isOpen)
            return Fate::Settled;
        if (isAcknowledged)
            return Fate::Unconfirmed;
        return isTaken ? Fate::NoAck : Fate::NotTaken;
    }

private:
    bool m_isActive = false;
    SendQueue::Entry m_entry;
    PendingRequest m_pending;
    bool m_isConfirmed = false; // or forgone
    bool m_mayHaveLeft = false; // at least once
    bool m_serverSpoke = false; // since the first transmission
};

} // namespace KnxIp
