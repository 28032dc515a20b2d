// Many KNXnet/IP tunnels at once, as fast as the KNX Standard lets their clients be. In raw octets, and
// without anything of the system under test.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace TunnelLoad {

/// Times of one kind, in microseconds.
class Durations {
public:
    void Add(std::chrono::steady_clock::duration duration) {
        m_microseconds.push_back(std::chrono::duration<float, std::micro>(duration).count());
    }
    void Add(const Durations& others);
    std::size_t Count() const { return m_microseconds.size(); }
    /// Smaller than this are `percent` % of them; 100 is the longest. 0 when there are none.
    double Percentile(int percent) const;

private:
    std::vector<float> m_microseconds;
};

struct Settings {
    std::uint16_t port = 0; ///< of the server on 127.0.0.1
    /// Tunnels that write: each sends numbers, 1, 2, 3, …, of four octets to a group of its own, the next as
    /// soon as the last is acknowledged and confirmed. All of them hear each other.
    unsigned writers = 16;
    unsigned listeners = 0; ///< tunnels that only hear
    /// What a listener lets pass before it acknowledges, as long as the writers write.
    std::chrono::milliseconds listenerPause{0};
    std::uint16_t firstGroup = 0; ///< of the first writer; the others follow
    std::chrono::milliseconds duration{1000};
    /// It is over when nothing has come for so long: longer than a server waits before it repeats.
    std::chrono::milliseconds quiet{2000};
};

/// One tunnel, seen from its client.
struct TunnelResult {
    std::string address;        ///< that the server lent
    std::uint64_t sent = 0;     ///< numbers written
    std::uint64_t heard = 0;    ///< numbers of other tunnels
    std::uint64_t others = 0;   ///< telegrams to other groups than the writers'
    std::uint64_t missing = 0;  ///< numbers that others wrote and that were not heard
    std::uint64_t disorder = 0; ///< numbers heard a second time, or behind a later one of their writer
    std::uint64_t strange = 0; ///< whatever has no place in all this: another's number with a wrong source, a
                               ///< wrong sequence number
    std::uint64_t repeated = 0; ///< requests of the server that came again, as our acknowledgement was late
    std::uint64_t refused = 0;  ///< acknowledgements and confirmations with an error
    bool unconfirmed = false;   ///< its last number was not acknowledged or not confirmed
    bool lost = false;          ///< the server has closed it
};

struct Result {
    std::chrono::duration<double> writing{}; ///< first number to last confirmation
    std::uint64_t telegrams = 0;
    Durations acknowledged; ///< L_Data.req to TUNNELLING_ACK
    Durations confirmed;    ///< L_Data.req to L_Data.con
    std::vector<TunnelResult> tunnels;
};

/// Opens the tunnels, writes for the duration, and then waits until nothing comes any more. On the calling
/// thread alone. Throws std::runtime_error when the server refuses a tunnel, or something keeps coming for a
/// minute.
Result Run(const Settings& settings);

} // namespace TunnelLoad
