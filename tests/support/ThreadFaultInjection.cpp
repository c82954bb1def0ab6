// Apart from what fails allocations, for virtual time starts the threads itself.

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

#include "tests/support/FaultInjection.h"

namespace {

std::atomic<bool> gRefuseThreads{false};

}  // namespace

void FaultInjection::refuseThreads(bool refuse) {
    gRefuseThreads = refuse;
}

#ifndef STREAMPROXY_SANITIZED

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*entry)(void*), void* argument) noexcept {
    static const auto real =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return gRefuseThreads ? EAGAIN : real(thread, attributes, entry, argument);
}

#endif
