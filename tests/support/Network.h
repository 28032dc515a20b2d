// A UDP network in one process, with its own time and with faults.
#pragma once

#include "KnxIp/Endpoint.h"
#include "KnxIp/Frames.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

namespace TestSupport {

using KnxIp::Endpoint;
using KnxIp::Octets;
using TimePoint = std::chrono::steady_clock::time_point;
using std::chrono::milliseconds;

/// What the network does to datagrams that go one way. Delays are drawn evenly.
struct Faults {
    double loss = 0;
    double duplication = 0;
    milliseconds shortestDelay{1};
    milliseconds longestDelay{1};
    milliseconds longestDuplicateDelay{1}; ///< of the second copy, which keeps no order
    /// A tunnelling request and its acknowledgement are not lost again within 5 s, so that one repetition is
    /// enough, which is as much as the protocol promises.
    bool spareRepetitions = false;
    /// Share of the datagrams that arrive when their delay says; the others wait for those before them.
    double reordering = 0;
};

/// Whoever is attached gets datagrams and is called in time, from RunFor(). The same seed plays the same
/// faults. Nothing sleeps. Not synchronised.
class Network {
public:
    using Receiver = std::function<void(const Endpoint& from, Octets datagram)>;

    explicit Network(std::uint32_t seed, const Faults& faults = {}) : m_random(seed), m_faults(faults) {}

    /// In every direction, from now on.
    void SetFaults(const Faults& faults);
    /// In one direction.
    void SetFaults(const Endpoint& from, const Endpoint& to, const Faults& faults);
    /// Loses everything in one direction for so long.
    void Disconnect(const Endpoint& from, const Endpoint& to, milliseconds duration);

    TimePoint Now() const { return m_now; }

    void Attach(const Endpoint& endpoint, Receiver receiver) { m_receivers[endpoint] = std::move(receiver); }

    /// A state machine that wants to be called in time. It outlives the last RunFor().
    template <class Machine>
    void Drive(Machine& machine) {
        m_machines.push_back(
            {[&machine] { return machine.NextTime(); }, [this, &machine] { machine.OnTime(m_now); }});
    }

    void At(TimePoint time, std::function<void()> action);
    void Send(const Endpoint& from, const Endpoint& to, Octets octets);
    void RunFor(milliseconds duration);
    /// Until `done`, asked after each event, or for so long. What `done` said last.
    bool RunUntil(const std::function<bool()>& done, milliseconds most);

    /// For whoever needs chance from the same seed. 0 to 1.
    double Random() { return std::uniform_real_distribution<>(0, 1)(m_random); }

    // What happened, so that a test can show that its faults were real.
    unsigned sent = 0;
    unsigned lost = 0;
    unsigned duplicated = 0;
    unsigned overtaken = 0;

private:
    struct Machine {
        std::function<std::optional<TimePoint>()> next;
        std::function<void()> onTime;
    };
    struct Action {
        TimePoint time;
        std::uint64_t number;
        std::function<void()> action;
        bool operator<(const Action& other) const {
            return std::tie(other.time, other.number) < std::tie(time, number); // the earliest on top
        }
    };
    struct Direction {
        Faults faults;
        TimePoint disconnectedUntil{};
        TimePoint lastDelivery{};                   // of those that keep their order
        std::uint64_t newestDelivered = 0;          // number of a datagram
        std::map<std::uint8_t, TimePoint> lastLoss; // of the tunnelling exchange begun this way, by number
    };

    Direction& DirectionOf(const Endpoint& from, const Endpoint& to);
    bool Chance(double probability) { return Random() < probability; }
    bool Loses(Direction& direction, const Endpoint& from, const Endpoint& to, Octets octets);
    void Deliver(Direction& direction, const Endpoint& from, const Endpoint& to, Octets octets,
                 milliseconds longestDelay, bool inOrder);
    /// False when nothing is due until `end`.
    bool DoNext(TimePoint end);

    std::mt19937 m_random;
    Faults m_faults; // of directions that nobody has used yet
    TimePoint m_now{};
    std::map<Endpoint, Receiver> m_receivers;
    std::vector<Machine> m_machines;
    std::vector<Action> m_actions; // a heap
    std::uint64_t m_nextNumber = 0;
    std::uint64_t m_nextDatagram = 0;
    std::map<std::pair<Endpoint, Endpoint>, Direction> m_directions;
};

} // namespace TestSupport
