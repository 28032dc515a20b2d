#include "FailingThreads.h"

#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>

namespace {
thread_local bool t_failing = false;
thread_local unsigned t_left = 0;
} // namespace

FailingThreads::FailingThreads(unsigned left) {
    t_left = left;
    t_failing = true;
}

FailingThreads::~FailingThreads() {
    t_failing = false;
}

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*body)(void*),
                                                                     void* argument) noexcept {
    static const auto s_system =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    if (t_failing && t_left == 0)
        return EAGAIN;
    if (t_failing)
        --t_left;
    return s_system(thread, attributes, body, argument);
}
