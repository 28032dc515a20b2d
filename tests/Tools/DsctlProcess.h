// Starts the shipped dsctl.
#pragma once

#include "../support/Daemon.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace ToolTest {

/// A started dsctl; standard output and standard error go to a file each.
class Dsctl {
public:
    explicit Dsctl(std::vector<std::string> arguments, const std::vector<std::string>& environment = {})
        : m_process(CommandLine(std::move(arguments)), m_directory / "err", environment) {}

    DeviceStackServer::Process& GetProcess() { return m_process; }
    int Wait(std::chrono::milliseconds limit = std::chrono::seconds(20)) { return m_process.Wait(limit); }
    std::string GetOutput() const { return DeviceStackServer::ReadText(m_directory / "out"); }
    std::string GetError() const { return DeviceStackServer::ReadText(m_directory / "err"); }

private:
    std::vector<std::string> CommandLine(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"/bin/sh", "-c", "out=$1; shift; exec \"$0\" \"$@\" >\"$out\"",
                                             DSCTL, m_directory / "out"});
        return arguments;
    }

    DeviceStackServer::TemporaryDirectory m_directory;
    DeviceStackServer::Process m_process;
};

} // namespace ToolTest
