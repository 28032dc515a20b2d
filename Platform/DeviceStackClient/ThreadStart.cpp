#include "DeviceStackClient/ThreadStart.h"

#include <csignal>
#include <utility>

#include <pthread.h>

namespace DeviceStackClient {

std::thread StartThread(const char* name, std::function<void()> body) {
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
        sigdelset(&blocked, fault);                  // a crash handler still sees faults of this thread
    pthread_sigmask(SIG_SETMASK, &blocked, &before); // inherited by the new thread
    try {
        std::thread thread(std::move(body));
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        pthread_setname_np(thread.native_handle(), name);
        return thread;
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
}

} // namespace DeviceStackClient
