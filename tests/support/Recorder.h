// One ordered record of what a program under test does to everything around it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

/// Takes one line per call and per log message, from any thread, in the order in which they happen. Every
/// line remembers its thread, so that a transcript can be compared whole where threads run side by side.
///
/// Elapsed times are not repeatable: "duration: 12 ms" is recorded as "duration: # ms".
class Recorder {
public:
    /// How long the waiting operations wait: far beyond every pause of a program under test.
    static constexpr std::chrono::seconds kPatience{30};

    void Add(std::string_view line);

    /// Names the calling thread. Unnamed threads are called "worker 1", "worker 2"... in the order in which
    /// they first add a line.
    void NameThisThread(const std::string& name);

    /// The lines so far: of all threads, or of one.
    std::vector<std::string> Lines() const;
    std::vector<std::string> LinesOf(const std::string& thread) const;

    /// Lines that are equal to `line`, or that contain `text`.
    std::size_t Count(std::string_view line) const;
    std::vector<std::string> LinesWith(std::string_view text) const;

    /// True when both lines are there and the first `earlier` stands before the first `later`.
    bool InOrder(std::string_view earlier, std::string_view later) const;

    /// The time from the first `earlier` to the first `later` after it. Both have to be there.
    std::chrono::steady_clock::duration Between(std::string_view earlier, std::string_view later) const;

    /// Waits until `line` was recorded at least `count` times. False when that takes longer than kPatience.
    bool WaitFor(std::string_view line, std::size_t count = 1) const;

    /// Forgets the lines; names of threads stay.
    void Clear();

    /// While paused, lines are dropped without taking a lock, so that recording puts no order between threads
    /// that have none of their own.
    void Pause(bool paused = true) { m_paused.store(paused, std::memory_order_relaxed); }

private:
    struct Entry {
        unsigned thread;
        std::string line;
        std::chrono::steady_clock::time_point time;
    };

    static unsigned ThisThread();
    std::size_t CountLocked(std::string_view line) const;

    std::atomic<bool> m_paused = false;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_added;
    std::vector<Entry> m_entries;              // under m_mutex
    std::map<unsigned, std::string> m_threads; // under m_mutex
    unsigned m_workers = 0;                    // under m_mutex
};

} // namespace TestSupport
