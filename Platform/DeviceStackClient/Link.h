// The client's connection: its I/O thread connects to the device stack's socket, for ever, and reads; whoever
// has something to send sends it.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace DeviceStackClient {

/// A Unix domain stream connection that is made anew whenever it is lost: at once, then after 100 ms, growing
/// to 5 s. It knows bytes only.
class Link {
public:
    /// What the link asks and tells, on the link's thread but for TakeOutput().
    struct User {
        virtual ~User() = default;
        virtual void OnConnected() = 0;
        /// False closes the connection; OnClosed() follows.
        virtual bool OnReceived(std::string_view bytes) = 0;
        /// An attempt failed or the connection is gone.
        virtual void OnClosed(const std::string& reason) = 0;
        /// Appends what is to be sent next, about kChunk bytes at a time. Called as long as there is room, by
        /// one thread at a time, between OnConnected() and OnClosed().
        virtual void TakeOutput(std::string& bytes) = 0;
    };

    static constexpr std::size_t kChunk = std::size_t{64} * 1024;

    /// `user` outlives the link. Throws std::system_error when the process has no descriptor left.
    Link(std::string socketPath, User& user);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    void Start();

    /// Sends what the socket takes without waiting, closes it and returns when the thread has ended.
    /// OnClosed() is not called. A second call does nothing.
    void Stop();

    /// There is something to take: it is sent by the calling thread as far as the socket takes it at once,
    /// and by the link's thread otherwise. Never waits. Any thread that holds no lock which TakeOutput()
    /// needs.
    void Send();

    /// The same, but always left to the link's thread. Any thread.
    void Wake();

    /// The peer is sound: the next loss is followed by an attempt at once. On the link's thread.
    void OnPeerSound() { m_attempts = 0; }

private:
    using Clock = std::chrono::steady_clock;

    void Run();
    void Connect();
    void Close(const std::string& reason);
    void Read();
    bool Write();
    void WriteLocked();
    int Connected(std::string& reason) const;
    int PollTimeout() const;

    const std::string m_socketPath;
    User& m_user;
    const int m_wakeFd;

    std::atomic<bool> m_wakePending{false};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;

    // Under m_writing, which is held while TakeOutput() is called and never waits for the peer.
    std::mutex m_writing;
    int m_socket = -1;          ///< changed by the link's thread only, which reads it without the mutex
    bool m_writeBroken = false; ///< the peer reads no more; what it has sent before is still to be read
    std::string m_output;       ///< taken and not yet sent

    // The link's thread only.
    unsigned m_attempts = 0; ///< since the peer was last found sound
    Clock::time_point m_nextAttempt{};
};

} // namespace DeviceStackClient
