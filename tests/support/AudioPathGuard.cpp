#include "tests/support/AudioPathGuard.h"

// The definitions below take the C library's place; its checking wrappers must not.
#undef _FORTIFY_SOURCE

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/support/CLibraryAllocator.h"

void AudioPathGuard::report(const char* what) {
    const HostCode ours;
    if (sReport != nullptr) {
        sReport(what);
        return;
    }
    fprintf(stderr, "the mixer's thread must not call %s\n", what);
    abort();
}

namespace {

/** The definition behind ours. */
template <typename Function>
Function* next(Function* /*ours*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define NEXT(name) static auto* const real = next(&(name), #name)

// Definitions that report, then do what the C library's do with the arguments behind `parameters`.
#define REPORT(report, result, name, parameters, ...) \
    result name parameters {                          \
        AudioPathGuard::report;                       \
        NEXT(name);                                   \
        return real(__VA_ARGS__);                     \
    }
#define FORBID(result, name, ...) REPORT(forbid(#name), result, name, __VA_ARGS__)
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

void* malloc(size_t byteCount) noexcept {
    AudioPathGuard::forbid("malloc");
    return __libc_malloc(byteCount);
}

void* calloc(size_t count, size_t byteCount) noexcept {
    AudioPathGuard::forbid("calloc");
    return __libc_calloc(count, byteCount);
}

void* realloc(void* storage, size_t byteCount) noexcept {
    AudioPathGuard::forbid("realloc");
    return __libc_realloc(storage, byteCount);
}

void free(void* storage) noexcept {
    // The C library ends a thread with the release of buffers that it never made.
    if (storage != nullptr) {
        AudioPathGuard::forbid("free");
    }
    __libc_free(storage);
}

int open(const char* path, int flags, ...) {
    AudioPathGuard::forbid("open");
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return openat(AT_FDCWD, path, flags, mode);
}

FORBID(void*, aligned_alloc, (size_t alignment, size_t size) noexcept, alignment, size)
FORBID(void*, memalign, (size_t alignment, size_t size) noexcept, alignment, size)
FORBID(int, posix_memalign, (void** storage, size_t alignment, size_t size) noexcept, storage,
       alignment, size)
FORBID(FILE*, fopen, (const char* path, const char* mode), path, mode)
FORBID(size_t, fwrite, (const void* data, size_t size, size_t count, FILE* file), data, size, count,
       file)
FORBID(ssize_t, read, (int fd, void* buffer, size_t byteCount), fd, buffer, byteCount)
FORBID(ssize_t, write, (int fd, const void* buffer, size_t byteCount), fd, buffer, byteCount)

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

/** A mixer's thread is known by its name. */
int pthread_setname_np(pthread_t thread, const char* name) noexcept {
    NEXT(pthread_setname_np);
    const int status = real(thread, name);
    if (strcmp(name, "MixerThread") == 0 && pthread_equal(thread, pthread_self()) != 0) {
        AudioPathGuard::watch(true);
    }
    return status;
}

}  // extern "C"
