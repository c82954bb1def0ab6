// The functions of the C library behind which a run stands. Each belongs to the run on a thread of
// the run, and to the system on any other.
//
// A lock is really taken, by trying: so it is held in the system's eyes, and a sanitizer's, too, and
// a run may begin and end with locks held.

#include <linux/futex.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>

#include "platform/virtualtime/Scheduler.h"
#include "platform/virtualtime/SystemCalls.h"

using android::Scheduler;
using Outcome = android::VirtualThread::Outcome;
using Wait = android::VirtualThread::Wait;
namespace system_call = android::system_call;

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
// Virtual runs have one day in common. It also tells a time of the wall clock from one of the
// monotonic clock, for a condition does not say which it was made for.
constexpr int64_t kWallStartNs = 1'800'000'000 * kNsPerSecond;

/** What tells steps apart in the hash. */
enum Step : uint32_t { LOCK = 1, UNLOCK, NOTIFY, FUTEX_STEP, TRY };

int64_t nsOf(const timespec& time) {
    return time.tv_sec > INT64_MAX / kNsPerSecond - 1
               ? Scheduler::kForever
               : int64_t{time.tv_sec} * kNsPerSecond + time.tv_nsec;
}

timespec timeOf(int64_t ns) {
    return {.tv_sec = ns / kNsPerSecond, .tv_nsec = ns % kNsPerSecond};
}

/** Of a point in time of either clock. */
int64_t deadlineOf(const timespec* time) {
    const int64_t ns = nsOf(*time);
    return ns >= kWallStartNs && ns != Scheduler::kForever ? ns - kWallStartNs : ns;
}

int64_t deadlineIn(Scheduler& scheduler, const timespec* duration) {
    if (duration == nullptr) {
        return Scheduler::kForever;
    }
    const int64_t ns = nsOf(*duration);
    const int64_t now = scheduler.readClock();
    return ns > Scheduler::kForever - now ? Scheduler::kForever : now + ns;
}

bool isWallClock(clockid_t clock) {
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
}

bool isProcessorClock(clockid_t clock) {
    return clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_THREAD_CPUTIME_ID || clock < 0;
}

/** Takes a lock by `attempt`, which returns EBUSY while it is held. */
template <typename Attempt>
int take(Scheduler& scheduler, const void* lock, int64_t deadlineNs, Attempt attempt) {
    scheduler.step(LOCK);
    for (;;) {
        const int error = attempt();
        if (error != EBUSY) {
            return error;
        }
        if (scheduler.block(Wait::LOCK, lock, deadlineNs) == Outcome::TIMED_OUT) {
            return ETIMEDOUT;
        }
    }
}

int takeMutex(Scheduler& scheduler, pthread_mutex_t* mutex, int64_t deadlineNs) {
    return take(scheduler, mutex, deadlineNs,
                [mutex] { return system_call::pthread_mutex_trylock()(mutex); });
}

int releaseMutex(Scheduler& scheduler, pthread_mutex_t* mutex) {
    const int error = system_call::pthread_mutex_unlock()(mutex);
    scheduler.wake(Wait::LOCK, mutex, INT32_MAX);
    return error;
}

int waitForCondition(Scheduler& scheduler, pthread_cond_t* condition, pthread_mutex_t* mutex,
                     int64_t deadlineNs) {
    scheduler.step(LOCK);
    releaseMutex(scheduler, mutex);  // nobody else runs before block()
    const Outcome outcome = scheduler.block(Wait::CONDITION, condition, deadlineNs);
    takeMutex(scheduler, mutex, Scheduler::kForever);
    return outcome == Outcome::TIMED_OUT ? ETIMEDOUT : 0;
}

int notifyCondition(Scheduler& scheduler, pthread_cond_t* condition, int count) {
    scheduler.wake(Wait::CONDITION, condition, count);
    scheduler.step(NOTIFY);
    return 0;
}

long failWith(int error) {
    errno = error;
    return -1;
}

long waitOnFutex(Scheduler& scheduler, const uint32_t* word, uint32_t expected,
                 int64_t deadlineNs) {
    scheduler.step(FUTEX_STEP);
    if (__atomic_load_n(word, __ATOMIC_ACQUIRE) != expected) {
        return failWith(EAGAIN);
    }
    switch (scheduler.block(Wait::FUTEX, word, deadlineNs)) {
        case Outcome::WOKEN:
            return 0;
        case Outcome::TIMED_OUT:
            return failWith(ETIMEDOUT);
        case Outcome::SPURIOUS:
            return failWith(EINTR);
    }
    return 0;
}

long futex(Scheduler& scheduler, uint32_t* word, int operation, uint32_t value,
           const timespec* timeout) {
    const int kind = operation & FUTEX_CMD_MASK;
    switch (kind) {
        case FUTEX_WAIT:
            return waitOnFutex(scheduler, word, value, deadlineIn(scheduler, timeout));
        case FUTEX_WAIT_BITSET:
            return waitOnFutex(scheduler, word, value,
                               timeout != nullptr ? deadlineOf(timeout) : Scheduler::kForever);
        case FUTEX_WAKE:
        case FUTEX_WAKE_BITSET: {
            long woken = scheduler.wake(Wait::FUTEX, word, static_cast<int>(value));
            if (woken == 0) {
                // A sleeper outside the run.
                woken = system_call::syscall()(SYS_futex, word, operation, value, timeout, nullptr,
                                               ~0U);
            }
            scheduler.step(FUTEX_STEP);
            return woken;
        }
        default:
            return failWith(ENOSYS);
    }
}

int sleepUntil(Scheduler& scheduler, int64_t deadlineNs) {
    scheduler.block(Wait::SLEEP, nullptr, deadlineNs);
    return 0;
}

}  // namespace

// Defined under names of their own, so that their types need not repeat the system headers'.
#define STREAMPROXY_SEAM(result, name, ...)                                               \
    extern "C" [[gnu::visibility("default")]] result seam_##name(__VA_ARGS__) asm(#name); \
    extern "C" result seam_##name(__VA_ARGS__)

STREAMPROXY_SEAM(int, pthread_mutex_lock, pthread_mutex_t* mutex) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr ? takeMutex(*scheduler, mutex, Scheduler::kForever)
                                : system_call::pthread_mutex_lock()(mutex);
}

STREAMPROXY_SEAM(int, pthread_mutex_trylock, pthread_mutex_t* mutex) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler != nullptr) {
        scheduler->step(TRY);
    }
    return system_call::pthread_mutex_trylock()(mutex);
}

STREAMPROXY_SEAM(int, pthread_mutex_timedlock, pthread_mutex_t* mutex, const timespec* deadline) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr ? takeMutex(*scheduler, mutex, deadlineOf(deadline))
                                : system_call::pthread_mutex_timedlock()(mutex, deadline);
}

STREAMPROXY_SEAM(int, pthread_mutex_clocklock, pthread_mutex_t* mutex, clockid_t clock,
                 const timespec* deadline) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr ? takeMutex(*scheduler, mutex, deadlineOf(deadline))
                                : system_call::pthread_mutex_clocklock()(mutex, clock, deadline);
}

STREAMPROXY_SEAM(int, pthread_mutex_unlock, pthread_mutex_t* mutex) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler == nullptr) {
        return system_call::pthread_mutex_unlock()(mutex);
    }
    const int error = releaseMutex(*scheduler, mutex);
    scheduler->step(UNLOCK);
    return error;
}

STREAMPROXY_SEAM(int, pthread_rwlock_rdlock, pthread_rwlock_t* lock) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr
               ? take(*scheduler, lock, Scheduler::kForever,
                      [lock] { return system_call::pthread_rwlock_tryrdlock()(lock); })
               : system_call::pthread_rwlock_rdlock()(lock);
}

STREAMPROXY_SEAM(int, pthread_rwlock_wrlock, pthread_rwlock_t* lock) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr
               ? take(*scheduler, lock, Scheduler::kForever,
                      [lock] { return system_call::pthread_rwlock_trywrlock()(lock); })
               : system_call::pthread_rwlock_wrlock()(lock);
}

STREAMPROXY_SEAM(int, pthread_rwlock_unlock, pthread_rwlock_t* lock) {
    Scheduler* const scheduler = Scheduler::current();
    const int error = system_call::pthread_rwlock_unlock()(lock);
    if (scheduler != nullptr) {
        scheduler->wake(Wait::LOCK, lock, INT32_MAX);
        scheduler->step(UNLOCK);
    }
    return error;
}

STREAMPROXY_SEAM(int, pthread_cond_wait, pthread_cond_t* condition, pthread_mutex_t* mutex) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr
               ? waitForCondition(*scheduler, condition, mutex, Scheduler::kForever)
               : system_call::pthread_cond_wait()(condition, mutex);
}

STREAMPROXY_SEAM(int, pthread_cond_timedwait, pthread_cond_t* condition, pthread_mutex_t* mutex,
                 const timespec* deadline) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr
               ? waitForCondition(*scheduler, condition, mutex, deadlineOf(deadline))
               : system_call::pthread_cond_timedwait()(condition, mutex, deadline);
}

STREAMPROXY_SEAM(int, pthread_cond_clockwait, pthread_cond_t* condition, pthread_mutex_t* mutex,
                 clockid_t clock, const timespec* deadline) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr
               ? waitForCondition(*scheduler, condition, mutex, deadlineOf(deadline))
               : system_call::pthread_cond_clockwait()(condition, mutex, clock, deadline);
}

STREAMPROXY_SEAM(int, pthread_cond_signal, pthread_cond_t* condition) {
    Scheduler* const scheduler = Scheduler::current();
    const int error = system_call::pthread_cond_signal()(condition);
    return scheduler != nullptr ? notifyCondition(*scheduler, condition, 1) : error;
}

STREAMPROXY_SEAM(int, pthread_cond_broadcast, pthread_cond_t* condition) {
    Scheduler* const scheduler = Scheduler::current();
    const int error = system_call::pthread_cond_broadcast()(condition);
    return scheduler != nullptr ? notifyCondition(*scheduler, condition, INT32_MAX) : error;
}

STREAMPROXY_SEAM(int, pthread_create, pthread_t* handle, const pthread_attr_t* attributes,
                 void* (*start)(void*), void* argument) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr
               ? scheduler->create(handle, attributes, start, argument)
               : system_call::pthread_create()(handle, attributes, start, argument);
}

STREAMPROXY_SEAM(int, pthread_join, pthread_t handle, void** result) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr ? scheduler->join(handle, result)
                                : system_call::pthread_join()(handle, result);
}

STREAMPROXY_SEAM(int, pthread_detach, pthread_t handle) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr ? scheduler->detach(handle) : system_call::pthread_detach()(handle);
}

STREAMPROXY_SEAM(int, sched_yield) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler == nullptr) {
        return system_call::sched_yield()();
    }
    scheduler->yield();
    return 0;
}

STREAMPROXY_SEAM(int, clock_gettime, clockid_t clock, timespec* time) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler == nullptr || isProcessorClock(clock)) {
        return system_call::clock_gettime()(clock, time);
    }
    *time = timeOf(scheduler->readClock() + (isWallClock(clock) ? kWallStartNs : 0));
    return 0;
}

STREAMPROXY_SEAM(int, gettimeofday, timeval* time, void* zone) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler == nullptr) {
        return system_call::gettimeofday()(time, zone);
    }
    const timespec now = timeOf(scheduler->readClock() + kWallStartNs);
    *time = {.tv_sec = now.tv_sec, .tv_usec = now.tv_nsec / 1000};
    return 0;
}

STREAMPROXY_SEAM(time_t, time, time_t* time) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler == nullptr) {
        return system_call::time()(time);
    }
    const time_t now = timeOf(scheduler->readClock() + kWallStartNs).tv_sec;
    if (time != nullptr) {
        *time = now;
    }
    return now;
}

STREAMPROXY_SEAM(int, nanosleep, const timespec* duration, timespec* rest) {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr ? sleepUntil(*scheduler, deadlineIn(*scheduler, duration))
                                : system_call::nanosleep()(duration, rest);
}

STREAMPROXY_SEAM(int, clock_nanosleep, clockid_t clock, int flags, const timespec* time,
                 timespec* rest) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler == nullptr || isProcessorClock(clock)) {
        return system_call::clock_nanosleep()(clock, flags, time, rest);
    }
    const bool isPoint = (flags & TIMER_ABSTIME) != 0;
    return sleepUntil(*scheduler, isPoint ? deadlineOf(time) : deadlineIn(*scheduler, time));
}

STREAMPROXY_SEAM(int, usleep, useconds_t durationUs) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler == nullptr) {
        return system_call::usleep()(durationUs);
    }
    const timespec duration = timeOf(int64_t{durationUs} * 1000);
    return sleepUntil(*scheduler, deadlineIn(*scheduler, &duration));
}

STREAMPROXY_SEAM(unsigned, sleep, unsigned seconds) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler == nullptr) {
        return system_call::sleep()(seconds);
    }
    const timespec duration = {.tv_sec = seconds, .tv_nsec = 0};
    return static_cast<unsigned>(sleepUntil(*scheduler, deadlineIn(*scheduler, &duration)));
}

STREAMPROXY_SEAM(long, syscall, long number, ...) {
    va_list arguments;
    va_start(arguments, number);
    Scheduler* const scheduler = Scheduler::current();
    long result = 0;
    if (scheduler != nullptr && number == SYS_futex) {
        auto* const word = va_arg(arguments, uint32_t*);
        const int operation = va_arg(arguments, int);
        const uint32_t value = va_arg(arguments, uint32_t);
        result = futex(*scheduler, word, operation, value, va_arg(arguments, const timespec*));
    } else {
        // Six arguments, as the kernel takes; those that a call does not have are passed on unread.
        long passed[6];
        for (long& argument : passed) {
            argument = va_arg(arguments, long);
        }
        result = system_call::syscall()(number, passed[0], passed[1], passed[2], passed[3],
                                        passed[4], passed[5]);
    }
    va_end(arguments);
    return result;
}
