// Notices that the machine's network has changed. Internal to the host.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <functional>

namespace KnxStackHost {

/// Calls when an interface, an IPv4 address or a route of this machine has come, gone or changed: once for
/// all that happens within kSettle. Where the system does not tell, it calls every kLook, whether there is
/// something new or not. All calls on the thread of the io_context.
class NetworkChanges {
public:
    static constexpr std::chrono::milliseconds kSettle{100};
    static constexpr std::chrono::seconds kLook{10};

    using Changed = std::function<void()>;

    /// `changed` must not throw.
    NetworkChanges(boost::asio::io_context& context, Changed changed);

    /// What changes from now on is told.
    void Start();

private:
    bool Listen();
    void WaitForNews();
    void Call(std::chrono::milliseconds delay);

    boost::asio::posix::stream_descriptor m_news;
    boost::asio::steady_timer m_timer;
    Changed m_changed;
    bool m_isCallDue = false;
};

} // namespace KnxStackHost
