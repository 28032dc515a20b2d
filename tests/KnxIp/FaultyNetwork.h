// A UDP network in one process, with its own time and with faults.
#pragma once

#include "KnxIp/Endpoint.h"
#include "KnxIp/Frames.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <queue>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

namespace KnxIp::Testing {

using TimePoint = std::chrono::steady_clock::time_point;
using std::chrono::milliseconds;

/// What the network does to datagrams. Delays are drawn evenly, so datagrams overtake each other.
struct Faults {
    double loss = 0;
    double duplication = 0;
    milliseconds shortestDelay{1};
    milliseconds longestDelay{1};
    milliseconds longestDuplicateDelay{1}; ///< of the second copy
    /// A tunnelling request and its acknowledgement are not lost again within 5 s, so that one repetition is
    /// enough, which is as much as the protocol promises.
    bool spareRepetitions = false;
};

class FaultyNetwork {
public:
    using Receiver = std::function<void(const Endpoint& from, Octets datagram)>;

    FaultyNetwork(std::uint32_t seed, const Faults& faults) : m_random(seed), m_faults(faults) {}

    void SetFaults(const Faults& faults) { m_faults = faults; }
    TimePoint Now() const { return m_now; }

    void Attach(const Endpoint& endpoint, Receiver receiver) { m_receivers[endpoint] = std::move(receiver); }

    /// A state machine that wants to be called in time.
    template <class Machine>
    void Drive(Machine& machine) {
        m_machines.push_back(
            {[&machine] { return machine.NextTime(); }, [this, &machine] { machine.OnTime(m_now); }});
    }

    void At(TimePoint time, std::function<void()> action) {
        m_actions.push({time, m_nextNumber++, std::move(action)});
    }

    void Send(const Endpoint& from, const Endpoint& to, Octets octets) {
        ++sent;
        if (Loses(from, to, octets)) {
            ++lost;
            return;
        }
        Deliver(from, to, octets, m_faults.longestDelay);
        if (Chance(m_faults.duplication)) {
            ++duplicated;
            Deliver(from, to, octets, m_faults.longestDuplicateDelay);
        }
    }

    void RunFor(milliseconds duration) {
        const TimePoint end = m_now + duration;
        for (;;) {
            TimePoint next = m_actions.empty() ? TimePoint::max() : m_actions.top().time;
            Machine* due = nullptr;
            for (Machine& machine : m_machines) {
                const auto wanted = machine.next();
                if (wanted && *wanted < next) {
                    next = *wanted;
                    due = &machine;
                }
            }
            if (next > end)
                break;
            m_now = std::max(m_now, next);
            if (due != nullptr) {
                due->onTime();
                continue;
            }
            const auto action = m_actions.top().action;
            m_actions.pop();
            action();
        }
        m_now = end;
    }

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
    /// Who sent a tunnelling request to whom, with which sequence number.
    using Exchange = std::tuple<Endpoint, Endpoint, std::uint8_t>;

    bool Chance(double probability) { return std::uniform_real_distribution<>(0, 1)(m_random) < probability; }

    bool Loses(const Endpoint& from, const Endpoint& to, Octets octets) {
        if (!Chance(m_faults.loss))
            return false;
        const bool isRequest = octets.size() > 8 && octets[2] == 0x04 && octets[3] == 0x20;
        const bool isAck = octets.size() > 8 && octets[2] == 0x04 && octets[3] == 0x21;
        if (!m_faults.spareRepetitions || (!isRequest && !isAck))
            return true;
        const Exchange exchange = isRequest ? Exchange{from, to, octets[8]} : Exchange{to, from, octets[8]};
        const auto known = m_lastLoss.find(exchange);
        if (known != m_lastLoss.end() && m_now - known->second < std::chrono::seconds(5))
            return false;
        m_lastLoss[exchange] = m_now;
        return true;
    }

    void Deliver(const Endpoint& from, const Endpoint& to, Octets octets, milliseconds longestDelay) {
        const auto delay = std::uniform_int_distribution<milliseconds::rep>(
            m_faults.shortestDelay.count(), std::max(m_faults.shortestDelay, longestDelay).count())(m_random);
        const std::uint64_t number = m_nextDatagram++;
        At(m_now + milliseconds(delay),
           [this, from, to, number, copy = std::vector<std::uint8_t>(octets.begin(), octets.end())] {
               auto& newest = m_newestDelivered[{from, to}];
               overtaken += number < newest ? 1 : 0;
               newest = std::max(newest, number);
               const auto receiver = m_receivers.find(to);
               if (receiver != m_receivers.end())
                   receiver->second(from, copy);
           });
    }

    std::mt19937 m_random;
    Faults m_faults;
    TimePoint m_now{};
    std::map<Endpoint, Receiver> m_receivers;
    std::vector<Machine> m_machines;
    std::priority_queue<Action> m_actions;
    std::uint64_t m_nextNumber = 0;
    std::uint64_t m_nextDatagram = 0;
    std::map<Exchange, TimePoint> m_lastLoss;
    std::map<std::pair<Endpoint, Endpoint>, std::uint64_t> m_newestDelivered;
};

} // namespace KnxIp::Testing
