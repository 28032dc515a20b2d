// What is to be done later, by the time it is due.
#pragma once

#include "DeviceStackServer/Instant.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

namespace DeviceStackServer {

/// Tasks with a due time on the monotonic clock. Reads no clock and waits for nothing. Not synchronised.
class DeadlineQueue {
public:
    /// Names a task; the default names none.
    struct Token {
        Milliseconds due{};
        std::uint64_t number = 0;

        explicit operator bool() const { return number != 0; }
    };

    Token Add(Milliseconds due, std::function<void()> task) {
        const Token token{due, ++m_lastNumber};
        m_tasks.emplace(std::pair(due, token.number), std::move(task));
        return token;
    }

    /// Forgets the task, unless it ran already, and clears the token.
    void Cancel(Token& token) {
        m_tasks.erase({token.due, token.number});
        token = {};
    }

    std::optional<Milliseconds> Next() const {
        if (m_tasks.empty())
            return std::nullopt;
        return m_tasks.begin()->first.first;
    }

    /// Runs the tasks that are due, in order. A task may add and cancel others.
    void RunDue(Milliseconds now) {
        while (!m_tasks.empty() && m_tasks.begin()->first.first <= now) {
            auto task = m_tasks.extract(m_tasks.begin());
            task.mapped()();
        }
    }

private:
    std::map<std::pair<Milliseconds, std::uint64_t>, std::function<void()>> m_tasks;
    std::uint64_t m_lastNumber = 0;
};

} // namespace DeviceStackServer
