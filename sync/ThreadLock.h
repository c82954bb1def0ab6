#pragma once

#include "sync/PriorityMutex.h"
#include "utils/Mutex.h"

namespace android {

/**
 * A lock that lets a waiting thread in before its holder can take it again. The worker releases the
 * thread lock between two cycles only to take it at once; with a plain mutex a control call could
 * lose that race for as long as audio plays.
 */
class CAPABILITY("mutex") ThreadLock {
public:
    void lock() ACQUIRE();
    void unlock() RELEASE();

    class SCOPED_CAPABILITY Autolock {
    public:
        explicit Autolock(ThreadLock& lock) ACQUIRE(lock) : mLock(lock) { mLock.lock(); }
        ~Autolock() RELEASE() { mLock.unlock(); }
        Autolock(const Autolock&) = delete;
        Autolock& operator=(const Autolock&) = delete;

    private:
        ThreadLock& mLock;
    };

private:
    // Held while waiting for mLock, so the next comer waits behind.
    PriorityMutex mTurnstile{"worker turn"};
    PriorityMutex mLock{"worker"};
};

}  // namespace android
