// A connection to knxstackd's control socket that asks one thing at a time.
#pragma once

#include "Tools/support/LocalLines.h"

#include <boost/json.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace KnxStackCtl {

using ::Tools::NotThere;

/// knxstackd has refused a request. The text is its sentence.
class Refusal : public std::runtime_error {
public:
    Refusal(std::int64_t code, const std::string& cause) : std::runtime_error(cause), m_code(code) {}

    /// True when the request itself was wrong, so that another state of the host would not help.
    bool IsWrongRequest() const { return m_code == kInvalidParams; }

private:
    static constexpr std::int64_t kInvalidParams = -32602;

    std::int64_t m_code;
};

class Connection {
public:
    using Clock = ::Tools::LocalLines::Clock;

    /// Throws NotThere.
    explicit Connection(std::string socketPath);

    /// Sends a request and waits for its result; telegrams that come between are kept for NextTelegram().
    /// Throws Refusal and NotThere.
    boost::json::object Ask(std::string_view method, boost::json::object params = {});

    /// The next telegram; empty when none comes before `deadline`. Throws NotThere.
    std::optional<boost::json::object> NextTelegram(Clock::time_point deadline = Clock::time_point::max());

private:
    ::Tools::LocalLines m_lines;
    std::int64_t m_lastId = 0;
    std::deque<boost::json::object> m_telegrams;
};

} // namespace KnxStackCtl
