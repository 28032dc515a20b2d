// KNXnet/IP routing: a bus whose telegrams go to everybody in a multicast group.
#pragma once

#include "KnxFrames/Cemi.h"
#include "KnxIp/Frames.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace KnxIp {

using TimePoint = std::chrono::steady_clock::time_point;

/// What a RoutingLink speaks to and how; constant while it exists.
struct RoutingLinkConfig {
    /// The multicast group and its port.
    Endpoint group{kStandardMulticast, kStandardPort};

    /// Telegrams that may be sent in a second, evenly spaced. 1 to 1000.
    unsigned rate = 50;

    /// Telegrams that wait. At least 1.
    std::size_t queueLimit = 1000;

    /// Gives a number from 0 to 1 each time a waiting time is chosen, so that not everybody who was silent
    /// for a busy router speaks again at the same moment. Empty: always 0.
    std::function<double()> random;
};

/// Counts since the link was made.
struct RoutingLinkCounters {
    std::uint64_t sent = 0;     ///< telegrams sent
    std::uint64_t received = 0; ///< telegrams handed to the listener
    std::uint64_t own = 0;      ///< telegrams of ours that came back
    std::uint64_t dropped = 0;  ///< telegrams lost because the queue was full
    std::uint64_t busy = 0;     ///< ROUTING_BUSYs for everybody
    std::uint64_t lost = 0;     ///< telegrams that others say they have lost
    std::uint64_t pauses = 0;   ///< ROUTING_BUSYs sent
    std::uint64_t lostHere = 0; ///< telegrams of the group that were lost behind this member
};

/// Receives the wishes of a RoutingLink, inside the call that caused them and on its thread. An
/// implementation may call Send(), ReportBusy() and ReportLost() from any of them, but neither OnDatagram()
/// nor OnTime(), and must not destroy the link.
class RoutingLinkListener {
public:
    virtual ~RoutingLinkListener() = default;

    /// Send one UDP datagram to the group, a telegram or word of an overload. The octets are valid during the
    /// call.
    virtual void SendDatagram(const Endpoint& to, Octets datagram) = 0;

    /// A telegram from the bus (L_Data.ind).
    virtual void OnTelegram(const KnxFrames::LData& telegram) = 0;

    /// Somebody could not pass on so many telegrams.
    virtual void OnLostMessages(const Endpoint& from, std::uint16_t lost) = 0;

    /// Somebody asks everybody to be silent for so long. Called for each.
    virtual void OnBusy(const Endpoint& from, std::chrono::milliseconds wait) = 0;

    /// The queue is full and a telegram was dropped. Called once per burst, which ends when the queue has run
    /// empty; RoutingLinkCounters::dropped counts on.
    virtual void OnQueueOverflow() = 0;

    /// A datagram or the cEMI message inside was refused. Called for each; report each cause once per source.
    virtual void OnRefusedDatagram(const Endpoint& from, const KnxFrames::FrameError& error) = 0;

    /// Whether datagrams of our own socket seem to come from there. Other processes of this machine may send
    /// from the same address and port.
    virtual bool IsOwnEndpoint(const Endpoint& from) = 0;
};

/// A member of a multicast group on which KNX telegrams are exchanged (ROUTING_INDICATION). There is no
/// connection and no acknowledgement. It opens no socket and reads no clock. Not synchronised: all calls from
/// one thread. Time never goes back between calls.
///
/// Sending: at most `rate` telegrams a second, the first at once, the others in their order with equal
/// pauses. When the queue is full, the oldest one of the lowest priority is dropped.
///
/// ROUTING_BUSY: nothing is sent for the time that it names and a random time of up to N times 50 ms. N is
/// the number of such frames, counted at most once in 10 ms; N times 100 ms after the silence it begins to
/// fall by 1 each 5 ms. A frame for certain routers only (control field not 0) does not count.
///
/// Own telegrams that come back, since a system that passes multicast to other processes of the machine
/// passes it to the sender as well: a datagram from our own endpoint with the content of one that was sent
/// within kEchoTime is ours, once for each time it was sent. What another process sends from the same
/// endpoint is not.
///
/// Who cannot pass telegrams of the group on as fast as they come says so: a ROUTING_BUSY asks everybody for
/// kBusyWait of silence, no two within that time, and kBusyAtOnce in a row, then one in kBusyRefill: one slow
/// receiver does not silence the bus for good. A ROUTING_LOST_MESSAGE has the number of telegrams lost since
/// the last one, at most once in kLostPause.
class RoutingLink {
public:
    static constexpr std::chrono::milliseconds kBusyInterval{10};
    static constexpr std::chrono::milliseconds kRandomWait{50};
    static constexpr std::chrono::milliseconds kSlowTime{100};
    static constexpr std::chrono::milliseconds kBusyDecrement{5};
    static constexpr std::chrono::milliseconds kEchoTime{2000};
    static constexpr std::chrono::milliseconds kBusyWait{100};
    static constexpr unsigned kBusyAtOnce = 10;
    static constexpr std::chrono::milliseconds kBusyRefill{1000};
    static constexpr std::chrono::milliseconds kLostPause{1000};

    /// `listener` outlives the link. Throws std::invalid_argument, with the cause for people, when the
    /// configuration breaks a rule given there.
    RoutingLink(RoutingLinkConfig config, RoutingLinkListener& listener);
    ~RoutingLink();
    RoutingLink(const RoutingLink&) = delete;
    RoutingLink& operator=(const RoutingLink&) = delete;

    /// A datagram arrived in the group.
    void OnDatagram(TimePoint now, const Endpoint& from, Octets datagram);

    /// Does what is due. Harmless when nothing is.
    void OnTime(TimePoint now);

    /// Telegrams of the group wait for somebody behind this member, nearly as many as have room: asks the
    /// others for a pause.
    void ReportBusy(TimePoint now);

    /// So many telegrams of the group could not be passed on: tells the others, at once or when it is time.
    void ReportLost(TimePoint now, unsigned count);

    /// When OnTime() wants to be called next; empty while nothing waits. To be asked after each call that
    /// took a time.
    std::optional<TimePoint> NextTime() const;

    /// Sends the telegram as L_Data.ind, at once or when its turn comes. Its own message code does not
    /// matter. False when the queue is full of telegrams with a higher priority, so that this one was
    /// dropped.
    bool Send(TimePoint now, const KnxFrames::LData& telegram);

    /// Telegrams that wait.
    std::size_t Waiting() const;

    const RoutingLinkCounters& Counters() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace KnxIp
