#include "DeviceStackServer/FileWatcher.h"

#include <boost/asio/buffer.hpp>

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <system_error>

namespace DeviceStackServer {

FileWatcher::FileWatcher(boost::asio::io_context& context, std::function<void()> onChanged)
    : m_inotify(context), m_quiet(context), m_onChanged(std::move(onChanged)) {}

std::string FileWatcher::Start(const std::string& path) {
    const auto slash = path.rfind('/');
    const auto directory = slash == std::string::npos ? std::string(".") : path.substr(0, slash + 1);
    m_name = slash == std::string::npos ? path : path.substr(slash + 1);
    const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0)
        return std::generic_category().message(errno);
    m_inotify.assign(fd);
    const auto events = IN_CLOSE_WRITE | IN_MODIFY | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
    if (::inotify_add_watch(fd, directory.c_str(), events) < 0)
        return directory + ": " + std::generic_category().message(errno);
    Read();
    return {};
}

void FileWatcher::Read() {
    m_inotify.async_read_some(boost::asio::buffer(m_buffer),
                              [this](const boost::system::error_code& error, std::size_t size) {
                                  if (error)
                                      return;
                                  OnEvents(size);
                                  Read();
                              });
}

void FileWatcher::OnEvents(std::size_t size) {
    bool touched = false;
    for (std::size_t at = 0; at + sizeof(inotify_event) <= size;) {
        inotify_event event;
        std::memcpy(&event, m_buffer.data() + at, sizeof event);
        const char* const name = m_buffer.data() + at + sizeof event;
        // Events were lost: better one look too many.
        touched |= (event.mask & IN_Q_OVERFLOW) != 0 || (event.len > 0 && m_name == name);
        at += sizeof event + event.len;
    }
    if (!touched)
        return;
    m_quiet.expires_after(kQuiet);
    m_quiet.async_wait([this](const boost::system::error_code& error) {
        if (!error)
            m_onChanged();
    });
}

} // namespace DeviceStackServer
