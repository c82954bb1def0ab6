#pragma once

#include <pthread.h>

#include "utils/Errors.h"
#include "utils/LockPlace.h"

// Clang proves lock rules from these (-Wthread-safety); other compilers read over them.
#if defined(__clang__)
#define THREAD_ANNOTATION_ATTRIBUTE__(x) __attribute__((x))
#else
#define THREAD_ANNOTATION_ATTRIBUTE__(x)
#endif
#define CAPABILITY(x) THREAD_ANNOTATION_ATTRIBUTE__(capability(x))
#define SCOPED_CAPABILITY THREAD_ANNOTATION_ATTRIBUTE__(scoped_lockable)
#define GUARDED_BY(x) THREAD_ANNOTATION_ATTRIBUTE__(guarded_by(x))
#define REQUIRES(...) THREAD_ANNOTATION_ATTRIBUTE__(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) THREAD_ANNOTATION_ATTRIBUTE__(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) THREAD_ANNOTATION_ATTRIBUTE__(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) THREAD_ANNOTATION_ATTRIBUTE__(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) THREAD_ANNOTATION_ATTRIBUTE__(release_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(x) THREAD_ANNOTATION_ATTRIBUTE__(assert_capability(x))
#define NO_THREAD_SAFETY_ANALYSIS THREAD_ANNOTATION_ATTRIBUTE__(no_thread_safety_analysis)

namespace android {

/** A plain, non-recursive lock. */
class CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    /** `name`: for whoever looks for a deadlock, and the lock's place in LockOrder. */
    constexpr explicit Mutex(const char* name) : mPlace(name) {}
    ~Mutex() { pthread_mutex_destroy(&mMutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    status_t lock() ACQUIRE() {
        mPlace.take();
        return -pthread_mutex_lock(&mMutex);
    }
    /** Never waits. 0, or -EBUSY with the lock held by somebody else. */
    status_t tryLock() TRY_ACQUIRE(0) {
        const int error = pthread_mutex_trylock(&mMutex);
        if (error == 0) {
            mPlace.take();
        }
        return -error;
    }
    void unlock() RELEASE() {
        mPlace.release();  // first: the next holder may destroy the lock
        pthread_mutex_unlock(&mMutex);
    }

    /** Holds a lock for a scope. */
    class SCOPED_CAPABILITY Autolock {
    public:
        explicit Autolock(Mutex& mutex) ACQUIRE(mutex) : mLock(mutex) { mLock.lock(); }
        ~Autolock() RELEASE() { mLock.unlock(); }
        Autolock(const Autolock&) = delete;
        Autolock& operator=(const Autolock&) = delete;

    private:
        Mutex& mLock;
    };

private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    [[no_unique_address]] LockPlace mPlace{nullptr};
};

}  // namespace android
