// One tunnel of a TunnelLoad, on a UDP socket of its own.
#pragma once

#include "TunnelLoad.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace TunnelLoad {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;
using Octets = std::span<const std::uint8_t>;
using std::chrono::milliseconds;

/// Throws std::runtime_error with `what` and what errno says.
[[noreturn]] void Fail(const std::string& what);

/// The client of one tunnel: writes its numbers, acknowledges, and judges what it hears. Waits for nothing
/// but the answer to its connect request; whoever has it watches Descriptor(). Each call that sends throws
/// std::runtime_error when the socket refuses.
class Tunnel {
public:
    /// Connects within 20 s, or throws std::runtime_error. `writer`: its number among those who write.
    /// `pause`: what it lets pass before it acknowledges.
    Tunnel(const Settings& settings, std::optional<unsigned> writer, milliseconds pause);
    ~Tunnel();
    Tunnel(const Tunnel&) = delete;
    Tunnel& operator=(const Tunnel&) = delete;

    int Descriptor() const { return m_socket; }
    std::uint16_t Address() const { return m_address; }
    /// The addresses of all writers; before anything is written.
    void Know(const std::vector<std::uint16_t>& writers) {
        m_writers = writers;
        m_last.assign(writers.size(), 0);
    }

    /// For a writer whose last number is done with.
    void WriteNext(TimePoint now);
    /// True when its own number is done with: acknowledged and confirmed.
    bool OnDatagram(TimePoint now, Octets datagram);
    /// Acknowledges what has waited long enough.
    void OnTime(TimePoint now);
    /// From now on it acknowledges at once.
    void HurryUp() { m_pause = milliseconds(0); }

    std::optional<TimePoint> NextTime() const {
        return m_late.empty() ? std::nullopt : std::optional(m_late.front().due);
    }
    std::uint32_t Sent() const { return m_number; }

    /// At the end of it all. `sent`: how many numbers each writer wrote.
    TunnelResult Finish(const std::vector<std::uint32_t>& sent);

    Durations acknowledged;
    Durations confirmed;

private:
    struct LateAck {
        TimePoint due;
        std::uint8_t sequence;
    };

    void Send(Octets datagram) const;
    void Acknowledge(std::uint8_t sequence) const;
    bool OnAck(TimePoint now, Octets datagram);
    bool OnRequest(TimePoint now, Octets datagram);
    bool OnConfirmation(TimePoint now, Octets telegram);
    void OnIndication(Octets telegram);
    bool IsOwn(Octets telegram) const;

    const std::uint16_t m_firstGroup;
    const std::optional<unsigned> m_writer;
    milliseconds m_pause;
    int m_socket;
    std::uint8_t m_channel = 0;
    std::uint16_t m_address = 0;
    std::vector<std::uint16_t> m_writers; // by their number
    std::vector<std::uint32_t> m_last;    // number heard of each
    std::uint32_t m_number = 0;           // written last
    std::uint8_t m_sequence = 0;          // of the next request to the server
    std::uint8_t m_expected = 0;          // of the next request of the server
    TimePoint m_start{};
    bool m_ackMissing = false;
    bool m_conMissing = false;
    std::deque<LateAck> m_late;
    TunnelResult m_result;
};

} // namespace TunnelLoad
