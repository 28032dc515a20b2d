#include "Connection.h"

#include <utility>

namespace KnxStackCtl {

namespace json = boost::json;

namespace {

constexpr std::size_t kLongestLine = std::size_t{1024} * 1024;
constexpr std::chrono::seconds kPatience{10};

/// The member when it is an object.
const json::object* Object(const json::object& message, const char* name) {
    const auto* member = message.if_contains(name);
    return member != nullptr ? member->if_object() : nullptr;
}

bool IsTelegram(const json::object& message) {
    const auto* method = message.if_contains("method");
    return method != nullptr && *method == "telegram" && Object(message, "params") != nullptr;
}

Refusal RefusalOf(const json::object& error) {
    const auto* code = error.if_contains("code");
    const auto* text = error.if_contains("message");
    return {code != nullptr && code->is_int64() ? code->get_int64() : 0,
            text != nullptr && text->is_string() ? std::string(text->get_string().c_str()) : "refused"};
}

json::object ObjectOf(std::string_view line) {
    boost::system::error_code error;
    auto message = json::parse({line.data(), line.size()}, error);
    if (error || !message.is_object())
        throw NotThere("what answers is no knxstackd: it sends something else than JSON objects");
    return std::move(message.get_object());
}

} // namespace

Connection::Connection(std::string socketPath)
    : m_lines(std::move(socketPath), {"KNX stack host", "knxstackd"}, kLongestLine) {}

json::object Connection::Ask(std::string_view method, json::object params) {
    const auto id = ++m_lastId;
    const json::object request{{"jsonrpc", "2.0"},
                               {"id", id},
                               {"method", json::string_view(method.data(), method.size())},
                               {"params", std::move(params)}};
    m_lines.Send(json::serialize(request) + '\n');
    const auto deadline = Clock::now() + kPatience;
    while (true) {
        const auto message = ObjectOf(m_lines.Receive(deadline));
        if (IsTelegram(message)) {
            m_telegrams.push_back(message.at("params").get_object());
            continue;
        }
        // A refusal without an id is about the connection.
        if (const auto* error = Object(message, "error"))
            throw RefusalOf(*error);
        const auto* answered = message.if_contains("id");
        if (const auto* result = Object(message, "result");
            result != nullptr && answered != nullptr && *answered == id)
            return *result;
    }
}

std::optional<json::object> Connection::NextTelegram(Clock::time_point deadline) {
    while (m_telegrams.empty()) {
        const auto line = m_lines.TryReceive(deadline);
        if (!line)
            return std::nullopt;
        const auto message = ObjectOf(*line);
        if (IsTelegram(message))
            m_telegrams.push_back(message.at("params").get_object());
    }
    auto telegram = std::move(m_telegrams.front());
    m_telegrams.pop_front();
    return telegram;
}

} // namespace KnxStackCtl
