// What allocates or touches a file. AudioPathWaitGuard.cpp has what waits.

#include "tests/support/GuardedCall.h"

#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

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

#define FORBID(result, name, ...) REPORT(forbid(#name), result, name, __VA_ARGS__)

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
