// Notices that a file was changed. Internal to the daemon.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <array>
#include <functional>
#include <map>
#include <set>
#include <string>

namespace DeviceStackServer {

/// Watches the names that lead to a file in their directories: its own and, where the path goes through
/// symbolic links, theirs. So a rename over the file, its end and its return, another target of a link and a
/// directory that is replaced are seen. Calls `onChanged` once the file was quiet for kQuiet.
class FileWatcher {
public:
    static constexpr std::chrono::seconds kQuiet{1};

    FileWatcher(boost::asio::io_context& context, std::function<void()> onChanged);

    /// "" or why the file's directory cannot be watched.
    std::string Start(const std::string& path);

private:
    using Names = std::set<std::string>;

    /// Watches what leads to the file now, and no longer what did before. "" or why it cannot.
    std::string Watch();
    void Read();
    void OnEvents(std::size_t size);
    void CallWhenQuiet();

    boost::asio::posix::stream_descriptor m_inotify;
    boost::asio::steady_timer m_quiet;
    const std::function<void()> m_onChanged;
    std::string m_path;             // absolute
    std::map<int, Names> m_watched; // by watch descriptor of a directory
    alignas(8) std::array<char, 4096> m_buffer;
};

} // namespace DeviceStackServer
