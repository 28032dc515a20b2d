#include "DeviceStackServer/ServiceNotification.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace DeviceStackServer {

void NotifyServiceManager(std::string_view state) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (!path || (path[0] != '/' && path[0] != '@') || std::strlen(path) >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path);
    if (path[0] == '@') // an abstract name
        address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path));
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return;
    ::sendto(fd, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), size);
    ::close(fd);
}

} // namespace DeviceStackServer
