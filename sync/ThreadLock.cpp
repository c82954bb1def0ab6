#include "sync/ThreadLock.h"

namespace android {

void ThreadLock::lock() NO_THREAD_SAFETY_ANALYSIS {
    mTurnstile.lock();
    mLock.lock();
    mTurnstile.unlock();
}

void ThreadLock::unlock() NO_THREAD_SAFETY_ANALYSIS {
    mLock.unlock();
}

}  // namespace android
