// Remembers what was reported already.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

namespace KnxStackHost {

/// How many lines may be written about one matter: some at once, then one a minute. Not synchronised.
class LinePace {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::minutes kPause{1};

    /// `atOnce` at least 1.
    explicit LinePace(unsigned atOnce) : m_atOnce(atOnce), m_left(atOnce) {}

    /// Takes the room of one line; false when there is none.
    bool Take(TimePoint now) {
        if (m_left == m_atOnce)
            m_refilled = now; // nothing to refill before
        const auto minutes = (now - m_refilled) / kPause;
        m_left = static_cast<unsigned>(std::min<decltype(minutes)>(m_left + minutes, m_atOnce));
        m_refilled += minutes * kPause;
        if (m_left == 0)
            return false;
        --m_left;
        return true;
    }

    /// No room for a line is left for now.
    bool IsUsedUp() const { return m_left == 0; }

private:
    unsigned m_atOnce;
    unsigned m_left;
    TimePoint m_refilled{}; // up to when minutes have been counted
};

/// Counts faults by source and cause, so that each pair is reported once however often it comes, with bounded
/// memory. New pairs are reported at a bounded rate: whoever makes up sources cannot fill the log, and a pair
/// that comes at a bad time is reported later, when it comes again. Not synchronised.
class Notices {
public:
    using TimePoint = LinePace::TimePoint;

    static constexpr std::size_t kPairs = 4096; ///< that are told apart
    static constexpr unsigned kAtOnce = 20;     ///< lines, beside one a minute

    /// What to do with a fault that was counted.
    enum class Verdict {
        Report,      ///< the first of its source and cause
        ReportPause, ///< likewise, and other pairs have to wait for a minute
        ReportLast,  ///< likewise, and from now on new pairs are not told apart any more
        Silent,
    };

    explicit Notices(std::size_t pairs = kPairs, unsigned atOnce = kAtOnce)
        : m_limit(pairs), m_pace(atOnce) {}

    /// `cause` is a literal or lives as long as this object.
    Verdict Count(std::uint32_t source, std::string_view cause, std::optional<TimePoint> now = std::nullopt) {
        ++m_total;
        if (m_seen.size() >= m_limit || m_seen.contains({source, cause}))
            return Verdict::Silent; // the usual case reads no clock
        return Report(source, cause, now ? *now : std::chrono::steady_clock::now());
    }

    /// All that were counted.
    std::uint64_t Total() const { return m_total; }

private:
    Verdict Report(std::uint32_t source, std::string_view cause, TimePoint now) {
        if (!m_pace.Take(now))
            return Verdict::Silent;
        m_seen.emplace(source, cause);
        if (m_seen.size() == m_limit)
            return Verdict::ReportLast;
        return m_pace.IsUsedUp() ? Verdict::ReportPause : Verdict::Report;
    }

    std::size_t m_limit;
    std::uint64_t m_total = 0;
    LinePace m_pace;
    std::set<std::pair<std::uint32_t, std::string_view>> m_seen;
};

/// What a line says behind the fault it reports.
inline std::string_view Suffix(Notices::Verdict verdict) {
    switch (verdict) {
    case Notices::Verdict::ReportPause:
        return " (reported once; other new ones are only counted for a minute)";
    case Notices::Verdict::ReportLast: return " (this and all others are only counted from now on)";
    case Notices::Verdict::Report:
    case Notices::Verdict::Silent: break;
    }
    return " (reported once)";
}

} // namespace KnxStackHost
