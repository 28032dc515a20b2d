// Starts the shipped devicestackd in a directory of its own and speaks raw lines with it.
#pragma once

#include "Process.h"
#include "TemporaryDirectory.h"

#include <boost/json.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace DeviceStackServer {

using TestSupport::Eventually;
using TestSupport::Process;
using TestSupport::TemporaryDirectory;

void WriteText(const std::string& path, const std::string& text);
std::string ReadText(const std::string& path);

/// One connection.
class RawClient {
public:
    explicit RawClient(const std::string& socket);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool IsConnected() const { return m_fd >= 0; }
    void Send(const std::string& text);
    void SendLine(const std::string& line) { Send(line + '\n'); }
    void EndSending();

    /// The next line; nothing after the limit or when the server closed.
    std::optional<std::string> Receive(std::chrono::milliseconds limit = std::chrono::seconds(30));
    /// The next line as JSON; null when there is none.
    boost::json::value ReceiveJson(std::chrono::milliseconds limit = std::chrono::seconds(30));
    /// True when the server closes within the limit; lines before that are dropped.
    bool IsClosed(std::chrono::milliseconds limit = std::chrono::seconds(30));

    /// Sends a request and returns its answer, skipping what comes between.
    boost::json::value Call(const std::string& method, const std::string& params);
    boost::json::value Register(const std::string& name, const std::string& more = R"("events":true)");

private:
    int m_fd = -1;
    int m_lastId = 0;
    std::string m_received;
};

/// A running devicestackd.
class Daemon {
public:
    /// `configuration`: members of devicestackd.json besides project, socket and stateDirectory; without any,
    /// values are saved at once.
    explicit Daemon(const std::string& project, const std::string& configuration = "");

    /// Starts it and waits for "Ready". False when it ended instead.
    bool Start(const std::vector<std::string>& environment = {});

    std::vector<std::string> Arguments() const;
    Process& GetProcess() { return *m_process; }
    void Stop(int signal);
    std::string Log() const { return ReadText(directory / "log"); }
    std::string Socket() const { return directory / "run/socket"; }
    std::string ProjectPath() const { return directory / "project.json"; }

    TemporaryDirectory directory;

private:
    std::optional<Process> m_process;
};

} // namespace DeviceStackServer
