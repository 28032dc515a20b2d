// Threads that are not to be interrupted.
#pragma once

#include <csignal>
#include <pthread.h>

namespace KnxStackHost {

/// Keeps the signals of the process away from threads that are made while it lives: the link thread handles
/// them, and nobody else's calls are interrupted by them.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2})
            sigaddset(&signals, signal);
        pthread_sigmask(SIG_BLOCK, &signals, &m_former);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_former, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t m_former{};
};

} // namespace KnxStackHost
