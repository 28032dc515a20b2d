// The state directory: who uses it, and its files. Internal to the daemon.
#pragma once

#include "DeviceStackServer/StateImage.h"

#include <boost/asio/thread_pool.hpp>

#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace DeviceStackServer {

/// Reads the state files at start and writes them on a thread of its own, so that a slow disk holds up
/// nobody.
class StateFiles {
public:
    /// `onFailed` is called, on the writing thread, when a file could not be written: it is to be saved
    /// again.
    StateFiles(std::string directory, std::function<void()> onFailed);
    ~StateFiles();
    StateFiles(const StateFiles&) = delete;
    StateFiles& operator=(const StateFiles&) = delete;

    /// Creates the directory if need be and claims it. "" or one sentence.
    std::string Open();

    /// Reads both files. Values that cannot be read are set aside under another name, with a line in the log.
    /// Ids that cannot be read would become free for other URNs: "" or one sentence why not to start.
    std::string Read(Milliseconds utc, StateImage& image);

    /// Content that waits for the disk is replaced by newer content of the same file.
    void SaveIds(const StateImage& image);
    void SaveValues(const StateImage& image);

    /// Returns when everything is on the disk.
    void Finish();

    const std::string& Directory() const { return m_directory; }

private:
    std::string PathOf(const char* name) const { return m_directory + '/' + name; }
    void SetValuesAside(const std::string& error, Milliseconds utc) const;
    void Save(const std::string& path, std::string content);
    void WritePending(const std::string& path);

    const std::string m_directory;
    const std::function<void()> m_onFailed;
    int m_lock = -1;

    std::mutex m_mutex;
    std::map<std::string, std::string> m_pending; ///< by path; under m_mutex

    boost::asio::thread_pool m_writer{1};
};

} // namespace DeviceStackServer
