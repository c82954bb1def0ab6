// What waits for a lock, a condition or a time. A program in virtual time has definitions of its own.

#include "tests/support/GuardedCall.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

#define FORBID_WAIT(name, ...) REPORT(forbidWait(#name, nullptr), int, name, __VA_ARGS__)

// The same for the taking of a lock, unless `attempt` gets it at once.
#define FORBID_CONTENTION(name, attempt, parameters, lock, ...) \
    int name parameters {                                       \
        const int status = attempt(lock);                       \
        if (status != EBUSY) {                                  \
            return status;                                      \
        }                                                       \
        AudioPathGuard::forbidWait(#name, lock);                \
        NEXT(name);                                             \
        return real(lock __VA_OPT__(, ) __VA_ARGS__);           \
    }

extern "C" {

FORBID_CONTENTION(pthread_mutex_lock, pthread_mutex_trylock, (pthread_mutex_t * mutex) noexcept,
                  mutex)
FORBID_CONTENTION(pthread_mutex_timedlock, pthread_mutex_trylock,
                  (pthread_mutex_t * mutex, const timespec* deadline) noexcept, mutex, deadline)
FORBID_CONTENTION(pthread_mutex_clocklock, pthread_mutex_trylock,
                  (pthread_mutex_t * mutex, clockid_t clock, const timespec* deadline) noexcept,
                  mutex, clock, deadline)
FORBID_CONTENTION(pthread_rwlock_rdlock, pthread_rwlock_tryrdlock,
                  (pthread_rwlock_t * lock) noexcept, lock)
FORBID_CONTENTION(pthread_rwlock_wrlock, pthread_rwlock_trywrlock,
                  (pthread_rwlock_t * lock) noexcept, lock)

FORBID_WAIT(pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex), condition,
            mutex)
FORBID_WAIT(pthread_cond_timedwait,
            (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* deadline),
            condition, mutex, deadline)
FORBID_WAIT(pthread_cond_clockwait,
            (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock,
             const timespec* deadline),
            condition, mutex, clock, deadline)
FORBID_WAIT(nanosleep, (const timespec* duration, timespec* left), duration, left)
FORBID_WAIT(clock_nanosleep, (clockid_t clock, int flags, const timespec* until, timespec* left),
            clock, flags, until, left)

long syscall(long number, ...) noexcept {
    long values[6];
    va_list arguments;
    va_start(arguments, number);
    for (long& value : values) {
        value = va_arg(arguments, long);
    }
    va_end(arguments);
    if (number == SYS_futex && (values[1] & FUTEX_CMD_MASK) == FUTEX_WAIT) {
        AudioPathGuard::forbidWait("futex to wait", nullptr);
    }
    NEXT(syscall);
    return real(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}

}  // extern "C"
