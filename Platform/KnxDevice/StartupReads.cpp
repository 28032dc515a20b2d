#include "KnxDevice/StartupReads.h"

#include <algorithm>

namespace KnxDevice {

void StartupReads::Begin(const GroupObjectTable& table) {
    m_waiting.clear();
    m_outstanding.clear();
    m_counts = {};
    m_wanted.assign(GroupObjectTable::kMaxObject + 1u, false);
    for (std::uint32_t number = 1; number <= GroupObjectTable::kMaxObject; ++number) {
        const auto& object = table.Object(static_cast<std::uint16_t>(number));
        if (!object.flags.Has(Flag::Communication) || !object.flags.Has(Flag::ReadOnInit) ||
            object.sendingConnection == 0)
            continue;
        m_wanted[number] = true;
        m_waiting.push_back(static_cast<std::uint16_t>(number));
    }
    m_counts.wanted = m_waiting.size();
}

void StartupReads::OnValue(std::uint16_t object) {
    if (!IsWanted(object))
        return;
    m_wanted[object] = false;
    ++m_counts.known;
    std::erase_if(m_outstanding, [object](const Outstanding& each) { return each.object == object; });
    while (!m_waiting.empty() && !m_wanted[m_waiting.front()])
        m_waiting.pop_front();
}

void StartupReads::DropLate(TimePoint now) {
    std::erase_if(m_outstanding, [&](const Outstanding& each) {
        if (now < each.until)
            return false;
        m_wanted[each.object] = false;
        ++m_counts.unanswered;
        return true;
    });
}

std::optional<std::uint16_t> StartupReads::Next(TimePoint now) {
    DropLate(now);
    if (m_waiting.empty() || now < m_notBefore || m_outstanding.size() >= kMostOutstanding)
        return std::nullopt;
    const auto object = m_waiting.front();
    m_waiting.pop_front();
    while (!m_waiting.empty() && !m_wanted[m_waiting.front()])
        m_waiting.pop_front();
    m_outstanding.push_back({object, now + kPatience});
    m_notBefore = now + kPause;
    return object;
}

std::optional<TimePoint> StartupReads::NextTime(TimePoint now) const {
    if (IsIdle())
        return std::nullopt;
    if (!m_waiting.empty() && m_outstanding.size() < kMostOutstanding)
        return std::max(now, m_notBefore);
    return std::min_element(m_outstanding.begin(), m_outstanding.end(),
                            [](const Outstanding& a, const Outstanding& b) { return a.until < b.until; })
        ->until;
}

} // namespace KnxDevice
