// Remembers what was reported already.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string_view>
#include <utility>

namespace KnxStackHost {

/// Counts faults by source and cause, so that each pair is reported once however often it comes, with bounded
/// memory. Not synchronised.
class Notices {
public:
    /// What to do with a fault that was counted.
    enum class Verdict {
        Report,     ///< the first of its source and cause
        ReportLast, ///< likewise, and from now on new pairs are not told apart any more
        Silent,
    };

    explicit Notices(std::size_t limit) : m_limit(limit) {}

    /// `cause` is a literal or lives as long as this object.
    Verdict Count(std::uint32_t source, std::string_view cause) {
        ++m_total;
        if (m_seen.size() >= m_limit || !m_seen.emplace(source, cause).second)
            return Verdict::Silent;
        return m_seen.size() == m_limit ? Verdict::ReportLast : Verdict::Report;
    }

    /// All that were counted.
    std::uint64_t Total() const { return m_total; }

private:
    std::size_t m_limit;
    std::uint64_t m_total = 0;
    std::set<std::pair<std::uint32_t, std::string_view>> m_seen;
};

/// What a line says behind the fault it reports.
inline std::string_view Suffix(Notices::Verdict verdict) {
    return verdict == Notices::Verdict::ReportLast ? " (this and all others are only counted from now on)"
                                                   : " (reported once)";
}

} // namespace KnxStackHost
