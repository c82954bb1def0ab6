#include "tests/support/AudioPathGuard.h"

// The definitions below take the C library's place; its checking wrappers must not.
#undef _FORTIFY_SOURCE

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

extern "C" {

// The C library's allocator under its other names: dlsym() would itself allocate.
void* __libc_malloc(size_t byteCount);
void* __libc_calloc(size_t count, size_t byteCount);
void* __libc_realloc(void* storage, size_t byteCount);
void* __libc_memalign(size_t alignment, size_t byteCount);
void __libc_free(void* storage);

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

void* aligned_alloc(size_t alignment, size_t byteCount) noexcept {
    AudioPathGuard::forbid("aligned_alloc");
    return __libc_memalign(alignment, byteCount);
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

FILE* fopen(const char* path, const char* mode) {
    AudioPathGuard::forbid("fopen");
    NEXT(fopen);
    return real(path, mode);
}

ssize_t read(int fd, void* buffer, size_t byteCount) {
    AudioPathGuard::forbid("read");
    NEXT(read);
    return real(fd, buffer, byteCount);
}

ssize_t write(int fd, const void* buffer, size_t byteCount) {
    AudioPathGuard::forbid("write");
    NEXT(write);
    return real(fd, buffer, byteCount);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    const int status = pthread_mutex_trylock(mutex);
    if (status != EBUSY) {
        return status;
    }
    AudioPathGuard::forbidWait("pthread_mutex_lock", mutex);
    NEXT(pthread_mutex_lock);
    return real(mutex);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    AudioPathGuard::forbidWait("pthread_cond_wait", nullptr);
    NEXT(pthread_cond_wait);
    return real(condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* deadline) {
    AudioPathGuard::forbidWait("pthread_cond_timedwait", nullptr);
    NEXT(pthread_cond_timedwait);
    return real(condition, mutex, deadline);
}

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
