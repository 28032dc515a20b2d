// The connection-oriented transport layer of the device: one connection that somebody else opens.
#pragma once

#include "KnxFrames/Addresses.h"
#include "KnxFrames/Tpdu.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace KnxDevice {

using TimePoint = std::chrono::steady_clock::time_point;
using KnxFrames::IndividualAddress;
using KnxFrames::Tpdu;

/// Receives the wishes of a TransportConnection, inside the call that caused them. An implementation may call
/// Send() and Close() from OnData(), nothing else.
class TransportListener {
public:
    virtual ~TransportListener() = default;

    /// Send the TPDU to the device with the address.
    virtual void SendTo(IndividualAddress to, const Tpdu& tpdu) = 0;
    /// Data from the partner: each once, in order. Valid during the call.
    virtual void OnData(const Tpdu& tpdu) = 0;
    virtual void OnOpened(IndividualAddress partner) = 0;
    /// Closed by the partner, by Close(), or because it does not answer.
    virtual void OnClosed(IndividualAddress partner) = 0;
};

/// KNX Standard 3/3/4, style 3, the side that is connected to. One connection at a time: whoever asks for
/// another one meanwhile is refused with T_Disconnect, but the partner itself is not heard. What does not
/// come from the partner is not answered at all, because an answer of ours would break somebody else's
/// connection. Beyond the standard, an acknowledgement that comes twice ends nothing. No clock and no thread
/// of its own.
class TransportConnection {
public:
    static constexpr std::chrono::seconds kConnectionTimeout{6};
    static constexpr std::chrono::seconds kAckTimeout{3};
    static constexpr unsigned kMostRepeats = 3;
    /// Answers that wait behind the one under way. A client that asks without waiting for answers, and so
    /// gets there, is disconnected.
    static constexpr std::size_t kMostWaiting = 8;

    /// `listener` outlives the connection.
    explicit TransportConnection(TransportListener& listener) : m_listener(listener) {}

    /// A T_Connect, T_Disconnect, T_ACK, T_NAK or T_Data_Connected addressed to this device. Others are
    /// ignored.
    void OnTpdu(TimePoint now, IndividualAddress from, KnxFrames::TpduKind kind, const Tpdu& tpdu);

    /// Sends data to the partner; `tpdu` is unnumbered data and gets its sequence number here. Nothing while
    /// there is no connection.
    void Send(TimePoint now, const Tpdu& tpdu);

    /// Ends the connection with T_Disconnect.
    void Close();

    void OnTime(TimePoint now);
    /// When OnTime() is due; empty without a connection.
    std::optional<TimePoint> NextTime() const;

    bool IsOpen() const { return m_partner.has_value(); }
    /// Only while open.
    IndividualAddress Partner() const { return *m_partner; }

private:
    struct Unacknowledged {
        Tpdu tpdu; // numbered
        TimePoint deadline;
        unsigned repeats = 0;
    };

    void OnConnect(TimePoint now, IndividualAddress from);
    void OnNumberedData(TimePoint now, const Tpdu& tpdu);
    void OnAck(TimePoint now, std::uint8_t sequence);
    void OnNak(TimePoint now, std::uint8_t sequence);
    void Transmit(TimePoint now, const Tpdu& tpdu);
    void RepeatOrClose(TimePoint now);
    void Reset();

    TransportListener& m_listener;
    std::optional<IndividualAddress> m_partner;
    TimePoint m_silentUntil{};
    std::uint8_t m_sendSequence = 0;
    std::uint8_t m_receiveSequence = 0;
    std::optional<Unacknowledged> m_pending;
    std::deque<Tpdu> m_waiting; // behind m_pending
};

} // namespace KnxDevice
