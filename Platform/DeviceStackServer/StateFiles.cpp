#include "DeviceStackServer/StateFiles.h"

#include "DaemonSupport/Files.h"

#include <boost/asio/post.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace DeviceStackServer {
namespace {

constexpr const char* kValues = "values.json";

log4cplus::Logger Log() {
    return log4cplus::Logger::getInstance("DeviceStack.Server.State");
}

} // namespace

StateFiles::StateFiles(std::string directory, std::function<void()> onFailed)
    : m_directory(std::move(directory)), m_onFailed(std::move(onFailed)) {}

StateFiles::~StateFiles() {
    m_writer.join();
    if (m_lock >= 0)
        ::close(m_lock);
}

std::string StateFiles::Open() {
    std::error_code error;
    std::filesystem::create_directories(m_directory, error);
    if (error)
        return fmt::format("{}: the state directory cannot be created: {}", m_directory, error.message());
    const auto path = m_directory + "/devicestackd.lock";
    m_lock = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    if (m_lock < 0)
        return fmt::format("{}: the state directory cannot be written: {}", m_directory,
                           std::generic_category().message(errno));
    if (::flock(m_lock, LOCK_EX | LOCK_NB) != 0)
        return fmt::format("{}: another devicestackd uses this state directory", m_directory);
    return {};
}

std::string StateFiles::Read(Milliseconds utc, StateImage& image) {
    const auto read = [&](const char* name, std::string (*take)(std::string_view, StateImage&)) {
        std::string error;
        const auto content = DaemonSupport::ReadFile(PathOf(name), error);
        return content ? take(*content, image) : error;
    };
    if (const auto error = read(ProjectFile::kIdsFile, ReadIds); !error.empty())
        return ProjectFile::UnreadableIds(PathOf(ProjectFile::kIdsFile), error);
    if (const auto error = read(kValues, ReadValues); !error.empty())
        SetValuesAside(error, utc);
    return {};
}

void StateFiles::SetValuesAside(const std::string& error, Milliseconds utc) const {
    const auto path = PathOf(kValues);
    auto mark = "unreadable-" + UtcText(utc);
    std::replace(mark.begin(), mark.end(), ':', '-');
    const auto aside = DaemonSupport::SetAside(path, mark);
    LOG4CPLUS_ERROR(Log(), path << " cannot be read (" << error << "); it is "
                                << (aside.empty() ? "left where it is" : "kept as " + aside)
                                << ", and the device stack starts without it.");
}

void StateFiles::SaveIds(const StateImage& image) {
    Save(PathOf(ProjectFile::kIdsFile), WriteIds(image));
}

void StateFiles::SaveValues(const StateImage& image) {
    Save(PathOf(kValues), WriteValues(image));
}

void StateFiles::Save(const std::string& path, std::string content) {
    {
        const std::lock_guard lock(m_mutex);
        const auto [pending, isNew] = m_pending.try_emplace(path);
        pending->second = std::move(content);
        if (!isNew)
            return;
    }
    boost::asio::post(m_writer, [this, path] { WritePending(path); });
}

void StateFiles::WritePending(const std::string& path) {
    std::string content;
    {
        const std::lock_guard lock(m_mutex);
        content = std::move(m_pending.extract(path).mapped());
    }
    const auto error = DaemonSupport::WriteFileAtomically(path, content);
    if (error.empty())
        return;
    m_onFailed();
    LOG4CPLUS_ERROR(Log(), path << ' ' << error << "; its content is only in memory.");
}

void StateFiles::Finish() {
    m_writer.join();
}

} // namespace DeviceStackServer
