// The state directory: who uses it, and its files. Internal to the daemon.
#pragma once

#include "DeviceStackServer/StateImage.h"

#include <boost/asio/thread_pool.hpp>

#include <functional>
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

    /// Reads both files. One that cannot be read is set aside under another name, with a line in the log.
    StateImage Read(Milliseconds utc);

    void SaveIds(const StateImage& image);
    void SaveValues(const StateImage& image);

    /// Returns when everything is on the disk.
    void Finish();

    const std::string& Directory() const { return m_directory; }

private:
    void ReadOne(const std::string& name, std::string (*read)(std::string_view, StateImage&),
                 StateImage& image, Milliseconds utc);
    void Save(const std::string& name, std::string content);

    const std::string m_directory;
    const std::function<void()> m_onFailed;
    int m_lock = -1;
    boost::asio::thread_pool m_writer{1};
};

/// IdConflict() with the ids of the directory, for checks before a start. "" also without a file of ids that
/// can be read: a start would go on without it.
std::string IdConflictOnDisk(const std::string& directory, const ProjectFile::Project& project);

} // namespace DeviceStackServer
