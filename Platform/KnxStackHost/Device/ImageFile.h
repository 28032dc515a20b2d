// The file with the device image.
#pragma once

#include "KnxDevice/DeviceImage.h"

#include <boost/asio/thread_pool.hpp>

#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace KnxStackHost {

/// Reads the image at start, and writes it on a thread of its own, so that a slow disk holds up nobody.
class ImageFile {
public:
    /// `path` "": nothing is kept, which a line in the log says at the first change.
    explicit ImageFile(std::string path);
    ~ImageFile();
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    struct Found {
        std::optional<KnxDevice::DeviceState> state;
        bool unreadable = false; ///< there was a file, which was set aside with a line in the log
    };
    Found Read() const;

    /// Replaces the file, at once or never. A state that waits for the disk is replaced by a newer one. Any
    /// thread, one at a time.
    void Save(const KnxDevice::DeviceState& state);

    /// Calls `then` once everything that was saved is on the disk: on the writing thread, or at once when
    /// nothing was ever written.
    void WhenWritten(std::function<void()> then);

    /// Returns when everything is on the disk; what is saved from then on is not kept.
    void Finish();

private:
    void WritePending();

    const std::string m_path;
    bool m_told = false; // that nothing is kept
    std::mutex m_mutex;
    std::optional<std::string> m_pending;             // under m_mutex
    std::optional<boost::asio::thread_pool> m_writer; // once there is something to write
};

} // namespace KnxStackHost
