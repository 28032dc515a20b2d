#include "Replacement.h"

#include <fmt/format.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Download {

namespace {

namespace fs = std::filesystem;

std::string LastError() {
    return std::generic_category().message(errno);
}

[[noreturn]] void Refuse(const std::string& file, std::string_view cause) {
    throw Refusal(fmt::format("{}: {}", file, cause));
}

/// The path of the file itself; the one that a link names need not exist yet.
std::string BehindLinks(fs::path path) {
    constexpr int kMostLinks = 40; // as many as the system follows
    for (int i = 0; i < kMostLinks; ++i) {
        std::error_code failure;
        const fs::path target = fs::read_symlink(path, failure);
        if (failure) {
            break;
        }
        path = path.parent_path() / target;
    }
    return path.string();
}

} // namespace

Replacement::Replacement(std::string file, Closed) : m_file(std::move(file)), m_temporary(m_file + ".new") {}

// The other constructor has ended when this one may throw, so that the destructor tidies up.
Replacement::Replacement(const std::string& file) : Replacement(BehindLinks(file), Closed{}) {
    std::error_code ignored;
    if (fs::is_directory(m_file, ignored)) {
        Refuse(m_file, "is a directory");
    }
    Open();
    TakeOverAccess();
}

Replacement::~Replacement() {
    if (m_owned) {
        ::unlink(m_temporary.c_str());
    }
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

void Replacement::Open() {
    m_fd = ::open(m_temporary.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644);
    if (m_fd < 0) {
        Refuse(m_temporary, "cannot be created: " + LastError());
    }
    // Whoever holds the lock is writing. Once it was waited for, the name may already belong to another file.
    struct stat opened {};
    struct stat named {};
    if (::flock(m_fd, LOCK_EX | LOCK_NB) != 0 || ::fstat(m_fd, &opened) != 0 ||
        ::stat(m_temporary.c_str(), &named) != 0 || opened.st_ino != named.st_ino ||
        opened.st_dev != named.st_dev) {
        Refuse(m_temporary, "is being written by another download");
    }
    if (!S_ISREG(opened.st_mode)) {
        Refuse(m_temporary, "is no file");
    }
    m_owned = true;
    if (::ftruncate(m_fd, 0) != 0) {
        Refuse(m_temporary, "cannot be written: " + LastError());
    }
}

/// The device stack may run as another user: who may read the old file may read the new one, as far as we may
/// decide that.
void Replacement::TakeOverAccess() {
    struct stat former {};
    if (::stat(m_file.c_str(), &former) != 0) {
        return;
    }
    if (::fchown(m_fd, former.st_uid, former.st_gid) != 0 &&
        ::fchown(m_fd, static_cast<uid_t>(-1), former.st_gid) != 0) {
        errno = 0; // we are neither root nor in that group
    }
    if (::fchmod(m_fd, former.st_mode & 07777) != 0) {
        Refuse(m_temporary, "cannot get the mode of the former file: " + LastError());
    }
}

void Replacement::Write(std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = ::write(m_fd, content.data(), content.size());
        if (written >= 0) {
            content.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            Refuse(m_temporary, "cannot be written: " + LastError());
        }
    }
    if (::fsync(m_fd) != 0) {
        Refuse(m_temporary, "cannot be brought to the disk: " + LastError());
    }
}

std::string Replacement::Commit() {
    if (::rename(m_temporary.c_str(), m_file.c_str()) != 0) {
        Refuse(m_file, "cannot be replaced: " + LastError());
    }
    m_owned = false;
    const fs::path parent = fs::path(m_file).parent_path();
    const int directory = ::open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::string fault;
    if (directory < 0 || ::fsync(directory) != 0) {
        fault = fmt::format("{}: cannot be brought to the disk: {}", parent.string(), LastError());
    }
    if (directory >= 0) {
        ::close(directory);
    }
    return fault;
}

} // namespace Download
