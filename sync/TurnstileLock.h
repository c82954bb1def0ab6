#pragma once

#include "sync/PriorityMutex.h"
#include "sync/ScopedLock.h"
#include "utils/Mutex.h"

namespace android {

/**
 * A lock that lets a waiting thread in before its holder can take it again. With a plain lock, a
 * thread that releases it only to take it at once would win that race for as long as it goes on.
 */
template <typename Lock>
class CAPABILITY("mutex") TurnstileLock {
public:
    using Autolock = ScopedLock<TurnstileLock>;

    /** Two places in the lock order, see platform/utils/LockOrder.cpp. */
    TurnstileLock(const char* turnstileName, const char* name)
        : mTurnstile(turnstileName), mLock(name) {}

    void lock() ACQUIRE();
    void unlock() RELEASE();
    /** As the lock's own. */
    void assertHeld() const ASSERT_CAPABILITY(this) { mLock.assertHeld(); }

private:
    // Held while waiting for mLock, so the next comer waits behind.
    Lock mTurnstile;
    Lock mLock;
};

}  // namespace android
