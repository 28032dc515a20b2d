#include "DaemonSupport/Files.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace DaemonSupport {
namespace {

std::string LastError() {
    return std::generic_category().message(errno);
}

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

private:
    const int m_fd;
};

bool WriteAll(int fd, std::string_view content) {
    while (!content.empty()) {
        const auto written = ::write(fd, content.data(), content.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace

std::optional<std::string> ReadFile(const std::string& path, std::string& error) {
    error.clear();
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        if (errno != ENOENT)
            error = LastError();
        return std::nullopt;
    }
    std::string content;
    char buffer[16384];
    for (;;) {
        const auto count = ::read(file.Get(), buffer, sizeof buffer);
        if (count == 0)
            return content;
        if (count > 0) {
            content.append(buffer, static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            error = LastError();
            return std::nullopt;
        }
    }
}

std::string WriteFileAtomically(const std::string& path, std::string_view content) {
    const auto temporary = path + ".new";
    const auto fail = [&](const char* what) {
        auto reason = std::string(what) + ": " + LastError();
        ::unlink(temporary.c_str());
        return reason;
    };
    {
        const Descriptor file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
        if (!file)
            return fail("cannot be created");
        if (!WriteAll(file.Get(), content))
            return fail("cannot be written");
        if (::fsync(file.Get()) != 0)
            return fail("cannot be brought to the disk");
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0)
        return fail("cannot be renamed");
    // The new name is on the disk only when the directory is.
    const auto slash = path.rfind('/');
    const auto directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const Descriptor folder(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder)
        ::fsync(folder.Get());
    return {};
}

std::string SetAside(const std::string& path, std::string_view mark) {
    const auto aside = path + "." + std::string(mark);
    return std::rename(path.c_str(), aside.c_str()) == 0 ? aside : std::string();
}

} // namespace DaemonSupport
