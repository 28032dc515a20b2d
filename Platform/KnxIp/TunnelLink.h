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

    bool WasRepeated() const { return m_repetitions != 0; }

    /// How often it was sent beside the first time.
    unsigned Repetitions() const { return m_repetitions; }

    /// Begins with the datagram to be sent. Not while active.
    const Datagram& Begin(TimePoint deadline, std::uint8_t channel, const KnxFrames::LData& telegram) {
        WriteTunnellingRequest(channel, m_sequence, telegram, m_datagram);
        return Begin(deadline);
    }

    /// Likewise with a feature; its channel and number are filled in.
    const Datagram& Begin(TimePoint deadline, std::uint8_t channel, TunnellingFeature feature) {
        feature.channel = channel;
        feature.sequence = m_sequence;
        m_datagram = WriteFrame(feature);
        return Begin(deadline);
    }

    /// Likewise with a message of device management.
    const Datagram& Begin(TimePoint deadline, std::uint8_t channel, Octets cemi) {
        m_datagram = WriteFrame(DeviceConfigurationRequest{channel, m_sequence, cemi});
        return Begin(deadline);
    }

    /// The same datagram once more.
    const Datagram& Repeat(TimePoint deadline) {
        ++m_repetitions;
        m_deadline = deadline;
        return m_datagram;
    }

    /// A TunnellingAck or a DeviceConfigurationAck.
    template <class Ack>
    AckVerdict OnAck(const Ack& ack) {
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
    const Datagram& Begin(TimePoint deadline) {
        m_active = true;
        m_repetitions = 0;
        m_deadline = deadline;
        return m_datagram;
    }

    bool m_active = false;
    unsigned m_repetitions = 0;
    std::uint8_t m_sequence = 0;
    TimePoint m_deadline{};
    Datagram m_datagram;
};

} // namespace KnxIp
