// Notices that a file was changed. Internal to the daemon.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <array>
#include <functional>
#include <string>

namespace DeviceStackServer {

/// Watches the file's directory, so that a rename over the file, its end and its return are seen. Calls
/// `onChanged` once the file was quiet for kQuiet.
class FileWatcher {
public:
    static constexpr std::chrono::seconds kQuiet{1};

    FileWatcher(boost::asio::io_context& context, std::function<void()> onChanged);

    /// "" or why the directory cannot be watched.
    std::string Start(const std::string& path);

private:
    void Read();
    void OnEvents(std::size_t size);

    boost::asio::posix::stream_descriptor m_inotify;
    boost::asio::steady_timer m_quiet;
    const std::function<void()> m_onChanged;
    std::string m_name;
    alignas(8) std::array<char, 4096> m_buffer;
};

} // namespace DeviceStackServer
