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

bool CommandLock::waitUntil(int64_t deadlineNs) {
    constexpr int64_t kNsPerSecond = 1'000'000'000;
    const timespec deadline = {.tv_sec = deadlineNs / kNsPerSecond,
                               .tv_nsec = deadlineNs % kNsPerSecond};
    return pthread_cond_timedwait(&mCond, &mMutex, &deadline) != ETIMEDOUT;
}

}  // namespace android
