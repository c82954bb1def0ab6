#include "pipeline/CommandLock.h"

#include <cerrno>

namespace android {

CommandLock::CommandLock() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&mCond, &attributes);
    pthread_condattr_destroy(&attributes);
}

CommandLock::~CommandLock() {
    pthread_cond_destroy(&mCond);
    pthread_mutex_destroy(&mMutex);
}

// The platform's locks know their place by themselves; this one has to say it.
void CommandLock::lock() {
#ifdef STREAMPROXY_CHECK_LOCK_ORDER
    LockOrder::take("command queue", this);
#endif
    pthread_mutex_lock(&mMutex);
}

void CommandLock::unlock() {
#ifdef STREAMPROXY_CHECK_LOCK_ORDER
    LockOrder::release(this);
#endif
    pthread_mutex_unlock(&mMutex);
}

bool CommandLock::waitUntil(int64_t deadlineNs) {
    constexpr int64_t kNsPerSecond = 1'000'000'000;
    const timespec deadline = {.tv_sec = deadlineNs / kNsPerSecond,
                               .tv_nsec = deadlineNs % kNsPerSecond};
    return pthread_cond_timedwait(&mCond, &mMutex, &deadline) != ETIMEDOUT;
}

}  // namespace android
