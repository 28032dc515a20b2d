#include "Recorder.h"

#include <algorithm>
#include <stdexcept>

namespace TestSupport {

namespace {

constexpr std::string_view kDuration = "duration: ";

std::string WithoutDuration(std::string_view line) {
    const std::size_t digits = line.find(kDuration) + kDuration.size();
    const std::size_t end = line.find_first_not_of("0123456789", digits);
    if (end == digits || end == std::string_view::npos || line.substr(end) != " ms")
        return std::string(line);
    std::string text(line.substr(0, digits));
    text += "# ms";
    return text;
}

} // namespace

unsigned Recorder::ThisThread() {
    // Not the thread's own id: the system gives the id of an ended thread to a new one.
    static std::atomic<unsigned> s_last = 0;
    thread_local const unsigned number = ++s_last;
    return number;
}

void Recorder::Add(std::string_view line) {
    if (m_paused.load(std::memory_order_relaxed))
        return;
    std::string text =
        line.find(kDuration) == std::string_view::npos ? std::string(line) : WithoutDuration(line);
    const std::lock_guard lock(m_mutex);
    const unsigned thread = ThisThread();
    if (m_threads.find(thread) == m_threads.end())
        m_threads[thread] = "worker " + std::to_string(++m_workers);
    m_entries.push_back({thread, std::move(text), std::chrono::steady_clock::now()});
    m_added.notify_all();
}

void Recorder::NameThisThread(const std::string& name) {
    const std::lock_guard lock(m_mutex);
    m_threads[ThisThread()] = name;
}

std::vector<std::string> Recorder::Lines() const {
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> lines;
    for (const Entry& entry : m_entries)
        lines.push_back(entry.line);
    return lines;
}

std::vector<std::string> Recorder::LinesOf(const std::string& thread) const {
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> lines;
    for (const Entry& entry : m_entries) {
        if (m_threads.at(entry.thread) == thread)
            lines.push_back(entry.line);
    }
    return lines;
}

std::size_t Recorder::CountLocked(std::string_view line) const {
    return static_cast<std::size_t>(std::count_if(m_entries.begin(), m_entries.end(),
                                                  [&](const Entry& entry) { return entry.line == line; }));
}

std::size_t Recorder::Count(std::string_view line) const {
    const std::lock_guard lock(m_mutex);
    return CountLocked(line);
}

std::vector<std::string> Recorder::LinesWith(std::string_view text) const {
    std::vector<std::string> lines = Lines();
    std::erase_if(lines, [&](const std::string& line) { return line.find(text) == std::string::npos; });
    return lines;
}

bool Recorder::InOrder(std::string_view earlier, std::string_view later) const {
    const std::vector<std::string> lines = Lines();
    const auto first = std::find(lines.begin(), lines.end(), earlier);
    const auto second = std::find(lines.begin(), lines.end(), later);
    return second != lines.end() && first < second;
}

std::chrono::steady_clock::duration Recorder::Between(std::string_view earlier,
                                                      std::string_view later) const {
    const std::lock_guard lock(m_mutex);
    const auto first = std::find_if(m_entries.begin(), m_entries.end(),
                                    [&](const Entry& entry) { return entry.line == earlier; });
    const auto second =
        std::find_if(first, m_entries.end(), [&](const Entry& entry) { return entry.line == later; });
    if (second == m_entries.end())
        throw std::logic_error("there is no time between lines that are not there");
    return second->time - first->time;
}

bool Recorder::WaitFor(std::string_view line, std::size_t count) const {
    std::unique_lock lock(m_mutex);
    return m_added.wait_for(lock, kPatience, [&] { return CountLocked(line) >= count; });
}

void Recorder::Clear() {
    const std::lock_guard lock(m_mutex);
    m_entries.clear();
}

} // namespace TestSupport
