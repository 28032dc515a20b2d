// Records what goes in and comes out of a state machine, as text that a person can compare.
#pragma once

#include "KnxIp/Endpoint.h"
#include "KnxIp/Frames.h"

#include <fmt/format.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KnxIp::Testing {

using TimePoint = std::chrono::steady_clock::time_point;
using std::chrono::milliseconds;

/// A line per datagram or event: seconds since the start, "<" in, ">" out or "!" event, where to or from, the
/// octets. Endpoints that were given a name are printed by it. The text begins with a line feed, so that an
/// expectation can be a raw string that begins on its own line.
class Transcript {
public:
    void Name(const Endpoint& endpoint, std::string name) { m_names.emplace_back(endpoint, std::move(name)); }

    void In(TimePoint now, const Endpoint& from, Octets datagram) { In(now, NameOf(from), datagram); }
    void Out(TimePoint now, const Endpoint& to, Octets datagram) { Out(now, NameOf(to), datagram); }
    void In(TimePoint now, const std::string& from, Octets octets) { Write(now, '<', from, octets); }
    void Out(TimePoint now, const std::string& to, Octets octets) { Write(now, '>', to, octets); }
    void Event(TimePoint now, const std::string& text) { Line(now, fmt::format("! {}", text)); }

    /// The lines since the last call.
    std::string Take() { return std::exchange(m_text, "\n"); }

private:
    void Write(TimePoint now, char direction, const std::string& name, Octets octets) {
        std::string text = {direction, ' '};
        text += name;
        for (std::size_t index = 0; index < octets.size(); ++index) {
            if (index == 0 || index == 6)
                text += ' '; // around the header
            text += fmt::format("{:02x}", octets[index]);
        }
        Line(now, text);
    }

    void Line(TimePoint now, const std::string& text) {
        const auto time = std::chrono::duration_cast<milliseconds>(now.time_since_epoch()).count();
        m_text += fmt::format("{}.{:03} {}\n", time / 1000, time % 1000, text);
    }

    std::string NameOf(const Endpoint& endpoint) const {
        for (const auto& [known, name] : m_names) {
            if (known == endpoint)
                return name;
        }
        return endpoint.ToString();
    }

    std::vector<std::pair<Endpoint, std::string>> m_names;
    std::string m_text = "\n";
};

/// Octets of hexadecimal digits; blanks are skipped.
inline std::vector<std::uint8_t> Hex(const std::string& digits) {
    std::vector<std::uint8_t> octets;
    std::string pair;
    for (const char digit : digits) {
        if (digit == ' ')
            continue;
        pair += digit;
        if (pair.size() == 2) {
            octets.push_back(static_cast<std::uint8_t>(std::stoi(pair, nullptr, 16)));
            pair.clear();
        }
    }
    return octets;
}

inline constexpr Endpoint kServer{0xC0A80102, 3671};      // 192.168.1.2:3671
inline constexpr Endpoint kClient{0xC0A8010A, 50000};     // 192.168.1.10, control
inline constexpr Endpoint kClientData{0xC0A8010A, 50001}; // 192.168.1.10, data

/// Feeds a machine with time: every OnTime() that it asks for up to `until`, at the moment it asked for.
template <class Machine>
void RunUntil(Machine& machine, TimePoint& now, TimePoint until) {
    for (auto next = machine.NextTime(); next && *next <= until; next = machine.NextTime()) {
        if (*next > now)
            now = *next;
        machine.OnTime(now);
    }
    now = until;
}

} // namespace KnxIp::Testing
