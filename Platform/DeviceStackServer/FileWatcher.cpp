#include "DeviceStackServer/FileWatcher.h"

#include <boost/asio/buffer.hpp>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/inotify.h>
#include <system_error>
#include <vector>

namespace DeviceStackServer {

namespace {

namespace fs = std::filesystem;

/// The path behind its first symbolic link, and that link's own path in `link`; `link` is empty without one.
fs::path FollowFirstLink(const fs::path& path, fs::path& link) {
    link.clear();
    fs::path walked;
    for (auto part = path.begin(); part != path.end(); ++part) {
        walked /= *part;
        std::error_code failure;
        const auto target = fs::read_symlink(walked, failure);
        if (failure)
            continue; // no link, or not there
        link = walked;
        auto behind = walked.parent_path() / target;
        while (++part != path.end())
            behind /= *part;
        return behind;
    }
    return path;
}

/// The file's path in its directory and before it, in order, every link on the way there.
std::vector<fs::path> NamesThatLeadTo(fs::path path) {
    constexpr int kMostLinks = 40; // as many as the system follows
    std::vector<fs::path> names;
    fs::path link;
    for (int i = 0; i < kMostLinks; ++i) {
        path = FollowFirstLink(path, link);
        if (link.empty())
            break;
        names.push_back(link);
    }
    names.push_back(path);
    return names;
}

} // namespace

FileWatcher::FileWatcher(boost::asio::io_context& context, std::function<void()> onChanged)
    : m_inotify(context), m_quiet(context), m_onChanged(std::move(onChanged)) {}

std::string FileWatcher::Start(const std::string& path) {
    m_path = fs::absolute(path).string();
    const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0)
        return std::generic_category().message(errno);
    m_inotify.assign(fd);
    if (auto error = Watch(); !error.empty())
        return error;
    Read();
    return {};
}

std::string FileWatcher::Watch() {
    constexpr auto kEvents = IN_CREATE | IN_CLOSE_WRITE | IN_MODIFY | IN_MOVED_TO | IN_MOVED_FROM |
                             IN_DELETE | IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR;
    std::map<int, Names> watched;
    std::string error;
    for (const auto& name : NamesThatLeadTo(m_path)) {
        const auto directory = name.parent_path().string();
        const int watch = ::inotify_add_watch(m_inotify.native_handle(), directory.c_str(), kEvents);
        if (watch < 0)
            error = directory + ": " + std::generic_category().message(errno);
        else
            watched[watch].insert(name.filename().string());
    }
    for (const auto& [watch, names] : m_watched)
        if (!watched.contains(watch))
            ::inotify_rm_watch(m_inotify.native_handle(), watch);
    m_watched = std::move(watched);
    return error;
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
        at += sizeof event + event.len;
        if ((event.mask & IN_Q_OVERFLOW) != 0)
            touched = true; // events were lost: better one look too many
        const auto directory = m_watched.find(event.wd);
        if (directory == m_watched.end())
            continue;
        touched |= (event.mask & (IN_MOVE_SELF | IN_DELETE_SELF)) != 0 ||
                   (event.len > 0 && directory->second.contains(name));
    }
    if (touched)
        CallWhenQuiet();
}

void FileWatcher::CallWhenQuiet() {
    m_quiet.expires_after(kQuiet);
    m_quiet.async_wait([this](const boost::system::error_code& error) {
        if (error)
            return;
        // What leads to the file may be other directories now. While one is missing, it is looked for again.
        if (Watch().empty())
            m_onChanged();
        else
            CallWhenQuiet();
    });
}

} // namespace DeviceStackServer
