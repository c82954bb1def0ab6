#pragma once

#include <dlfcn.h>
#include <pthread.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

// A sanitizer's version of a function, where there is one: it must see what locks are taken.
#define STREAMPROXY_SYSTEM_CALL(result, name, ...)                     \
    extern "C" [[gnu::weak]] result __interceptor_##name(__VA_ARGS__); \
    namespace android::system_call {                                   \
    inline auto name() {                                               \
        static result (*sNext)(__VA_ARGS__) = nullptr;                 \
        return next(sNext, &__interceptor_##name, #name);              \
    }                                                                  \
    }

namespace android::system_call {

/** The function that a call would reach without this library. Any thread, also before main(). */
template <typename Function>
[[gnu::always_inline]] inline Function* next(Function*& cached, Function* interceptor,
                                             const char* name) {
    if (interceptor != nullptr) {
        return interceptor;
    }
    Function* found = __atomic_load_n(&cached, __ATOMIC_RELAXED);
    if (found == nullptr) {
        found = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
        __atomic_store_n(&cached, found, __ATOMIC_RELAXED);
    }
    return found;
}

}  // namespace android::system_call

STREAMPROXY_SYSTEM_CALL(int, pthread_mutex_lock, pthread_mutex_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_mutex_trylock, pthread_mutex_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_mutex_timedlock, pthread_mutex_t*, const timespec*)
STREAMPROXY_SYSTEM_CALL(int, pthread_mutex_clocklock, pthread_mutex_t*, clockid_t, const timespec*)
STREAMPROXY_SYSTEM_CALL(int, pthread_mutex_unlock, pthread_mutex_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_rwlock_rdlock, pthread_rwlock_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_rwlock_tryrdlock, pthread_rwlock_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_rwlock_wrlock, pthread_rwlock_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_rwlock_trywrlock, pthread_rwlock_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_rwlock_unlock, pthread_rwlock_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_cond_wait, pthread_cond_t*, pthread_mutex_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_cond_timedwait, pthread_cond_t*, pthread_mutex_t*,
                        const timespec*)
STREAMPROXY_SYSTEM_CALL(int, pthread_cond_clockwait, pthread_cond_t*, pthread_mutex_t*, clockid_t,
                        const timespec*)
STREAMPROXY_SYSTEM_CALL(int, pthread_cond_signal, pthread_cond_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_cond_broadcast, pthread_cond_t*)
STREAMPROXY_SYSTEM_CALL(int, pthread_create, pthread_t*, const pthread_attr_t*, void* (*)(void*),
                        void*)
STREAMPROXY_SYSTEM_CALL(int, pthread_join, pthread_t, void**)
STREAMPROXY_SYSTEM_CALL(int, pthread_detach, pthread_t)
STREAMPROXY_SYSTEM_CALL(int, sched_yield)
STREAMPROXY_SYSTEM_CALL(int, clock_gettime, clockid_t, timespec*)
STREAMPROXY_SYSTEM_CALL(int, gettimeofday, timeval*, void*)
STREAMPROXY_SYSTEM_CALL(time_t, time, time_t*)
STREAMPROXY_SYSTEM_CALL(int, nanosleep, const timespec*, timespec*)
STREAMPROXY_SYSTEM_CALL(int, clock_nanosleep, clockid_t, int, const timespec*, timespec*)
STREAMPROXY_SYSTEM_CALL(int, usleep, useconds_t)
STREAMPROXY_SYSTEM_CALL(unsigned, sleep, unsigned)
STREAMPROXY_SYSTEM_CALL(long, syscall, long, ...)
