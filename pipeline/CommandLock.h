#pragma once

#include <pthread.h>

#include <cstdint>

#include "utils/Mutex.h"

namespace android {

/** A lock with one condition, timed by the monotonic clock. */
class CAPABILITY("mutex") CommandLock {
public:
    CommandLock();
    ~CommandLock();
    CommandLock(const CommandLock&) = delete;
    CommandLock& operator=(const CommandLock&) = delete;

    void lock() ACQUIRE();
    void unlock() RELEASE();

    /** Wakes one waiter. */
    void signal() REQUIRES(this) { pthread_cond_signal(&mCond); }
    /** Releases the lock, sleeps until a signal (or for no reason), takes it again. */
    void wait() REQUIRES(this) { pthread_cond_wait(&mCond, &mMutex); }
    /** The same until `deadlineNs` of the monotonic clock; false once that has passed. */
    bool waitUntil(int64_t deadlineNs) REQUIRES(this);

    class SCOPED_CAPABILITY Autolock {
    public:
        explicit Autolock(CommandLock& lock) ACQUIRE(lock) : mLock(lock) { mLock.lock(); }
        ~Autolock() RELEASE() { mLock.unlock(); }
        Autolock(const Autolock&) = delete;
        Autolock& operator=(const Autolock&) = delete;

    private:
        CommandLock& mLock;
    };

private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t mCond;
};

}  // namespace android
