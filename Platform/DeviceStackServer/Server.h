// The running data point server: sockets, timers, files and signals around Core.
#pragma once

#include "DeviceStackServer/Configuration.h"

#include <memory>
#include <string>

namespace DeviceStackServer {

/// One thread does everything but writing state files. To be used by one thread.
class Server {
public:
    /// `version`: of the program.
    Server(Configuration configuration, std::string version);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Checks and takes everything it needs: directories, state files, project, socket. "" or one sentence
    /// why it cannot run; nothing of it is then left behind.
    std::string Start();

    /// Serves until SIGTERM or SIGINT; then the state is on the disk.
    void Run();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace DeviceStackServer
