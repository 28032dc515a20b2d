#include "DaemonSupport/ServiceManager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace DaemonSupport {

void NotifyServiceManager(std::string_view state) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (path == nullptr || *path == '\0' || std::strlen(path) >= sizeof address.sun_path)
        return;
    const auto length = std::strlen(path);
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, length);
    if (address.sun_path[0] == '@')
        address.sun_path[0] = '\0'; // the abstract name space
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0)
        return;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    ::sendto(socket, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
             size);
    ::close(socket);
}

} // namespace DaemonSupport
