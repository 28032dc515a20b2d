// A running installation for benchmarks: both daemons, on loopback.
#pragma once

#include "Placement.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Bench {

/// A child process; ended by SIGTERM when the object goes.
class Child {
public:
    /// `arguments[0]` is the program. Output goes to `outputFd`, or nowhere with -1.
    Child(Side side, const std::vector<std::string>& arguments, int outputFd);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t Pid() const { return m_pid; }
    /// Waits until it has ended by itself; its exit status.
    int Wait();

private:
    pid_t m_pid; // 0: it has ended
};

/// A directory of its own, which goes with the object.
class Directory {
public:
    Directory();
    ~Directory();
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    std::string operator/(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

/// Memory of a process that is in the machine's, in KiB.
long ResidentKiB(pid_t process);

/// devicestackd and knxstackd, on the side of what is measured, with a copy of examples/house. The
/// constructor returns once the application program is running, and throws std::runtime_error when that takes
/// longer than 30 s.
class Installation {
public:
    /// `change`: what is called with the directory of the copy before anything is started.
    explicit Installation(const std::function<void(const std::string& directory)>& change = {});
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    std::uint16_t KnxPort() const { return m_port; } ///< host byte order, on 127.0.0.1
    std::string Socket() const { return m_directory / "devicestack.sock"; }
    long HostResidentKiB() const { return ResidentKiB(m_host->Pid()); }
    long DeviceStackResidentKiB() const { return ResidentKiB(m_deviceStack->Pid()); }
    /// Arguments that knxstackd was started with, the program first.
    std::vector<std::string> HostArguments() const;

private:
    void WaitUntilReady() const;

    Directory m_directory;
    std::uint16_t m_port;
    std::optional<Child> m_deviceStack;
    std::optional<Child> m_host; // ended first
};

/// Path of a built program.
std::string Program(const std::string& name);

} // namespace Bench
