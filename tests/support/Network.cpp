#include "Network.h"

#include <algorithm>

namespace TestSupport {

void Network::SetFaults(const Faults& faults) {
    m_faults = faults;
    for (auto& [ends, direction] : m_directions)
        direction.faults = faults;
}

void Network::SetFaults(const Endpoint& from, const Endpoint& to, const Faults& faults) {
    DirectionOf(from, to).faults = faults;
}

void Network::Disconnect(const Endpoint& from, const Endpoint& to, milliseconds duration) {
    DirectionOf(from, to).disconnectedUntil = m_now + duration;
}

Network::Direction& Network::DirectionOf(const Endpoint& from, const Endpoint& to) {
    const auto [found, isNew] = m_directions.try_emplace({from, to});
    if (isNew)
        found->second.faults = m_faults;
    return found->second;
}

void Network::At(TimePoint time, std::function<void()> action) {
    m_actions.push_back({time, m_nextNumber++, std::move(action)});
    std::push_heap(m_actions.begin(), m_actions.end());
}

void Network::Send(const Endpoint& from, const Endpoint& to, Octets octets) {
    ++sent;
    Direction& direction = DirectionOf(from, to);
    if (Loses(direction, from, to, octets)) {
        ++lost;
        return;
    }
    const Faults& faults = direction.faults;
    Deliver(direction, from, to, octets, faults.longestDelay, !Chance(faults.reordering));
    if (Chance(faults.duplication)) {
        ++duplicated;
        Deliver(direction, from, to, octets, faults.longestDuplicateDelay, false);
    }
}

bool Network::Loses(Direction& direction, const Endpoint& from, const Endpoint& to, Octets octets) {
    if (m_now < direction.disconnectedUntil)
        return true;
    if (!Chance(direction.faults.loss))
        return false;
    const bool isRequest = octets.size() > 8 && octets[2] == 0x04 && octets[3] == 0x20;
    const bool isAck = octets.size() > 8 && octets[2] == 0x04 && octets[3] == 0x21;
    if (!direction.faults.spareRepetitions || (!isRequest && !isAck))
        return true;
    // References to elements of a map stay good when others are added.
    auto& lastLoss = (isRequest ? direction : DirectionOf(to, from)).lastLoss;
    const auto known = lastLoss.find(octets[8]);
    if (known != lastLoss.end() && m_now - known->second < std::chrono::seconds(5))
        return false;
    lastLoss[octets[8]] = m_now;
    return true;
}

void Network::Deliver(Direction& direction, const Endpoint& from, const Endpoint& to, Octets octets,
                      milliseconds longestDelay, bool inOrder) {
    const auto& faults = direction.faults;
    const auto delay = std::uniform_int_distribution<milliseconds::rep>(
        faults.shortestDelay.count(), std::max(faults.shortestDelay, longestDelay).count())(m_random);
    auto arrival = m_now + milliseconds(delay);
    if (inOrder)
        arrival = direction.lastDelivery = std::max(arrival, direction.lastDelivery);
    const std::uint64_t number = m_nextDatagram++;
    At(arrival,
       [this, &direction, from, to, number, copy = std::vector<std::uint8_t>(octets.begin(), octets.end())] {
           overtaken += number < direction.newestDelivered ? 1 : 0;
           direction.newestDelivered = std::max(direction.newestDelivered, number);
           const auto receiver = m_receivers.find(to);
           if (receiver != m_receivers.end())
               receiver->second(from, copy);
       });
}

bool Network::DoNext(TimePoint end) {
    TimePoint next = m_actions.empty() ? TimePoint::max() : m_actions.front().time;
    Machine* due = nullptr;
    for (Machine& machine : m_machines) {
        const auto wanted = machine.next();
        if (wanted && *wanted < next) {
            next = *wanted;
            due = &machine;
        }
    }
    if (next > end)
        return false;
    m_now = std::max(m_now, next);
    if (due != nullptr) {
        due->onTime();
        return true;
    }
    std::pop_heap(m_actions.begin(), m_actions.end());
    const auto action = std::move(m_actions.back().action);
    m_actions.pop_back();
    action();
    return true;
}

void Network::RunFor(milliseconds duration) {
    const TimePoint end = m_now + duration;
    while (DoNext(end)) {
    }
    m_now = end;
}

bool Network::RunUntil(const std::function<bool()>& done, milliseconds most) {
    const TimePoint end = m_now + most;
    while (!done()) {
        if (!DoNext(end)) {
            m_now = end;
            return done();
        }
    }
    return true;
}

} // namespace TestSupport
