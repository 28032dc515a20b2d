#include "Connection.h"

#include <utility>

namespace Dsctl {

Connection::Connection(std::string socketPath)
    : m_lines(std::move(socketPath), {"device stack", "devicestackd"}, DeviceStack::kMaxReplyLine) {}

DeviceStack::FromDeviceStack Connection::Receive(Clock::time_point deadline) {
    return DeviceStack::ReadDeviceStackLine(m_lines.Receive(deadline));
}

DeviceStack::Reply Connection::WaitForReply(const std::string& id, std::chrono::seconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (true) {
        auto message = Receive(deadline);
        auto* reply = std::get_if<DeviceStack::Reply>(&message.message);
        if (reply == nullptr)
            m_kept.push_back(std::move(message));
        else if (message.id == id)
            return std::move(*reply);
    }
}

DeviceStack::FromDeviceStack Connection::Next() {
    if (m_kept.empty())
        return Receive(Clock::time_point::max());
    auto message = std::move(m_kept.front());
    m_kept.pop_front();
    return message;
}

} // namespace Dsctl
