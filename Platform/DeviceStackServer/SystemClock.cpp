#include "DeviceStackServer/SystemClock.h"

#include <boost/asio/buffer.hpp>

#include <cerrno>
#include <ctime>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <system_error>

namespace DeviceStackServer {

Instant Now() {
    return {std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now().time_since_epoch()),
            std::chrono::duration_cast<Milliseconds>(std::chrono::system_clock::now().time_since_epoch())};
}

Seconds LocalOffset(Seconds utc) {
    // A change of the system's time zone counts from now on; localtime_r alone would never look again.
    ::tzset();
    const std::time_t time = utc.count();
    std::tm local{};
    return ::localtime_r(&time, &local) ? Seconds(local.tm_gmtoff) : Seconds(0);
}

std::string SetSystemClock(Seconds civil) {
    std::tm fields{};
    const std::time_t asUtc = civil.count();
    ::gmtime_r(&asUtc, &fields);
    fields.tm_isdst = -1; // the zone knows
    const std::time_t utc = std::mktime(&fields);
    const timespec time{utc, 0};
    return ::clock_settime(CLOCK_REALTIME, &time) == 0 ? std::string()
                                                       : std::generic_category().message(errno);
}

SystemClockWatch::SystemClockWatch(boost::asio::io_context& context, std::function<void()> onWake)
    : m_timer(context), m_onWake(std::move(onWake)) {}

std::string SystemClockWatch::WaitFor(Seconds utc) {
    if (!m_timer.is_open()) {
        const int fd = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
        if (fd < 0)
            return std::generic_category().message(errno);
        m_timer.assign(fd);
    }
    itimerspec due{};
    due.it_value.tv_sec = utc.count();
    const int flags = TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET;
    if (::timerfd_settime(m_timer.native_handle(), flags, &due, nullptr) != 0 && errno != ECANCELED)
        return std::generic_category().message(errno);
    if (!m_started) {
        m_started = true;
        Read();
    }
    return {};
}

void SystemClockWatch::Read() {
    m_timer.async_read_some(boost::asio::buffer(&m_expirations, sizeof m_expirations),
                            [this](const boost::system::error_code& error, std::size_t) {
                                // The clock was set: the read fails with ECANCELED, as does one of a closed
                                // timer.
                                if (!m_timer.is_open() || (error && error.value() != ECANCELED))
                                    return;
                                m_onWake();
                                Read();
                            });
}

} // namespace DeviceStackServer
