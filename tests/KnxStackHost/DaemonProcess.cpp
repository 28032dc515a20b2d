#include "DaemonProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace KnxStackHost {

namespace {

/// What is started; its files are made.
std::vector<std::string> CommandLine(const TemporaryDirectory& directory, const std::string& configuration,
                                     std::vector<std::string> arguments) {
    directory.Write("stderr", "");
    directory.Write("knxstackd.json", configuration);
    if (std::find(arguments.begin(), arguments.end(), "--config") == arguments.end())
        arguments.insert(arguments.begin(), {"--config", directory / "knxstackd.json"});
    arguments.insert(arguments.begin(), KNXSTACKD);
    return arguments;
}

} // namespace

DaemonProcess::DaemonProcess(const TemporaryDirectory& directory, const std::string& configuration,
                             std::vector<std::string> arguments, const std::vector<std::string>& environment)
    : m_directory(directory), m_process(CommandLine(directory, configuration, std::move(arguments)),
                                        directory / "stderr", environment) {}

std::uint16_t DaemonProcess::Port() const {
    if (!WaitForLog(" - ready"))
        ADD_FAILURE() << "knxstackd is not ready:\n" << Log();
    const auto log = Log();
    const std::string before = "listening on 127.0.0.1:";
    const auto found = log.find(before);
    return found == std::string::npos
               ? 0
               : static_cast<std::uint16_t>(std::stoi(log.substr(found + before.size())));
}

bool DaemonProcess::WaitForLog(const std::string& text, milliseconds patience, std::size_t count) const {
    return Eventually([&] { return CountOf(Log(), text) >= count; }, patience);
}

std::string DaemonProcess::Log() const {
    return m_directory.Read("stderr");
}

std::optional<int> DaemonProcess::WaitForEnd(milliseconds patience) {
    const int status = m_process.Wait(patience);
    return status < 0 ? std::nullopt : std::optional(status);
}

std::string TestConfiguration(const std::string& programSettings, const std::string& more) {
    return R"({
  // objects 1 and 2 share a group address
  "device": {"individualAddress": "1.1.250", "name": "test host"},
  "server": {"address": "127.0.0.1", "port": 0, "tunnels": ["1.1.251", "1.1.252"]},
  "groupObjects": [
    {"number": 1, "name": "switch", "dpt": "1.001", "flags": "CRWTU", "addresses": ["1/2/3"]},
    {"number": 2, "name": "listener", "dpt": "1.001", "flags": "CW", "addresses": ["1/2/3"]},
    {"number": 3, "name": "temperature", "dpt": "9.001", "flags": "CRWTU", "priority": "urgent",
     "addresses": ["1/2/5", "1/2/4"]},
    {"number": 4, "name": "byte", "size": 8, "flags": "CRWTU", "addresses": ["31/7/255"]},
    {"number": 250, "name": "command", "size": 8, "flags": "CW", "addresses": ["0/0/250"]}
  ],
  "applicationProgram": {"library": ")" TEST_PROGRAM R"(", "settings": {"record": "record")" +
           programSettings + R"(}})" + more + "\n}\n";
}

std::size_t CountOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto found = text.find(part); found != std::string::npos;
         found = text.find(part, found + part.size()))
        ++count;
    return count;
}

void Pause(milliseconds time) {
    std::this_thread::sleep_for(time);
}

} // namespace KnxStackHost
