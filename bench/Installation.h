// A running installation for benchmarks: examples/house with both daemons, on loopback.
#pragma once

#include "Placement.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
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

private:
    pid_t m_pid;
};

/// devicestackd and knxstackd, on the side of what is measured, with a copy of examples/house in a directory
/// of its own, which goes with the object. The constructor returns once the application program is running,
/// and throws std::runtime_error when that takes longer than 30 s.
class Installation {
public:
    Installation();
    ~Installation();
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    std::uint16_t KnxPort() const { return m_port; } ///< host byte order, on 127.0.0.1
    std::string Socket() const { return (m_directory / "devicestack.sock").string(); }
    long HostResidentKiB() const;

private:
    void WaitUntilReady() const;

    std::filesystem::path m_directory;
    std::uint16_t m_port;
    std::vector<std::unique_ptr<Child>> m_children; // ended last to first
};

/// Path of a built program.
std::string Program(const std::string& name);

} // namespace Bench
