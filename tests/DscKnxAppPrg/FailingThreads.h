// Makes the system refuse new threads.
#pragma once

/// While it lives, pthread_create() fails with EAGAIN for the calling thread, as in a system that is out of
/// threads, once `left` more threads were made. The test program defines pthread_create() itself for that.
class FailingThreads {
public:
    explicit FailingThreads(unsigned left = 0);
    ~FailingThreads();
    FailingThreads(const FailingThreads&) = delete;
    FailingThreads& operator=(const FailingThreads&) = delete;
};
