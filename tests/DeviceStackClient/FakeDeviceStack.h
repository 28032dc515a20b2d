// A device stack whose every line the test writes: it accepts, reads and answers only when told to.
#pragma once

#include "../support/TemporaryDirectory.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

/// One accepted connection. Every wait has a limit; past it the operation throws std::runtime_error, which
/// ends the test.
class FakeConnection {
public:
    explicit FakeConnection(int fd) : m_fd(fd) {}
    FakeConnection(FakeConnection&& other) noexcept;
    FakeConnection& operator=(FakeConnection&& other) noexcept;
    ~FakeConnection() { Close(); }

    /// The next line without its line feed.
    std::string ReadLine();

    /// Reads one request of the method and gives its id.
    std::string ReadRequest(std::string_view method);

    /// True when the client has closed its end, false when nothing comes within `wait`. A line fails the
    /// test.
    bool IsClosedWithin(std::chrono::milliseconds wait);

    /// True when no line comes within `wait`.
    bool IsSilentFor(std::chrono::milliseconds wait);

    void Send(std::string_view bytes);
    void SendLine(std::string_view line) { Send(std::string(line) + '\n'); }
    void Reply(std::string_view id, std::string_view result);
    void ReplyError(std::string_view id, int code, std::string_view message);

    /// Answers one `register`.
    void AcceptRegistration(std::string_view server = "run1", unsigned change = 0);

    void SendValueChanged(unsigned id, std::string_view value, unsigned change,
                          std::string_view origin = "web::tool::1");

    void Close();

private:
    bool Fill(std::chrono::milliseconds wait);

    int m_fd;
    std::string m_received;
    bool m_ended = false;
};

/// A listening socket in a directory of its own; DEVICESTACK_SOCKET points to it for the time of the test.
class FakeDeviceStack {
public:
    enum class Start { Listening, Absent };

    explicit FakeDeviceStack(Start start = Start::Listening);
    ~FakeDeviceStack();

    void Listen();
    void StopListening(); ///< and removes the socket's file
    FakeConnection Accept();
    bool NobodyConnectsWithin(std::chrono::milliseconds wait) const;
    const std::string& GetSocketPath() const { return m_path; }

private:
    TestSupport::TemporaryDirectory m_directory;
    std::string m_path = m_directory / "s";
    int m_fd = -1;
};

/// Text of a member of one line: ReadMember(line, "id") is `7` or `"x"`.
std::string ReadMember(std::string_view line, std::string_view name);
