// A fuzz input as a script for a state machine.
#pragma once

#include "Fuzz.h"

#include "KnxFrames/FixedOctets.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Fuzz {

/// One step: an octet with the actor (upper two bits) and the time that passes before (lower six bits, in
/// units of 250 ms; 63 is 40 s), an octet with a length, and as many octets.
struct Step {
    unsigned actor = 0;
    std::chrono::milliseconds pause{0};
    KnxFrames::Octets octets;
};

/// Takes a step from the front of the input; empty at its end. The last step may be shorter than it says.
inline std::optional<Step> TakeStep(KnxFrames::Octets& input) {
    if (input.size() < 2)
        return std::nullopt;
    Step step;
    step.actor = input[0] >> 6;
    const unsigned units = input[0] & 0x3FU;
    step.pause = std::chrono::milliseconds(units == 63 ? 40000 : units * 250);
    step.octets = input.subspan(2, std::min<std::size_t>(input[1], input.size() - 2));
    input = input.subspan(2 + step.octets.size());
    return step;
}

/// Lets time pass, calling the machine when it asks for it. A machine never asks to be called again at once.
template <class Machine, class TimePoint>
void Pass(Machine& machine, TimePoint& now, std::chrono::milliseconds pause) {
    const TimePoint end = now + pause;
    unsigned calls = 0;
    for (auto next = machine.NextTime(); next && *next <= end; next = machine.NextTime()) {
        now = std::max(now, *next);
        machine.OnTime(now);
        Check(++calls < 1000);
    }
    now = end;
}

/// Plays a whole input to a new host. For the return of a fuzzer's function.
template <class Host>
int Play(const std::uint8_t* data, std::size_t size) {
    Host host;
    KnxFrames::Octets input(data, size);
    while (const auto step = TakeStep(input))
        host.Do(*step);
    host.Finish();
    return 0;
}

} // namespace Fuzz
