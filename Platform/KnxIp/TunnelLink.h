// The two halves of a tunnelling connection, equal on both sides. Internal to this folder.
#pragma once

#include "KnxIp/Frames.h"

#include <chrono>
#include <cstdint>

namespace KnxIp {

/// Judges the sequence numbers of incoming requests.
class ReceiveCounter {
public:
    enum class Verdict : std::uint8_t {
        Take,    ///< the expected one: acknowledge and use it
        Again,   ///< the one before, repeated because our acknowledgement was lost: acknowledge and discard
        Discard, ///< any other: no acknowledgement
    };

    void Reset() { m_expected = 0; }

    Verdict Judge(std::uint8_t sequence) {
        if (sequence == m_expected) {
            ++m_expected;
            return Verdict::Take;
        }
        return sequence == static_cast<std::uint8_t>(m_expected - 1) ? Verdict::Again : Verdict::Discard;
    }

private:
    std::uint8_t m_expected = 0;
};

/// The one outgoing request that waits for its acknowledgement.
class PendingRequest {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    enum class AckVerdict : std::uint8_t { Stale, Done, Refused };

    void Reset() {
        m_active = false;
        m_sequence = 0;
    }

    bool IsActive() const { return m_active; }

    /// When the acknowledgement is late. Meaningless unless active.
    TimePoint Deadline() const { return m_deadline; }

    bool WasRepeated() const { return m_repeated; }

    /// Begins with the datagram to be sent. Not while active.
    const Datagram& Begin(TimePoint deadline, std::uint8_t channel, const KnxFrames::LData& telegram) {
        WriteTunnellingRequest(channel, m_sequence, telegram, m_datagram);
        m_active = true;
        m_repeated = false;
        m_deadline = deadline;
        return m_datagram;
    }

    /// The same datagram once more.
    const Datagram& Repeat(TimePoint deadline) {
        m_repeated = true;
        m_deadline = deadline;
        return m_datagram;
    }

    AckVerdict OnAck(const TunnellingAck& ack) {
        if (!m_active || ack.sequence != m_sequence)
            return AckVerdict::Stale;
        if (ack.status != Status::NoError)
            return AckVerdict::Refused;
        Settle();
        return AckVerdict::Done;
    }

    /// Done with it, as if it had been acknowledged.
    void Settle() {
        m_active = false;
        ++m_sequence;
    }

private:
    bool m_active = false;
    bool m_repeated = false;
    std::uint8_t m_sequence = 0;
    TimePoint m_deadline{};
    Datagram m_datagram;
};

} // namespace KnxIp
