#pragma once

#include <pthread.h>

#include "sync/ScopedLock.h"
#include "utils/Mutex.h"

#ifdef STREAMPROXY_CHECK_LOCK_ORDER
#include "utils/LockOrder.h"
#endif

namespace android {

/**
 * A plain lock for which the worker may wait. Its holder inherits the priority of a real-time thread
 * that waits for it, so that the system does not let others preempt the holder meanwhile. Nice
 * values are not inherited: whoever holds such a lock beside the worker keeps it for a few words.
 */
class CAPABILITY("mutex") PriorityMutex {
public:
    using Autolock = ScopedLock<PriorityMutex>;

    /** `name`: its place in the lock order, see platform/utils/LockOrder.cpp. */
    explicit PriorityMutex(const char* name);
    ~PriorityMutex() { pthread_mutex_destroy(&mMutex); }
    PriorityMutex(const PriorityMutex&) = delete;
    PriorityMutex& operator=(const PriorityMutex&) = delete;

    void lock() ACQUIRE() {
#ifdef STREAMPROXY_CHECK_LOCK_ORDER
        LockOrder::take(mName, this);
#endif
        pthread_mutex_lock(&mMutex);
    }
    void unlock() RELEASE() {
#ifdef STREAMPROXY_CHECK_LOCK_ORDER
        LockOrder::release(this);  // first: the next holder may destroy the lock
#endif
        pthread_mutex_unlock(&mMutex);
    }

    /** Aborts in builds that check the order of locks, unless this thread holds it. */
    void assertHeld() const ASSERT_CAPABILITY(this) {
#ifdef STREAMPROXY_CHECK_LOCK_ORDER
        LockOrder::assertHeld(mName, this);
#endif
    }

private:
    pthread_mutex_t mMutex;
#ifdef STREAMPROXY_CHECK_LOCK_ORDER
    const char* const mName;
#endif
};

}  // namespace android
