#include "KnxStackHost/Device/ImageFile.h"

#include "DaemonSupport/Files.h"

#include <boost/asio/post.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <utility>

namespace KnxStackHost {

namespace {

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Device");
    return logger;
}

/// "unreadable-2024-05-01T10-00-00Z"
std::string MarkOfNow() {
    const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    char text[40];
    std::strftime(text, sizeof text, "unreadable-%Y-%m-%dT%H-%M-%SZ", &utc);
    return text;
}

} // namespace

ImageFile::ImageFile(std::string path) : m_path(std::move(path)) {}

ImageFile::~ImageFile() {
    Finish();
}

void ImageFile::Finish() {
    if (m_writer)
        m_writer->join();
}

ImageFile::Found ImageFile::Read() const {
    if (m_path.empty())
        return {};
    std::string error;
    const auto content = DaemonSupport::ReadFile(m_path, error);
    if (content) {
        try {
            const auto* const octets = reinterpret_cast<const std::uint8_t*>(content->data());
            return {KnxDevice::ReadDeviceImage({octets, content->size()}), false};
        } catch (const KnxDevice::ImageError& unusable) {
            error = unusable.what();
        }
    }
    if (error.empty())
        return {};
    const auto aside = DaemonSupport::SetAside(m_path, MarkOfNow());
    LOG4CPLUS_ERROR(Log(),
                    fmt::format("the device image {} cannot be read: {}; it is {}, and the device "
                                "starts unloaded: it needs a download",
                                m_path, error, aside.empty() ? "left where it is" : "kept as " + aside));
    return {std::nullopt, true};
}

void ImageFile::Save(const KnxDevice::DeviceState& state) {
    if (m_path.empty()) {
        if (!std::exchange(m_told, true))
            LOG4CPLUS_WARN(Log(), "a tool has changed the device, but no file is configured to keep that in "
                                  "(/device/image): it is forgotten when the daemon ends");
        return;
    }
    const auto octets = KnxDevice::WriteDeviceImage(state);
    bool first = false;
    {
        const std::lock_guard lock(m_mutex);
        first = !m_pending;
        m_pending.emplace(octets.begin(), octets.end());
    }
    if (!first)
        return;
    if (!m_writer)
        m_writer.emplace(1);
    boost::asio::post(*m_writer, [this] { WritePending(); });
}

void ImageFile::WhenWritten(std::function<void()> then) {
    if (m_writer)
        boost::asio::post(*m_writer, std::move(then)); // one thread: behind what waits
    else
        then();
}

void ImageFile::WritePending() {
    std::string content;
    {
        const std::lock_guard lock(m_mutex);
        content = *std::exchange(m_pending, std::nullopt);
    }
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(m_path).parent_path(), error);
    if (const auto fault = DaemonSupport::WriteFileAtomically(m_path, content); !fault.empty())
        LOG4CPLUS_ERROR(
            Log(),
            fmt::format("the device image {} {}; what a tool has changed is only in memory", m_path, fault));
}

} // namespace KnxStackHost
