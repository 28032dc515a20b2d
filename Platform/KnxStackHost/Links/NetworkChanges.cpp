#include "KnxStackHost/Links/NetworkChanges.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace KnxStackHost {

using boost::system::error_code;

namespace {

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Link");
    return logger;
}

} // namespace

NetworkChanges::NetworkChanges(boost::asio::io_context& context, Changed changed)
    : m_news(context), m_timer(context), m_changed(std::move(changed)) {}

void NetworkChanges::Start() {
    if (Listen()) {
        WaitForNews();
        return;
    }
    LOG4CPLUS_WARN(Log(), fmt::format("the system does not tell when its network changes: {}; it is looked "
                                      "at every {} s instead",
                                      std::generic_category().message(errno), kLook.count()));
    Call(kLook);
}

bool NetworkChanges::Listen() {
    const int news = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (news < 0)
        return false;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE;
    if (::bind(news, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int cause = errno;
        ::close(news);
        errno = cause;
        return false;
    }
    m_news.assign(news);
    return true;
}

void NetworkChanges::WaitForNews() {
    m_news.async_wait(boost::asio::posix::stream_descriptor::wait_read, [this](const error_code& cancelled) {
        if (cancelled)
            return;
        // What it says does not matter, nor that some was lost because there was too much of it.
        std::array<char, 4096> message{};
        while (::recv(m_news.native_handle(), message.data(), message.size(), 0) >= 0 || errno == ENOBUFS ||
               errno == EINTR) {
        }
        if (!std::exchange(m_isCallDue, true))
            Call(kSettle);
        WaitForNews();
    });
}

void NetworkChanges::Call(std::chrono::milliseconds delay) {
    m_timer.expires_after(delay);
    m_timer.async_wait([this](const error_code& cancelled) {
        if (cancelled)
            return;
        m_isCallDue = false;
        if (!m_news.is_open())
            Call(kLook);
        m_changed();
    });
}

} // namespace KnxStackHost
